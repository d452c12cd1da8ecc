// The display list: a thumbnail and a text by clipboard format, stored as
// one DISP chunk per item that has data.
#include "media/zvsummary.h"
#include "media/riff.h"
#include "media/riff64.h"
#include "media/zvmeta.h"
#include <string.h>

namespace {

const DWORD kDisp = ZVRIFF_ID('D', 'I', 'S', 'P');
const GUID kDispLabel = {0x612CCA25, 0x92BB, 0x4C55, {0x84, 0x08, 0x7B, 0xDA, 0x2F, 0x15, 0xBD, 0x27}};
const DWORD kMaxItem = 64u << 20;

// Adds an item for a format the list lacks.
tagZVDISPITEM *AddFormat(tagZVDISPLIST *list, DWORD format)
{
    if (list->count >= 256)
        return nullptr;
    tagZVDISPITEM *grown = (tagZVDISPITEM *)GlobalAlloc(GPTR, (list->count + 1) * sizeof(tagZVDISPITEM));
    if (!grown)
        return nullptr;
    if (list->count)
        memcpy(grown, list->items, list->count * sizeof(tagZVDISPITEM));
    GlobalFree(list->items);
    list->items = grown;
    grown[list->count].format = format;
    return &grown[list->count++];
}

// One DISP body (format id and data) into the list.
HRESULT Take(tagZVDISPLIST *list, const BYTE *body, DWORD size)
{
    if (size < 4)
        return ZVERR_MALFORMED;
    DWORD format;
    memcpy(&format, body, 4);
    if (!displist_GetItem(list, format) && !AddFormat(list, format))
        return E_OUTOFMEMORY;
    return displist_SetItem(list, format, size - 4, body + 4) < 0 ? E_OUTOFMEMORY : S_OK;
}

bool WriteAll(HANDLE file, const void *data, DWORD size)
{
    DWORD put = 0;
    return !size || (WriteFile(file, data, size, &put, nullptr) && put == size);
}

} // namespace

tagZVDISPLIST *displist_Create(void)
{
    tagZVDISPLIST *list = (tagZVDISPLIST *)GlobalAlloc(GPTR, sizeof(tagZVDISPLIST));
    if (!list)
        return nullptr;
    list->items = (tagZVDISPITEM *)GlobalAlloc(GPTR, 2 * sizeof(tagZVDISPITEM));
    if (!list->items) {
        GlobalFree(list);
        return nullptr;
    }
    list->count = 2;
    list->items[0].format = CF_TEXT;
    list->items[1].format = CF_DIB;
    return list;
}

void displist_Free(tagZVDISPLIST *list)
{
    for (DWORD i = 0; list && i < list->count; i++) {
        GlobalFree(list->items[i].data);
        list->items[i].data = nullptr, list->items[i].size = 0;
    }
}

void displist_Destroy(tagZVDISPLIST *list)
{
    if (!list)
        return;
    displist_Free(list);
    GlobalFree(list->items);
    GlobalFree(list);
}

tagZVDISPITEM *displist_GetItem(tagZVDISPLIST *list, DWORD format)
{
    for (DWORD i = 0; list && i < list->count; i++)
        if (list->items[i].format == format)
            return &list->items[i];
    return nullptr;
}

int displist_SetItem(tagZVDISPLIST *list, DWORD format, DWORD size, const void *data)
{
    tagZVDISPITEM *item = displist_GetItem(list, format);
    if (!item)
        return -1;
    if (!data || !size) {
        GlobalFree(item->data);
        item->data = nullptr, item->size = 0;
        return 0;
    }
    void *copy = GlobalAlloc(GPTR, size);
    if (!copy)
        return -1;
    memcpy(copy, data, size);
    GlobalFree(item->data);
    item->data = copy, item->size = size;
    return 0;
}

HRESULT displist_Load(HANDLE file, tagZVDISPLIST *list, DWORD *remaining)
{
    if (!list || !remaining)
        return E_INVALIDARG;
    HRESULT hr = S_OK;
    while (*remaining >= 8 && SUCCEEDED(hr)) {
        DWORD id = 0, size = 0;
        if (FAILED(hr = riff_ReadChunkHeader(file, &id, &size)))
            break;
        if (size > *remaining - 8 || size > kMaxItem) {
            hr = ZVERR_MALFORMED;
            break;
        }
        *remaining -= 8 + size;
        *remaining -= *remaining && (size & 1) ? 1 : 0;
        if (id != kDisp) {
            riff_SkipChunk(file, size);
            continue;
        }
        BYTE *body = (BYTE *)GlobalAlloc(GPTR, size ? size : 1);
        if (!body)
            hr = E_OUTOFMEMORY;
        else if (SUCCEEDED(hr = size ? riff_ReadData(file, body, size) : S_OK))
            hr = Take(list, body, size);
        GlobalFree(body);
    }
    if (FAILED(hr))
        displist_Free(list);
    return hr;
}

