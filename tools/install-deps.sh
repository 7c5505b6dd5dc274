#!/bin/sh
# Installs the Debian packages given as arguments that are not installed yet.
# Needs root; otherwise it only names what is missing.
missing=""
for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
if [ "$(id -u)" -ne 0 ]; then
    echo "missing packages:$missing (run as root to install them)" >&2
    exit 0
fi
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq >/dev/null
# Install one by one so that a package missing from the archive does not stop the rest.
for p in $missing; do
    apt-get install -y -qq --no-install-recommends "$p" >/dev/null 2>&1 ||
        echo "could not install $p" >&2
done
exit 0
