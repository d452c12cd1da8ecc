#!/bin/sh
# Checks drop-frame timecode against an independent library: builds the
# native reference writer, lets it write the text of every frame of 24 hours,
# and runs the timecode test of the Windows executable on that file.
# usage: tc_reference.sh <test_kernel.exe> <wine-run.sh> <work folder>
set -e
exe=$1
run=$2
work=$3
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$work"
cc -O2 -o "$work/tc_reference" "$here/tc_reference.c" $(pkg-config --cflags --libs libavutil)
"$work/tc_reference" "$work/tc_reference_2997df.txt"
rc=0
ZV_TC_REFERENCE="Z:$(echo "$work/tc_reference_2997df.txt" | tr / '\\')" \
    "$run" "$exe" --gtest_filter='TimecodeReference.*' >"$work/tc_reference.log" 2>&1 || rc=$?
tr -d '\r' <"$work/tc_reference.log"
[ $rc -eq 0 ] || exit $rc
# a skipped test (reference not found) must not pass
grep -q 'PASSED.*1 test' "$work/tc_reference.log"
