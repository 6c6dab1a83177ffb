#!/bin/sh
# Builds the Debian package of ferret and checks it with lintian, as root or with sudo for the packages that are missing.
# The last line names the package.
#
#   packaging/make-deb.sh [--no-install]
set -u
cd "$(dirname "$0")/.." || exit 1

if [ "${1:-}" != --no-install ]; then
    cmake/install-packages.sh cmake ninja-build g++ libpugixml-dev rapidjson-dev pkg-config dpkg-dev file lintian || exit 1
fi
mkdir -p build
rm -f build/package/*.deb
launcher=
command -v ccache > /dev/null && launcher=-DCMAKE_CXX_COMPILER_LAUNCHER=ccache
if ! { cmake --preset release -B build/package -DBUILD_TESTING=OFF -DFERRET_PEERS=OFF $launcher &&
    cmake --build build/package && (cd build/package && cpack -G DEB); } > build/package.log 2>&1; then
    tail -n 40 build/package.log
    exit 1
fi
package=$(echo build/package/*.deb)
if command -v lintian > /dev/null; then
    lintian --allow-root --fail-on error,warning "$package" || exit 1
else
    echo "lintian is missing: not checked"
fi
echo "$package"
