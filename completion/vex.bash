# bash completion for vex(1). Behind the program its arguments are completed as files.
_vex() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} i
    local values=' -n --tasks --forks --index-cache --stop-on-abort --debugger --console --attach --attach-config --mpi --launch --hosts
        --agent --rsh --script --report --timeout --join --consoles --core --stdin '
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; ++i)); do
        if [[ $values == *[[:space:]]"${COMP_WORDS[i]}"[[:space:]]* ]]; then
            ((++i))
        elif [[ ${COMP_WORDS[i]} != -* ]]; then
            # The program's own arguments.
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
        fi
    done
    case $previous in
    --join)
        mapfile -t COMPREPLY < <(compgen -W "$("${COMP_WORDS[0]}" --list 2>/dev/null | awk '$1 ~ /^[0-9]+$/ { print $1 }')" -- "$current")
        return
        ;;
    --attach | --mpi)
        mapfile -t COMPREPLY < <(compgen -W "$(ps -u "$(id -u)" -o pid= 2>/dev/null)" -- "$current")
        return
        ;;
    --attach-config | --script | --report | --hosts | --core | --stdin)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    --debugger | --console | --agent | --rsh)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(
            compgen -c -- "$current"
            compgen -f -- "$current"
        )
        return
        ;;
    --launch)
        mapfile -t COMPREPLY < <(compgen -W 'mpirun mpiexec srun ssh' -- "$current")
        return
        ;;
    --forks | --index-cache | --stop-on-abort)
        mapfile -t COMPREPLY < <(compgen -W 'yes no' -- "$current")
        return
        ;;
    -n | --tasks | --timeout | --consoles) return ;;
    esac
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '--attach --attach-config --mpi --partial --launch --hosts --agent --rsh
            --tasks --forks --index-cache --stop-on-abort --trace-mpi --debugger --console --consoles --script --report --timeout --core --stdin --list --join --help --version' -- "$current")
        return
    fi
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(
        compgen -f -- "$current"
        [[ $current == */* || -z $current ]] || compgen -c -- "$current"
    )
}
complete -F _vex vex
