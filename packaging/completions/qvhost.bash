# SPDX-License-Identifier: Apache-2.0

# Completes qvhost in bash 3.2 or newer. Source this file, or put it into bash-completion's directory under the
# name qvhost.

# Prints the options of a subcommand. Without a subcommand, prints those that may stand before one.
_qvhost_options() {
    local help='--help --version' plugin='--config-dir --plugin --log-dir' host='--socket --timeout'
    case $1 in
        serve) echo "$help $plugin --socket --threads --max-message --max-clients --max-memory" \
            "--idle-timeout --frame-timeout --stop-timeout --allow-user --allow-group" ;;
        register) echo "$help $host --sync" ;;
        unregister | run | get | wait | level | ping | sync) echo "$help $host" ;;
        status | watch) echo "$help $host --json" ;;
        list) echo "$help --config-dir $host --json --csv --offline --match" ;;
        import) echo "$help $host --format" ;;
        export) echo "$help $host --format --replace" ;;
        init | info) echo "$help $plugin --json" ;;
        "") echo "$help $plugin $host --json" ;;
    esac
}

# Prints what may stand after an option that takes a value. Fails for an option that takes none.
_qvhost_value() {
    case $1 in
        --plugin | --socket) compgen -f -- "$2" ;;
        --config-dir | --log-dir) compgen -d -- "$2" ;;
        --format) compgen -W 'csv json' -- "$2" ;;
        --allow-user) compgen -u -- "$2" ;;
        --allow-group) compgen -g -- "$2" ;;
        --threads | --max-message | --max-clients | --max-memory | --idle-timeout | \
            --frame-timeout | --stop-timeout | --timeout | --match) ;;
        *) return 1 ;;
    esac
}

# Prints the registered identifiers. Asks the host that the command line names.
_qvhost_identifiers() {
    local -a named
    local position
    for ((position = 1; position < COMP_CWORD; ++position)); do
        case ${COMP_WORDS[position]} in
            --socket)
                named=(--socket "${COMP_WORDS[position + 1]}")
                [ "${named[1]}" = = ] && named[1]=${COMP_WORDS[position + 2]}
                ;;
        esac
    done
    "${COMP_WORDS[0]}" "${named[@]}" list --json --timeout 1 2>/dev/null | grep -o '{"id":[-0-9]*' | cut -d : -f 2
}

_qvhost() {
    local subcommands='serve register unregister run get wait watch list level import export ping status sync init info'
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local subcommand='' behind=0 word position values
    COMPREPLY=()

    # bash takes the = of --option=value for a word of its own.
    if [ "$current" = = ]; then
        current=''
    elif [ "$previous" = = ]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for ((position = 1; position < COMP_CWORD; ++position)); do
        word=${COMP_WORDS[position]}
        case $word in
            --)
                # What follows is a command of its own, or an argument that begins with a dash.
                behind=$((COMP_CWORD - position))
                break
                ;;
            = | -*) ;;
            *)
                [ -z "$subcommand" ] || continue
                # The value of an option is no subcommand.
                [ "${COMP_WORDS[position - 1]}" = = ] && continue
                _qvhost_value "${COMP_WORDS[position - 1]}" '' >/dev/null && continue
                subcommand=$word
                ;;
        esac
    done

    if [ "$subcommand" = run ] && [ "$behind" -gt 0 ]; then
        if [ "$behind" -eq 1 ]; then
            values=$(compgen -c -- "$current")
        else
            values=$(compgen -f -- "$current")
        fi
    elif values=$(_qvhost_value "$previous" "$current"); then
        :
    elif [ "${current#-}" != "$current" ] && [ "${current#-[0-9]}" = "$current" ]; then
        values=$(compgen -W "$(_qvhost_options "$subcommand")" -- "$current")
    else
        case $subcommand in
            "") values=$(compgen -W "$subcommands" -- "$current") ;;
            level) values=$(compgen -W '0 1 2 3 4 5 6 7' -- "$current") ;;
            get | wait | watch | unregister) values=$(compgen -W "$(_qvhost_identifiers)" -- "$current") ;;
            import | export) values=$(compgen -f -- "$current") ;;
        esac
    fi
    while IFS= read -r word; do
        [ -z "$word" ] || COMPREPLY+=("$word")
    done <<<"$values"
}

complete -o filenames -F _qvhost qvhost
