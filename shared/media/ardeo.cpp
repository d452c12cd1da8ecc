// ARDEO clips: AVI files whose LIST meta carries an XML entry with the
// clip's time code.
#include "media/metainternal.h"
#include "media/zvsummary.h"
#include "xml/zvxml.h"
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

HRESULT ZvFMMeta_fillARDEOmetaFromFileEx(HANDLE file, tZVLIST *list, tZVLIST *)
{
    if (!list)
        return E_POINTER;
    if (!ZvFMMeta_isARDEOavi(file))
        return ZVERR_NOT_FOUND;
    zvmeta::ChunkIndex index;
    HRESULT hr = zvmeta::IndexFile(file, false, &index);
    const zvmeta::Chunk *meta = SUCCEEDED(hr) ? index.find(ZVRIFF_LIST, kMeta) : nullptr;
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
    zvmeta::Bytes text(2 + wcslen(xml) * sizeof(WCHAR));
    text[0] = 0xFF, text[1] = 0xFE;
    memcpy(&text[2], xml, text.size() - 2);
    ZvSummary_Free(&summary);
    CZvXML_Document *doc = new CZvXML_Document;
    hr = doc ? doc->OpenMemory(text.data(), text.size()) : E_OUTOFMEMORY;
    if (SUCCEEDED(hr))
        hr = doc->ParseFile();
    tagZVXML_ELEMENT *table = SUCCEEDED(hr) && doc->Root() ? FindElement(&doc->Root()->element, L"LtcChangeTable", 0)
                                                           : nullptr;
    WCHAR value[64] = {};
    if (SUCCEEDED(hr))
        hr = table && Field(doc, table, L"value", value, 64) ? S_OK : ZVERR_NOT_FOUND;
    delete doc;
    if (FAILED(hr))
        return hr;
    DWORD id = ZVRIFF_ID('T', 'C', 'O', 'D');
    zvmeta::Bytes record((const BYTE *)&id, (const BYTE *)&id + 4);
    record.insert(record.end(), (const BYTE *)value, (const BYTE *)(value + wcslen(value) + 1));
    return zvmeta::AppendItem(list, ZVMETA_SUMMARY, record);
}
