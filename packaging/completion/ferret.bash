# Completion of ferret for bash.

_ferret() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local options="-help -helpHidden -version -domainId -domainTag -index -appId -verbosity -LogFormat -peer
        -discoveryTTL -transport -msgMaxSize -shmRcvSize -tcMaxSize -qosFile -qosProfile -hOutput -mode -deadline
        -discoveryPlugins -timeFilter -history -participantPartition -subscriberPartition -useFirstPublicationQos
        -showHandle -showSampleIdentity -showSampleFlags -typeRegex -topicRegex -typeWidth -topicWidth -printSample
        -timeout -showEntityName -showPartition -maxSizeSerialized -use43LargeDataFormat
        -use510CompatibleLocatorKinds -noDynamicData"
    local values=
    case $previous in
        -mode) values="USER DISC" ;;
        -printSample) values="PLAIN COMPACT" ;;
        -discoveryPlugins) values="SDP SDP2" ;;
        -transport) values="1 2 3 8 9 10 11" ;;
        -verbosity) values="0 1 2 3 4 5" ;;
        -peer)
            compopt -o nospace
            mapfile -t COMPREPLY < <(compgen -A hostname -- "$current")
            return
            ;;
        -qosFile)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -X '!*.xml' -- "$current"; compgen -d -- "$current")
            return
            ;;
        -domainId | -domainTag | -index | -appId | -LogFormat | -discoveryTTL | -msgMaxSize | -shmRcvSize | -tcMaxSize | \
            -qosProfile | -deadline | -timeFilter | -history | -participantPartition | -subscriberPartition | -typeRegex | \
            -topicRegex | -typeWidth | -topicWidth | -timeout | -maxSizeSerialized)
            return # any value
            ;;
    esac
    # The value of -printSample may be left out.
    if [[ -z $values || $current == -* ]]; then
        values="$values $options"
    fi
    mapfile -t COMPREPLY < <(compgen -W "$values" -- "$current")
}
complete -F _ferret ferret
