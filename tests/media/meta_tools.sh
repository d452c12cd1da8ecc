#!/bin/sh
# Metadata against outside tools: what they write zvfio meta reads exactly,
# what zvfio meta writes they read exactly, and sox decodes the audio
# unchanged after every write, update and delete.
# usage: meta_tools.sh ZVFIO_EXE WINE_RUN WORK_DIR
set -u
exe=$1; run=$2; work=$3
rm -rf "$work"; mkdir -p "$work"; cd "$work" || exit 1
win() { printf 'Z:%s' "$1" | tr / '\\'; }
zvfio() { "$run" "$exe" "$@" 2>/dev/null | tr -d '\r'; }
fail=0
check() { if [ "$2" -eq 0 ]; then echo "ok: $1"; else echo "FAILED: $1"; fail=1; fi; }
audio() { sox "$1" -t raw - | md5sum; }

sox -n -r 44100 -c 2 -b 16 tone.wav synth 0.3 sine 440 sine 660
want=$(audio tone.wav)

# Outside writers: libsndfile's tool for bext and INFO, Python for cue
# points with labels and a region, iXML in three encodings.
sndfile-metadata-set --bext-description "Interview, take 2" --bext-originator "Field rec" \
    --bext-time-ref 987654321 --str-title "Night Song" --str-comment "first pass" tone.wav in.wav
python3 - <<'PY'
import struct
def chunk(cid, body):
    return cid + struct.pack("<I", len(body)) + body + (b"\0" if len(body) & 1 else b"")
img = open("tone.wav", "rb").read()
cue = struct.pack("<I", 2) + b"".join(struct.pack("<II4sIII", n, 0, b"data", 0, 0, p) for n, p in ((1, 441), (2, 8820)))
adtl = b"adtl" + chunk(b"labl", struct.pack("<I", 1) + b"Intro\0") + chunk(b"ltxt", struct.pack("<II4sHHHH", 2, 4410, b"rgn ", 0, 0, 0, 0)) + chunk(b"labl", struct.pack("<I", 2) + b"Hook\0")
def save(name, extra):
    body = img[12:] + extra
    open(name, "wb").write(b"RIFF" + struct.pack("<I", 4 + len(body)) + b"WAVE" + body)
save("cues.wav", chunk(b"cue ", cue) + chunk(b"LIST", adtl))
xml = '<?xml version="1.0" encoding="%s"?><BWFXML><IXML_VERSION>1.5</IXML_VERSION><SCENE>%s</SCENE><TAKE>7</TAKE></BWFXML>'
save("ixml8.wav", chunk(b"iXML", (xml % ("UTF-8", "S\u00e9ance 4")).encode("utf-8")))
save("ixml8bom.wav", chunk(b"iXML", b"\xef\xbb\xbf" + (xml % ("UTF-8", "S\u00e9ance 4")).encode("utf-8")))
save("ixml16.wav", chunk(b"iXML", (xml % ("UTF-16", "S\u00e9ance 4")).encode("utf-16")))
def picture(kind, mime, text, data):
    m, t = (mime + "\0").encode("utf-16-le"), (text + "\0").encode("utf-16-le")
    return struct.pack("<6I", 24 + len(m) + len(t) + len(data), 2, kind, len(m), len(t), len(data)) + m + t + data
save("pics.wav", chunk(b"LIST", b"pic " + chunk(b"pict", picture(3, "image/png", "Front", b"\x89PNG" * 10)) +
                  chunk(b"pict", picture(4, "image/jpeg", "Back", b"\xff\xd8\xff"))))
PY

