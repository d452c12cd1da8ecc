// ARDEO clips: AVI files whose LIST meta carries an XML entry with the
// clip's time code, offered as the summary field TCOD.
#include "media/metainternal.h"
#include "media/zvsummary.h"
#include "xml/zvxml.h"
#include <stddef.h>
#include <string.h>
#include <wchar.h>

namespace {

const DWORD kMovi = ZVRIFF_ID('m', 'o', 'v', 'i'), kMeta = ZVRIFF_ID('m', 'e', 't', 'a');

// The first element of this name, depth first.
tagZVXML_ELEMENT *FindElement(tagZVXML_ELEMENT *e, const WCHAR *name, int depth)
{
    if (!e || depth > 32)
        return nullptr;
    if (e->name && !wcscmp(e->name, name))
        return e;
    for (int i = 0, n = ZvList_GetCount(e->contents); i < n; i++) {
        auto *c = (tagZVXML_CONTENT *)ZvList_GetItem(e->contents, i);
        if (c->type != ZVXML_ELEMENT)
            continue;
        if (tagZVXML_ELEMENT *found = FindElement(&c->element, name, depth + 1))
            return found;
    }
    return nullptr;
}

// A field as an attribute of the element or of its first child element.
bool Field(CZvXML_Document *doc, tagZVXML_ELEMENT *e, const WCHAR *name, WCHAR *out, int capacity)
{
    if (SUCCEEDED(doc->GetAttributeString(e, name, out, capacity)))
        return true;
    if (tagZVXML_ELEMENT *child = FindElement(e, name, 0))
        return SUCCEEDED(doc->GetContentString(child, out, capacity));
    for (int i = 0, n = ZvList_GetCount(e->contents); i < n; i++) {
        auto *c = (tagZVXML_CONTENT *)ZvList_GetItem(e->contents, i);
        if (c->type == ZVXML_ELEMENT && SUCCEEDED(doc->GetAttributeString(&c->element, name, out, capacity)))
            return true;
    }
    return false;
}

// The clip's time code: the LtcChangeTable's value, moved back by the
// frame count at which that value holds, as "hh:mm:ss:ff" (";" before the
// frames of a drop-frame code). The value is "hh:mm:ss:ff" or the packed
// form of eight hex digits: frames, seconds, minutes, hours in BCD, the
// drop-frame flag in bit 6 of the frames.
bool ClipTimeCode(const WCHAR *value, const WCHAR *fpsText, const WCHAR *countText, WCHAR *out, size_t capacity)
{
    int f[4] = {}, n = 0;
    bool drop = false;
    size_t len = wcslen(value);
    if (len == 8 && wcsspn(value, L"0123456789abcdefABCDEF") == 8) {
        unsigned packed = (unsigned)wcstoul(value, nullptr, 16);
        BYTE b[4] = {(BYTE)(packed >> 24), (BYTE)(packed >> 16), (BYTE)(packed >> 8), (BYTE)packed};
        static const BYTE masks[4] = {0x3F, 0x7F, 0x7F, 0x3F};
        drop = (b[0] & 0x40) != 0;
        for (int i = 0; i < 4; i++)
            f[3 - i] = ((b[i] & masks[i]) >> 4) * 10 + (b[i] & 0x0F);
        n = 4;
    } else {
        for (const WCHAR *p = value; *p && n < 4;) {
            if (*p < L'0' || *p > L'9') {
                drop = drop || *p == L';';
                p++;
                continue;
            }
            f[n++] = (int)wcstol(p, (WCHAR **)&p, 10);
        }
    }
    if (n != 4 || f[0] > 23 || f[1] > 59 || f[2] > 59)
        return false;
    long long fps = fpsText && *fpsText ? _wtoi(fpsText) : 0, shift = countText ? _wtoi64(countText) : 0;
    if (fps > 0 && fps <= 120 && f[3] < fps && shift) {
        // Frames counted the way the code counts them: a drop-frame code
        // skips the first labels of each minute but every tenth.
        long long dropped = drop ? (fps + 14) / 15 : 0, minutes = f[0] * 60 + f[1];
        long long perMinute = fps * 60 - dropped, perTen = perMinute * 10 + dropped, day = perTen * 144;
        long long frames = (minutes * 60 + f[2]) * fps + f[3] - dropped * (minutes - minutes / 10);
        frames = ((frames - shift) % day + day) % day;
        if (dropped) {
            long long tens = frames / perTen, rest = frames % perTen;
            frames += dropped * 9 * tens + (rest > dropped ? dropped * ((rest - dropped) / perMinute) : 0);
        }
        f[3] = (int)(frames % fps), frames /= fps;
        f[2] = (int)(frames % 60), frames /= 60;
        f[1] = (int)(frames % 60), f[0] = (int)(frames / 60);
    }
    return _snwprintf(out, capacity, L"%02d:%02d:%02d%c%02d", f[0], f[1], f[2], drop ? L';' : L':', f[3]) > 0;
}

} // namespace

