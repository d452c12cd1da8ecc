#!/bin/sh
# Compares the kernel's processor capability word with the flags the Linux
# kernel reports in /proc/cpuinfo for the same machine.
# usage: cpuword_check.sh <test_kernel.exe> <wine-run.sh>
set -e
exe=$1
run=$2
out=$("$run" "$exe" --child cpuword | tr -d '\r')
echo "$out"
word=$(echo "$out" | sed -n 's/^cpu \([0-9a-f]*\) .*/\1/p')
[ -n "$word" ] || { echo "no capability word printed"; exit 1; }
flags=" $(grep -m1 '^flags' /proc/cpuinfo | cut -d: -f2) "
status=0
check() {
    bit=$1 name=$2
    have=0
    case "$flags" in *" $name "*) have=1 ;; esac
    got=$(( (0x$word & $bit) != 0 ))
    if [ "$have" != "$got" ]; then
        echo "MISMATCH $name: cpuinfo $have, word $got"
        status=1
    else
        echo "ok $name=$have"
    fi
}
check 0x10 mmx
check 0x20 sse
check 0x40 sse2
check 0x80 pni
check 0x100 ssse3
check 0x200 sse4_1
check 0x400 sse4_2
check 0x800 avx
check 0x1000 cmov
check 0x2000 fpu
check 0x4000 tsc
# the class follows the features step by step
class=$(( 0x$word & 15 ))
case "$flags" in
    *" sse2 "*) want=6 ;;
    *" sse "*) want=5 ;;
    *" mmx "*) want=4 ;;
    *) want=$class ;;
esac
if [ "$class" != "$want" ]; then echo "MISMATCH class $class, expected $want"; status=1; else echo "ok class=$class"; fi
exit $status
