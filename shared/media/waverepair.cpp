// Repair of wave and Wave64 files whose header was destroyed. The audio is
// taken to be intact: the data is found by the chunks or by a scan for the
// data id, its size comes from the file length alone, and a fresh header is
// fitted in front of it without moving a byte of audio.
#include "media/waveinternal.h"
#include "media/riff.h"

using namespace zvmedia;

namespace {

// Mends the 18 bytes found where a canonical header keeps its format.
HRESULT MendFormat(const BYTE *raw, const WAVEFORMATEX *given, WAVEFORMATEX *out)
{
    WAVEFORMATEX def = {};
    if (given) {
        def = *given;
    } else {
        def.wFormatTag = WAVE_FORMAT_PCM;
        def.nChannels = 2;
        def.nSamplesPerSec = 44100;
        def.wBitsPerSample = 16;
    }
    WAVEFORMATEX f;
    memcpy(&f, raw, sizeof f);
    if (f.nSamplesPerSec < 2000 || f.nSamplesPerSec > 192000)
        f.nSamplesPerSec = def.nSamplesPerSec;
    if (f.nChannels != 1 && f.nChannels != 2)
        f.nChannels = def.nChannels;
    if (f.wFormatTag != WAVE_FORMAT_PCM && f.wFormatTag != WAVE_FORMAT_IEEE_FLOAT)
        f.wFormatTag = def.wFormatTag;
    UINT defBits = def.wBitsPerSample > 32 ? 32 : def.wBitsPerSample;
    if (f.wFormatTag != WAVE_FORMAT_IEEE_FLOAT) {
        if (f.wBitsPerSample != 8 && f.wBitsPerSample != 16 && f.wBitsPerSample != 24 && f.wBitsPerSample != 32)
            f.wBitsPerSample = (WORD)defBits;
    } else if (f.wBitsPerSample != 32 && f.wBitsPerSample != 64) {
        f.wBitsPerSample = def.wBitsPerSample > 32 ? 64 : 32;
    }
    f.nBlockAlign = (WORD)((f.wBitsPerSample / 8) * f.nChannels);
    f.nAvgBytesPerSec = f.nBlockAlign * f.nSamplesPerSec;
    f.cbSize = 0;
    // A given format of no channels or bits leaves nothing to size the
    // audio by.
    if (f.nBlockAlign == 0)
        return E_INVALIDARG;
    *out = f;
    return S_OK;
}

// Scans from start for the label (4 or 16 bytes) in blocks of 4,096 that
// overlap by the label's length, so a label across two blocks is seen. A hit
// at p gives p + header; no hit up to limit gives limit.
HRESULT ScanForData(const FileIO &io, ULONGLONG start, ULONGLONG limit, const BYTE *label, DWORD labelSize,
                    DWORD header, ULONGLONG *dataStart)
{
    BYTE block[4096];
    ULONGLONG pos = start;
    io.seek((LONGLONG)pos, FILE_BEGIN);
    for (;;) {
        DWORD got = 0;
        if (!io.readSome(block, sizeof block, &got))
            return ZVERR_FILE_READ;
        // A hit must leave room for its header before the limit.
        for (DWORD i = 0; i + labelSize <= got && pos + i + header <= limit; i++) {
            if (block[i] == label[0] && memcmp(block + i, label, labelSize) == 0) {
                *dataStart = pos + i + header;
                return S_OK;
            }
        }
        if (pos + got >= limit) {
            *dataStart = limit;
            return S_OK;
        }
        if (got < sizeof block)
            return ZVERR_NOT_FOUND;
        pos += got - labelSize;
        io.seek((LONGLONG)pos, FILE_BEGIN);
    }
}

// Where a container keeps what the repair looks at.
struct Layout {
    ULONGLONG formatAt; // the format record of a canonical header
    ULONGLONG walkFrom; // the chunk after fmt
    ULONGLONG scanFrom; // where the byte scan starts
    const BYTE *label;
    DWORD labelSize, headerSize;
};

// Mends the format, finds the data by walk(counter) from walkFrom or else by
// the scan, sizes it from the file length and calls insert(format, size,
// start). The position is restored.
template <class Walk, class Insert>
HRESULT Repair(HANDLE file, const WAVEFORMATEX *format, ULONGLONG limit, const Layout &at, Walk walk, Insert insert)
{
    FileIO io{file};
    ULONGLONG saved = io.tell();
    ULONGLONG length = io.length();
    BYTE raw[18];
    WAVEFORMATEX f;
    io.seek((LONGLONG)at.formatAt, FILE_BEGIN);
    HRESULT hr = io.read(raw, 18) ? S_OK : ZVERR_FILE_READ;
    if (SUCCEEDED(hr))
        hr = MendFormat(raw, format, &f);
    ULONGLONG dataStart = 0;
    if (SUCCEEDED(hr)) {
        if (limit > length)
            limit = length;
        io.seek((LONGLONG)at.walkFrom, FILE_BEGIN);
        if (walk(limit > at.walkFrom ? limit - at.walkFrom : 0))
            dataStart = io.tell();
        else
            hr = ScanForData(io, at.scanFrom, limit, at.label, at.labelSize, at.headerSize, &dataStart);
    }
    if (SUCCEEDED(hr)) {
        ULONGLONG size = length > dataStart ? length - dataStart : 0;
        size -= size % f.nBlockAlign;
        hr = insert(&f, size, dataStart);
    }
    io.seek((LONGLONG)saved, FILE_BEGIN);
    return hr;
}

} // namespace

