# bash completion for vexfold(1).
_vexfold() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    case $previous in
    --mode)
        mapfile -t COMPREPLY < <(compgen -W 'auto collapsed expanded' -- "$current")
        return
        ;;
    --color)
        mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- "$current")
        return
        ;;
    --label) return ;;
    esac
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '--mode --color --label --files --whole --count --json --follow
            --help --version' -- "$current")
        return
    fi
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
}
complete -F _vexfold vexfold
