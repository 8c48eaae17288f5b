# Completion of kip's commands, options, modes and files for bash.

_kip_files() { # EXTENSION...: folders, and files that end in one of these
    local extension IFS=$'\n'
    COMPREPLY=($(compgen -d -- "$word"))
    for extension in "$@"; do
        COMPREPLY+=($(compgen -f -X "!*.$extension" -- "$word"))
    done
    compopt -o filenames 2>/dev/null
}

_kip() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]}
    local pictures="png tif tiff jpg jpeg pgm"
    local sampling="--page --rect --angle --corners --size --mode --threads --clip --time --overlay"
    local options=
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        COMPREPLY=($(compgen -W "transform project sums info scene --help --version" -- "$word"))
        return
    fi
    # bash takes the = of --mode=cubic for a word of its own.
    if [ "$word" = = ]; then
        word=
    elif [ "$before" = = ]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    case $before in
    --mode) COMPREPLY=($(compgen -W "nearest bilinear separable cubic" -- "$word")) ;;
    --axis) COMPREPLY=($(compgen -W "rows columns" -- "$word")) ;;
    --format) COMPREPLY=($(compgen -W "png tiff pgm" -- "$word")) ;;
    --depth) COMPREPLY=($(compgen -W "8 16" -- "$word")) ;;
    --overlay) _kip_files png ;;
    --output | -o) _kip_files csv json ;;
    --plot) _kip_files svg ;;
    --mask) _kip_files png tif tiff pgm ;;
    --rect | --angle | --corners | --size | --threads | --window | --seed | --page) ;;
    *)
        case $command in
        transform) options="$sampling --format --mask" ;;
        project) options="$sampling --mean --output --plot" ;;
        sums) options="--page --axis --window --output --plot" ;;
        info) options="--json" ;;
        scene) options="--format --size --depth --seed --angle" ;;
        esac
        case $word in
        -*) COMPREPLY=($(compgen -W "--help $options" -- "$word")) ;;
        *) _kip_files $pictures ;;
        esac
        ;;
    esac
}

complete -F _kip kip
