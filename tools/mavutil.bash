# Completion of mavutil for bash. The verbs, operations and options are those of mavutil help.
_mavutil() {
    local word=${COMP_WORDS[COMP_CWORD]} words usage
    local verb=${COMP_WORDS[1]} operation=${COMP_WORDS[2]}
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ] || { [ "$COMP_CWORD" -eq 2 ] && [ "$verb" = help ]; }; then
        words=$(mavutil help 2>/dev/null | sed -n 's/^  \([a-z]*\)  .*/\1/p')
        [ "$COMP_CWORD" -eq 1 ] && words="$words --help --version"
    else
        usage=$(mavutil help "$verb" 2>/dev/null | sed -n '/^[^ ]/q;/^  mavutil /p')
        words=$(sed -n "s/^  mavutil $verb \([a-z]*\)\( .*\)*$/\1/p" <<<"$usage")
        if [ "$COMP_CWORD" -gt 2 ] || [ -z "$words" ]; then
            [ -z "$words" ] || usage=$(grep "^  mavutil $verb $operation " <<<"$usage ")
            words=
            case $word in
            -*) words="--help $(grep -oE '\[--?[a-z]+' <<<"$usage" | tr -d '[')" ;;
            esac
            case $usage in
            *FILE* | *LOG* | *PATH*) [ -n "$words" ] || compopt -o default 2>/dev/null ;;
            *UNIT*) [ -n "$words" ] || words='second minute hour day month year now' ;;
            esac
        fi
    fi
    # shellcheck disable=SC2207 # words without blanks
    COMPREPLY=($(compgen -W "$words" -- "$word"))
}
complete -F _mavutil mavutil
