#!/bin/sh
# zvfio validate against plug-ins whose faults are known: the test reader
# passes every check; each deliberately broken one fails exactly its own
# check and passes the others; the PCM plug-in passes every check in process
# and routed. $1: the build's bin folder, $2: a scratch folder. The
# wineserver of ZV_WINEPREFIX must run.
bin="$1"
out="$2"
root=$(cd "$(dirname "$0")/../.." && pwd)
run="$root/cmake/wine-run.sh"
command -v sox >/dev/null || { echo "sox is not installed"; exit 77; }
rm -rf "$out" && mkdir -p "$out" || exit 1
out=$(cd "$out" && pwd)
win() { printf 'Z:%s\n' "$1" | tr '/' '\\'; }
status=0
fail() { echo "FAIL $*"; status=1; }

python3 -c "import struct,sys; open(sys.argv[1],'wb').write(b'TKR1'+struct.pack('<I',20000))" "$out/t.tkr"
sox -D -n -r 44100 -c 2 -b 24 "$out/s.wav" synth 0.5 sine 440

# validate PLUGIN EXPECTED-EXIT FAILING-CHECK [options]: every check but
# FAILING-CHECK (none: "-") must pass or be skipped
validate() {
    plugin=$1 want=$2 failing=$3
    shift 3
    "$run" "$bin/zvfio.exe" validate --json "$@" "$plugin" >"$out/.json" 2>"$out/.err"
    rc=$?
    python3 - "$out/.json" "$failing" "$rc" "$want" "$plugin $*" <<'PY' || status=1
import json, sys
path, failing, rc, want, what = sys.argv[1:]
try:
    report = json.load(open(path, encoding='utf-8'))
except Exception as e:
    print(f"FAIL {what}: no JSON report ({e}): {open(path, errors='replace').read()}")
    sys.exit(1)
bad = [c for c in report['checks']
       if (c['check'] == failing) != (c['result'] in ('fail', 'crash'))]
if bad or rc != want:
    print(f"FAIL {what}: exit {rc} (want {want}); unexpected: {bad}")
    sys.exit(1)
print(f"ok   {what}: " + ", ".join(f"{c['check']} {c['result']}" for c in report['checks']))
PY
}

tk="$bin/testkit"
validate "$tk/tk_reader.dll" 0 - --sample "$(win "$out/t.tkr")"
validate "$tk/tk_broken_crash.dll" 1 identify --sample "$(win "$out/t.tkr")"
validate "$tk/tk_broken_leak.dll" 1 leaks --sample "$(win "$out/t.tkr")"
validate "$tk/tk_broken_count.dll" 1 samples --sample "$(win "$out/t.tkr")"
validate "$tk/tk_broken_deadlock.dll" 1 threads --sample "$(win "$out/t.tkr")" --timeout 20
validate "$tk/tk_broken_dupclass.dll" 1 listing --sample "$(win "$out/t.tkr")"
validate "$tk/tk_broken_crash.dll" 1 identify --routed --only identify
# a deadlock in a surrogate: the check fails in its time and ends the
# surrogate too (none of this prefix's may run from a validate host)
validate "$tk/tk_broken_deadlock.dll" 1 threads --routed --only threads --sample "$(win "$out/t.tkr")" --timeout 20
for proc in /proc/[0-9]*; do
    case "$(tr '\0' ' ' <"$proc/cmdline" 2>/dev/null)" in *zvfio-validate-*Vantry.exe*) ;; *) continue ;; esac
    tr '\0' '\n' <"$proc/environ" 2>/dev/null | grep -qx "WINEPREFIX=$ZV_WINEPREFIX" &&
        fail "a surrogate outlived its deadlocked check: $(tr '\0' ' ' <"$proc/cmdline")"
done
validate "$bin/pcm.dll" 0 - --sample "$(win "$out/s.wav")"
validate "$bin/pcm.dll" 0 - --routed --sample "$(win "$out/s.wav")"

# the SDK's sample reader builds from the SDK folder alone and passes
if [ -f "$bin/../../x86/bin/Vantry.exe" ]; then
    sh "$root/tools/sdk.sh" "$bin/../.." "$out" >/dev/null || fail "make sdk failed"
    cmake -S "$out/sdk/sample" -B "$out/sample-build" -G Ninja \
          -DCMAKE_TOOLCHAIN_FILE="$out/sdk/sample/mingw-x86_64.cmake" >"$out/.cmake" 2>&1 &&
        cmake --build "$out/sample-build" >>"$out/.cmake" 2>&1 || fail "the SDK's sample doesn't build: $(tail -5 "$out/.cmake")"
    python3 -c "import struct,sys; open(sys.argv[1],'wb').write(b'ZVS1'+struct.pack('<I',30000)+bytes(range(256))*469)" "$out/s.zvs"
    validate "$out/sample-build/zvsample.dll" 0 - --sample "$(win "$out/s.zvs")"
    validate "$out/sample-build/zvsample.dll" 0 - --routed --sample "$(win "$out/s.zvs")"
else
    echo "skip the SDK's sample: no i686 build beside this one"
fi

# the validator's own usage errors
"$run" "$bin/zvfio.exe" validate >/dev/null 2>&1; [ $? = 2 ] || fail "validate without a plug-in must exit 2"
"$run" "$bin/zvfio.exe" validate "$(win "$out/none.dll")" >"$out/.out" 2>&1
[ $? = 1 ] && grep -q "none.dll" "$out/.out" || fail "a missing plug-in is named: $(cat "$out/.out")"
# no surrogate outlives the run
ps -eo args | grep -i "zvfio-validate-[0-9]" | grep -v grep && fail "a process of the validator's host folder is left"
exit $status
