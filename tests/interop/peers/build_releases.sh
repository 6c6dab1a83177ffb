#!/bin/sh
# Builds the test peers against every release of other makers' libraries in a folder.
#
#   build_releases.sh FOLDER
#
# FOLDER/cyclone-VERSION and FOLDER/fastdds-VERSION are folders that those were installed into (what they need besides is
# there or installed in the system). FOLDER/debian-NUMBER is the tree of another Debian release with g++, cmake, ninja-build,
# cyclonedds-dev, cyclonedds-tools and the package of Fast DDS; its peers are built inside and run by its own libraries,
# both of which only root can do. The peers land in FOLDER/NAME/peers, where all_releases.py finds them.
set -u
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../../.." && pwd)
folder=$(cd "$1" && pwd) || exit 2
failed=0

# An entry that exec()s the program with the libraries of its tree, so that it lives in the namespaces of the test.
wrap() { # TREE PROGRAM
    cat > "$1/peers/$(basename "$2")" << EOF
#!/bin/sh
libraries=\$(echo "$1"/usr/lib/*-linux-gnu)
exec "\$libraries"/ld-linux-*.so.* --library-path "\$libraries" "$2" "\$@"
EOF
    chmod +x "$1/peers/$(basename "$2")"
}

for tree in "$folder"/debian-*/; do
    tree=${tree%/}
    [ -e "$tree/etc/debian_version" ] || continue
    echo "=== $(basename "$tree")"
    mkdir -p "$tree/source" "$tree/peers"
    rm -rf "$tree/source/tests" "$tree/source/cmake"
    mkdir -p "$tree/source/tests/interop"
    cp -r "$root/cmake" "$tree/source" && cp -r "$here" "$tree/source/tests/interop" &&
        chroot "$tree" cmake -G Ninja -S /source/tests/interop/peers -B /built -DCMAKE_BUILD_TYPE=Release > "$tree/peers/log" 2>&1 &&
        chroot "$tree" cmake --build /built >> "$tree/peers/log" 2>&1 ||
        { tail -n 20 "$tree/peers/log"; failed=1; continue; }
    for program in "$tree"/built/peer_* "$tree/usr/bin/ddsperf"; do
        if [ -f "$program" ] && [ -x "$program" ]; then
            wrap "$tree" "$program"
        fi
    done
done

for prefix in "$folder"/cyclone-*/ "$folder"/fastdds-*/; do
    prefix=${prefix%/}
    [ -d "$prefix/lib" ] && [ -n "$(find "$prefix/lib" -name libddsc.so -o -name libfastrtps.so -o -name libfastdds.so)" ] || continue
    echo "=== $(basename "$prefix")"
    mkdir -p "$prefix/peers"
    case $(basename "$prefix") in
        cyclone-*) targets="peer_cyclone peer_cyclone_changed" ;;
        fastdds-*) targets="peer_fastdds peer_ros peer_dynamic" ;;
    esac
    # shellcheck disable=SC2086
    cmake -G Ninja -S "$here" -B "$prefix/peers" -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$prefix" > "$prefix/peers/log" 2>&1 &&
        cmake --build "$prefix/peers" --target $targets >> "$prefix/peers/log" 2>&1 ||
        { tail -n 20 "$prefix/peers/log"; failed=1; }
done
exit $failed
