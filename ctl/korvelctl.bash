# Completion of korvelctl's command lines for bash. The options of `add` and `modify` are taken from --help.
# shellcheck shell=bash

_korvelctl_words() {
    korvelctl --help 2> /dev/null | sed -n "$1"
}

_korvelctl() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]} words
    COMPREPLY=()
    case $previous in
    --password-file) mapfile -t COMPREPLY < <(compgen -f -- "$word") && return ;;
    --service) words="internet tr069 voip other internet,tr069 internet,tr069,voip" ;;
    --ports | --vlan | --mvlan | --dslite) words="none" ;;
    --dns | --dns6) words="auto" ;;
    *)
        if [ "$COMP_CWORD" -eq 1 ]; then
            words="$(_korvelctl_words 's/^  \([a-z][a-z-]*\) .*/\1/p' | sort -u) --help --version"
        else
            case $command in
            status) words="--watch --json --timeout" ;;
            show) words="--secrets --json --timeout" ;;
            add | modify) words="$(_korvelctl_words 's/^  \(--[a-z0-9-]*\).*/\1/p') --json --timeout" ;;
            restore) words=$(korvelctl list 2> /dev/null | sed 's/.* //') ;;
            try) words="add modify del restore" ;;
            del) words="--all --json --timeout" ;;
            *) words="--json --timeout" ;;
            esac
        fi
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}
complete -F _korvelctl korvelctl
