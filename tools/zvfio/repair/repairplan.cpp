// Planning a repair: identify the file, walk its chunks, and decide which
// bytes to write. Nothing here writes to the file.
#include "repairplan.h"
#include "zvbase.h"
#include "media/riff64.h"
#include <stdio.h>
#include <string.h>

namespace zvfio {
namespace {

// A header may end this far into the file; the audio is searched for up to here.
const ULONGLONG kHeaderLimit = 1u << 20;
// Chunks behind the audio are looked for in this last part of the file.
const ULONGLONG kTailWindow = 16u << 20;

DWORD Le32(const BYTE *p) { return p[0] | (p[1] << 8) | (p[2] << 16) | ((DWORD)p[3] << 24); }
WORD Le16(const BYTE *p) { return (WORD)(p[0] | (p[1] << 8)); }
ULONGLONG Le64(const BYTE *p) { return Le32(p) | ((ULONGLONG)Le32(p + 4) << 32); }

std::vector<BYTE> Bytes32(DWORD v) { return {(BYTE)v, (BYTE)(v >> 8), (BYTE)(v >> 16), (BYTE)(v >> 24)}; }
std::vector<BYTE> Bytes64(ULONGLONG v)
{
    std::vector<BYTE> b = Bytes32((DWORD)v), h = Bytes32((DWORD)(v >> 32));
    b.insert(b.end(), h.begin(), h.end());
    return b;
}
std::vector<BYTE> BytesOf(const void *p, size_t n) { return std::vector<BYTE>((const BYTE *)p, (const BYTE *)p + n); }

std::vector<BYTE> ReadRange(HANDLE file, ULONGLONG offset, ULONGLONG size)
{
    std::vector<BYTE> b((size_t)size);
    if (size && !ReadAt(file, offset, b.data(), (DWORD)size))
        b.clear();
    return b;
}

// A RIFF chunk id as writers make them: four printable characters, the
// first a letter, digit or underscore.
bool PlausibleId(const BYTE *p)
{
    for (int i = 0; i < 4; i++)
        if (p[i] < 0x20 || p[i] > 0x7E)
            return false;
    return isalnum(p[0]) || p[0] == '_';
}

const BYTE kW64Tail[12] = {0xF3, 0xAC, 0xD3, 0x11, 0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};

// A Wave64 label: a chunk id in the format's own GUID family, or one of the
// GUIDs of its own.
bool PlausibleLabel(const BYTE *p)
{
    static const GUID other[] = {
        ZVW64_LIST, ZVW64_JUNK,
        {0x925F94BC, 0x525A, 0x11D2, {0x86, 0xDC, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}}, // summary list
        {0xABF76256, 0x392D, 0x11D2, {0x86, 0xC7, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}}, // markers
    };
    if (memcmp(p + 4, kW64Tail, 12) == 0 && PlausibleId(p))
        return true;
    for (const GUID &g : other)
        if (memcmp(p, &g, 16) == 0)
            return true;
    return false;
}

// The two containers, by the sizes of their chunk headers.
struct Container {
    bool wave64;
    DWORD header;  // bytes of a chunk header
    DWORD align;   // chunks start at multiples of this
    ULONGLONG first; // first chunk behind the file header
    ULONGLONG Next(ULONGLONG pos, ULONGLONG size) const
    {
        // a Wave64 size counts its header
        ULONGLONG end = wave64 ? pos + size : pos + header + size;
        return (end + align - 1) / align * align;
    }
    bool Plausible(const BYTE *p) const { return wave64 ? PlausibleLabel(p) : PlausibleId(p); }
    ULONGLONG Size(const BYTE *p) const { return wave64 ? Le64(p + 16) : Le32(p + 4); }
    bool IsData(const BYTE *p) const { return wave64 ? memcmp(p, &ZVW64_DATA, 16) == 0 : memcmp(p, "data", 4) == 0; }
    bool IsFmt(const BYTE *p) const { return wave64 ? memcmp(p, &ZVW64_FMT, 16) == 0 : memcmp(p, "fmt ", 4) == 0; }
};

// Whether chunks from pos run to the end of the file. Fewer bytes left than
// a chunk header are slack; a last chunk may lack its pad.
bool ChainToEnd(HANDLE file, const Container &c, ULONGLONG pos, ULONGLONG length)
{
    for (int n = 0; n < 10000; n++) {
        if (pos >= length || length - pos < c.header)
            return pos <= length;
        BYTE h[24];
        if (!ReadAt(file, pos, h, c.header) || !c.Plausible(h))
            return false;
        ULONGLONG size = c.Size(h);
        if (c.wave64 && size < 24)
            return false;
        ULONGLONG end = c.wave64 ? pos + size : pos + c.header + size;
        if (end < pos || end > length)
            return false;
        pos = c.Next(pos, size);
        if (pos > length)
            return true;
    }
    return false;
}

// Audio bytes in span, which runs from dataOffset to the next chunk or the
// end of the file: the fewest whole frames whose pad, zero bytes, reaches to
// there, else the whole frames in it.
ULONGLONG Fit(HANDLE file, const Container &c, ULONGLONG dataOffset, ULONGLONG span, WORD blockAlign)
{
    const ULONGLONG most = span < c.align - 1 ? span : c.align - 1;
    std::vector<BYTE> last = ReadRange(file, dataOffset + span - most, most);
    for (ULONGLONG k = last.size(); k > 0; k--) {
        ULONGLONG s = span - k;
        if (s % blockAlign || c.Next(dataOffset, s) < dataOffset + span)
            continue;
        bool zero = true;
        for (size_t i = (size_t)(last.size() - k); i < last.size(); i++)
            zero = zero && last[i] == 0;
        if (zero)
            return s;
    }
    return span - span % blockAlign;
}

// Bytes of audio at dataOffset: the stored size when the chunks behind it
// run to the end, else up to the first chunk from which chunks run to the
// end, else up to the end.
ULONGLONG DataExtent(HANDLE file, const Container &c, ULONGLONG length, ULONGLONG dataOffset, ULONGLONG stored,
                     WORD blockAlign)
{
    const ULONGLONG avail = length - dataOffset;
    if (stored <= avail) {
        ULONGLONG next = c.Next(dataOffset, stored);
        if (dataOffset + stored == length || ChainToEnd(file, c, next, length))
            return stored;
    }
    ULONGLONG from = avail > kTailWindow ? length - kTailWindow : dataOffset + 1;
    from = (from + c.align - 1) / c.align * c.align;
    if (from < length) {
        std::vector<BYTE> tail = ReadRange(file, from, length - from);
        for (size_t i = 0; i + c.header <= tail.size(); i += c.align)
            if (c.Plausible(&tail[i]) && ChainToEnd(file, c, from + i, length))
                return Fit(file, c, dataOffset, from + i - dataOffset, blockAlign);
    }
    return Fit(file, c, dataOffset, avail, blockAlign);
}

// A format record, plain or extensible, as a plain record; false when it
// states no usable format.
bool ParseFormat(const BYTE *p, ULONGLONG size, WAVEFORMATEX *out)
{
    if (size < 16)
        return false;
    WAVEFORMATEX f = {};
    f.wFormatTag = Le16(p);
    f.nChannels = Le16(p + 2);
    f.nSamplesPerSec = Le32(p + 4);
    f.nBlockAlign = Le16(p + 12);
    f.wBitsPerSample = Le16(p + 14);
    if (f.wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
        if (size < 40)
            return false;
        f.wFormatTag = Le16(p + 24); // the sub-format's tag
    }
    if (f.nChannels < 1 || f.nChannels > 64 || f.nSamplesPerSec < 1000 || f.nSamplesPerSec > 768000 ||
        f.nBlockAlign == 0)
        return false;
    if (f.wFormatTag == WAVE_FORMAT_PCM || f.wFormatTag == WAVE_FORMAT_IEEE_FLOAT) {
        if (f.wBitsPerSample < 8 || f.wBitsPerSample > 64 ||
            f.nBlockAlign != f.nChannels * ((f.wBitsPerSample + 7) / 8))
            return false;
        // the container's width: valid bits of an extensible record may be fewer
        f.wBitsPerSample = (WORD)(f.nBlockAlign / f.nChannels * 8);
    }
    f.nAvgBytesPerSec = f.nBlockAlign * f.nSamplesPerSec;
    *out = f;
    return true;
}

bool GivenRecord(const GivenFormat &g, WAVEFORMATEX *out)
{
    if (!g.given || !g.rate || !g.channels || !g.bits || g.bits % 8)
        return false;
    WAVEFORMATEX f = {};
    f.wFormatTag = g.isFloat ? WAVE_FORMAT_IEEE_FLOAT : WAVE_FORMAT_PCM;
    f.nChannels = g.channels;
    f.nSamplesPerSec = g.rate;
    f.wBitsPerSample = g.bits;
    f.nBlockAlign = (WORD)(g.channels * (g.bits / 8));
    f.nAvgBytesPerSec = f.nBlockAlign * f.nSamplesPerSec;
    *out = f;
    return true;
}

// What the kernel's header can state: PCM of 8 to 32 bits, float of 32 or 64.
bool KernelCanWrite(const WAVEFORMATEX &f)
{
    if (f.wFormatTag == WAVE_FORMAT_PCM)
        return f.wBitsPerSample == 8 || f.wBitsPerSample == 16 || f.wBitsPerSample == 24 || f.wBitsPerSample == 32;
    return f.wFormatTag == WAVE_FORMAT_IEEE_FLOAT && (f.wBitsPerSample == 32 || f.wBitsPerSample == 64);
}

RepairPlan Refuse(RepairPlan plan, HRESULT hr, const std::string &reason)
{
    plan.action = RepairAction::Refuse;
    plan.result = hr;
    plan.reason = reason;
    plan.patches.clear();
    return plan;
}

void AddPatch(RepairPlan &plan, HANDLE file, ULONGLONG offset, const std::vector<BYTE> &bytes, const char *what)
{
    // only bytes that differ from the file's are written
    std::vector<BYTE> now = ReadRange(file, offset, bytes.size());
    if (now != bytes)
        plan.patches.push_back({offset, bytes, what});
}

std::string Num(ULONGLONG v) { return std::to_string(v); }

// The header of a file whose chunk headers stand: sizes, container ids and,
// where the record is unreadable and a format given, the record.
RepairPlan Mend(RepairPlan plan, HANDLE file, const Container &c, ULONGLONG fmtPos, ULONGLONG fmtSize,
                ULONGLONG dataPos, const GivenFormat &given)
{
    const ULONGLONG length = plan.length;
    std::vector<BYTE> rec = ReadRange(file, fmtPos + c.header, fmtSize < 40 ? fmtSize : 40);
    bool readable = !rec.empty() && ParseFormat(rec.data(), rec.size(), &plan.format);
    if (!readable) {
        if (!GivenRecord(given, &plan.format))
            return Refuse(plan, ZVERR_UNSUPPORTED_FORMAT,
                          "its format record is unreadable: give --rate, --channels and --bits (and --float)");
        BYTE out[16];
        memcpy(out, &plan.format, 16);
        AddPatch(plan, file, fmtPos + c.header, BytesOf(out, 16), "format");
    } else if (given.given) {
        plan.reason = "the file states its format; the format options are not used";
    }
    BYTE h[24];
    ReadAt(file, dataPos, h, c.header);
    const ULONGLONG stored = c.wave64 ? c.Size(h) - (c.Size(h) >= 24 ? 24 : c.Size(h)) : c.Size(h);
    plan.dataOffset = dataPos + c.header;
    plan.dataSize = DataExtent(file, c, length, plan.dataOffset, stored, plan.format.nBlockAlign);
    if (c.wave64) {
        AddPatch(plan, file, 0, BytesOf(&ZVW64_RIFF, 16), "riff label");
        BYTE s[8];
        ReadAt(file, 16, s, 8);
        if (Le64(s) != length && Le64(s) != (length + 7) / 8 * 8)
            AddPatch(plan, file, 16, Bytes64(length), "riff size");
        AddPatch(plan, file, 24, BytesOf(&ZVW64_WAVE, 16), "wave label");
        AddPatch(plan, file, dataPos + 16, Bytes64(plan.dataSize + 24), "data size");
    } else {
        if (length - 8 > 0xFFFFFFFFull)
            return Refuse(plan, ZVERR_SIZE_LIMIT, "it is longer than a wave file can state");
        AddPatch(plan, file, 0, BytesOf("RIFF", 4), "RIFF id");
        BYTE s[4];
        ReadAt(file, 4, s, 4);
        ULONGLONG whole = (ULONGLONG)Le32(s) + 8;
        if (whole != length && whole + 1 != length && whole != length + 1)
            AddPatch(plan, file, 4, Bytes32((DWORD)(length - 8)), "RIFF size");
        AddPatch(plan, file, 8, BytesOf("WAVE", 4), "WAVE id");
        AddPatch(plan, file, dataPos + 4, Bytes32((DWORD)plan.dataSize), "data size");
    }
    plan.action = plan.patches.empty() ? RepairAction::Nothing : RepairAction::Mend;
    return plan;
}

// The first data id or label from the first chunk on, within the header limit.
bool FindDataId(HANDLE file, const Container &c, ULONGLONG length, ULONGLONG *pos)
{
    ULONGLONG end = length < kHeaderLimit ? length : kHeaderLimit;
    std::vector<BYTE> head = ReadRange(file, 0, end);
    for (ULONGLONG p = c.first; p + c.header <= head.size(); p++)
        if (c.IsData(&head[(size_t)p])) {
            *pos = p;
            return true;
        }
    return false;
}

// A header with a 16-byte format record, for audio that starts where the
// kernel's header (18-byte record) can't end: the gap before the data
// chunk's header becomes a junk chunk. Empty when no header fits.
std::vector<BYTE> OwnHeader(const Container &c, ULONGLONG h, const WAVEFORMATEX &format, ULONGLONG length,
                            ULONGLONG dataSize)
{
    const ULONGLONG base = c.wave64 ? 80 : 36; // file header and fmt chunk
    if (h < base + c.header)
        return {};
    const ULONGLONG gap = h - c.header - base;
    if (gap > kHeaderLimit || (gap && (gap < c.header || gap % c.align)))
        return {};
    std::vector<BYTE> head;
    auto add = [&](const std::vector<BYTE> &b) { head.insert(head.end(), b.begin(), b.end()); };
    if (c.wave64) {
        add(BytesOf(&ZVW64_RIFF, 16)), add(Bytes64(length)), add(BytesOf(&ZVW64_WAVE, 16));
        add(BytesOf(&ZVW64_FMT, 16)), add(Bytes64(40)), add(BytesOf(&format, 16));
        if (gap)
            add(BytesOf(&ZVW64_JUNK, 16)), add(Bytes64(gap));
    } else {
        add(BytesOf("RIFF", 4)), add(Bytes32((DWORD)(length - 8))), add(BytesOf("WAVEfmt ", 8));
        add(Bytes32(16)), add(BytesOf(&format, 16));
        if (gap)
            add(BytesOf("JUNK", 4)), add(Bytes32((DWORD)(gap - 8)));
    }
    head.resize((size_t)(h - c.header), 0);
    if (c.wave64)
        add(BytesOf(&ZVW64_DATA, 16)), add(Bytes64(dataSize + 24));
    else
        add(BytesOf("data", 4)), add(Bytes32((DWORD)dataSize));
    return head;
}

// A file whose header is destroyed: the data id found by a scan, the format
// from what remains or from the user. A header of a 16-byte format fits
// where the kernel's can't; everything else goes to the kernel's repair,
// whose format and sizes are then set to what the file holds.
RepairPlan Rebuild(RepairPlan plan, HANDLE file, const Container &c, bool looksLikeWave, const GivenFormat &given)
{
    const ULONGLONG length = plan.length;
    ULONGLONG p = 0;
    if (!FindDataId(file, c, length, &p))
        return looksLikeWave ? Refuse(plan, ZVERR_NOT_FOUND, "no data chunk in its first 1 MiB: the audio can't be located")
                             : Refuse(plan, ZVERR_NO_RIFF_HEADER, "not a wave or Wave64 file");
    const ULONGLONG recAt = c.wave64 ? 64 : 20;
    BYTE rec[40] = {};
    bool readable = p >= recAt + 16 && ReadAt(file, recAt, rec, (DWORD)(p - recAt < 40 ? p - recAt : 40)) &&
                    ParseFormat(rec, p - recAt < 40 ? p - recAt : 40, &plan.format);
    if (!looksLikeWave && !readable && !given.given)
        return Refuse(plan, ZVERR_NO_RIFF_HEADER, "not a wave or Wave64 file (if it is audio behind a destroyed "
                                                  "header, give --rate, --channels and --bits)");
    if (readable && given.given)
        plan.reason = "the file states its format; the format options are not used";
    if (!readable && !GivenRecord(given, &plan.format))
        return Refuse(plan, ZVERR_UNSUPPORTED_FORMAT,
                      "its header is destroyed and states no format: give --rate, --channels and --bits (and --float)");
    if (!KernelCanWrite(plan.format))
        return Refuse(plan, ZVERR_UNSUPPORTED_FORMAT, "a destroyed header can be rebuilt for PCM of 8 to 32 bits "
                                                      "and float of 32 or 64 bits only");
    const ULONGLONG h = p + c.header;
    BYTE d[24];
    ReadAt(file, p, d, c.header);
    const ULONGLONG stored = c.wave64 ? (c.Size(d) >= 24 ? c.Size(d) - 24 : 0) : c.Size(d);
    plan.dataOffset = h;
    plan.dataSize = DataExtent(file, c, length, h, stored, plan.format.nBlockAlign);
    const bool kernelFits = c.wave64 ? h % 8 == 0 && (h == 112 || h >= 136) : h % 2 == 0 && (h == 46 || h >= 54);
    if (!c.wave64 && length - 8 > 0xFFFFFFFFull)
        return Refuse(plan, ZVERR_SIZE_LIMIT, "it is longer than a wave file can state");
    if (!kernelFits) {
        std::vector<BYTE> head = OwnHeader(c, h, plan.format, length, plan.dataSize);
        if (head.empty())
            return Refuse(plan, ZVERR_NEWER_FORMAT, "its audio starts at offset " + Num(h) + ", where no header fits");
        AddPatch(plan, file, 0, head, "header");
        plan.action = plan.patches.empty() ? RepairAction::Nothing : RepairAction::Mend;
        return plan;
    }
    std::vector<BYTE> rec18 = BytesOf(&plan.format, 18);
    if (!c.wave64) {
        plan.patches.push_back({20, rec18, "format"});
        plan.patches.push_back({4, Bytes32((DWORD)(length - 8)), "RIFF size"});
        plan.patches.push_back({h - 4, Bytes32((DWORD)plan.dataSize), "data size"});
    } else {
        plan.patches.push_back({64, rec18, "format"});
        plan.patches.push_back({16, Bytes64(length), "riff size"});
        plan.patches.push_back({h - 8, Bytes64(plan.dataSize + 24), "data size"});
    }
    plan.headerSize = h;
    plan.action = RepairAction::Rebuild;
    return plan;
}

} // namespace

bool ReadAt(HANDLE file, ULONGLONG offset, void *buffer, DWORD size)
{
    OVERLAPPED o = {};
    o.Offset = (DWORD)offset;
    o.OffsetHigh = (DWORD)(offset >> 32);
    DWORD got = 0;
    return ReadFile(file, buffer, size, &got, &o) && got == size;
}

std::vector<std::pair<ULONGLONG, ULONGLONG>> RepairPlan::Overwrites() const
{
    std::vector<std::pair<ULONGLONG, ULONGLONG>> r;
    if (action == RepairAction::Rebuild)
        r.push_back({0, headerSize});
    else
        for (const Patch &p : patches)
            r.push_back({p.offset, p.bytes.size()});
    return r;
}

std::string FormatText(const WAVEFORMATEX &f)
{
    char buf[128];
    const char *kind = f.wFormatTag == WAVE_FORMAT_PCM ? "PCM" : f.wFormatTag == WAVE_FORMAT_IEEE_FLOAT ? "float" : "";
    if (*kind)
        snprintf(buf, sizeof buf, "%u-bit %s, %u channels, %lu Hz", f.wBitsPerSample, kind, f.nChannels,
                 (unsigned long)f.nSamplesPerSec);
    else
        snprintf(buf, sizeof buf, "tag 0x%04X, %u channels, %lu Hz, block align %u", f.wFormatTag, f.nChannels,
                 (unsigned long)f.nSamplesPerSec, f.nBlockAlign);
    return buf;
}

RepairPlan PlanRepair(HANDLE file, const GivenFormat &given)
{
    RepairPlan plan;
    LARGE_INTEGER size = {};
    if (!GetFileSizeEx(file, &size))
        return Refuse(plan, ZVERR_FILE_READ, "its length can't be read");
    plan.length = (ULONGLONG)size.QuadPart;
    BYTE head[40] = {};
    DWORD got = plan.length < 40 ? (DWORD)plan.length : 40;
    if (got < 12 || !ReadAt(file, 0, head, got))
        return Refuse(plan, ZVERR_NO_RIFF_HEADER, "not a wave or Wave64 file (too short)");
    if (memcmp(head, "FORM", 4) == 0 && (memcmp(head + 8, "AIFF", 4) == 0 || memcmp(head + 8, "AIFC", 4) == 0))
        return Refuse(plan, ZVERR_NO_RIFF_HEADER, "not a wave or Wave64 file: an AIFF file");
    if (memcmp(head, "RF64", 4) == 0 || memcmp(head, "RIFX", 4) == 0)
        return Refuse(plan, ZVERR_NO_RIFF_HEADER, "not a wave or Wave64 file: an RF64 or big-endian RIFF file");
    const Container w64 = {true, 24, 8, 40}, wav = {false, 8, 2, 12};
    ULONGLONG at = 0;
    plan.wave64 = memcmp(head, &ZVW64_RIFF, 16) == 0 || (got >= 40 && memcmp(head + 24, &ZVW64_WAVE, 16) == 0) ||
                  (memcmp(head, "RIFF", 4) != 0 && FindDataId(file, w64, plan.length, &at));
    const Container c = plan.wave64 ? w64 : wav;
    const bool looksLikeWave = plan.wave64 || memcmp(head, "RIFF", 4) == 0 || memcmp(head + 8, "WAVE", 4) == 0 ||
                               memcmp(head + 12, "fmt ", 4) == 0;

    // Walk the chunks up to the audio: every id plausible, every size inside the file.
    ULONGLONG pos = c.first, fmtPos = 0, fmtSize = 0, dataPos = 0;
    for (int n = 0; n < 100000 && pos + c.header <= plan.length; n++) {
        BYTE h[24];
        if (!ReadAt(file, pos, h, c.header))
            break;
        if (c.IsData(h)) {
            dataPos = pos;
            break;
        }
        ULONGLONG sz = c.Size(h);
        ULONGLONG end = c.wave64 ? pos + sz : pos + c.header + sz;
        if (!c.Plausible(h) || (c.wave64 && sz < 24) || end < pos || end > plan.length)
            break;
        if (c.IsFmt(h) && !fmtPos) {
            fmtPos = pos;
            fmtSize = c.wave64 ? sz - 24 : sz;
        }
        pos = c.Next(pos, sz);
    }
    if (fmtPos && dataPos)
        return Mend(plan, file, c, fmtPos, fmtSize, dataPos, given);
    return Rebuild(plan, file, c, looksLikeWave, given);
}

} // namespace zvfio
