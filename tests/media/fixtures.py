#!/usr/bin/env python3
"""Media files for the chunk layer tests, made and checked by outside tools.

gen DIR    writes files made by sox and by hand (struct/wave), damaged copies
           with the files their repair must give, and DIR/manifest.txt: every
           chunk of every file as walked here (offset, id, size).
check DIR  reads back what test_media.exe wrote into DIR/out with
           sndfile-cmp, sndfile-info and sox, and fails on any difference.
"""
import os
import struct
import subprocess
import sys
import wave

W64_RIFF = bytes.fromhex("726966662e91cf11a5d628db04c10000")
W64_WAVE = bytes.fromhex("77617665f3acd3118cd100c04f8edb8a")
W64_FMT = bytes.fromhex("666d7420f3acd3118cd100c04f8edb8a")
W64_DATA = bytes.fromhex("64617461f3acd3118cd100c04f8edb8a")
W64_JUNK = bytes.fromhex("6a756e6bf3ac3d118cd100c04f8edb8a")


def run(*args):
    subprocess.run(args, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def chunk(cid, body):
    return cid + struct.pack("<I", len(body)) + body + (b"\0" if len(body) & 1 else b"")


def riff(form, chunks):
    return b"RIFF" + struct.pack("<I", 4 + len(chunks)) + form + chunks


def fmt18(channels, rate, bits, tag=1):
    align = channels * bits // 8
    return struct.pack("<HHIIHHH", tag, channels, rate, rate * align, align, bits, 0)


def w64chunk(label, body):
    pad = (-len(body)) % 8
    return label + struct.pack("<Q", 24 + len(body)) + body + b"\0" * pad


def w64(chunks):
    return W64_RIFF + struct.pack("<Q", 40 + len(chunks)) + W64_WAVE + chunks


def pcm_frames(path):
    with wave.open(path, "rb") as w:
        return w.getnchannels(), w.getframerate(), w.getsampwidth(), w.readframes(w.getnframes())


def write_expected(path, channels, rate, width, data):
    with wave.open(path, "wb") as w:
        w.setnchannels(channels)
        w.setframerate(rate)
        w.setsampwidth(width)
        w.writeframes(data)


def walk(path):
    """Top-level chunks (and LIST entries) as (kind, offset, id hex, size)."""
    b = open(path, "rb").read()
    out = []
    if b[:4] == b"RIFF":
        o = 12
        while o + 8 <= len(b):
            cid, size = struct.unpack_from("<4sI", b, o)
            out.append(("chunk", o, cid[::-1].hex(), size))
            if cid == b"LIST":
                s, end = o + 12, o + 8 + size
                while s + 8 <= end:
                    sid, ssize = struct.unpack_from("<4sI", b, s)
                    out.append(("sub", s, sid[::-1].hex(), ssize))
                    s += 8 + ssize + (ssize & 1)
            o += 8 + size + (size & 1)
        return "riff", out
    if b[:16] == W64_RIFF:
        o = 40
        while o + 24 <= len(b):
            size = struct.unpack_from("<Q", b, o + 16)[0]
            out.append(("chunk", o, b[o:o + 16].hex(), max(size, 24) - 24))
            o += (max(size, 24) + 7) & ~7
        return "w64", out
    if b[:4] == b"FORM":
        o = 12
        while o + 8 <= len(b):
            cid, size = struct.unpack_from(">4sI", b, o)
            out.append(("chunk", o, cid.hex(), size))
            o += 8 + size + (size & 1)
        return "iff", out
    raise SystemExit("unknown container: " + path)


def gen(d):
    os.makedirs(os.path.join(d, "out"), exist_ok=True)
    for f in os.listdir(os.path.join(d, "out")):
        os.remove(os.path.join(d, "out", f))
    p = lambda n: os.path.join(d, n)
    run("sox", "-n", "-r", "44100", "-c", "2", "-b", "16", p("tone16.wav"), "synth", "0.2", "sine", "440", "sine", "660")
    run("sox", "-n", "-r", "48000", "-c", "6", "-b", "24", p("multi24.wav"), "synth", "0.1", "sine", "300")
    run("sox", p("tone16.wav"), p("tone16.w64"))
    run("sox", p("tone16.wav"), p("tone16.aiff"))
    run("sox", p("tone16.wav"), "-t", "aifc", p("tone16.aifc"))
    ch, rate, width, data = pcm_frames(p("tone16.wav"))
    # Other containers for the quick identification, in a folder of their own.
    os.makedirs(p("quickid"), exist_ok=True)
    for ext in ("flac", "au", "ogg", "aiff", "w64"):
        run("sox", p("tone16.wav"), os.path.join(d, "quickid", "tone16." + ext))

    # By hand: bext, LIST/INFO with odd entries, odd chunks before and after data.
    bext = b"Test tone".ljust(256, b"\0") + b"\0" * (602 - 256)
    info = b"INFO" + chunk(b"INAM", b"Tone\0") + chunk(b"ISFT", b"zv\0") + chunk(b"ICMT", b"hello!\0")
    head = chunk(b"fmt ", fmt18(2, 44100, 16)) + chunk(b"bext", bext) + chunk(b"LIST", info) + chunk(b"odd ", b"abc")
    open(p("info.wav"), "wb").write(riff(b"WAVE", head + chunk(b"data", data) + chunk(b"zzz ", b"12345")))
    # bext fields written by libsndfile's own tool, for the reader to match.
    run("sndfile-metadata-set", "--bext-description", "Interview, take 2", "--bext-originator", "Field rec",
        "--bext-orig-ref", "REF-77", "--bext-orig-date", "2025-03-04", "--bext-orig-time", "10:20:30",
        "--bext-time-ref", "987654321", "--bext-coding-hist", "A=PCM,F=44100,W=16,M=stereo,T=field,",
        p("tone16.wav"), p("meta_set.wav"))
    # iXML with a non-ASCII scene name in three encodings: UTF-8 with and
    # without its mark, UTF-16 with its mark.
    xml = '<?xml version="1.0" encoding="%s"?>\r\n<BWFXML><IXML_VERSION>1.61</IXML_VERSION>' \
          '<SCENE>Sz\u00e8ne \u00c4\u00f8 \u2013 \u65e5\u672c</SCENE><TAKE>7</TAKE></BWFXML>\r\n'
    for name, body in (("ixml_utf8.wav", (xml % "UTF-8").encode("utf-8")),
                       ("ixml_utf8bom.wav", b"\xef\xbb\xbf" + (xml % "UTF-8").encode("utf-8")),
                       ("ixml_utf16.wav", b"\xff\xfe" + (xml % "UTF-16").encode("utf-16-le"))):
        open(p(name), "wb").write(riff(b"WAVE", chunk(b"fmt ", fmt18(2, 44100, 16)) + chunk(b"data", data[:400]) +
                                        chunk(b"iXML", body)))
    mono = bytes((i * 37) & 0xFF for i in range(1001))
    open(p("mono8.wav"), "wb").write(riff(b"WAVE", chunk(b"fmt ", fmt18(1, 8000, 8)) + chunk(b"data", mono)))

    # Damaged files and what their repair must give.
    base = riff(b"WAVE", chunk(b"fmt ", fmt18(2, 44100, 16)) + chunk(b"data", data))

    def damaged(name, img, frames_bytes):
        open(p("dmg_" + name), "wb").write(img)
        write_expected(p("exp_" + name.replace(".w64", ".wav")), 2, 44100, 2, frames_bytes)

    def sizes(img, riff_size, data_at, data_size):
        img = bytearray(img)
        struct.pack_into("<I", img, 4, riff_size)
        struct.pack_into("<I", img, data_at, data_size)
        return bytes(img)

    damaged("hdrzero.wav", sizes(base, 0, 42, 0), data)
    damaged("pastend.wav", sizes(base, 0x7FFFFFF0, 42, 0x7FFFFFF0), data)
    damaged("trunc.wav", sizes(base, 0, 42, 0)[:-3], data[:len(data) - 4])
    damaged("datasize.wav", sizes(base, len(base) - 8, 42, 100), data)
    nofmt = bytearray(base)
    nofmt[12:38] = b"\0" * 26
    damaged("nofmt.wav", bytes(nofmt), data)
    withinfo = riff(b"WAVE", head + chunk(b"data", data))
    damaged("info.wav", sizes(withinfo, 0, len(head) + 16, 0), data)
    fmtbody = fmt18(2, 44100, 16)
    w = w64(w64chunk(W64_FMT, fmtbody) + w64chunk(W64_JUNK, b"\0" * 40) + w64chunk(W64_DATA, data))
    w = bytearray(w)
    struct.pack_into("<Q", w, 16, 0)
    struct.pack_into("<Q", w, 40 + 48 + 64 + 16, 0)
    damaged("zero.w64", bytes(w), data)

    with open(p("manifest.txt"), "w") as m:
        for name in sorted(os.listdir(d)):
            if not os.path.isfile(p(name)) or name == "manifest.txt":
                continue
            if name.startswith(("dmg_", "exp_")):
                continue
            kind, chunks = walk(p(name))
            m.write("file %s %s\n" % (name, kind))
            for what, off, cid, size in chunks:
                m.write("%s %d %s %d\n" % (what, off, cid, size))
            m.write("end\n")


def check(d):
    out = os.path.join(d, "out")
    p = lambda n: os.path.join(d, n)
    failures = []

    def expect(ok, what):
        if not ok:
            failures.append(what)

    def same_samples(a, b):
        r = subprocess.run(["sndfile-cmp", a, b], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        expect(r.returncode == 0, "sndfile-cmp %s %s: %s" % (a, b, r.stdout.decode(errors="replace").strip()))

    def sox_reads(path):
        r = subprocess.run(["sox", "--i", path], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        expect(r.returncode == 0, "sox --i %s: %s" % (path, r.stdout.decode(errors="replace").strip()))

    def chunks_listed(path, names):
        r = subprocess.run(["sndfile-info", path], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        text = r.stdout.decode(errors="replace")
        for n in names:
            expect(n in text, "sndfile-info %s does not list %r" % (path, n))

    written = {
        "written.wav": ("tone16.wav", ["JUNK", "data : 35280"]),
        "written.w64": ("tone16.w64", ["fmt", "data"]),
        "written24.wav": ("multi24.wav", ["fmt  : 18", "Channels      : 6"]),
        "inserted.wav": ("tone16.wav", ["zvtk : 5"]),
        "deleted.wav": ("info.wav", ["bext", "data"]),
    }
    for name, (orig, listed) in written.items():
        path = os.path.join(out, name)
        if not os.path.exists(path):
            failures.append("test_media did not write " + name)
            continue
        same_samples(p(orig), path)
        sox_reads(path)
        chunks_listed(path, listed)
    r = subprocess.run(["sndfile-info", os.path.join(out, "deleted.wav")], stdout=subprocess.PIPE)
    expect(b"LIST" not in r.stdout, "deleted.wav still has its LIST chunk")

    for name in sorted(os.listdir(d)):
        if not name.startswith("dmg_"):
            continue
        rep = os.path.join(out, "rep_" + name[4:])
        if not os.path.exists(rep):
            failures.append("test_media did not repair " + name)
            continue
        same_samples(p("exp_" + name[4:].replace(".w64", ".wav")), rep)
        sox_reads(rep)
        # Every byte of audio that was in the damaged file is still there.
        before, after = open(p(name), "rb").read(), open(rep, "rb").read()
        expect(len(before) == len(after), "repair changed the length of " + name)

    # bext and iXML written by test_media: every bext field as set, the audio
    # untouched, the iXML well-formed.
    for bwf in [os.path.join(out, "bwf.wav"), os.path.join(out, "bwf_record.wav")]:
        if not os.path.exists(bwf):
            failures.append("test_media did not write " + bwf)
            continue
        same_samples(p("tone16.wav"), bwf)
        sox_reads(bwf)
        chunks_listed(bwf, ["bext", "iXML"])
        r = subprocess.run(["sndfile-info", "--broadcast", bwf], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        text = r.stdout.decode(errors="replace")
        # (the time reference is shown in hexadecimal)
        for field in ["Scene 12 take 3", "zvtest", "ZV0000000001", "2026-11-25", "01:02:03", "0x%09x" % 123456789,
                      "A=PCM,F=44100,W=16,M=stereo,T=zvtest,"]:
            expect(field in text, "sndfile-info --broadcast %s does not show %r" % (bwf, field))
        img = open(bwf, "rb").read()
        o, xml = 12, None
        while o + 8 <= len(img):
            size = int.from_bytes(img[o + 4:o + 8], "little")
            if img[o:o + 4] == b"iXML":
                xml = img[o + 8:o + 8 + size].rstrip(b"\0")
            o += 8 + size + (size & 1)
        expect(xml is not None and b"<TAKE>3</TAKE>" in xml, bwf + " has no iXML chunk with the take")
        if xml is not None:
            r = subprocess.run(["xmllint", "--noout", "-"], input=xml, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            expect(r.returncode == 0, "xmllint refuses the iXML of %s: %s" % (bwf, r.stdout.decode(errors="replace")))

    for f in failures:
        print("FAIL:", f)
    print("%d media checks failed" % len(failures) if failures else "media files read back by the outside tools")
    return 1 if failures else 0


if __name__ == "__main__":
    if len(sys.argv) != 3 or sys.argv[1] not in ("gen", "check"):
        raise SystemExit("usage: fixtures.py gen|check DIR")
    if sys.argv[1] == "gen":
        gen(sys.argv[2])
    else:
        sys.exit(check(sys.argv[2]))
