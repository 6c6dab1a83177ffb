#!/bin/sh
# The demo itself: a spy, and applications that appear, change and go before its eyes. Started by run-demo.sh in a network
# where only a loopback interface exists.
#
#   demo/play.sh FERRET PEERS-FOLDER
ferret=$1
peers=$2
started=

caption() {
    printf '\n# %s\n' "$*"
}

# Runs something beside the spy, to be ended with the demo whatever happens.
beside() {
    "$@" > /dev/null 2>&1 &
    last=$!
    started="$started $last"
}

finish() {
    # shellcheck disable=SC2086 # a list of process ids
    [ -n "$started" ] && kill $started 2> /dev/null
    wait
}
trap finish EXIT
trap 'exit 130' INT TERM

types=$(dirname "$0")/types.xml
caption 'ferret -printSample COMPACT -showPartition -qosFile demo/types.xml -timeout 14: a spy in domain 0, on the loopback interface only'
"$ferret" -printSample COMPACT -showPartition -qosFile "$types" -timeout 14 &
spy=$!
started="$started $spy"
sleep 1

caption 'an application on Cyclone DDS appears: a writer of "Square" and a reader of "Circle", both with partitions'
beside "$peers/peer_cyclone" 'participant name=shapes' \
    'writer square topic=Square type=shape partitions=Demo entity_name="square writer"' \
    'reader circle topic=Circle type=shape partitions=Demo,Test*' \
    'matched square' 'write square count=4 rate=2 keys=2' 'dispose square key=1' 'delete circle' 'pause seconds=60'
sleep 2

if [ -x "$peers/peer_fastdds" ]; then
    caption 'another one, on Fast DDS, writes "Temperature" (its type is read from demo/types.xml); it moves to another partition,' \
        'then it leaves'
    beside "$peers/peer_fastdds" 'participant name=thermometer' 'writer t topic=Temperature partitions=Indoors' \
        'matched t' 'write t count=2 rate=2 size=3' 'partitions t partitions=Outdoors' 'pause seconds=1' quit
    sleep 3
fi

if command -v ddsperf > /dev/null; then
    caption 'a benchmark program joins: its endpoints are found too'
    beside ddsperf -D 3 pub 2Hz size 64
    sleep 3
fi

caption 'an application with a lease of 2 seconds is killed without a farewell; the spy sees its lease run out'
CYCLONEDDS_URI='<Discovery><LeaseDuration>2s</LeaseDuration></Discovery>'
export CYCLONEDDS_URI
beside "$peers/peer_cyclone" participant 'writer doomed topic=Doomed' 'pause seconds=1' die
sleep 3

caption 'the time is over: statistics'
wait $spy
status=$?
# The tool's own convention: 1 after a completed run, 0 after a failure.
if [ $status -ne 1 ]; then
    echo "ferret failed (status $status)" >&2
    exit 1
fi
