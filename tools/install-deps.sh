#!/bin/sh
# Installs the Debian packages that the build and the tests need and that are
# not installed yet.  Usage:
#   install-deps.sh REQUIRED... [--optional OPTIONAL...]
# Optional packages (the peer codec and FFT libraries the benches and
# cross-checks use) are installed when the archive has them; one that cannot
# be installed is reported and skipped.  A required package that cannot be
# installed fails the script.  Without root nothing is installed: the
# missing packages are named and the build goes on with what is there.
set -u
required=""
optional=""
mode=required
for p in "$@"; do
    case $p in
    --optional) mode=optional ;;
    *) if [ "$mode" = required ]; then required="$required $p"; else optional="$optional $p"; fi ;;
    esac
done

is_installed() {
    dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}
missing_req=""
missing_opt=""
for p in $required; do is_installed "$p" || missing_req="$missing_req $p"; done
for p in $optional; do is_installed "$p" || missing_opt="$missing_opt $p"; done
[ -z "$missing_req$missing_opt" ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
    [ -n "$missing_req" ] && echo "install-deps: missing packages:$missing_req (run as root to install them)" >&2
    [ -n "$missing_opt" ] && echo "install-deps: missing optional packages:$missing_opt" >&2
    exit 0
fi

export DEBIAN_FRONTEND=noninteractive
apt_install() {
    apt-get install -y -qq --no-install-recommends "$@" </dev/null >/tmp/install-deps.$$ 2>&1
    rc=$?
    [ $rc -ne 0 ] && tail -n 5 /tmp/install-deps.$$ >&2
    rm -f /tmp/install-deps.$$
    return $rc
}
echo "install-deps: installing$missing_req$missing_opt"
apt-get update -qq </dev/null >/dev/null 2>&1 || {
    sleep 5
    apt-get update -qq </dev/null >/dev/null 2>&1 || echo "install-deps: apt-get update failed" >&2
}
# All at once first; if that fails (a name the archive lacks stops the whole
# transaction), one by one.
if apt_install $missing_req $missing_opt; then
    exit 0
fi
status=0
for p in $missing_req; do
    is_installed "$p" && continue
    apt_install "$p" || { echo "install-deps: required package $p could not be installed" >&2; status=1; }
done
for p in $missing_opt; do
    is_installed "$p" && continue
    apt_install "$p" || echo "install-deps: optional package $p is not available: skipped" >&2
done
exit $status
