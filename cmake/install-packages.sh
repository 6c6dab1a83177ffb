#!/bin/sh
# Installs the Debian packages named as arguments, without asking; does nothing where all of them are there.
missing=
for package in "$@"; do
    case $(dpkg-query -W -f '${Status}' "$package" 2> /dev/null) in
        "install ok installed") ;;
        *) missing="$missing $package" ;;
    esac
done
[ -z "$missing" ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
    as_root=env
elif command -v sudo > /dev/null; then
    as_root="sudo env"
else
    echo "these packages are missing, and there is neither root nor sudo to install them:$missing" >&2
    exit 1
fi
echo "installing:$missing"
# apt's own chatter is shown only when it fails.
log=$(mktemp)
if ! { $as_root DEBIAN_FRONTEND=noninteractive apt-get update &&
    $as_root DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing; } > "$log" 2>&1; then
    tail -n 30 "$log" >&2
    rm -f "$log"
    exit 1
fi
rm -f "$log"
