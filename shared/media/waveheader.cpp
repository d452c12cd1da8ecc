// Wave and Wave64 headers: recognition, format access, creation, insertion.
#include "media/waveinternal.h"
#include "media/riffalgo.h"
#include "media/iff.h"
#include <stdlib.h>

using namespace zvmedia;

namespace zvmedia {

HRESULT CheckPcmTag1(const WAVEFORMATEX *f)
{
    if (f->wFormatTag != WAVE_FORMAT_PCM)
        return S_OK;
    UINT bits = f->wBitsPerSample == 20 ? 24 : f->wBitsPerSample;
    if (f->nBlockAlign != f->nChannels * (bits / 8) || f->wBitsPerSample == 20)
        return ZVERR_UNSUPPORTED_MEDIA;
    return S_OK;
}

HRESULT CheckHeaderFormat(const WAVEFORMATEX *f)
{
    if (!f)
        return E_POINTER;
    if (f->cbSize != 0)
        return ZVERR_UNSUPPORTED_MEDIA;
    return CheckPcmTag1(f);
}

bool WriteW64Header(HANDLE file, const WAVEFORMATEX *format, ULONGLONG riffSize, ULONGLONG dataSize,
                    ULONGLONG headerSize)
{
    FileIO io{file};
    riff64_WriteFileID(file, ZVW64_WAVE, riffSize);
    BYTE record[24] = {};
    memcpy(record, format, 16);
    if (FAILED(riff64_WriteChunkHeader(file, ZVW64_FMT, 18)) || !io.write(record, 24))
        return false;
    if (headerSize > ZVW64_PLAIN_HEADER) {
        ULONGLONG left = headerSize - ZVW64_PADDED_MIN;
        if (FAILED(riff64_WriteChunkHeader(file, ZVW64_JUNK, left)))
            return false;
        static const BYTE zeros[1024] = {};
        while (left) {
            DWORD n = left < sizeof zeros ? (DWORD)left : (DWORD)sizeof zeros;
            if (!io.write(zeros, n))
                return false;
            left -= n;
        }
    }
    return SUCCEEDED(riff64_WriteChunkHeader(file, ZVW64_DATA, dataSize));
}

} // namespace zvmedia

