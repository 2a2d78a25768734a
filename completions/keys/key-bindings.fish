# Ctrl-T inserts paths that are chosen in fscan --interactive. To be sourced by config.fish.

function fscan_insert_paths
    set -l paths (fscan -I -0 | string split0 | string escape)
    test (count $paths) -gt 0; and commandline -i -- (string join ' ' -- $paths)' '
    commandline -f repaint
end
bind \ct fscan_insert_paths
