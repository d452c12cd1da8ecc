#!/usr/bin/env python3
"""zvfio repair on files made by sox and by libsndfile's sndfile-convert.

Every sample type, 1 to 8 channels, wave and Wave64, each with a damaged RIFF
size, data size, both, a truncation and a destroyed header: sox must decode
every whole frame of the repaired file equal to the original, and a file with
only its sizes damaged must come back byte for byte. Good files, AIFF files
and other files are left byte for byte. Usage: repair_check.py ZVFIO_EXE
WINE_RUN OUTDIR; the wineserver of ZV_WINEPREFIX must run. Exit 77 when sox
or sndfile-convert is missing.
"""
import os
import shutil
import struct
import subprocess
import sys
import time

W64_DATA = bytes.fromhex("64617461f3acd3118cd100c04f8edb8a")
TYPES = [  # sox options, sndfile-convert option, float
    (["-e", "unsigned-integer", "-b", "8"], "-pcmu8", False),
    (["-e", "signed-integer", "-b", "16"], "-pcm16", False),
    (["-e", "signed-integer", "-b", "24"], "-pcm24", False),
    (["-e", "signed-integer", "-b", "32"], "-pcm32", False),
    (["-e", "floating-point", "-b", "32"], "-float32", True),
    (["-e", "floating-point", "-b", "64"], "-float64", True),
]
failures = []


def win(path):
    return "Z:" + os.path.abspath(path).replace("/", "\\")


def zvfio(exe, run, *args):
    r = subprocess.run([run, exe, "repair"] + list(args), capture_output=True, text=True, errors="replace")
    return r.returncode, (r.stdout + r.stderr).replace("\r", "")


def decode(path):
    r = subprocess.run(["sox", "-D", "-V1", path, "-t", "raw", "-"], capture_output=True)
    return r.stdout if r.returncode == 0 else None


def data_at(img, w64):
    return img.find(W64_DATA) if w64 else img.find(b"data", 12)