BOOL ZvFMMeta_isARDEOavi(HANDLE file)
{
    zvmeta::ChunkIndex index;
    if (FAILED(zvmeta::IndexFile(file, false, &index)))
        return FALSE;
    const zvmeta::Chunk *movi = index.find(ZVRIFF_LIST, kMovi);
    DWORD first = 0, got = 0;
    LARGE_INTEGER at;
    at.QuadPart = movi ? (LONGLONG)movi->data + 4 : 0;
    return movi && movi->size >= 12 && SetFilePointerEx(file, at, nullptr, FILE_BEGIN) &&
           ReadFile(file, &first, 4, &got, nullptr) && got == 4 && first == ZVRIFF_ID('0', '0', 'd', 'c');
}


namespace zvmeta {

HRESULT ReadArdeoTimeCode(HANDLE file, Bytes *record)
{
    if (!ZvFMMeta_isARDEOavi(file))
        return ZVERR_NOT_FOUND;
    ChunkIndex index;
    HRESULT hr = IndexFile(file, false, &index);
    const Chunk *meta = SUCCEEDED(hr) ? index.find(ZVRIFF_LIST, kMeta) : nullptr;
    if (!meta)
        return FAILED(hr) ? hr : ZVERR_NOT_FOUND;
    LARGE_INTEGER at;
    at.QuadPart = (LONGLONG)meta->data + 4;
    if (meta->size < 4 || meta->size > (16u << 20) || !SetFilePointerEx(file, at, nullptr, FILE_BEGIN))
        return ZVERR_MALFORMED;
    _summarylisttag summary = {0, nullptr};
    DWORD remaining = (DWORD)meta->size - 4;
    if (FAILED(hr = ZvSummary_Load(file, &summary, &remaining)))
        return hr;
    const WCHAR *xml = ZvSummary_GetItemText(&summary, ZVRIFF_ID('x', 'm', 'l', ' '));
    if (!xml) {
        ZvSummary_Free(&summary);
        return ZVERR_NOT_FOUND;
    }
    // The document reads wide text behind its mark.
    Bytes text(2 + wcslen(xml) * sizeof(WCHAR));
    text[0] = 0xFF, text[1] = 0xFE;
    memcpy(&text[2], xml, text.size() - 2);
    ZvSummary_Free(&summary);
    CZvXML_Document *doc = new CZvXML_Document;
    hr = doc ? doc->OpenMemory(text.data(), text.size()) : E_OUTOFMEMORY;
    // The parse goes on past a bad tag: what it read before one still
    // counts, and a document that yields no table is malformed.
    HRESULT parsed = SUCCEEDED(hr) ? doc->ParseFile() : hr;
    tagZVXML_ELEMENT *table = SUCCEEDED(hr) && doc->Root() ? FindElement(&doc->Root()->element, L"LtcChangeTable", 0)
                                                           : nullptr;
    WCHAR value[64] = {}, fps[16] = {}, count[24] = {}, code[32] = {};
    if (SUCCEEDED(hr))
        hr = table && Field(doc, table, L"value", value, 64) ? S_OK
             : parsed == E_OUTOFMEMORY                      ? parsed
             : FAILED(parsed)                               ? ZVERR_MALFORMED
                                                            : ZVERR_NOT_FOUND;
    if (SUCCEEDED(hr)) {
        Field(doc, table, L"tcFps", fps, 16);
        Field(doc, table, L"frameCount", count, 24);
        // a value of another form is handed on as it stands
        ClipTimeCode(value, fps, count, code, 32);
    }
    delete doc;
    if (FAILED(hr))
        return hr;
    const WCHAR *shown = code[0] ? code : value;
    DWORD id = ZVRIFF_ID('T', 'C', 'O', 'D');
    record->assign((const BYTE *)&id, (const BYTE *)&id + 4);
    record->insert(record->end(), (const BYTE *)shown, (const BYTE *)(shown + wcslen(shown) + 1));
    return S_OK;
}

} // namespace zvmeta

HRESULT ZvFMMeta_CreateSourceFromAvi(HANDLE file, IZvReadMeta **meta)
{
    if (!meta)
        return E_POINTER;
    *meta = nullptr;
    zvmeta::Store store;
    HRESULT hr = zvmeta::ReadAll(file, false, &store);
    // The chunks an AVI has beside its lists (the index) are its structure.
    for (size_t i = 0; i < store.kinds.size(); i++)
        if (store.kinds[i].bit == ZVMETA_RAW)
            store.kinds.erase(store.kinds.begin() + (ptrdiff_t)i--);
    zvmeta::Bytes record;
    HRESULT tc = zvmeta::ReadArdeoTimeCode(file, &record);
    if (SUCCEEDED(tc))
        store.add(ZVMETA_SUMMARY, record.data(), (DWORD)record.size());
    else if (tc != ZVERR_NOT_FOUND && SUCCEEDED(hr))
        hr = tc;
    return zvmeta::SourceAfterRead(hr, &store, meta);
}