out=$(zvfio meta "$(win "$work/in.wav")")
printf "%s\n" "$out" | grep -qx "bext.Description = Interview, take 2"; check "bext description from sndfile-metadata-set" $?
printf "%s\n" "$out" | grep -qx "bext.Originator = Field rec"; check "bext originator" $?
printf "%s\n" "$out" | grep -qx "bext.TimeReference = 987654321"; check "bext time reference" $?
printf "%s\n" "$out" | grep -qx "info.INAM = Night Song"; check "INFO title" $?
printf "%s\n" "$out" | grep -qx "info.ICMT = first pass"; check "INFO comment" $?
out=$(zvfio meta "$(win "$work/cues.wav")")
printf "%s\n" "$out" | grep -qx "marker.1 = 441:Intro"; check "cue point with its label" $?
printf "%s\n" "$out" | grep -qx "region.2 = 8820:4410:Hook"; check "region from ltxt" $?
out=$(zvfio meta "$(win "$work/pics.wav")")
printf "%s\n" "$out" | grep -qx "picture.1 = type 3, 40 bytes, image/png, Front" &&
    printf "%s\n" "$out" | grep -qx "picture.2 = type 4, 3 bytes, image/jpeg, Back"; check "pictures listed by type and size" $?
for f in ixml8 ixml8bom ixml16; do
    out=$(zvfio meta "$(win "$work/$f.wav")")
    printf "%s\n" "$out" | grep -qx "ixml.SCENE = Séance 4"; check "iXML scene of $f" $?
    printf "%s\n" "$out" | grep -qx "ixml.TAKE = 7"; check "iXML take of $f" $?
done

# Our writes, read by the outside tools.
cp in.wav out.wav
run() { "$run" "$exe" "$@" > /dev/null 2>&1; }
run meta set "$(win "$work/out.wav")" "bext.Description=Mixed down" bext.TimeReference=44100 \
    "info.INAM=New Title" "ixml.SCENE=12A" "ixml.TAKE=3" "marker=100:Start" "region=2000:500:Verse"
check "zvfio meta set" $?
[ "$(audio out.wav)" = "$want" ]; check "audio unchanged after set" $?
sndfile-info --broadcast out.wav | grep -q "Description *: Mixed down"; check "sndfile-info reads our bext" $?
sndfile-info --broadcast out.wav | grep -q "Time ref *: 0x00000ac44"; check "sndfile-info reads our time reference" $?
exiftool -s -a out.wav > exif.txt
grep -q "^Title *: New Title" exif.txt; check "exiftool reads our INFO title" $?
grep -q "^Comment *: first pass" exif.txt; check "exiftool keeps the comment not set" $?
grep -q "^BwfxmlScene *: 12A" exif.txt; check "exiftool reads our iXML scene" $?
grep -q "^BwfxmlTake *: 3" exif.txt; check "exiftool reads our iXML take" $?
grep -q "^CuePointLabel *: 1 Start" exif.txt && grep -q "^CuePointLabel *: 2 Verse" exif.txt; check "exiftool reads our cue labels" $?
grep -q "^LabeledText *: 2 500 'rgn '" exif.txt; check "exiftool reads our region" $?
python3 - <<'PY' > ixml.xml
import struct
b = open("out.wav", "rb").read(); o = 12
while o + 8 <= len(b):
    cid, size = struct.unpack_from("<4sI", b, o)
    if cid == b"iXML":
        import sys; sys.stdout.write(b[o + 8:o + 8 + size].rstrip(b"\0").decode("utf-8"))
    o += 8 + size + (size & 1)
PY
xmllint --noout ixml.xml; check "xmllint accepts our iXML" $?

# A project link set, shown, and refused without its command line.
cp tone.wav link.wav
run meta set "$(win "$work/link.wav")" "link.ProjectPath=C:\\p\\song.prj" "link.CommandLine=/open" \
    "link.CreatorAppInfo=zvtest 1" "link.RendererGuid={7C1E5B2A-3D4F-4A8B-9E21-6F0B5C3D8A14}"
