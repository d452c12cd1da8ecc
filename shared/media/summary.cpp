// The summary list: text fields by chunk id, stored as LIST INFO (ANSI) or
// LIST UNFO (wide), and as a stream.
#include "media/zvsummary.h"
#include "media/riff.h"
#include "kernel/zvmemory.h"
#include <string.h>
#include <wchar.h>

namespace {

WCHAR *DupText(const WCHAR *text)
{
    size_t n = (wcslen(text) + 1) * sizeof(WCHAR);
    WCHAR *copy = (WCHAR *)ZvMem_Alloc(n);
    if (copy)
        memcpy(copy, text, n);
    return copy;
}

// The array grown by extra zeroed pairs.
HRESULT Grow(_summarylisttag *list, DWORD extra)
{
    if (!extra)
        return S_OK;
    if (list->count > 0x0FFFFFFF - extra)
        return E_OUTOFMEMORY;
    tagZVSUMMARYPAIR *grown = (tagZVSUMMARYPAIR *)ZvMem_Alloc((list->count + extra) * sizeof(tagZVSUMMARYPAIR));
    if (!grown)
        return E_OUTOFMEMORY;
    if (list->count)
        memcpy(grown, list->pairs, list->count * sizeof(tagZVSUMMARYPAIR));
    ZvMem_Free(list->pairs);
    list->pairs = grown;
    list->count += extra;
    return S_OK;
}

HRESULT Load(HANDLE file, _summarylisttag *list, DWORD *remaining, bool wide)
{
    if (!list || !remaining)
        return E_INVALIDARG;
    list->count = 0, list->pairs = nullptr;
    DWORD start = 0, counter = *remaining, count = 0;
    riff_SaveLocation(file, &start);
    HRESULT hr = riff_GetNumListEntries(file, &count, &counter);
    if (FAILED(hr) || !count)
        return FAILED(hr) && hr != ZVERR_NOT_FOUND ? hr : S_OK;
    riff_RestoreLocation(file, start);
    if (count > *remaining / 8 || FAILED(hr = Grow(list, count)))
        return FAILED(hr) ? hr : ZVERR_MALFORMED;
    for (DWORD i = 0; i < count && SUCCEEDED(hr); i++) {
        DWORD id = 0, size = 0;
        if (FAILED(hr = riff_ReadChunkHeader(file, &id, &size)))
            break;
        DWORD span = 8 + size + (size & 1);
        if (size > *remaining || span > *remaining) {
            hr = ZVERR_MALFORMED;
            break;
        }
        *remaining -= span;
        BYTE *raw = (BYTE *)ZvMem_Alloc((SIZE_T)size + 2);
        if (!raw) {
            hr = E_OUTOFMEMORY;
            break;
        }
        hr = size ? riff_ReadData(file, raw, size) : S_OK;
        WCHAR *text = nullptr;
        if (SUCCEEDED(hr) && wide) {
            text = (WCHAR *)raw, raw = nullptr;
        } else if (SUCCEEDED(hr)) {
            text = (WCHAR *)ZvMem_Alloc((SIZE_T)size * 2 + 2);
            if (!text)
                hr = E_OUTOFMEMORY;
            else if (raw[0])
                MultiByteToWideChar(CP_ACP, 0, (const char *)raw, -1, text, (int)size + 1);
        }
        ZvMem_Free(raw);
        if (SUCCEEDED(hr))
            list->pairs[i].id = id, list->pairs[i].text = text;
    }
    if (FAILED(hr))
        ZvSummary_Free(list);
    return hr;
}

HRESULT Save(HANDLE file, const _summarylisttag *list, DWORD *written, bool wide)
{
    if (!list || !written)
        return E_INVALIDARG;
    *written = 0;
    if (!list->count)
        return S_OK;
    DWORD head = 0;
    riff_SaveLocation(file, &head);
    HRESULT hr = riff_WriteListHeader(file, wide ? ZVRIFF_ID('U', 'N', 'F', 'O') : ZVRIFF_INFO, 0);
    DWORD body = 4;
    for (DWORD i = 0; i < list->count && SUCCEEDED(hr); i++) {
        const tagZVSUMMARYPAIR &p = list->pairs[i];
        if (!p.text)
            continue;
        DWORD put = 0;
        if (wide) {
            hr = riff_WriteChunk(file, p.id, p.text, (DWORD)(wcslen(p.text) + 1) * sizeof(WCHAR), &put);
        } else {
            int n = WideCharToMultiByte(CP_ACP, 0, p.text, -1, nullptr, 0, nullptr, nullptr);
            char *ansi = (char *)ZvMem_Alloc(n > 0 ? (SIZE_T)n : 1);
            if (!ansi)
                return E_OUTOFMEMORY;
            if (n > 0)
                WideCharToMultiByte(CP_ACP, 0, p.text, -1, ansi, n, nullptr, nullptr);
            hr = riff_WriteChunk(file, p.id, ansi, n > 0 ? (DWORD)n : 1, &put);
            ZvMem_Free(ansi);
        }
        body += put;
    }
    if (FAILED(hr))
        return hr;
    DWORD end = 0;
    riff_SaveLocation(file, &end);
    riff_RestoreLocation(file, head + 4);
    DWORD put = 0;
    if (!WriteFile(file, &body, 4, &put, nullptr) || put != 4)
        return ZVERR_FILE_WRITE;
    riff_RestoreLocation(file, end);
    *written = 8 + body;
    return S_OK;
}

} // namespace

