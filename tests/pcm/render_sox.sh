#!/bin/sh
# sox's reading of the files the renderer test wrote (manifest.txt in $1:
#   file sampletype bits channels rate
# with file.raw, the samples as written): header values from sox --i, and
# sox's decode of the file must equal its decode of the raw samples (both to
# 32-bit integers, as sox's float path is not exact). sox scales the floats
# of a Wave64 file on reading, so those go through sndfile-convert's float
# copy into a wave file first.
set -u
dir="$1"
[ -s "$dir/manifest.txt" ] || { echo "no rendered files in $dir"; exit 1; }
fail=0
n=0
while read -r file type bits channels rate; do
    f="$dir/$file"
    case $type in
        u8) enc=unsigned; name="Unsigned Integer PCM";;
        s8) enc=signed; name="Signed Integer PCM";;
        f32) enc=floating-point; name="Floating Point PCM";;
        *) enc=signed; name="Signed Integer PCM";;
    esac
    got="$(sox --i -r "$f" 2>/dev/null) $(sox --i -c "$f" 2>/dev/null) $(sox --i -b "$f" 2>/dev/null)"
    [ "$got" = "$rate $channels $bits" ] || { echo "FAILED: $file: sox --i says '$got', want '$rate $channels $bits'"; fail=1; }
    sox --i -e "$f" 2>/dev/null | grep -qx "$name" || { echo "FAILED: $file: encoding not $name"; fail=1; }
    src="$f"
    case $f in *.w64) [ "$type" = f32 ] && sndfile-convert -float32 "$f" "$f.float.wav" >/dev/null && src="$f.float.wav";; esac
    sox -D "$src" -t raw -e signed -b 32 "$f.sox" 2>/dev/null &&
        sox -D -t raw -e $enc -b "$bits" -c "$channels" -r "$rate" "$f.raw" -t raw -e signed -b 32 "$f.want" 2>/dev/null &&
        cmp -s "$f.sox" "$f.want" ||
        { echo "FAILED: $file: sox's decode differs from the samples written"; fail=1; }
    n=$((n + 1))
done <<EOT
$(tr -d '\r' < "$dir/manifest.txt")
EOT
echo "$n files checked"
exit $fail
