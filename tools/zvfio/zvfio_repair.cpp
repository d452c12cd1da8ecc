// zvfio repair: gives a wave or Wave64 file whose header was destroyed (a
// recording that was never closed) a header that fits its audio, in place,
// with the wave header layer's repair, and says what changed. A file whose
// header already fits is left alone unless --force is given.
#include "zvfio.h"
#include "zverror.h"
#include "media/riff.h"
#include "media/riff64.h"
#include "media/waveheader.h"
#include <stdio.h>
#include <string.h>

namespace zvfio {
namespace {

// The repair looks this far into the file for the audio.
const DWORD kLargestHeader = 1u << 20;

struct Header {
    bool container = false;   // the container's header and form type are there
    ULONGLONG stored = 0;     // stored container size
    bool haveFmt = false;
    WAVEFORMATEX fmt = {};
    bool haveData = false;
    ULONGLONG dataOffset = 0, dataSize = 0;
    bool fits = false;        // sizes agree with the file, format usable
};

bool SeekTo(HANDLE file, ULONGLONG pos)
{
    LARGE_INTEGER d;
    d.QuadPart = (LONGLONG)pos;
    return SetFilePointerEx(file, d, nullptr, FILE_BEGIN) != FALSE;
}

bool ReadFmt(HANDLE file, ULONGLONG size, WAVEFORMATEX *fmt)
{
    BYTE raw[18] = {};
    DWORD want = size < 18 ? (DWORD)size : 18, got = 0;
    if (want < 16 || !ReadFile(file, raw, want, &got, nullptr) || got != want)
        return false;
    memcpy(fmt, raw, sizeof raw);
    return true;
}

Header Describe(HANDLE file, bool wave64, ULONGLONG length)
{
    Header h;
    SeekTo(file, 0);
    ULONGLONG pos;
    if (wave64) {
        ULONGLONG body = 0;
        GUID form = {};
        h.container = SUCCEEDED(riff64_ReadFileID(file, &body, &form)) && IsEqualGUID(form, ZVW64_WAVE);
        h.stored = body + 40;
        pos = 40;
        for (int n = 0; h.container && n < 10000 && pos + 24 <= length; n++) {
            GUID label = {};
            ULONGLONG size = 0;
            if (!SeekTo(file, pos) || FAILED(riff64_ReadChunkHeader(file, &label, &size)))
                break;
            if (size > length)
                size = length + 1;
            if (IsEqualGUID(label, ZVW64_FMT) && !h.haveFmt)
                h.haveFmt = ReadFmt(file, size, &h.fmt);
            else if (IsEqualGUID(label, ZVW64_DATA) && !h.haveData) {
                h.haveData = true;
                h.dataOffset = pos + 24;
                h.dataSize = size;
            }
            pos += 24 + ((size + 7) & ~7ull);
        }
    } else {
        DWORD body = 0, form = 0;
        h.container = SUCCEEDED(riff_ReadFileID(file, &body, &form)) && form == ZVRIFF_WAVE;
        h.stored = (DWORD)(body + 4);
        pos = 12;
        for (int n = 0; h.container && n < 10000 && pos + 8 <= length; n++) {
            DWORD id = 0, size = 0;
            if (!SeekTo(file, pos) || FAILED(riff_ReadChunkHeader(file, &id, &size)))
                break;
            if (id == ZVRIFF_FMT && !h.haveFmt)
                h.haveFmt = ReadFmt(file, size, &h.fmt);
            else if (id == ZVRIFF_DATA && !h.haveData) {
                h.haveData = true;
                h.dataOffset = pos + 8;
                h.dataSize = size;
            }
            pos += 8 + (ULONGLONG)size + (size & 1);
        }
    }
    ULONGLONG whole = h.stored + (wave64 ? 0 : 8);
    h.fits = h.container && h.haveFmt && h.haveData && h.fmt.nChannels && h.fmt.nBlockAlign &&
             h.fmt.nSamplesPerSec && (whole == length || whole + 1 == length) &&
             h.dataOffset + h.dataSize <= length && pos >= length;
    return h;
}

std::string FormatText(const Header &h)
{
    if (!h.haveFmt)
        return "none";
    char buf[128];
    const char *kind = h.fmt.wFormatTag == WAVE_FORMAT_PCM ? "PCM"
                       : h.fmt.wFormatTag == WAVE_FORMAT_IEEE_FLOAT ? "float" : "tag";
    snprintf(buf, sizeof buf, "%u-bit %s%s, %u channels, %lu Hz", h.fmt.wBitsPerSample, kind,
             strcmp(kind, "tag") ? "" : (" " + std::to_string(h.fmt.wFormatTag)).c_str(), h.fmt.nChannels,
             (unsigned long)h.fmt.nSamplesPerSec);
    return buf;
}

std::string DataText(const Header &h)
{
    if (!h.haveData)
        return "none";
    char buf[96];
    snprintf(buf, sizeof buf, "offset %llu, %llu bytes", h.dataOffset, h.dataSize);
    return buf;
}

struct Change {
    const char *field;
    std::string before, after;
};

HRESULT Run(const Args &args)
{
    if (args.files.size() != 1)
        return ZVFIO_E_USAGE;
    const std::wstring &path = args.files[0];
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, NULL, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, NULL);
    if (file == INVALID_HANDLE_VALUE)
        return ZvErrorHandler_TranslateWin32Error(GetLastError());
    LARGE_INTEGER size = {};
    GetFileSizeEx(file, &size);
    ULONGLONG length = (ULONGLONG)size.QuadPart;