HRESULT displist64_Load(HANDLE file, tagZVDISPLIST *list, ULONGLONG *remaining)
{
    if (!list || !remaining)
        return E_INVALIDARG;
    HRESULT hr = S_OK;
    while (*remaining >= 24 && SUCCEEDED(hr)) {
        GUID label;
        ULONGLONG size = 0;
        if (FAILED(hr = riff64_ReadChunkHeader(file, &label, &size)))
            break;
        // size is the body's, without the header
        if (size > *remaining - 24 || size > kMaxItem) {
            hr = ZVERR_MALFORMED;
            break;
        }
        ULONGLONG body = size, span = (24 + size + 7) & ~7ull;
        *remaining = span > *remaining ? 0 : *remaining - span;
        if (!IsEqualGUID(label, kDispLabel)) {
            riff64_SkipChunk(file, body);
            continue;
        }
        BYTE *data = (BYTE *)GlobalAlloc(GPTR, body ? (SIZE_T)body : 1);
        if (!data)
            hr = E_OUTOFMEMORY;
        else if (SUCCEEDED(hr = body ? riff64_ReadData(file, data, (DWORD)body) : S_OK)) // pads to 8 itself
            hr = Take(list, data, (DWORD)body);
        GlobalFree(data);
    }
    if (FAILED(hr))
        displist_Free(list);
    return hr;
}

HRESULT displist_LoadFromStream(IStream *stream, tagZVDISPLIST *list)
{
    if (!stream || !list)
        return E_INVALIDARG;
    ZVMETA_STREAMHEADER head;
    ULONG got = 0;
    HRESULT hr = stream->Read(&head, sizeof head, &got);
    if (FAILED(hr) || got != sizeof head)
        return ZVERR_FILE_READ;
    if (head.headerSize != 28 || head.version != ZVMETA_VERSION)
        return ZVERR_MALFORMED;
    for (LONG i = 0; i < head.count && SUCCEEDED(hr); i++) {
        ZVMETA_ITEMFRAME f;
        if (FAILED(stream->Read(&f, sizeof f, &got)) || got != sizeof f)
            hr = ZVERR_FILE_READ;
        else if (f.frameSize != 28 || f.recordSize > kMaxItem)
            hr = ZVERR_MALFORMED;
        BYTE *body = SUCCEEDED(hr) ? (BYTE *)GlobalAlloc(GPTR, f.recordSize ? f.recordSize : 1) : nullptr;
        if (SUCCEEDED(hr) && !body)
            hr = E_OUTOFMEMORY;
        if (SUCCEEDED(hr) && (FAILED(stream->Read(body, f.recordSize, &got)) || got != f.recordSize))
            hr = ZVERR_FILE_READ;
        if (SUCCEEDED(hr))
            hr = Take(list, body, f.recordSize);
        GlobalFree(body);
    }
    if (FAILED(hr))
        displist_Free(list);
    return hr;
}

HRESULT displist_Save(HANDLE file, const tagZVDISPLIST *list, DWORD *written)
{
    if (!list || !written)
        return E_INVALIDARG;
    *written = 0;
    static const BYTE pad = 0;
    for (DWORD i = 0; i < list->count; i++) {
        const tagZVDISPITEM &it = list->items[i];
        if (!it.data || !it.size)
            continue;
        DWORD head[3] = {kDisp, it.size + 4, it.format};
        if (!WriteAll(file, head, 12) || !WriteAll(file, it.data, it.size) || !WriteAll(file, &pad, it.size & 1))
            return ZVERR_FILE_WRITE;
        *written += 12 + it.size + (it.size & 1);
    }
    return S_OK;
}

HRESULT displist64_Save(HANDLE file, const tagZVDISPLIST *list, ULONGLONG *written)
{
    if (!list || !written)
        return E_INVALIDARG;
    *written = 0;
    static const BYTE zeros[8] = {};
    for (DWORD i = 0; i < list->count; i++) {
        const tagZVDISPITEM &it = list->items[i];
        if (!it.data || !it.size)
            continue;
        ULONGLONG size = 24 + 4 + (ULONGLONG)it.size;
        DWORD pad = (DWORD)((8 - (size & 7)) & 7);
        if (!WriteAll(file, &kDispLabel, 16) || !WriteAll(file, &size, 8) || !WriteAll(file, &it.format, 4) ||
            !WriteAll(file, it.data, it.size) || !WriteAll(file, zeros, pad))
            return ZVERR_FILE_WRITE;
        *written += size + pad;
    }
    return S_OK;
}

HBITMAP displist_CreateBitmapFromFile(const WCHAR *path)
{
    if (!path)
        return nullptr;
    HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return nullptr;
    HBITMAP bitmap = nullptr;
    DWORD all = 0, form = 0;
    tagZVDISPLIST *list = displist_Create();
    if (list && SUCCEEDED(riff_ReadFileID(file, &all, &form)) && SUCCEEDED(displist_Load(file, list, &all))) {
        const tagZVDISPITEM *dib = displist_GetItem(list, CF_DIB);
        const BITMAPINFOHEADER *bih = dib && dib->size >= sizeof(BITMAPINFOHEADER)
                                          ? (const BITMAPINFOHEADER *)dib->data : nullptr;
        // True-colour rows only, and only as many as the block holds.
        ULONGLONG row = bih ? (((ULONGLONG)(DWORD)bih->biWidth * bih->biBitCount + 31) / 32) * 4 : 0;
        ULONGLONG rows = bih ? (ULONGLONG)(bih->biHeight < 0 ? -(LONGLONG)bih->biHeight : bih->biHeight) : 0;
        if (bih && bih->biSize >= sizeof *bih && bih->biSize < dib->size && bih->biBitCount > 8 &&
            bih->biWidth > 0 && bih->biCompression == BI_RGB && row * rows <= dib->size - bih->biSize) {
            HDC screen = GetDC(nullptr);
            bitmap = CreateDIBitmap(screen, bih, CBM_INIT, (const BYTE *)bih + bih->biSize,
                                    (const BITMAPINFO *)bih, DIB_RGB_COLORS);
            ReleaseDC(nullptr, screen);
        }
    }
    displist_Destroy(list);
    CloseHandle(file);
    return bitmap;
}
