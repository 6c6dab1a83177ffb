#!/bin/sh
# Rewrites data/fastdds.corpus after showing what would change. Needs Fast DDS 3 (libfastdds-dev and g++ of Debian 13), here
# or in a folder made by debootstrap: regenerate-fastdds.sh [--root FOLDER] [--write]
set -eu
here=$(cd "$(dirname "$0")" && pwd)
root=
[ "${1:-}" = --root ] && { root=$2; shift 2; }
work=$(mktemp -d "$root/tmp/corpus.XXXXXX")
trap 'rm -rf "$work"' EXIT
cp "$here/fastdds.cpp" "$work"
inside=${work#"$root"}
run="cd $inside && g++ -std=c++17 -w -O0 fastdds.cpp -lfastdds -lfastcdr -o fastdds && ./fastdds >fastdds.corpus"
if [ -n "$root" ]; then chroot "$root" sh -c "$run"; else sh -c "$run"; fi
diff "$here/../data/fastdds.corpus" "$work/fastdds.corpus" | cut -c1-160 | head -40 || true
[ "${1:-}" = --write ] && cp "$work/fastdds.corpus" "$here/../data/fastdds.corpus"
