#!/bin/sh
# Runs a command where only a loopback interface exists, with multicast on it, so that nothing DDS sends or hears can
# leave this process and its children. The command keeps this process's id: signals sent to it arrive.
#
#   tests/private-network.sh COMMAND [ARGUMENT...]
#
# With the environment variable PRIVATE_NETWORK=ipv6 the loopback interface has no IPv4 address.
if [ $# -eq 0 ]; then
    echo "usage: $0 COMMAND [ARGUMENT...]" >&2
    exit 2
fi

if [ "$(id -u)" -eq 0 ]; then
    user_option=
else
    user_option=--map-root-user
fi

# Whether a namespace can be made is asked first: afterwards a failure would look like the command's own.
if ! why=$(unshare --net $user_option true 2>&1); then
    echo "private-network: cannot make a network namespace ($why); root or unprivileged user namespaces are needed" >&2
    exit 125
fi

# A namespace's own addresses on a fresh loopback interface are 127.0.0.1/8 and ::1/128.
exec unshare --net $user_option sh -c '
    set -e
    ip link set lo multicast on up
    if [ "$PRIVATE_NETWORK" = ipv6 ]; then
        ip -4 address flush dev lo
    else
        ip route add 224.0.0.0/4 dev lo
    fi
    ip -6 route add local ff00::/8 dev lo 2>/dev/null || true
    exec "$@"' sh "$@"
