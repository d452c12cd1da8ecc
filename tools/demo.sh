#!/bin/sh
# The demonstration: runs the x64 build in $1/x64 under Wine. Sample files
# made with sox (wave 16/24/32-bit integer and float, AIFF, AIFC, Wave64, a
# wave with LIST before fmt) go through zvfio.exe: the plug-in list, the
# reader each file gets, its streams, and a full read whose decode must
# equal sox's byte for byte. Then the same from bin/pcm-surrogate, a host
# folder whose configuration runs the PCM reader in a surrogate process.
# Last, a file rendered through each preset of the PCM renderers and read
# back, both ways.
build=$(cd "${1:-build}" && pwd)
root=$(cd "$(dirname "$0")/.." && pwd)
prefix="$build/x64/wineprefix"
bin="$build/x64/bin"
"$root/cmake/wine-prefix.sh" start "$prefix" >/dev/null || exit 1
export ZV_WINEPREFIX="$prefix"
status=0
mkdir -p "$build/demo"
echo "### in process"
sh "$root/tools/zvfio_check.sh" "$bin" "$build/demo/inproc" || status=1
echo "### through a surrogate (plug-in group 1)"
sh "$root/tools/zvfio_check.sh" "$bin/pcm-surrogate" "$build/demo/surrogate" surrogate || status=1
echo "### rendering, in process"
sh "$root/tools/render_demo.sh" "$bin" "$build/demo/render-inproc" || status=1
echo "### rendering through a surrogate"
sh "$root/tools/render_demo.sh" "$bin/pcm-surrogate" "$build/demo/render-surrogate" || status=1
# a process left under the prefix (a surrogate that didn't end) fails the demo
"$root/cmake/wine-prefix.sh" stop "$prefix" >"$build/demo/.stop" 2>&1 || { cat "$build/demo/.stop"; status=1; }
[ $status -eq 0 ] && echo "demo: all files identified, opened, read and rendered as sox reads and converts them, in process and through a surrogate"
exit $status