check "zvfio meta set link" $?
[ "$(audio link.wav)" = "$want" ]; check "audio unchanged after link" $?
out=$(zvfio meta "$(win "$work/link.wav")")
printf "%s\n" "$out" | grep -qx 'link.ProjectPath = C:\\p\\song.prj'; check "link path shown" $?
printf "%s\n" "$out" | grep -qx "link.CommandLine = /open"; check "link command line shown" $?
printf "%s\n" "$out" | grep -qix "link.RendererGuid = {7C1E5B2A-3D4F-4A8B-9E21-6F0B5C3D8A14}"; check "link renderer shown" $?
sox link.wav -n stat 2>/dev/null; check "sox still reads the linked file" $?
cp tone.wav nolink.wav
run meta set "$(win "$work/nolink.wav")" "link.ProjectPath=C:\\x.prj"
[ $? -ne 0 ] && ! zvfio meta "$(win "$work/nolink.wav")" | grep -q "^link"; check "a link without command line is refused" $?

# Rendered anew, in process and through the surrogate: the metadata and the
# project link go along, the audio is the same.
cp in.wav rich.wav
run meta set "$(win "$work/rich.wav")" "marker=441:Intro" "region=8820:4410:Hook" \
    "link.ProjectPath=C:\\p\\song.prj" "link.CommandLine=/open"
# (the version of a link is the writer's own, not carried by the source)
shown() { zvfio meta "$(win "$1")" | grep -v "^link.Version" | sort; }
for host in "$exe" "$(dirname "$exe")/pcm-surrogate/zvfio.exe"; do
    [ -f "$host" ] || { echo "skipped: $host"; continue; }
    rm -f rendered.wav
    "$run" "$host" render --template "44,100 Hz 16 Bit, Stereo" "$(win "$work/rich.wav")" "$(win "$work/rendered.wav")" \
        > /dev/null 2>&1; check "render with metadata ($host)" $?
    [ "$(audio rendered.wav)" = "$want" ]; check "rendered audio equal" $?
    [ "$(shown "$work/rich.wav")" = "$(shown "$work/rendered.wav")" ]; check "zvfio meta shows the same fields" $?
    sndfile-info --broadcast rendered.wav | grep -q "Description *: Interview, take 2"; check "sndfile-info reads the rendered bext" $?
    exiftool -s -a rendered.wav > exif2.txt
    grep -q "^Title *: Night Song" exif2.txt && grep -q "^CuePointLabel *: 2 Hook" exif2.txt; check "exiftool reads the rendered INFO and cues" $?
    # Wave64: ffmpeg decodes the audio and reads the texts; libsndfile (and
    # sox through it) take the chunks behind the audio for more samples, so
    # its decode is compared over the original's length.
    rm -f rendered.w64
    "$run" "$host" render --template "44,100 Hz 16 Bit, Stereo" "$(win "$work/rich.wav")" "$(win "$work/rendered.w64")" \
        > /dev/null 2>&1; check "render into Wave64 with metadata ($host)" $?
    [ "$(ffmpeg -loglevel error -i rendered.w64 -f s16le - | md5sum)" = "$want" ]; check "ffmpeg decodes the Wave64 audio unchanged" $?
    ffprobe -v error -show_entries format_tags -of default=nw=1 rendered.w64 > probe.txt
    grep -qix "TAG:title=Night Song" probe.txt && grep -qix "TAG:comment=first pass" probe.txt; check "ffprobe reads the Wave64 texts" $?
    [ "$(sox rendered.w64 -t raw - | head -c "$(sox tone.wav -t raw - | wc -c)" | md5sum)" = "$want" ]; check "sox decodes the Wave64 audio" $?
    sndfile-info rendered.w64 | grep -q "Channels *: 2"; check "sndfile-info opens the Wave64 file" $?
    [ "$(shown "$work/rich.wav")" = "$(shown "$work/rendered.w64")" ]; check "zvfio meta shows the same fields in Wave64" $?
done
"$run" "$exe" render --no-meta --template "44,100 Hz 16 Bit, Stereo" "$(win "$work/rich.wav")" "$(win "$work/bare.wav")" \
    > /dev/null 2>&1 && [ -z "$(zvfio meta "$(win "$work/bare.wav")")" ]; check "render --no-meta leaves it behind" $?