HRESULT ZvSummary_Load(HANDLE file, _summarylisttag *list, DWORD *remaining) { return Load(file, list, remaining, false); }
HRESULT ZvSummary_LoadUNFO(HANDLE file, _summarylisttag *list, DWORD *remaining)
{
    return Load(file, list, remaining, true);
}
HRESULT ZvSummary_Save(HANDLE file, const _summarylisttag *list, DWORD *written) { return Save(file, list, written, false); }
HRESULT ZvSummary_SaveUNFO(HANDLE file, const _summarylisttag *list, DWORD *written)
{
    return Save(file, list, written, true);
}

void ZvSummary_Free(_summarylisttag *list)
{
    if (!list)
        return;
    for (DWORD i = 0; i < list->count; i++)
        ZvMem_Free(list->pairs[i].text);
    ZvMem_Free(list->pairs);
    list->count = 0, list->pairs = nullptr;
}

int ZvSummary_GetItemIndex(const _summarylisttag *list, DWORD id)
{
    for (DWORD i = 0; list && id && i < list->count; i++)
        if (list->pairs[i].id == id)
            return (int)i;
    return -1;
}

const WCHAR *ZvSummary_GetItemText(const _summarylisttag *list, DWORD id)
{
    int i = ZvSummary_GetItemIndex(list, id);
    return i < 0 ? nullptr : list->pairs[i].text;
}

HRESULT ZvSummary_SetItem(_summarylisttag *list, DWORD id, const WCHAR *text)
{
    if (!list || !id)
        return E_INVALIDARG;
    int i = ZvSummary_GetItemIndex(list, id);
    if (!text) { // removing leaves a hole
        if (i >= 0) {
            ZvMem_Free(list->pairs[i].text);
            list->pairs[i].id = 0, list->pairs[i].text = nullptr;
        }
        return S_OK;
    }
    WCHAR *copy = DupText(text);
    if (!copy)
        return E_OUTOFMEMORY;
    if (i < 0) {
        HRESULT hr = Grow(list, 1);
        if (FAILED(hr)) {
            ZvMem_Free(copy);
            return hr;
        }
        i = (int)list->count - 1;
    }
    ZvMem_Free(list->pairs[i].text);
    list->pairs[i].id = id, list->pairs[i].text = copy;
    return S_OK;
}

HRESULT ZvSummary_Copy(_summarylisttag *target, const _summarylisttag *source)
{
    if (!target || !source)
        return E_INVALIDARG;
    _summarylisttag copy = {0, nullptr};
    HRESULT hr = Grow(&copy, source->count);
    for (DWORD i = 0; i < source->count && SUCCEEDED(hr); i++) {
        copy.pairs[i].id = source->pairs[i].id;
        if (source->pairs[i].text && !(copy.pairs[i].text = DupText(source->pairs[i].text)))
            hr = E_OUTOFMEMORY;
    }
    if (FAILED(hr)) {
        ZvSummary_Free(&copy);
        return hr;
    }
    ZvSummary_Free(target);
    *target = copy;
    return S_OK;
}

HRESULT ZvSummary_Merge(_summarylisttag *target, _summarylisttag *source, BOOL overwrite, DWORD *moved)
{
    if (!target || !source)
        return E_INVALIDARG;
    DWORD fresh = 0, done = 0;
    for (DWORD i = 0; i < source->count; i++)
        if (source->pairs[i].id && ZvSummary_GetItemIndex(target, source->pairs[i].id) < 0)
            fresh++;
    DWORD end = target->count;
    HRESULT hr = Grow(target, fresh);
    if (FAILED(hr))
        return hr;
    for (DWORD i = 0; i < source->count; i++) {
        tagZVSUMMARYPAIR &p = source->pairs[i];
        if (!p.id)
            continue;
        int at = ZvSummary_GetItemIndex(target, p.id);
        if (at >= 0 && (DWORD)at < end) {
            if (!overwrite)
                continue;
            ZvMem_Free(target->pairs[at].text);
        } else {
            at = (int)end++;
        }
        target->pairs[at] = p;
        p.id = 0, p.text = nullptr;
        done++;
    }
    if (moved)
        *moved = done;
    return S_OK;
}

