# Words and methods, as the program itself lists them.
_brumectl() {
    local words
    COMPREPLY=()
    if [[ $2 == -* ]]; then
        words='--socket --timeout --json --help'
    elif [[ $3 == call ]]; then
        words=$(brumectl --json --timeout 1 call cmds 2>/dev/null | tr -d '[]",')
    else
        words=$(brumectl --help 2>/dev/null | sed -n '/^Subcommands:/,$s/^  \([a-z][a-z_-]*\).*/\1/p')
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$2")
}
complete -o default -F _brumectl brumectl
