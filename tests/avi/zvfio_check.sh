#!/bin/sh
# zvfio on the ffmpeg-made AVI files, with the reader in process (bin/) and
# in a surrogate (bin/avi-surrogate): info tells size and frames; frames as
# stored equal ffmpeg's packets; BGRA is within 2 a channel of ffmpeg's for
# 8-bit YUV (3 for 10-bit), exact for RGB; audio equals ffmpeg's PCM; both
# hosts give the same bytes.
# usage: zvfio_check.sh BIN_DIR WINE_RUN FIXTURE_DIR WORK_DIR
set -u
bin=$1; run=$2; fixtures=$3; work=$4
rm -rf "$work"; mkdir -p "$work"
win() { printf 'Z:%s' "$1" | tr / '\\'; }
fail=0
check() { # description, then the condition's exit status in $?
    if [ "$2" -eq 0 ]; then echo "ok: $1"; else echo "FAILED: $1"; fail=1; fi
}

# near FILE REFERENCE WIDTH HEIGHT LIMIT: BGRA frames alike within LIMIT;
# for odd sizes the last column and row are left out (the system's 4:2:x
# layouts hold no chroma for them)
near() {
    python3 - "$@" <<'PY'
import sys
a, b = open(sys.argv[1], 'rb').read(), open(sys.argv[2], 'rb').read()
w, h, limit = int(sys.argv[3]), int(sys.argv[4]), int(sys.argv[5])
if len(a) != len(b) or not a:
    sys.exit('sizes %d and %d' % (len(a), len(b)))
cw, ch = w - (w & 1), h - (h & 1)
worst = 0
for f in range(len(a) // (4 * w * h)):
    for y in range(ch):
        at = (f * h + y) * w * 4
        worst = max(worst, max(abs(x - z) for x, z in zip(a[at:at + 4 * cw], b[at:at + 4 * cw])))
if worst > limit:
    sys.exit('off by %d' % worst)
PY
}

while read -r name w h frames pix audio; do
    base=${name%.avi}
    src=$(win "$fixtures/$name")
    for host in "" avi-surrogate/; do
        where=${host:-in process}
        tag=$(echo "$host" | tr -d /)
        if [ -z "$host" ]; then
            out=$("$run" "$bin/zvfio.exe" info "$src" | tr -d '\r')
            printf "%s\n" "$out" | grep -q "stream 0: video, ${w}x${h}, .* $frames frames"; check "$base info" $?
        fi
        "$run" "$bin/${host}zvfio.exe" read --stream video --pixel native --quiet --raw "$(win "$work/$base$tag.v")" \
            "$src" >/dev/null && cmp -s "$work/$base$tag.v" "$fixtures/$base.v.raw"
        check "$base frames as stored ($where)" $?
        # through the surrogate, BGRA and audio of the files with audio alone
        if [ -f "$fixtures/$base.bgra" ] && [ -z "$host" -o "$audio" = 1 ]; then
            "$run" "$bin/${host}zvfio.exe" read --stream video --matrix bt601 --quiet --raw "$(win "$work/$base$tag.bgra")" \
                "$src" >/dev/null
            check "$base read as BGRA ($where)" $?
        fi
        if [ "$audio" = 1 ]; then
            "$run" "$bin/${host}zvfio.exe" read --quiet --raw "$(win "$work/$base$tag.a")" "$src" >/dev/null &&
                cmp -s "$work/$base$tag.a" "$fixtures/$base.a.raw"
            check "$base audio ($where)" $?
        fi
    done
    if [ -f "$fixtures/$base.bgra" ]; then
        case $pix in bgr24|bgra) limit=0 ;; p010le) limit=3 ;; *) limit=2 ;; esac
        near "$work/$base.bgra" "$fixtures/$base.bgra" "$w" "$h" "$limit"; check "$base BGRA near ffmpeg's" $?
        if [ "$audio" = 1 ]; then
            cmp -s "$work/$base.bgra" "$work/${base}avi-surrogate.bgra"; check "$base BGRA the same in both hosts" $?
        fi
    fi
done < "$fixtures/manifest.txt"

"$run" "$bin/zvfio.exe" read --stream video --pixel rgb "$(win "$fixtures/i420.avi")" >/dev/null 2>&1
[ $? -eq 2 ]; check "an unknown pixel form is a usage error" $?
exit $fail
