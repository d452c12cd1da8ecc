#!/bin/sh
# Runs zvfio.exe from the folder $1 on sox-made sample files in $2: plugins,
# identify, info and read --raw, and checks that each decode equals byte for
# byte what sox decodes. With "surrogate" as $3 the folder's configuration
# routes the readers to a surrogate: every class must load there, every file
# must be read there, and no surrogate may outlive a command. The wineserver
# of ZV_WINEPREFIX must run. Exit 0 when every check passed.
bin="$1"
out="$2"
where="${3:-process}"
root=$(cd "$(dirname "$0")/.." && pwd)
run="$root/cmake/wine-run.sh"
[ -n "$bin" ] && [ -n "$out" ] || { echo "usage: $0 BINDIR OUTDIR [surrogate]" >&2; exit 2; }
command -v sox >/dev/null || { echo "sox is not installed"; exit 77; }
rm -rf "$out"
list=$(sh "$root/tools/zvfio_samples.sh" "$out") || exit 1
win() { echo "Z:$1" | tr '/' '\\'; }
surrogate_exe="$(win "$(cd "$bin" && pwd)")\\x86\\Vantry.exe"
# surrogates of this folder still running
running() {
    n=0
    for p in /proc/[0-9]*; do
        case "$( { tr '\0' ' ' <"$p/cmdline"; } 2>/dev/null)" in
        *"$surrogate_exe"*) n=$((n + 1)) ;;
        esac
    done
    echo $n
}
zvfio() { # output without carriage returns, exit code of zvfio.exe
    "$run" "$bin/zvfio.exe" "$@" >"$out/.zvfio.out" 2>&1
    rc=$?
    tr -d '\r' <"$out/.zvfio.out"
    if [ "$(running)" != 0 ]; then
        echo "FAIL a surrogate outlived 'zvfio $1'"
        return 1
    fi
    return $rc
}

echo "== zvfio plugins"
zvfio plugins || exit 1
if [ "$where" = surrogate ]; then
    echo "== zvfio plugins --load"
    zvfio plugins --load >"$out/.plugins" || { cat "$out/.plugins"; exit 1; }
    cat "$out/.plugins"
    classes=$(grep -c "^    state" "$out/.plugins")
    routed=$(grep -c "^    state     loaded, surrogate pid [1-9]" "$out/.plugins")
    if [ "$classes" -eq 0 ] || [ "$classes" != "$routed" ]; then
        echo "FAIL $routed of $classes classes loaded in a surrogate"
        exit 1
    fi
fi
echo "== zvfio identify"
set --
for name in $(echo "$list" | cut -d' ' -f1); do
    set -- "$@" "$(win "$out/$name")"
done
zvfio identify "$@" >"$out/.identify"
rc=$?
cat "$out/.identify"
[ $rc -eq 0 ] || { echo "FAIL identify"; exit 1; }
status=0
echo "$list" | while read -r name reader opts; do
    f="$out/$name"
    echo "== $name"
    grep -qF "$(win "$f"): $reader {" "$out/.identify" || { echo "FAIL $name: not identified as $reader"; exit 1; }
    zvfio info "$(win "$f")" >"$out/.info" || { cat "$out/.info"; echo "FAIL info $name"; exit 1; }
    cat "$out/.info"
    if [ "$where" = surrogate ] && ! grep -q "^  runs     surrogate pid [1-9]" "$out/.info"; then
        echo "FAIL $name: the reader didn't run in a surrogate"
        exit 1
    fi
    zvfio read --raw "$(win "$f.zvfio.raw")" "$(win "$f")" || { echo "FAIL read $name"; exit 1; }
    # shellcheck disable=SC2086
    sox -D "$f" -t raw $opts "$f.sox.raw"
    if cmp -s "$f.zvfio.raw" "$f.sox.raw"; then
        echo "   decode equals sox ($(stat -c %s "$f.sox.raw") bytes)"
    else
        echo "FAIL $name: the decode differs from sox's"
        cmp "$f.zvfio.raw" "$f.sox.raw" | head -1
        exit 1
    fi
done || status=1

echo "== bad files"
head -c 5000 /dev/urandom > "$out/random.wav"
head -c 30 "$out/w16.wav" > "$out/truncated.wav"
if zvfio identify "$(win "$out/random.wav")"; then
    echo "FAIL random.wav was identified"
    status=1
fi
for bad in random.wav truncated.wav missing.wav; do
    if zvfio read "$(win "$out/$bad")"; then
        echo "FAIL $bad was read"
        status=1
    else
        echo "   $bad refused with the system's error"
    fi
done
exit $status
