#!/bin/sh
# The demonstration: runs the x64 build in $1/x64 under Wine. Sample files
# made with sox (wave 16/24/32-bit integer and float, AIFF, AIFC, Wave64, a
# wave with LIST before fmt) go through zvfio.exe: the plug-in list, the
# reader each file gets, its streams, and a full read whose decode must
# equal sox's byte for byte. Then the same through a surrogate process
# when the PCM reader's surrogate configuration is present.
build=$(cd "${1:-build}" && pwd)
root=$(cd "$(dirname "$0")/.." && pwd)
prefix="$build/x64/wineprefix"
bin="$build/x64/bin"
"$root/cmake/wine-prefix.sh" start "$prefix" >/dev/null || exit 1
export ZV_WINEPREFIX="$prefix"
status=0
echo "### in process"
sh "$root/tools/zvfio_check.sh" "$bin" "$build/demo/inproc" || status=1
if [ -f "$bin/pcm-surrogate/pcm.Fio2007-Config" ]; then
    echo "### through a surrogate (plug-in group 1)"
    cp "$bin/zvfio.exe" "$bin/pcm-surrogate/zvfio.exe"
    "$root/cmake/wine-run.sh" "$bin/pcm-surrogate/zvfio.exe" plugins --load | tr -d '\r'
    if "$root/cmake/wine-run.sh" "$bin/pcm-surrogate/zvfio.exe" plugins --load | grep -q "surrogate pid [1-9]"; then
        sh "$root/tools/zvfio_check.sh" "$bin/pcm-surrogate" "$build/demo/surrogate" || status=1
    else
        echo "the surrogate road is not available in this build: skipped"
    fi
fi
"$root/cmake/wine-prefix.sh" stop "$prefix" >/dev/null 2>&1 || status=1
[ $status -eq 0 ] && echo "demo: all files identified, opened and read as sox reads them"
exit $status
