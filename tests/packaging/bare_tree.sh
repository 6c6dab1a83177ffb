#!/bin/sh
# Installs, runs and removes the Debian package, and runs the static binary, in a bare tree of a Debian release.
#
#   bare_tree.sh SUITE PACKAGE.deb STATIC_BINARY FOLDER
#
# The tree is made by debootstrap in FOLDER/SUITE, from the package source of this machine, and kept for the next time; every
# run works on a copy. Status 77 where that is not possible here (no debootstrap, not root, no package source).
set -u
suite=$1 package=$2 static=$3 folder=$4
here=$(cd "$(dirname "$0")" && pwd)

skip() {
    echo "skipped: $*"
    exit 77
}
command -v debootstrap > /dev/null || skip "debootstrap is missing"
[ "$(id -u)" -eq 0 ] || skip "only root can make a tree"
if [ ! -e "$folder/$suite/etc/debian_version" ]; then
    source=$(cat /etc/apt/sources.list /etc/apt/sources.list.d/* 2> /dev/null | grep -oE '(http|https)://[^ ]*/debian/?( |$)' | head -n 1)
    mkdir -p "$folder"
    debootstrap --variant=minbase "$suite" "$folder/$suite.part" ${source:+"$source"} > "$folder/$suite.log" 2>&1 ||
        { tail -n 3 "$folder/$suite.log"; rm -rf "$folder/$suite.part"; skip "debootstrap cannot make $suite here"; }
    mv "$folder/$suite.part" "$folder/$suite"
fi

tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
cp -a "$folder/$suite/." "$tree"
cp "$package" "$tree/ferret.deb"
cp "$static" "$tree/ferret-static"

fail() {
    echo "FAILED: $*"
    exit 1
}
inside() {
    "$here/../private-network.sh" chroot "$tree" "$@"
}
runs() { # PROGRAM: it says its version, and a run ends with statistics and status 1
    inside "$1" -version | grep -q "built with DDS version" || fail "$1 -version"
    output=$(inside "$1" -timeout 1)
    [ $? -eq 1 ] || fail "status of $1: $output"
    echo "$output" | grep -q "Discovered 0 DataWriters and 0 DataReaders" || fail "statistics of $1: $output"
}

runs /ferret-static
rm "$tree/ferret-static"
inside dpkg --install /ferret.deb || fail "installation"
runs /usr/bin/ferret
for file in usr/bin/ferret usr/share/bash-completion/completions/ferret usr/share/zsh/vendor-completions/_ferret; do
    [ -s "$tree/$file" ] || fail "$file is missing"
done
inside dpkg --purge ferret-dds || fail "removal"
[ -z "$(cd "$tree" && find . -name '*ferret*' ! -name ferret.deb ! -path './var/*')" ] || fail "something is left"
echo "passed in $suite"