# AIFF: texts ffmpeg writes and markers with a sustain loop read by zvfio
# meta; the same kinds rendered into AIFF, in process and through the
# surrogate, read by sndfile-info, exiftool and sox, the audio unchanged.
ffmpeg -loglevel error -y -i tone.wav -metadata title="Night Song" -metadata author="Ann" \
    -metadata copyright="(C) Us" -metadata comment="first pass" texts.aif
out=$(zvfio meta "$(win "$work/texts.aif")")
printf "%s\n" "$out" | grep -qx "info.INAM = Night Song" && printf "%s\n" "$out" | grep -qx "info.IART = Ann" &&
    printf "%s\n" "$out" | grep -qx "info.ICOP = (C) Us" && printf "%s\n" "$out" | grep -qx "info.ICMT = first pass"
check "AIFF texts from ffmpeg" $?
ffmpeg -loglevel error -y -i tone.wav tone.aif
python3 - <<'PY'
import struct
img = open("tone.aif", "rb").read()
def chunk(cid, body):
    return cid + struct.pack(">I", len(body)) + body + (b"\0" if len(body) & 1 else b"")
def mark(i, pos, name):
    e = struct.pack(">HIB", i, pos, len(name)) + name
    return e + (b"" if len(name) & 1 else b"\0")
marks = struct.pack(">H", 3) + mark(1, 441, b"Intro") + mark(2, 1000, b"beg loop") + mark(3, 3000, b"end loop")
inst = bytes([62, 0, 0, 127, 1, 127]) + struct.pack(">h3H3H", 0, 1, 2, 3, 0, 0, 0)
body = img[12:] + chunk(b"MARK", marks) + chunk(b"INST", inst) + chunk(b"APPL", b"zvtest")
open("marks.aif", "wb").write(b"FORM" + struct.pack(">I", 4 + len(body)) + b"AIFF" + body)
PY
out=$(zvfio meta "$(win "$work/marks.aif")")
printf "%s\n" "$out" | grep -qx "marker.1 = 441:Intro" && ! printf "%s\n" "$out" | grep -q "beg loop"; check "AIFF markers, loop markers with the sampler" $?
printf "%s\n" "$out" | grep -qx "sampler.UnityNote = 62" && printf "%s\n" "$out" | grep -qx "sampler.loop.1 = 1000:2000"
check "AIFF sampler loop from INST" $?
printf "%s\n" "$out" | grep -qx "kind.raw = 1 item(s), 14 bytes"; check "AIFF foreign chunk as raw" $?
cp rich.wav loop.wav
python3 - <<'PY'
import struct
b = open("loop.wav", "rb").read()
smpl = struct.pack("<9I", 0, 0, 22676, 62, 0, 0, 0, 1, 0) + struct.pack("<6I", 0, 0, 1000, 2999, 0, 0)
body = b[12:] + b"smpl" + struct.pack("<I", len(smpl)) + smpl
open("loop.wav", "wb").write(b"RIFF" + struct.pack("<I", 4 + len(body)) + b"WAVE" + body)
PY
for host in "$exe" "$(dirname "$exe")/pcm-surrogate/zvfio.exe"; do
    [ -f "$host" ] || { echo "skipped: $host"; continue; }
    rm -f rendered.aif back.wav
    "$run" "$host" render --template "44,100 Hz 16 Bit, Stereo" "$(win "$work/loop.wav")" "$(win "$work/rendered.aif")" \
        > /dev/null 2>&1; check "render into AIFF with metadata ($host)" $?
    [ "$(audio rendered.aif)" = "$want" ]; check "AIFF audio equal" $?
    sndfile-info rendered.aif > info.txt
    grep -q "Name *: Intro" info.txt && grep -q "Position : 8820" info.txt; check "sndfile-info reads our markers" $?
    grep -q "Base Note : 62" info.txt && grep -q "mode  : 801 => forward" info.txt; check "sndfile-info reads our INST" $?
    sox -V3 rendered.aif -n 2>&1 | grep -q "Loop 0: start: *1000"; check "sox reads our sustain loop" $?
    [ "$(sox --i -a rendered.aif)" = "first pass" ]; check "sox reads our comment" $?
    exiftool -s -a rendered.aif > exif3.txt
    grep -q "^Name *: Night Song" exif3.txt && grep -q "^Annotation *: first pass" exif3.txt; check "exiftool reads our AIFF texts" $?
    # and back into wave: what AIFF holds comes through the AIFF reader
    "$run" "$host" render --template "44,100 Hz 16 Bit, Stereo" "$(win "$work/rendered.aif")" "$(win "$work/back.wav")" \
        > /dev/null 2>&1 && [ "$(audio back.wav)" = "$want" ]; check "AIFF rendered back into wave ($host)" $?
    [ "$(shown "$work/rendered.aif")" = "$(shown "$work/back.wav")" ]; check "the same fields in both" $?