    // Wave64 by its first label, else by the name; everything else as wave.
    BYTE head[16] = {};
    DWORD got = 0;
    ReadFile(file, head, sizeof head, &got, nullptr);
    size_t dot = path.find_last_of(L'.');
    std::wstring ext = dot == std::wstring::npos ? L"" : path.substr(dot);
    bool wave64 = (got == 16 && memcmp(head, &ZVW64_RIFF, 16) == 0) ||
                  (memcmp(head, "RIFF", 4) != 0 && _wcsicmp(ext.c_str(), L".w64") == 0);

    Header before = Describe(file, wave64, length);
    if (before.fits && !args.has(L"--force")) {
        CloseHandle(file);
        if (args.json)
            Out("{\"file\": %s, \"repaired\": false, \"changes\": []}\n", JsonString(Utf8(path)).c_str());
        else
            Out("%s: the header fits the file; nothing to repair (--force repairs anyway)\n", Utf8(path).c_str());
        return S_OK;
    }
    HRESULT hr = wave64 ? ZvFixTrashedW64(file, nullptr, kLargestHeader) : ZvFixTrashedWav(file, nullptr, kLargestHeader);
    Header after = SUCCEEDED(hr) ? Describe(file, wave64, length) : before;
    CloseHandle(file);
    if (FAILED(hr))
        return hr;

    std::vector<Change> changes;
    auto note = [&](const char *field, const std::string &a, const std::string &b) {
        if (a != b)
            changes.push_back({field, a, b});
    };
    note(wave64 ? "riff size" : "RIFF size", before.container ? std::to_string(before.stored) : "none",
         after.container ? std::to_string(after.stored) : "none");
    note("format", FormatText(before), FormatText(after));
    note("data", DataText(before), DataText(after));
    if (args.json) {
        Out("{\"file\": %s, \"repaired\": true, \"changes\": [", JsonString(Utf8(path)).c_str());
        for (size_t i = 0; i < changes.size(); i++)
            Out("%s\n  {\"field\": %s, \"before\": %s, \"after\": %s}", i ? "," : "",
                JsonString(changes[i].field).c_str(), JsonString(changes[i].before).c_str(),
                JsonString(changes[i].after).c_str());
        Out("]}\n");
    } else {
        Out("%s: repaired as %s\n", Utf8(path).c_str(), wave64 ? "Wave64" : "wave");
        for (const Change &c : changes)
            Out("  %s: %s -> %s\n", c.field, c.before.c_str(), c.after.c_str());
        if (changes.empty())
            Out("  header rewritten; no field changed\n");
    }
    return S_OK;
}

} // namespace

const Command kRepairCommand = {
    "repair", "repairs a wave or Wave64 file whose header was destroyed",
    "usage: zvfio repair [--force] [--json] FILE\n"
    "\n"
    "Fits a fresh header to the audio of a damaged wave or Wave64 file, in\n"
    "place, and prints what changed (container size, format, data chunk). The\n"
    "audio is found by the chunks or by a scan for the data chunk and is never\n"
    "moved; its size comes from the file length. A format that can't be read\n"
    "becomes 16-bit stereo PCM at 44,100 Hz. A file whose header already fits\n"
    "is left alone.\n"
    "\n"
    "  --force  repair even a file whose header fits\n"
    "  --json   the changes as a JSON object\n",
    "--force --json",
    Run,
};

} // namespace zvfio
