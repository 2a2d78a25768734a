# Ctrl-T inserts paths that are chosen in fscan --interactive. To be sourced by ~/.zshrc.

fscan-insert-paths() {
    local -a paths
    paths=("${(@0)$(fscan -I -0)}")
    # What follows the last NUL is empty.
    paths=("${(@)paths:#}")
    (( $#paths )) && LBUFFER+="${(j: :)${(@q)paths}} "
    zle reset-prompt
}
zle -N fscan-insert-paths
bindkey '^T' fscan-insert-paths