def damaged(img, w64, how):
    """The damaged image and how many audio bytes stay."""
    img = bytearray(img)
    p = data_at(img, w64)
    start = p + (24 if w64 else 8)
    size_at = p + 16 if w64 else p + 4
    fmt = "<Q" if w64 else "<I"
    if how in ("riff", "both"):
        struct.pack_into(fmt, img, 16 if w64 else 4, 0)
    if how in ("data", "both"):
        struct.pack_into(fmt, img, size_at, 0 if how == "both" else 0xFFFFFFFF)
    if how == "trunc":
        struct.pack_into(fmt, img, size_at, 0)
        del img[start + (len(img) - start) * 2 // 3:]
    if how == "header":
        img[:p] = bytes(p)
    return bytes(img), len(img) - start


def main():
    exe, run, out = sys.argv[1:4]
    if not shutil.which("sox") or not shutil.which("sndfile-convert"):
        print("sox or sndfile-convert is not installed")
        return 77
    shutil.rmtree(out, ignore_errors=True)
    os.makedirs(out)
    originals = []  # (name, float, channels, bits, rate)
    for t, (sox_opts, sf_opt, is_float) in enumerate(TYPES):
        bits = int(sox_opts[-1])
        for ch in (1, 2, 3, 6, 8):
            rate = 48000 if ch % 2 else 44100
            name = "sox_%d_%d.wav" % (t, ch)
            subprocess.run(["sox", "-D", "-n", "-r", str(rate), "-c", str(ch)] + sox_opts +
                           [os.path.join(out, name), "synth", "0.05", "sine", "300-900", "vol", "0.5"], check=True)
            originals.append((name, is_float, ch, bits, rate))
            sf = "sf_%d_%d.%s" % (t, ch, "w64" if ch in (2, 6) else "wav")
            subprocess.run(["sndfile-convert", sf_opt, os.path.join(out, name), os.path.join(out, sf)],
                           check=True, stdout=subprocess.DEVNULL)
            originals.append((sf, is_float, ch, bits, rate))
            if ch == 3:
                w = "sox_%d_%d.w64" % (t, ch)
                subprocess.run(["sox", "-D", os.path.join(out, name), os.path.join(out, w)], check=True)
                originals.append((w, is_float, ch, bits, rate))

    # Sizes damaged: one zvfio process for all of them.
    cases = []
    for name, is_float, ch, bits, rate in originals:
        src = os.path.join(out, name)
        img = open(src, "rb").read()
        w64 = name.endswith(".w64")
        for how in ("riff", "data", "both", "trunc", "header") if ch in (1, 2, 8) else ("riff", "data", "both", "trunc"):
            dmg = os.path.join(out, "dmg_%s_%s" % (how, name))
            bad, kept = damaged(img, w64, how)
            open(dmg, "wb").write(bad)
            cases.append((dmg, src, how, kept, (is_float, ch, bits, rate)))
    batch = [c for c in cases if c[2] != "header"]
    t0 = time.time()
    rc, text = zvfio(exe, run, "--no-undo", *[win(c[0]) for c in batch])
    print("%d files with damaged sizes repaired in %.1f s" % (len(batch), time.time() - t0))
    if rc != 0:
        failures.append("repair of %d damaged files exited %d:\n%s" % (len(batch), rc, text[-3000:]))
    # destroyed headers: one zvfio process for each format given
    formats = {}
    for c in cases:
        if c[2] == "header":
            formats.setdefault(c[4], []).append(c[0])
    for (is_float, ch, bits, rate), files in formats.items():
        opts = ["--rate", str(rate), "--channels", str(ch), "--bits", str(bits)] + (["--float"] if is_float else [])
        rc, text = zvfio(exe, run, "--no-undo", *opts, *[win(f) for f in files])
        if rc != 0:
            failures.append("destroyed headers %s: exit %d: %s" % (files, rc, text.strip()))
    for dmg, src, how, kept, (is_float, ch, bits, rate) in cases:
        frame = ch * bits // 8
        want, got = decode(src), decode(dmg)
        if how == "trunc" and is_float and src.endswith(".w64") and got is not None:
            # libsndfile scales a float file by its own peak: the audio bytes
            # themselves, and the frames sox counts
            start = data_at(open(src, "rb").read(), True) + 24
            whole = kept // frame * frame
            same = open(dmg, "rb").read()[start:start + whole] == open(src, "rb").read()[start:start + whole]
            if not same or len(got) != whole:
                failures.append("%s: %d bytes decoded of %d, or the audio changed" % (dmg, len(got), whole))
            continue
        if how == "trunc" and want is not None:
            # the original cut to the same frames: a float file read through
            # libsndfile is scaled by its own peak
            ref = dmg + ".ref" + os.path.splitext(src)[1]
            subprocess.run(["sox", "-D", "-V1", src, ref, "trim", "0", "%ds" % (kept // frame)], check=True)
            want = decode(ref)
        if got is None or want is None:
            failures.append("%s: sox can't decode the repaired file" % dmg)
        elif got != want:
            failures.append("%s: %d bytes decoded, %d wanted, or they differ" % (dmg, len(got), len(want)))
        elif how in ("riff", "data", "both") and open(dmg, "rb").read() != open(src, "rb").read():
            failures.append("%s: not byte for byte the original after its sizes were mended" % dmg)

    # Left alone: good files, AIFF, other files; and the undo of one repair.
    subprocess.run(["sox", "-D", "-n", "-r", "44100", "-c", "2", "-b", "16", os.path.join(out, "x.aiff"),
                    "synth", "0.05", "sine", "440"], check=True)
    open(os.path.join(out, "random.wav"), "wb").write(os.urandom(53000))
    open(os.path.join(out, "text.txt"), "wb").write(b"some data, not audio\n" * 100)
    for name, expect_rc in (("sox_1_2.wav", 0), ("sf_4_6.w64", 0), ("x.aiff", 1), ("random.wav", 1), ("text.txt", 1)):
        path = os.path.join(out, name)
        before = open(path, "rb").read()
        rc, text = zvfio(exe, run, win(path))
        if rc != expect_rc or open(path, "rb").read() != before:
            failures.append("%s: exit %d (want %d) or changed: %s" % (name, rc, expect_rc, text.strip()))
        elif expect_rc == 0 and "nothing to repair" not in text:
            failures.append("%s: not 'nothing to repair': %s" % (name, text.strip()))
        elif expect_rc == 1 and "not a wave or Wave64 file" not in text:
            failures.append("%s: the refusal doesn't say why: %s" % (name, text.strip()))
        print("%-12s exit %d: %s" % (name, rc, text.strip().splitlines()[0] if text.strip() else ""))
    src = os.path.join(out, "sox_2_8.wav")
    dmg = os.path.join(out, "undo.wav")
    bad, _ = damaged(open(src, "rb").read(), False, "both")
    open(dmg, "wb").write(bad)
    rc1, t1 = zvfio(exe, run, "--dry-run", win(dmg))
    unchanged = open(dmg, "rb").read() == bad
    rc2, t2 = zvfio(exe, run, win(dmg))
    repaired = open(dmg, "rb").read() == open(src, "rb").read() and os.path.exists(dmg + ".repair-undo")
    rc3, t3 = zvfio(exe, run, "--undo", win(dmg))
    if rc1 or not unchanged or "would be" not in t1 or rc2 or not repaired or rc3 or open(dmg, "rb").read() != bad:
        failures.append("dry run, repair and undo: %d %d %d\n%s%s%s" % (rc1, rc2, rc3, t1, t2, t3))
    print(t2.strip())
    # an undo file in the way: refused, nothing written, the undo file kept
    open(dmg, "wb").write(bad)
    open(dmg + ".repair-undo", "wb").write(b"earlier")
    rc4, t4 = zvfio(exe, run, win(dmg))
    if rc4 != 1 or open(dmg, "rb").read() != bad or open(dmg + ".repair-undo", "rb").read() != b"earlier":
        failures.append("a repair over an earlier undo file: exit %d: %s" % (rc4, t4))

    for f in failures:
        print("FAIL", f)
    print("%d files repaired and decoded by sox; %d failures" % (len(cases), len(failures)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