HRESULT ZvFixTrashedWav(HANDLE file, const WAVEFORMATEX *format, DWORD largestHeader)
{
    // Walk and scan both start behind an 18-byte fmt chunk. A 44-byte header
    // (16-byte fmt) has no room for this header; callers mend such a file's
    // sizes themselves before it gets here.
    static const BYTE label[4] = {'d', 'a', 't', 'a'};
    static const Layout at = {20, 38, 38, label, 4, 8};
    return Repair(
        file, format, largestHeader, at,
        [&](ULONGLONG counter) {
            DWORD remaining = (DWORD)counter;
            return SUCCEEDED(riff_FindChunkHeader(file, ZVRIFF_DATA, nullptr, &remaining));
        },
        [&](const WAVEFORMATEX *f, ULONGLONG size, ULONGLONG start) {
            if (start > 0xFFFFFFFFull || size > 0xFFFFFFFFull)
                return ZVERR_SIZE_LIMIT;
            return ZvInsertWavHeader(file, f, (DWORD)size, (DWORD)start);
        });
}

HRESULT ZvFixTrashedW64(HANDLE file, const WAVEFORMATEX *format, ULONGLONG largestHeader)
{
    // The format lies at 64, behind it the position moves up to 88, where
    // walk and scan start.
    static const Layout at = {64, 88, 88, (const BYTE *)&ZVW64_DATA, 16, 24};
    return Repair(
        file, format, largestHeader & ~7ull, at,
        [&](ULONGLONG counter) {
            LONGLONG remaining = (LONGLONG)counter;
            return SUCCEEDED(riff64_FindChunkHeader(file, ZVW64_DATA, nullptr, &remaining));
        },
        [&](const WAVEFORMATEX *f, ULONGLONG size, ULONGLONG start) {
            return ZvInsertW64Header(file, f, size, start);
        });
}

HRESULT ZvFixTrashedWav(HANDLE file, const _zvwaveformat *format, DWORD largestHeader)
{
    WAVEFORMATEX wfx = {};
    if (format && !format->ToWfx(&wfx, sizeof wfx, ZVWFX_COPY_PLAIN))
        return E_INVALIDARG;
    return ZvFixTrashedWav(file, format ? &wfx : nullptr, largestHeader);
}

HRESULT ZvFixTrashedW64(HANDLE file, const _zvwaveformat *format, ULONGLONG largestHeader)
{
    WAVEFORMATEX wfx = {};
    if (format && !format->ToWfx(&wfx, sizeof wfx, ZVWFX_COPY_PLAIN))
        return E_INVALIDARG;
    return ZvFixTrashedW64(file, format ? &wfx : nullptr, largestHeader);
}
