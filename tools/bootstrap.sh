#!/bin/sh
# Installs what the build and the tests need, where it is missing.
set -e
need=""
for pkg in mingw-w64 mingw-w64-tools wine64 libwine-dev googletest cmake ninja-build sox sndfile-programs python3 libavutil-dev pkg-config; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || need="$need $pkg"
done
if [ -n "$need" ]; then
    echo "installing:$need"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends $need >/dev/null
fi