namespace {

bool IsPcmTag(WORD tag)
{
    return tag == WAVE_FORMAT_PCM || tag == WAVE_FORMAT_IEEE_FLOAT || tag == ZV_WAVE_FORMAT_UNPACKED ||
           tag == ZV_WAVE_FORMAT_SIGNED || tag == ZV_WAVE_FORMAT_BIGENDIAN;
}

// A record of at least 40 readable bytes (zero-filled behind the chunk).
bool IsUncompressed(const WAVEFORMATEX *f)
{
    if (IsPcmTag(f->wFormatTag))
        return true;
    return f->wFormatTag == WAVE_FORMAT_EXTENSIBLE &&
           !ZvAudio_IsCompressedExtensible((const WAVEFORMATEXTENSIBLE *)f);
}

// The readers' test: a PCM tag whose block align fits its bits (tag 1 with
// 20 bits counting as 24, to be mended), or a linear extensible record.
bool IsReadableFormat(const WAVEFORMATEX *f)
{
    if (IsPcmTag(f->wFormatTag)) {
        UINT bits = f->wFormatTag == WAVE_FORMAT_PCM && f->wBitsPerSample == 20 ? 24 : f->wBitsPerSample;
        return f->nBlockAlign == f->nChannels * (bits / 8) && f->nBlockAlign != 0;
    }
    return IsUncompressed(f) && f->nBlockAlign != 0;
}

// Mending of a tag-1 record read from a file: the average rate stays.
void MendRead(WAVEFORMATEX *f)
{
    if (f->wFormatTag == WAVE_FORMAT_PCM)
        ZvAudio_FixBadWfx(f);
}

// fmt chunks above this cannot be a format: the extra size is 16-bit.
const DWORD kMaxFmtChunk = 18 + 0xFFFF;

// Reads a fmt body of the given size into a zero-filled malloc'd block of
// at least 40 bytes, so the extensible fields can always be looked at.
template <class ReadFn> WAVEFORMATEX *ReadFmtBody(DWORD size, ReadFn read)
{
    if (size > kMaxFmtChunk)
        return nullptr;
    size_t room = size < sizeof(WAVEFORMATEXTENSIBLE) ? sizeof(WAVEFORMATEXTENSIBLE) : size;
    WAVEFORMATEX *f = (WAVEFORMATEX *)calloc(1, room);
    if (f && !read(f, size)) {
        free(f);
        f = nullptr;
    }
    return f;
}

// The common end of the wave readers: refuse a format that cannot be read,
// then find the data (findData stores its size and offset) and mend.
template <class FindData> WAVEFORMATEX *FinishRead(WAVEFORMATEX *f, bool anyFormat, bool wantData, FindData findData)
{
    if (f && !anyFormat && !IsReadableFormat(f)) {
        free(f);
        return nullptr;
    }
    if (f && wantData) {
        if (!findData()) {
            free(f);
            return nullptr;
        }
        MendRead(f);
    }
    return f;
}

// Wave reader over any RIFF source: format (malloc'd), data size and offset.
// The position is restored.
template <class IO> WAVEFORMATEX *ReadWave(const IO &io, bool anyFormat, ULONGLONG *dataSize, ULONGLONG *dataOffset)
{
    ULONGLONG saved = io.tell();
    WAVEFORMATEX *f = nullptr;
    DWORD body = 0, form = 0, size = 0;
    io.seek(0, FILE_BEGIN);
    if (SUCCEEDED(RiffReadFileID(io, &body, &form)) && form == ZVRIFF_WAVE &&
        SUCCEEDED(RiffFindChunk(io, ZVRIFF_FMT, &size, &body))) {
        f = ReadFmtBody(size, [&](void *p, DWORD n) { return SUCCEEDED(RiffReadData(io, p, n)); });
        f = FinishRead(f, anyFormat, dataSize != nullptr, [&] {
            DWORD data = 0;
            if (FAILED(RiffFindChunk(io, ZVRIFF_DATA, &data, &body)))
                return false;
            *dataSize = data;
            if (dataOffset)
                *dataOffset = io.tell();
            return true;
        });
    }
    io.seek((LONGLONG)saved, FILE_BEGIN);
    return f;
}

WAVEFORMATEX *ReadWave64(HANDLE file, bool anyFormat, ULONGLONG *dataSize, ULONGLONG *dataOffset)
{
    FileIO io{file};
    ULONGLONG saved = io.tell();
    WAVEFORMATEX *f = nullptr;
    ULONGLONG size = 0;
    LONGLONG remaining = 0;
    GUID form = {};
    io.seek(0, FILE_BEGIN);
    ULONGLONG body = 0;
    if (SUCCEEDED(riff64_ReadFileID(file, &body, &form)) && IsEqualGUID(form, ZVW64_WAVE)) {
        remaining = (LONGLONG)body;
        if (SUCCEEDED(riff64_FindChunkHeader(file, ZVW64_FMT, &size, &remaining)) && size <= 4096)
            f = ReadFmtBody((DWORD)size, [&](void *p, DWORD n) { return SUCCEEDED(riff64_ReadData(file, p, n)); });
    }
    f = FinishRead(f, anyFormat, dataSize != nullptr, [&] {
        ULONGLONG data = 0;
        if (FAILED(riff64_FindChunkHeader(file, ZVW64_DATA, &data, &remaining)))
            return false;
        *dataSize = data;
        if (dataOffset)
            *dataOffset = io.tell();
        return true;
    });
    io.seek((LONGLONG)saved, FILE_BEGIN);
    return f;
}

WAVEFORMATEX *ReadAiff(HANDLE file, ULONGLONG *frames, ULONGLONG *dataOffset)
{
    FileIO io{file};
    ULONGLONG saved = io.tell();
    WAVEFORMATEX *f = (WAVEFORMATEX *)calloc(1, sizeof(WAVEFORMATEX));
    DWORD n = 0, offset = 0;
    if (f && (FAILED(iff_GetAIFFWfx(file, f, &n, &offset)) || !IsReadableFormat(f))) {
        free(f);
        f = nullptr;
    }
    if (f) {
        MendRead(f);
        if (frames)
            *frames = n;
        if (dataOffset)
            *dataOffset = offset;
    }
    io.seek((LONGLONG)saved, FILE_BEGIN);
    return f;
}

HANDLE OpenForReading(const wchar_t *path)
{
    if (!path)
        return INVALID_HANDLE_VALUE;
    return CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

HANDLE OpenForHeader(const wchar_t *path, DWORD creation)
{
    if (creation == OPEN_EXISTING)
        creation = TRUNCATE_EXISTING;
    else if (creation == OPEN_ALWAYS)
        creation = CREATE_ALWAYS;
    return CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, creation,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

HRESULT CreateWav(const wchar_t *path, const WAVEFORMATEX *format, DWORD creation, DWORD headerSize)
{
    HRESULT hr = CheckHeaderFormat(format);
    if (FAILED(hr))
        return hr;
    HANDLE h = OpenForHeader(path, creation);
    if (h == INVALID_HANDLE_VALUE)
        return ZVERR_FILE_OPEN;
    FileIO io{h};
    bool ok = WriteWavHeaderTo([&](const void *b, DWORD n) { return io.write(b, n); }, format, headerSize - 8, 0,
                               headerSize);
    CloseHandle(h);
    return ok ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT CreateW64(const wchar_t *path, const WAVEFORMATEX *format, DWORD creation, ULONGLONG riffSize,
                  ULONGLONG headerSize)
{
    HRESULT hr = CheckHeaderFormat(format);
    if (FAILED(hr))
        return hr;
    HANDLE h = OpenForHeader(path, creation);
    if (h == INVALID_HANDLE_VALUE)
        return ZVERR_FILE_OPEN;
    bool ok = WriteW64Header(h, format, riffSize, 0, headerSize);
    CloseHandle(h);
    return ok ? S_OK : ZVERR_FILE_WRITE;
}

// The plain 18-byte form of a format record.
struct PlainFormat {
    WAVEFORMATEX wfx;
    const WAVEFORMATEX *ptr;
    explicit PlainFormat(const _zvwaveformat *f) : wfx(), ptr(nullptr)
    {
        if (f && f->ToWfx(&wfx, sizeof wfx, ZVWFX_COPY_PLAIN))
            ptr = &wfx;
    }
};

} // namespace

BOOL ZvAudio_FixBadWfx(WAVEFORMATEX *f)
{
    if (!f || f->wFormatTag != WAVE_FORMAT_PCM)
        return FALSE;
    WORD bits = f->wBitsPerSample == 20 ? 24 : f->wBitsPerSample;
    WORD align = (WORD)((bits / 8) * f->nChannels);
    BOOL changed = bits != f->wBitsPerSample || align != f->nBlockAlign;
    f->wBitsPerSample = bits;
    f->nBlockAlign = align;
    return changed;
}

BOOL ZvFileIsWave(const wchar_t *path, BOOL allowCompressed)
{
    HANDLE h = OpenForReading(path);
    if (h == INVALID_HANDLE_VALUE)
        return FALSE;
    WAVEFORMATEX *f = ReadWave(FileIO{h}, true, nullptr, nullptr);
    CloseHandle(h);
    BOOL yes = f && (allowCompressed || IsUncompressed(f));
    free(f);
    return yes;
}

BOOL ZvFileIsWave64(const wchar_t *path, BOOL allowCompressed)
{
    HANDLE h = OpenForReading(path);
    if (h == INVALID_HANDLE_VALUE)
        return FALSE;
    WAVEFORMATEX *f = ReadWave64(h, true, nullptr, nullptr);
    CloseHandle(h);
    BOOL yes = f && (allowCompressed || IsUncompressed(f));
    free(f);
    return yes;
}

BOOL ZvFileIsAiff(const wchar_t *path)
{
    HANDLE h = OpenForReading(path);
    if (h == INVALID_HANDLE_VALUE)
        return FALSE;
    BOOL yes = iff_IsAIFFFileEx(h, nullptr, nullptr, nullptr);
    CloseHandle(h);
    return yes;
}

WAVEFORMATEX *ZvGetFileWfx(const wchar_t *path, ULONGLONG *frames, ULONGLONG *dataOffset)
{
    HANDLE h = OpenForReading(path);
    if (h == INVALID_HANDLE_VALUE)
        return nullptr;
    ULONGLONG size = 0, offset = 0, n = 0;
    WAVEFORMATEX *f = ReadWave(FileIO{h}, false, &size, &offset);
    if (!f)
        f = ReadWave64(h, false, &size, &offset);
    if (f)
        n = size / f->nBlockAlign;
    else
        f = ReadAiff(h, &n, &offset);
    CloseHandle(h);
    if (f) {
        if (frames)
            *frames = n;
        if (dataOffset)
            *dataOffset = offset;
    }
    return f;
}

HRESULT ZvSetFileWfx(const wchar_t *path, const WAVEFORMATEX *format)
{
    if (!format)
        return E_POINTER;
    HRESULT hr = CheckPcmTag1(format);
    if (FAILED(hr))
        return hr;
    HANDLE h = path ? CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr)
                    : INVALID_HANDLE_VALUE;
    if (h == INVALID_HANDLE_VALUE)
        return ZVERR_FILE_OPEN;
    FileIO io{h};
    ULONGLONG size = 0, offset = 0;
    WAVEFORMATEX *f = ReadWave(io, false, &size, &offset);
    if (f) {
        // The reader has put the handle back at the start of the file: the
        // record goes there, and the caller rebuilds the header.
        free(f);
        BYTE rec[26];
        StoreLE32(rec, ZVRIFF_FMT);
        StoreLE32(rec + 4, 18);
        memcpy(rec + 8, format, 16);
        rec[24] = rec[25] = 0;
        hr = io.write(rec, 26) ? S_OK : ZVERR_FILE_WRITE;
    } else {
        WAVEFORMATEX aiff = {};
        DWORD frames = 0, dataOffset = 0;
        hr = iff_GetAIFFWfx(h, &aiff, &frames, &dataOffset);
        if (SUCCEEDED(hr) && format->wFormatTag != WAVE_FORMAT_PCM)
            hr = ZVERR_UNSUPPORTED_FORMAT;
        if (SUCCEEDED(hr)) {
            BYTE comm[18];
            StoreBE16(comm, format->nChannels);
            StoreBE32(comm + 2, frames);
            StoreBE16(comm + 6, format->wBitsPerSample);
            WORD e = 0, m[4] = {};
            aiff_CreateRate(format->nSamplesPerSec, &e, m);
            StoreBE16(comm + 8, e);
            for (int i = 0; i < 4; i++)
                StoreBE16(comm + 10 + 2 * i, m[i]);
            io.seek(12, FILE_BEGIN);
            hr = iff_SeekChunkHeader(h, ZVIFF_COMM, nullptr);
            if (SUCCEEDED(hr))
                hr = io.write(comm, 18) ? S_OK : ZVERR_FILE_WRITE;
        }
    }
    CloseHandle(h);
    return hr;
}

HRESULT ZvInitializeWav(const wchar_t *path, const WAVEFORMATEX *format, DWORD creation)
{
    return CreateWav(path, format, creation, ZVWAV_PLAIN_HEADER);
}

HRESULT ZvInitializeWavWithJunk(const wchar_t *path, const WAVEFORMATEX *format, DWORD creation, DWORD headerSize)
{
    ULONGLONG h = (ULONGLONG)headerSize + (headerSize & 1);
    if (h < ZVWAV_PADDED_MIN || h > 0xFFFFFFF0u)
        return E_INVALIDARG;
    return CreateWav(path, format, creation, (DWORD)h);
}

HRESULT ZvInitializeWav64(const wchar_t *path, const WAVEFORMATEX *format, DWORD creation)
{
    // The RIFF size stays wrong (130 for 112 bytes) until the writer of the
    // audio sets it.
    return CreateW64(path, format, creation, 106, ZVW64_PLAIN_HEADER);
}

HRESULT ZvInitializeWav64WithJunk(const wchar_t *path, const WAVEFORMATEX *format, DWORD creation,
                                  ULONGLONG headerSize)
{
    ULONGLONG h = (headerSize + 7) & ~7ull;
    if (h < ZVW64_PADDED_MIN || h < headerSize)
        return E_INVALIDARG;
    return CreateW64(path, format, creation, h, h);
}

HRESULT ZvInsertWavHeader(HANDLE file, const WAVEFORMATEX *format, DWORD dataSize, DWORD headerSize)
{
    FileIO io{file};
    ULONGLONG saved = io.tell();
    ULONGLONG length = io.length();
    io.seek(0, FILE_BEGIN);
    HRESULT hr = CheckHeaderFormat(format);
    if (SUCCEEDED(hr) && ((headerSize & 1) || length < ZVWAV_PLAIN_HEADER || headerSize < ZVWAV_PLAIN_HEADER ||
                          (headerSize > ZVWAV_PLAIN_HEADER && headerSize < ZVWAV_PADDED_MIN)))
        hr = ZVERR_NEWER_FORMAT;
    if (SUCCEEDED(hr)) {
        DWORD riffSize = dataSize - 8 + headerSize;
        bool ok = WriteWavHeaderTo([&](const void *b, DWORD n) { return io.write(b, n); }, format, riffSize, dataSize,
                                   headerSize);
        hr = ok ? S_OK : ZVERR_FILE_WRITE;
    }
    io.seek((LONGLONG)saved, FILE_BEGIN);
    return hr;
}

HRESULT ZvInsertW64Header(HANDLE file, const WAVEFORMATEX *format, ULONGLONG dataSize, ULONGLONG headerSize)
{
    FileIO io{file};
    ULONGLONG saved = io.tell();
    ULONGLONG length = io.length();
    io.seek(0, FILE_BEGIN);
    HRESULT hr = CheckHeaderFormat(format);
    if (SUCCEEDED(hr) && ((headerSize & 7) || headerSize < ZVW64_PLAIN_HEADER || length < ZVW64_PLAIN_HEADER ||
                          (headerSize != ZVW64_PLAIN_HEADER && headerSize < ZVW64_PADDED_MIN)))
        hr = ZVERR_NEWER_FORMAT;
    if (SUCCEEDED(hr))
        hr = WriteW64Header(file, format, dataSize + headerSize - 24, dataSize, headerSize) ? S_OK : ZVERR_FILE_WRITE;
    io.seek((LONGLONG)saved, FILE_BEGIN);
    return hr;
}

HRESULT mriff_WriteWaveHeader(_tMRIFF *mr, const WAVEFORMATEX *format, DWORD dataSize, DWORD headerSize)
{
    if (!mr)
        return E_POINTER;
    HRESULT hr = CheckHeaderFormat(format);
    if (FAILED(hr))
        return hr;
    if ((headerSize & 1) || headerSize < ZVWAV_PLAIN_HEADER ||
        (headerSize > ZVWAV_PLAIN_HEADER && headerSize < ZVWAV_PADDED_MIN))
        return ZVERR_NEWER_FORMAT;
    MemIO io{mr};
    bool ok = WriteWavHeaderTo([&](const void *b, DWORD n) { return io.write(b, n); }, format,
                               dataSize - 8 + headerSize, dataSize, headerSize);
    return ok ? S_OK : ZVERR_FILE_WRITE;
}

HRESULT mriff_GetWfx(WAVEFORMATEX *format, const void *image, DWORD imageSize, DWORD *dataOffset)
{
    if (!format || (!image && imageSize))
        return E_POINTER;
    _tMRIFF mr;
    mriff_Init(&mr, (void *)image, imageSize, imageSize);
    ULONGLONG size = 0, offset = 0;
    WAVEFORMATEX *f = ReadWave(MemIO{&mr}, false, &size, &offset);
    if (!f)
        return ZVERR_UNSUPPORTED_MEDIA;
    memcpy(format, f, f->wFormatTag == WAVE_FORMAT_EXTENSIBLE ? sizeof(WAVEFORMATEXTENSIBLE) : sizeof(WAVEFORMATEX));
    if (format->wFormatTag != WAVE_FORMAT_EXTENSIBLE)
        format->cbSize = 0;
    free(f);
    if (dataOffset)
        *dataOffset = (DWORD)offset;
    return S_OK;
}

HRESULT mriff_WriteWaveHeader(_tMRIFF *mr, const _zvwaveformat *format, DWORD dataSize, DWORD headerSize)
{
    PlainFormat p(format);
    return p.ptr ? mriff_WriteWaveHeader(mr, p.ptr, dataSize, headerSize) : E_POINTER;
}

HRESULT mriff_GetWfx(_zvwaveformat *format, const void *image, DWORD imageSize, DWORD *dataOffset)
{
    if (!format)
        return E_POINTER;
    WAVEFORMATEXTENSIBLE wfe = {};
    HRESULT hr = mriff_GetWfx(&wfe.Format, image, imageSize, dataOffset);
    if (SUCCEEDED(hr))
        hr = format->Init(sizeof(_zvwaveformat), &wfe.Format);
    return hr;
}

HRESULT ZvInitializeWav(const wchar_t *path, const _zvwaveformat *format, DWORD creation)
{
    PlainFormat p(format);
    return p.ptr ? ZvInitializeWav(path, p.ptr, creation) : E_POINTER;
}

HRESULT ZvInitializeWav64(const wchar_t *path, const _zvwaveformat *format, DWORD creation)
{
    PlainFormat p(format);
    return p.ptr ? ZvInitializeWav64(path, p.ptr, creation) : E_POINTER;
}

HRESULT ZvInitializeWavWithJunk(const wchar_t *path, const _zvwaveformat *format, DWORD creation, DWORD headerSize)
{
    PlainFormat p(format);
    return p.ptr ? ZvInitializeWavWithJunk(path, p.ptr, creation, headerSize) : E_POINTER;
}

HRESULT ZvInitializeWav64WithJunk(const wchar_t *path, const _zvwaveformat *format, DWORD creation,
                                  ULONGLONG headerSize)
{
    PlainFormat p(format);
    return p.ptr ? ZvInitializeWav64WithJunk(path, p.ptr, creation, headerSize) : E_POINTER;
}

HRESULT ZvInsertWavHeader(HANDLE file, const _zvwaveformat *format, DWORD dataSize, DWORD headerSize)
{
    PlainFormat p(format);
    return p.ptr ? ZvInsertWavHeader(file, p.ptr, dataSize, headerSize) : E_POINTER;
}

HRESULT ZvInsertW64Header(HANDLE file, const _zvwaveformat *format, ULONGLONG dataSize, ULONGLONG headerSize)
{
    PlainFormat p(format);
    return p.ptr ? ZvInsertW64Header(file, p.ptr, dataSize, headerSize) : E_POINTER;
}
