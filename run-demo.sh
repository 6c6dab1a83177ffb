#!/bin/sh
# Builds ferret and shows it at work beside a few DDS applications, for about 15 seconds. Nothing leaves this machine: all of
# them run where only a loopback interface exists. Needs root, sudo or unprivileged user namespaces.
set -u
cd "$(dirname "$0")" || exit 1

PACKAGES="cmake ninja-build g++ libpugixml-dev pkg-config iproute2 util-linux cyclonedds-tools cyclonedds-dev"
if grep -qs 'VERSION_ID="12"' /etc/os-release; then
    PACKAGES="$PACKAGES libfastrtps-dev"
fi
# shellcheck disable=SC2086 # a list of packages
cmake/install-packages.sh $PACKAGES || exit 1

echo "building ferret, a minute on two processors (log: build/demo.log)"
mkdir -p build
launcher=
command -v ccache > /dev/null && launcher=-DCMAKE_CXX_COMPILER_LAUNCHER=ccache
if ! { cmake --preset release -B build/demo -DBUILD_TESTING=OFF $launcher &&
    cmake --build build/demo --target ferret demo_peers; } > build/demo.log 2>&1; then
    tail -n 40 build/demo.log
    exit 1
fi

as_root=
if [ "$(id -u)" -ne 0 ] && ! unshare --net --map-root-user true 2> /dev/null; then
    as_root=sudo
fi
exec $as_root tests/private-network.sh demo/play.sh "$PWD/build/demo/ferret" "$PWD/build/demo/demo/peers"
