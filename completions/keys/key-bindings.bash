# shellcheck shell=bash
# Ctrl-T inserts paths that are chosen in fscan --interactive. To be sourced by ~/.bashrc.

__fscan_insert_paths() {
    local -a paths
    mapfile -d '' -t paths < <(fscan -I -0)
    [ ${#paths[@]} -gt 0 ] || return 0
    local words
    printf -v words '%q ' "${paths[@]}"
    READLINE_LINE=${READLINE_LINE:0:READLINE_POINT}$words${READLINE_LINE:READLINE_POINT}
    READLINE_POINT=$((READLINE_POINT + ${#words}))
}
bind -x '"\C-t": __fscan_insert_paths'
