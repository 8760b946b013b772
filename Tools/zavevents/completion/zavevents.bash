# Completion of zavevents for bash.

_zavevents_options() {
    case $1 in
    "") echo --help --key-file --log --trace --version ;;
    check | compact | stats) echo --help --json ;;
    checkpoint) echo --help --json --passive --truncate ;;
    conversation) echo --help --member --stream ;;
    conversations) echo --after --help --limit --member --unread-cap ;;
    delete) echo --cache --help --id --whole ;;
    delete-stream) echo --cache --help --stream-row ;;
    disk-usage) echo --help --json --tables ;;
    events)
        echo --after --all --before --help --id --last --limit --posted --publishable --revived --seq --stream \
            --unprocessed --unpublishable
        ;;
    import) echo --app-id --batch --help --record-changes --skip-bad-lines --user ;;
    init) echo --help ;;
    message) echo --event --help ;;
    message-seq) echo --event --help --seq --whole ;;
    missing) echo --help --json --limit --stream ;;
    outbox) echo --help --hold-back ;;
    participant-seq) echo --help --member --seq --stream --whole ;;
    parts)
        echo --event --expired-downloads --help --id --incomplete-downloads --incomplete-uploads --index \
            --least-recent --limit --max-size --message --mime --no-mime --object-id --unassigned-urls --url
        ;;
    processed) echo --help --id ;;
    receive) echo --all-or-none --app-id --cache --help --json --record-changes --stream --user ;;
    reclaim) echo --bytes --cache --dry-run --help ;;
    repair) echo --age --app-id --cache --dry-run --help --user ;;
    send) echo --cache --client-id --help --json --new-stream --stream --stream-row --text --user ;;
    sequence) echo --cache --creator --help --id --seq --timestamp --whole ;;
    stream-posted) echo --help --stream --stream-row ;;
    tombstone) echo --cache --help --seq --stream-row --whole ;;
    transfer) echo --accessed --event --expires --file --help --index --purged --size --status --url ;;
    watch) echo --every --help --last --stream ;;
    esac
    # A command takes these too.
    [ -z "$1" ] || echo --key-file --log --trace
}

_zavevents_takes_value() {
    case $1 in
    --all | --all-or-none | --dry-run | --expired-downloads | --help | -h | --hold-back | --incomplete-downloads | \
        --incomplete-uploads | --json | --new-stream | --no-mime | --passive | --posted | --publishable | --record-changes | --skip-bad-lines | --tables | --trace | \
        --truncate | --unassigned-urls | --unprocessed | --unpublishable | --version | --whole) return 1 ;;
    --*=*) return 1 ;;
    -*) return 0 ;;
    *) return 1 ;;
    esac
}

_zavevents_words() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

_zavevents_files() {
    mapfile -t COMPREPLY < <(compgen -f -- "$1")
    compopt -o filenames 2> /dev/null
}

_zavevents_directories() {
    mapfile -t COMPREPLY < <(compgen -d -- "$1")
    compopt -o filenames 2> /dev/null
}

_zavevents_value() {
    case $1 in
    --cache) _zavevents_directories "$2" ;;
    --key-file) _zavevents_files "$2" ;;
    --log) _zavevents_words "verbose error off" "$2" ;;
    --purged) _zavevents_words "0 1" "$2" ;;
    --status) _zavevents_words "0 1 2 3 4" "$2" ;;
    esac
}

_zavevents() {
    local current=${COMP_WORDS[COMP_CWORD]} command="" option="" word
    local -i positionals=0 index
    COMPREPLY=()
    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${COMP_WORDS[index]}
        if [ "$word" = = ]; then
            # As the shell splits --option=value: the option still waits for it.
            continue
        elif [ -n "$option" ]; then
            option=""
        elif _zavevents_takes_value "$word"; then
            option=$word
        elif [[ $word != -* ]]; then
            if [ -z "$command" ]; then
                command=$word
            else
                positionals+=1
            fi
        fi
    done
    [ "$current" = = ] && current=""

    if [ -n "$option" ]; then
        _zavevents_value "$option" "$current"
    elif [[ $current == -* ]]; then
        _zavevents_words "$(_zavevents_options "$command")" "$current"
    elif [ -z "$command" ]; then
        _zavevents_words "check checkpoint compact conversation conversations delete delete-stream disk-usage events import \
            init message message-seq missing outbox participant-seq parts processed receive reclaim repair send sequence \
            stats stream-posted tombstone transfer watch" "$current"
    elif ((positionals == 0)) || { ((positionals == 1)) && [[ $command =~ ^(import|receive|send)$ ]]; }; then
        _zavevents_files "$current"
    fi
}

complete -F _zavevents zavevents
