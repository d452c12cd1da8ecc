#!/bin/sh
# zvfio render on sox-made files (16, 24, 32-bit, float; mono to 6 channels)
# through each preset of the PCM renderers and through user templates, with
# the plug-in in process and in its surrogate: the two outputs are byte for
# byte the same, sox reads each with the template's format, and where the
# conversion is exact (same or wider type) the samples equal sox's own.
# A rate the template doesn't have is refused, naming both.
# usage: render_check.sh BIN WINE_RUN WORK_DIR
set -u
bin=$1; run=$2; work=$3
rm -rf "$work"; mkdir -p "$work"
work=$(cd "$work" && pwd)
win() { printf 'Z:%s' "$1" | tr / '\\'; }
fail=0
check() { # description, then the condition's exit status in $?
    if [ "$2" -eq 0 ]; then echo "ok: $1"; else echo "FAILED: $1"; fail=1; fi
}
# where: in (process) or routed; then zvfio's arguments
zvfio() {
    where=$1; shift
    if [ "$where" = in ]; then "$run" "$bin/zvfio.exe" "$@"; else "$run" "$bin/pcm-surrogate/zvfio.exe" "$@"; fi
}
# FILE: its samples as 32-bit integers, as sox decodes them (Wave64 floats
# through sndfile-convert, as sox scales them)
decode() {
    src=$1
    case $1 in *.w64) [ "$(sox --i -e "$1")" = "Floating Point PCM" ] &&
        sndfile-convert -float32 "$1" "$1.f.wav" >/dev/null && src="$1.f.wav";; esac
    sox -D "$src" -t raw -e signed -b 32 "$2" 2>/dev/null
}

# render NAME TEMPLATE IN RATE CHANNELS BITS ENC EXACT: both ways, then checked
render() {
    name=$1 templ=$2 in=$3 rate=$4 ch=$5 bits=$6 enc=$7 exact=$8
    zvfio in render --template "$templ" "$(win "$in")" "$(win "$work/in-$name")" >/dev/null
    check "$name: rendered in process" $?
    zvfio routed render --template "$templ" "$(win "$in")" "$(win "$work/routed-$name")" >/dev/null
    check "$name: rendered in the surrogate" $?
    cmp -s "$work/in-$name" "$work/routed-$name"; check "$name: the same bytes both ways" $?
    got="$(sox --i -r "$work/in-$name" 2>/dev/null) $(sox --i -c "$work/in-$name" 2>/dev/null) $(sox --i -b "$work/in-$name" 2>/dev/null)"
    [ "$got" = "$rate $ch $bits" ]; check "$name: sox reads $rate $ch $bits ($got)" $?
    [ "$exact" = 1 ] || return
    sox -D "$in" -e "$enc" -b "$bits" "$work/sox-$name.wav" &&
        decode "$work/sox-$name.wav" "$work/want.raw" && decode "$work/in-$name" "$work/got.raw" &&
        cmp -s "$work/want.raw" "$work/got.raw"
    check "$name: samples equal sox's conversion" $?
}

# Inputs at each preset's rate in four sample types, stereo
for rate in 44100 48000 96000; do
    for t in 16:signed 24:signed 32:signed 32:floating-point; do
        sox -D -n -r $rate -c 2 -b ${t%%:*} -e ${t#*:} "$work/s$rate-${t%%:*}${t#*:}.wav" synth 0.3 sine 440 sine 1234 gain -1
    done
done
# each preset with each input type; the container turns with the input
n=0
for p in "44100 16 signed 44,100 Hz 16 Bit, Stereo" "48000 24 signed 48,000 Hz 24 Bit, Stereo" \
         "96000 32 floating-point 96,000 Hz 32 Bit (float), Stereo"; do
    set -- $p
    rate=$1 bits=$2 enc=$3; shift 3
    templ="$*"
    for t in 16:signed 24:signed 32:signed 32:floating-point; do
        inbits=${t%%:*} inenc=${t#*:}
        case $((n % 3)) in 0) ext=wav;; 1) ext=w64;; 2) ext=aif;; esac
        n=$((n + 1))
        exact=0
        if [ "$enc" = floating-point ]; then
            [ "$inenc" = signed ] && [ "$inbits" -le 24 ] && exact=1
        elif [ "$inenc" = signed ] && [ "$inbits" -le "$bits" ]; then
            exact=1
        fi
        render "p$rate-$inbits$inenc.$ext" "$templ" "$work/s$rate-$inbits$inenc.wav" $rate 2 $bits $enc $exact
    done
done

# mono and 6 channels through user templates, by name and by file
sox -D -n -r 48000 -c 1 -b 16 "$work/m.wav" synth 0.3 sine 330
sox -D -n -r 96000 -c 6 -b 24 "$work/six.wav" synth 0.3 sine 200 sine 300 sine 400 sine 500 sine 600 sine 700
zvfio in templates save w64 "render-check mono" --from "48,000 Hz 24 Bit, Stereo" --channels 1 > "$work/save.txt"
check "a mono user template saved" $?
zvt=$(sed -n 's/^  file *//p' "$work/save.txt" | tr -d '\r')
zvfio in templates save aif "render-check six" --from "96,000 Hz 32 Bit (float), Stereo" --channels 6 >/dev/null
check "a 6-channel user template saved" $?
render mono.w64 "$zvt" "$work/m.wav" 48000 1 24 signed 1
render six.aif "render-check six" "$work/six.wav" 96000 6 32 floating-point 1

# what the tool refuses
zvfio in render --template "44,100 Hz 16 Bit, Stereo" "$(win "$work/m.wav")" "$(win "$work/x.wav")" \
    2>"$work/err.txt" >/dev/null
[ $? -eq 1 ] && grep -q "48000 Hz, 1 channel;.*44100 Hz, 16-bit, 2 channels" "$work/err.txt" && [ ! -e "$work/x.wav" ]
check "another rate and channel count: refused, both named, no output" $?
zvfio in render --template "no such template" "$(win "$work/m.wav")" "$(win "$work/x.wav")" 2>/dev/null >/dev/null
[ $? -eq 1 ] && [ ! -e "$work/x.wav" ]; check "an unknown template: exit 1" $?
zvfio in render "$(win "$work/m.wav")" "$(win "$work/x.wav")" 2>/dev/null >/dev/null
[ $? -eq 2 ]; check "no template: usage" $?
zvfio in render --help | grep -q "^usage: zvfio render"; check "help" $?
exit $fail