int ZvSummary_Compare(const _summarylisttag *a, const _summarylisttag *b)
{
    if (!a || !b)
        return a == b ? 0 : 1;
    // Same texts under the same ids, holes and order aside.
    for (int pass = 0; pass < 2; pass++) {
        const _summarylisttag *x = pass ? b : a, *y = pass ? a : b;
        for (DWORD i = 0; i < x->count; i++) {
            if (!x->pairs[i].id)
                continue;
            const WCHAR *t = ZvSummary_GetItemText(y, x->pairs[i].id);
            const WCHAR *s = x->pairs[i].text;
            if ((!t) != (!s) || (t && wcscmp(t, s)) || ZvSummary_GetItemIndex(y, x->pairs[i].id) < 0)
                return 1;
        }
    }
    return 0;
}

HRESULT ZvSummary_GetStringFromFile(HANDLE file, DWORD id, WCHAR *buffer, DWORD capacity, DWORD *remaining)
{
    if (!buffer || !capacity || !remaining)
        return E_INVALIDARG;
    buffer[0] = 0;
    DWORD start = 0, left = *remaining;
    riff_SaveLocation(file, &start);
    HRESULT hr = ZVERR_NOT_FOUND;
    while (left >= 8) {
        DWORD cid = 0, size = 0;
        if (FAILED(hr = riff_ReadChunkHeader(file, &cid, &size)))
            break;
        if (size > left - 8) {
            hr = ZVERR_MALFORMED;
            break;
        }
        if (cid == id) {
            DWORD n = size < capacity ? size : capacity - 1;
            hr = riff_ReadANSIString(file, buffer, capacity, &n);
            break;
        }
        left -= 8 + size;
        left -= left && (size & 1) ? 1 : 0;
        riff_SkipChunk(file, size);
        hr = ZVERR_NOT_FOUND;
    }
    riff_RestoreLocation(file, start);
    return hr;
}

HRESULT _summarylisttag::Persist(IStream *stream, DWORD) const
{
    if (!stream)
        return E_INVALIDARG;
    DWORD head[2] = {count, 0};
    ULONG put = 0;
    HRESULT hr = stream->Write(head, 8, &put);
    for (DWORD i = 0; i < count && SUCCEEDED(hr); i++) {
        DWORD bytes = pairs[i].text ? (DWORD)(wcslen(pairs[i].text) + 1) * sizeof(WCHAR) : 0;
        DWORD item[2] = {pairs[i].id, bytes};
        hr = stream->Write(item, 8, &put);
        if (SUCCEEDED(hr) && bytes)
            hr = stream->Write(pairs[i].text, bytes, &put);
    }
    return hr;
}

HRESULT _summarylisttag::Create(IStream *stream, DWORD, _summarylisttag *out)
{
    if (!stream || !out)
        return E_INVALIDARG;
    out->count = 0, out->pairs = nullptr;
    DWORD head[2] = {};
    ULONG got = 0;
    HRESULT hr = stream->Read(head, 8, &got);
    if (SUCCEEDED(hr) && got != 8)
        hr = ZVERR_FILE_READ;
    if (SUCCEEDED(hr) && head[0] > 0x100000)
        hr = ZVERR_MALFORMED;
    if (SUCCEEDED(hr))
        hr = Grow(out, head[0]);
    for (DWORD i = 0; i < head[0] && SUCCEEDED(hr); i++) {
        DWORD item[2] = {};
        hr = stream->Read(item, 8, &got);
        if (SUCCEEDED(hr) && got != 8)
            hr = ZVERR_FILE_READ;
        if (SUCCEEDED(hr) && item[1] > (64u << 20))
            hr = ZVERR_MALFORMED;
        if (FAILED(hr) || !item[1]) {
            if (SUCCEEDED(hr))
                out->pairs[i].id = item[0];
            continue;
        }
        WCHAR *text = (WCHAR *)ZvMem_Alloc((SIZE_T)item[1] + 2);
        if (!text) {
            hr = E_OUTOFMEMORY;
            break;
        }
        hr = stream->Read(text, item[1], &got);
        if (SUCCEEDED(hr) && got != item[1])
            hr = ZVERR_FILE_READ;
        out->pairs[i].id = item[0], out->pairs[i].text = text;
    }
    if (FAILED(hr))
        ZvSummary_Free(out);
    return hr;
}
