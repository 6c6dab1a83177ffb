#!/bin/sh
# Rewrites data/cyclone.corpus after showing what would change. Needs cyclonedds-tools, cyclonedds-dev and a C compiler.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
idlc "$here/corpus.idl" 2>/dev/null
cc -w -I. "$here/corpus.c" corpus.c -lddsc -lm -o corpus
./corpus >cyclone.corpus
diff "$here/../data/cyclone.corpus" cyclone.corpus | cut -c1-160 | head -40 || true
[ "${1:-}" = --write ] && cp cyclone.corpus "$here/../data/cyclone.corpus"
