// Metadata stream: full write, update and deletion of metadata kinds in a
// media file and its ".zvl" sidecar.
#include "media/metainternal.h"
#include "kernel/zverror.h"
#include "zvplugin.h"
#include <stdio.h>
#include <string.h>
#include <wchar.h>

using namespace zvmeta;

namespace {

const DWORD kZvpl = ZVRIFF_ID('Z', 'V', 'P', 'L');
const DWORD kZvpi = ZVRIFF_ID('Z', 'V', 'P', 'I');

struct DeleteRow {
    DWORD bit;
    DWORD id;       // RIFF id, or the list type when isList
    bool isList;
    bool all;       // a file may hold several
};
const DeleteRow kRiffRows[] = {
    {0x1, ZVRIFF_INFO, true, false}, {0x4, ZVRIFF_ID('c', 'u', 'e', ' '), false, false},
    {0x4, ZVRIFF_ID('a', 'd', 't', 'l'), true, false}, {0x4, ZVRIFF_ID('z', 'v', '0', '1'), false, false},
    {0x100000, ZVRIFF_ID('z', 'v', '0', '4'), false, false}, {0x10, ZVRIFF_ID('s', 'c', 'o', 't'), false, false},
    {0x20, ZVRIFF_ID('p', 'l', 's', 't'), false, false}, {0x20, ZVRIFF_ID('z', 'v', '0', '2'), false, false},
    {0x40, ZVRIFF_ID('t', 'l', 's', 't'), false, false}, {0x80, ZVRIFF_ID('D', 'I', 'S', 'P'), false, true},
    {0x100, ZVRIFF_ID('s', 'm', 'p', 'l'), false, false}, {0x2000000, ZVRIFF_ID('C', 'D', 'i', 'f'), false, true},
    {0x4000, ZVRIFF_ID('s', 't', 'r', '2'), false, false}, {0x8000, ZVRIFF_ID('b', 'm', 'r', 'k'), false, false},
    {0x10000, ZVRIFF_ID('d', 't', 'b', 't'), false, false}, {0x40000, ZVRIFF_ID('p', 'i', 'c', ' '), true, false},
    {0x200000, ZVRIFF_ID('b', 'm', 'p', 'i'), false, false}, {0x400000, ZVRIFF_ID('b', 'm', 'p', 'm'), false, false},
};
const DWORD kW64Rows[] = {0x1,    0x2,    0x4,     0x100000, 0x10,    0x20,     0x40,     0x80,
                          0x100, 0x2000000, 0x4000, 0x8000, 0x10000, 0x40000, 0x200000, 0x400000};

const WCHAR *FilePart(const WCHAR *path)
{
    const WCHAR *name = path;
    for (const WCHAR *p = path; *p; p++)
        if (*p == L'\\' || *p == L'/' || *p == L':')
            name = p + 1;
    return name;
}

HANDLE Open(const WCHAR *path, bool write, DWORD disposition = OPEN_EXISTING)
{
    return CreateFileW(path, write ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ,
                       FILE_SHARE_READ | (write ? FILE_SHARE_WRITE : FILE_SHARE_READ | FILE_SHARE_WRITE), nullptr,
                       disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Removes one chunk (every one with all) matched by pick; none is no fault.
template <class Pick> HRESULT RemoveWhere(HANDLE file, bool w64, bool all, Pick pick)
{
    for (;;) {
        ChunkIndex index;
        HRESULT hr = IndexFile(file, w64, &index);
        if (FAILED(hr))
            return hr;
        const Chunk *hit = nullptr;
        for (const Chunk &c : index.chunks)
            if (pick(c)) {
                hit = &c;
                break;
            }
        if (!hit)
            return S_OK;
        hr = RemoveChunk(file, index, *hit);
        if (FAILED(hr) || !all)
            return hr;
    }
}

// Deletes the chunks the raw stream of the source names, so that each
// written raw chunk replaces the file's chunks of its id (RIFF and AIFF).
void DeleteRawIds(HANDLE file, IZvReadMeta *meta)
{
    std::vector<DWORD> ids;
    IZvReadMeta *src = meta;
    IZvReadGenericMeta *generic = nullptr;
    if (FAILED(src->QueryInterface(IID_IZvReadGenericMeta, (void **)&generic)) || !generic)
        return;
    IStream *s = nullptr;
    generic->Reset();
    while (generic->Next(&s) == S_OK && s) {
        ZVMETA_STREAMHEADER head;
        ULONG got = 0;
        LARGE_INTEGER zero = {};
        s->Seek(zero, STREAM_SEEK_SET, nullptr);
        if (SUCCEEDED(s->Read(&head, sizeof head, &got)) && got == sizeof head &&
            IsEqualGUID(head.kind, KindOfBit(ZVMETA_RAW)->guid)) {
            for (LONG i = 0; i < head.count; i++) {
                ZVMETA_ITEMFRAME f;
                DWORD chunk[2];
                if (FAILED(s->Read(&f, sizeof f, &got)) || got != sizeof f || f.recordSize < 8 ||
                    FAILED(s->Read(chunk, 8, &got)) || got != 8)
                    break;
                ids.push_back(chunk[0]);
                LARGE_INTEGER skip;
                skip.QuadPart = (LONGLONG)f.recordSize - 8;
                s->Seek(skip, STREAM_SEEK_CUR, nullptr);
            }
        }
        s->Release();
        s = nullptr;
    }
    generic->Release();
    if (IsFormFile(file)) {
        DeleteAiffRawIds(file, ids);
        return;
    }
    for (DWORD id : ids)
        if (id != ZVRIFF_FMT && id != ZVRIFF_DATA && id != ZVRIFF_LIST && id != kZvpi)
            RemoveWhere(file, false, false, [id](const Chunk &c) { return c.id == id; });
}

// The media file's own kinds: an AIFF or AIFC file takes its own chunks.
HRESULT WriteMedia(HANDLE h, bool w64, DWORD rate, IZvReadMeta *meta, DWORD mask)
{
    if (!w64 && IsFormFile(h))
        return ZvFMMeta_WriteMetaToAiff(h, meta, mask);
    return ZvFMMeta_WriteMetaToFile(h, w64, rate, meta, mask);
}

HRESULT CreateSidecar(const WCHAR *path, DWORD rate, IZvReadMeta *meta, DWORD mask)
{
    WCHAR name[MAX_PATH];
    ZvFMMeta_CreateMetaName(path, name, MAX_PATH, TRUE);
    HANDLE h = CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return ZvErrorHandler_TranslateWin32Error(GetLastError());
    HRESULT hr = riff_WriteFileID(h, kZvpl, 4);
    if (SUCCEEDED(hr))
        hr = ZvFMMeta_WriteMetaToFile(h, FALSE, rate, meta, mask);
    if (SUCCEEDED(hr))
        hr = ZvFMMeta_AttachFileToExternList(h, path);
    CloseHandle(h);
    return hr;
}

HRESULT DeleteFromPath(const WCHAR *path, DWORD mask, bool w64)
{
    HANDLE h = Open(path, true);
    if (h == INVALID_HANDLE_VALUE)
        return S_OK;
    HRESULT hr = ZvFMMeta_DeleteKindsFromFile(h, mask, w64);
    CloseHandle(h);
    return hr;
}

HRESULT FullWrite(const WCHAR *path, BOOL isNew, DWORD rate, IZvReadMeta *meta, DWORD fileMask, DWORD sideMask,
                  bool w64)
{
    if (!path || !meta)
        return E_POINTER;
    DWORD fileEff = EffectiveMask(meta, fileMask), sideEff = EffectiveMask(meta, sideMask);
    WCHAR name[MAX_PATH];
    ZvFMMeta_CreateMetaName(path, name, MAX_PATH, FALSE);
    if (ZvFMMeta_IsFilePathToKSHVolume(name))
        return E_FAIL;
    // Every older sidecar of this file goes, whatever goes to one now.
    for (int append = 0; append < 2; append++) {
        ZvFMMeta_CreateMetaName(path, name, MAX_PATH, append);
        if (ZvFMMeta_IsMetaFile(path, name))
            DeleteFileW(name);
    }
    if (sideMask && sideEff) {
        HRESULT hr = CreateSidecar(path, rate, meta, sideEff);
        if (FAILED(hr))
            return hr;
    }
    if (!fileEff)
        return S_OK;
    HANDLE h = Open(path, true);
    if (h == INVALID_HANDLE_VALUE)
        return ZvErrorHandler_TranslateWin32Error(GetLastError());
    HRESULT hr = isNew ? S_OK : ZvFMMeta_DeleteKindsFromFile(h, fileEff, w64);
    if (SUCCEEDED(hr) && (fileEff & ZVMETA_RAW) && !w64)
        DeleteRawIds(h, meta);
    if (SUCCEEDED(hr))
        hr = WriteMedia(h, w64, rate, meta, fileEff);
    CloseHandle(h);
    return hr;
}

HRESULT Update(const WCHAR *path, DWORD rate, IZvReadMeta *meta, DWORD fileMask, DWORD sideMask, bool w64)
{
    if (!path || !meta)
        return E_POINTER;
    DWORD fileEff = EffectiveMask(meta, fileMask), sideEff = EffectiveMask(meta, sideMask);
    WCHAR side[MAX_PATH];
    bool haveSide = SUCCEEDED(ZvFMMeta_FindMetaFile(path, side, MAX_PATH));
    if (sideEff) {
        HRESULT hr;
        if (!haveSide)
            hr = CreateSidecar(path, rate, meta, sideEff);
        else if (SUCCEEDED(hr = DeleteFromPath(side, sideEff, false))) {
            HANDLE h = Open(side, true);
            if (h == INVALID_HANDLE_VALUE)
                return ZvErrorHandler_TranslateWin32Error(GetLastError());
            hr = ZvFMMeta_WriteMetaToFile(h, FALSE, rate, meta, sideEff);
            CloseHandle(h);
        }
        if (FAILED(hr))
            return hr;
        haveSide = SUCCEEDED(ZvFMMeta_FindMetaFile(path, side, MAX_PATH));
    }
    if (!fileEff)
        return S_OK;
    // A kind lives in one place only.
    if (haveSide) {
        HRESULT hr = DeleteFromPath(side, fileEff, false);
        if (FAILED(hr))
            return hr;
    }
    HRESULT hr = DeleteFromPath(path, fileEff, w64);
    if (FAILED(hr))
        return hr;
    HANDLE h = Open(path, true);
    if (h == INVALID_HANDLE_VALUE)
        return ZvErrorHandler_TranslateWin32Error(GetLastError());
    if ((fileEff & ZVMETA_RAW) && !w64)
        DeleteRawIds(h, meta);
    hr = WriteMedia(h, w64, rate, meta, fileEff);
    CloseHandle(h);
    return hr;
}

} // namespace

HRESULT ZvFMMeta_DeleteKindsFromFile(HANDLE file, DWORD mask, BOOL isWave64)
{
    if (!isWave64 && IsFormFile(file))
        return DeleteAiffKinds(file, mask);
    if (isWave64) {
        for (DWORD bit : kW64Rows) {
            if (!(mask & bit))
                continue;
            const GUID &label = KindOfBit(bit)->guid;
            HRESULT hr = RemoveWhere(file, true, false, [&label](const Chunk &c) { return IsEqualGUID(c.label, label); });
            if (FAILED(hr))
                return hr;
        }
        return S_OK;
    }
    for (const DeleteRow &row : kRiffRows) {
        if (!(mask & row.bit))
            continue;
        HRESULT hr = RemoveWhere(file, false, row.all, [&row](const Chunk &c) {
            return row.isList ? c.id == ZVRIFF_LIST && c.listType == row.id : c.id == row.id;
        });
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

HRESULT ZvFMMeta_DeleteChunkId(HANDLE file, DWORD id)
{
    if (id == ZVRIFF_FMT || id == ZVRIFF_DATA)
        return E_INVALIDARG;
    return RemoveWhere(file, false, true, [id](const Chunk &c) { return c.id == id; });
}

HRESULT ZvFMMeta_DeleteMetaChunksEx(const WCHAR *path, DWORD mask, BOOL isWave64)
{
    return path ? DeleteFromPath(path, mask, isWave64 != FALSE) : E_POINTER;
}

HRESULT ZvFMMeta_DeleteMetaChunks(const WCHAR *path) { return ZvFMMeta_DeleteMetaChunksEx(path, ZVMETA_MARKERS, FALSE); }

HRESULT ZvFMMeta_LookForMarkers(const WCHAR *path)
{
    HANDLE h = path ? Open(path, false) : INVALID_HANDLE_VALUE;
    if (h == INVALID_HANDLE_VALUE)
        return ZVERR_NOT_FOUND;
    ChunkIndex index;
    HRESULT hr = IndexFile(h, false, &index);
    CloseHandle(h);
    return SUCCEEDED(hr) && index.find(ZVRIFF_ID('c', 'u', 'e', ' ')) ? S_OK : ZVERR_NOT_FOUND;
}

HRESULT ZvFMMeta_CreateMetaName(const WCHAR *path, WCHAR *out, DWORD capacity, BOOL append)
{
    if (!path || !out || capacity < 6)
        return E_INVALIDARG;
    size_t len = wcslen(path), keep = len;
    if (!append) {
        const WCHAR *name = FilePart(path), *dot = wcsrchr(name, L'.');
        if (dot)
            keep = (size_t)(dot - path);
    }
    if (keep + 5 <= capacity) {
        wmemcpy(out, path, keep);
        wcscpy(out + keep, L".zvl");
    } else {
        // Cut to fit: the first capacity minus 5 characters and the extension.
        _snwprintf(out, capacity, L"%.*s%s", (int)(capacity - 5), path, L".zvl");
        out[capacity - 1] = 0;
    }
    return S_OK;
}

BOOL ZvFMMeta_IsMetaFile(const WCHAR *mediaPath, const WCHAR *sidecarPath)
{
    if (!mediaPath || !sidecarPath)
        return FALSE;
    HANDLE h = Open(sidecarPath, false);
    if (h == INVALID_HANDLE_VALUE)
        return FALSE;
    ChunkIndex index;
    char name[260] = {};
    BOOL same = FALSE;
    if (SUCCEEDED(IndexFile(h, false, &index)) && index.find(kZvpi)) {
        const Chunk &c = *index.find(kZvpi);
        DWORD n = c.size < 259 ? (DWORD)c.size : 259, got = 0;
        LARGE_INTEGER at;
        at.QuadPart = (LONGLONG)c.data;
        if (SetFilePointerEx(h, at, nullptr, FILE_BEGIN) && ReadFile(h, name, n, &got, nullptr)) {
            name[got] = 0;
            WCHAR wide[MAX_PATH] = {};
            MultiByteToWideChar(CP_ACP, 0, name, -1, wide, MAX_PATH - 1);
            same = wcscmp(wide, FilePart(mediaPath)) == 0;
        }
    }
    CloseHandle(h);
    return same;
}

HRESULT ZvFMMeta_FindMetaFile(const WCHAR *mediaPath, WCHAR *out, DWORD capacity)
{
    for (int append = 0; append < 2; append++) {
        if (FAILED(ZvFMMeta_CreateMetaName(mediaPath, out, capacity, append)))
            return E_INVALIDARG;
        if (ZvFMMeta_IsMetaFile(mediaPath, out))
            return S_OK;
    }
    return ZVERR_NOT_FOUND;
}

HRESULT ZvFMMeta_AttachFileToExternList(HANDLE sidecar, const WCHAR *mediaPath)
{
    DWORD head[2] = {};
    DWORD got = 0;
    SetFilePointer(sidecar, 0, nullptr, FILE_BEGIN);
    if (!ReadFile(sidecar, head, 8, &got, nullptr) || got != 8 || head[0] != ZVRIFF_RIFF)
        return ZVERR_NO_RIFF_HEADER;
    if (!mediaPath)
        return E_FAIL;
    char name[260] = {};
    WideCharToMultiByte(CP_ACP, 0, FilePart(mediaPath), -1, name, sizeof name, nullptr, nullptr);
    name[259] = 0;
    return AppendRiffChunk(sidecar, kZvpi, name, (DWORD)strlen(name) + 1);
}

HRESULT ZvFMMeta_ChangeAttachedFilename(const WCHAR *sidecarPath, const WCHAR *newMediaPath)
{
    if (!sidecarPath || !newMediaPath)
        return E_FAIL;
    HANDLE h = Open(sidecarPath, true);
    if (h == INVALID_HANDLE_VALUE)
        return ZvErrorHandler_TranslateWin32Error(GetLastError());
    HRESULT hr = RemoveWhere(h, false, true, [](const Chunk &c) { return c.id == kZvpi; });
    if (SUCCEEDED(hr))
        hr = ZvFMMeta_AttachFileToExternList(h, newMediaPath);
    CloseHandle(h);
    return hr;
}

BOOL ZvFMMeta_IsFilePathToKSHVolume(const WCHAR *path)
{
    WCHAR root[MAX_PATH], fs[64] = {};
    if (!path || !GetVolumePathNameW(path, root, MAX_PATH))
        return FALSE;
    if (!GetVolumeInformationW(root, nullptr, 0, nullptr, nullptr, nullptr, fs, 64))
        return FALSE;
    return wcscmp(fs, L"KshUDF") == 0 || wcscmp(fs, L"ORNUDF") == 0;
}

HRESULT ZvFMMeta_openAndWriteMetaStreamEx(const WCHAR *path, BOOL isNew, DWORD rate, IZvReadMeta *meta,
                                          DWORD fileMask, DWORD sideMask)
{
    return FullWrite(path, isNew, rate, meta, fileMask, sideMask, false);
}

HRESULT ZvFMMeta_openAndWriteMetaStream(const WCHAR *path, BOOL isNew, BOOL useSidecar, DWORD rate, IZvReadMeta *meta)
{
    return FullWrite(path, isNew, rate, meta, useSidecar ? 0 : 0x5, useSidecar ? 0x5 : 0, false);
}

HRESULT ZvFMMeta_WriteMetaStream(const WCHAR *path, BOOL useSidecar, DWORD rate, IZvReadMeta *meta)
{
    return ZvFMMeta_openAndWriteMetaStream(path, TRUE, useSidecar, rate, meta);
}

HRESULT ZvFMMeta_WriteMetaStreamEx(const WCHAR *path, BOOL useSidecar, DWORD rate, IZvReadMeta *meta, DWORD mask)
{
    return FullWrite(path, TRUE, rate, meta, useSidecar ? 0 : mask, useSidecar ? mask : 0, false);
}

HRESULT ZvFMMeta_UpdateMetaStream2(const WCHAR *path, DWORD rate, IZvReadMeta *meta, DWORD fileMask, DWORD sideMask)
{
    return Update(path, rate, meta, fileMask, sideMask, false);
}

HRESULT ZvFMMeta_UpdateMetaStream(const WCHAR *path, BOOL useSidecar, DWORD rate, IZvReadMeta *meta)
{
    return ZvFMMeta_UpdateMetaStreamEx(path, useSidecar, rate, meta, ZVMETA_MARKERS);
}

HRESULT ZvFMMeta_UpdateMetaStreamEx(const WCHAR *path, BOOL useSidecar, DWORD rate, IZvReadMeta *meta, DWORD mask)
{
    return Update(path, rate, meta, useSidecar ? 0 : mask, useSidecar ? mask : 0, false);
}

HRESULT ZvFMMeta64_openAndWriteMetaStream(const WCHAR *path, BOOL isNew, DWORD rate, IZvReadMeta *meta,
                                          DWORD fileMask, DWORD sideMask)
{
    return FullWrite(path, isNew, rate, meta, fileMask, sideMask, true);
}

HRESULT ZvFMMeta64_UpdateMetaStream(const WCHAR *path, DWORD rate, IZvReadMeta *meta, DWORD fileMask, DWORD sideMask)
{
    return Update(path, rate, meta, fileMask, sideMask, true);
}