done

# zvfio meta on an AIFF file: copy, set and delete, the audio unchanged; no
# bext for it.
cp tone.aif edit.aif
run meta copy "$(win "$work/loop.wav")" "$(win "$work/edit.aif")" && run meta set "$(win "$work/edit.aif")" "info.INAM=Other" &&
    run meta delete "$(win "$work/edit.aif")" sampler && [ "$(audio edit.aif)" = "$want" ]; check "copy, set and delete on AIFF" $?
out=$(zvfio meta "$(win "$work/edit.aif")")
printf "%s\n" "$out" | grep -qx "info.INAM = Other" && printf "%s\n" "$out" | grep -qx "marker.2 = 8820:Hook" &&
    ! printf "%s\n" "$out" | grep -q "^sampler"; check "AIFF edits read back" $?
sndfile-info edit.aif | grep -c "^ MARK" | grep -qx 1; check "one MARK after the edits" $?
run meta set "$(win "$work/edit.aif")" "bext.Description=x"; [ $? -eq 1 ]; check "bext refused for AIFF" $?

# An ARDEO clip: the packed drop-frame value of its LIST meta as TCOD.
python3 - <<'PY'
import struct
def chunk(cid, body): return cid + struct.pack("<I", len(body)) + body + (b"\0" if len(body) & 1 else b"")
xml = b'<Clip><LtcChangeTable tcFps="30"><LtcChange frameCount="0" value="55150110"/></LtcChangeTable></Clip>\0'
body = b"AVI " + chunk(b"LIST", b"movi" + chunk(b"00dc", bytes(10))) + chunk(b"LIST", b"meta" + chunk(b"xml ", xml))
open("clip.avi", "wb").write(b"RIFF" + struct.pack("<I", len(body)) + body)
PY
zvfio meta "$(win "$work/clip.avi")" | grep -qx "info.TCOD = 10:01:15;15"; check "ARDEO time code" $?

# Update again, delete, copy: the audio stays the same bytes.
run meta set "$(win "$work/out.wav")" "marker=5:Again" && [ "$(audio out.wav)" = "$want" ]; check "second update" $?
run meta delete "$(win "$work/out.wav")" markers info bwf && [ "$(audio out.wav)" = "$want" ]; check "delete" $?
out=$(zvfio meta "$(win "$work/out.wav")")
[ -z "$out" ]; check "nothing left after delete" $?
sox tone.wav -t w64 tone.w64
# (sox takes a Wave64 file's bytes after the audio for more audio: the
# comparison is over the length of the original)
bytes=$(sox tone.wav -t raw - | wc -c)
run meta copy "$(win "$work/cues.wav")" "$(win "$work/tone.w64")" &&
    [ "$(sox tone.w64 -t raw - | head -c "$bytes" | md5sum)" = "$want" ]; check "copy into Wave64" $?
zvfio meta "$(win "$work/tone.w64")" | grep -qx "region.2 = 8820:4410:Hook"; check "markers read back from Wave64" $?
exit $fail
