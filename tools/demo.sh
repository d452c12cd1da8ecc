#!/bin/sh
# The demonstration: runs the x64 build in $1/x64 under Wine. A small client
# starts the surrogate from the x86 folder beside it, reaches it by its
# process's class id, asks for its process id, releases it and shows it end.
build=$(cd "${1:-build}" && pwd)
root=$(cd "$(dirname "$0")/.." && pwd)
prefix="$build/x64/wineprefix"
"$root/cmake/wine-prefix.sh" start "$prefix" >/dev/null || exit 1
status=0
ZV_WINEPREFIX="$prefix" "$root/cmake/wine-run.sh" "$build/x64/bin/vantryping.exe" || status=1
"$root/cmake/wine-prefix.sh" stop "$prefix" >/dev/null 2>&1 || status=1
exit $status
