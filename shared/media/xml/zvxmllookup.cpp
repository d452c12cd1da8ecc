// Look-ups on a parsed CZvXML_Document: content walks, children by name,
// character data and attributes.
#include "zvxml.h"
#include <string.h>

namespace {

HRESULT CopyOut(const WCHAR *text, WCHAR *buffer, int capacity)
{
    if (!buffer || capacity <= 0)
        return E_INVALIDARG;
    size_t n = wcslen(text);
    if (n < (size_t)capacity) {
        memcpy(buffer, text, (n + 1) * sizeof(WCHAR));
        return S_OK;
    }
    memcpy(buffer, text, (size_t)(capacity - 1) * sizeof(WCHAR));
    buffer[capacity - 1] = 0;
    return ZVERR_BUFFER_TOO_SMALL;
}

} // namespace

INT_PTR CZvXML_Document::FindContentFirst(tagZVXML_ELEMENT *element, tagZVXML_CONTENT **content)
{
    if (content)
        *content = nullptr;
    if (!content || !m_lookups)
        return -1;
    tagZVXML_CONTENT *first = element ? (tagZVXML_CONTENT *)ZvList_GetItem(element->contents, 0) : m_root;
    if (!first)
        return -1;
    // A closed slot is taken again before the list grows.
    int handle = -1;
    for (int i = 0; i < ZvList_GetCount(m_lookups); i++)
        if (!((tagZVXML_LOOKUP *)ZvList_GetItem(m_lookups, i))->used) {
            handle = i;
            break;
        }
    if (handle < 0) {
        tagZVXML_LOOKUP fresh = {};
        handle = ZvList_GetCount(m_lookups);
        if (FAILED(ZvList_InsertList(m_lookups, handle, &fresh, 1)))
            return -1;
    }
    tagZVXML_LOOKUP *l = (tagZVXML_LOOKUP *)ZvList_GetItem(m_lookups, handle);
    l->element = element;
    l->next = 1;
    l->used = 1;
    *content = first;
    return handle;
}

HRESULT CZvXML_Document::FindContentNext(INT_PTR handle, tagZVXML_CONTENT **content)
{
    if (!content)
        return E_POINTER;
    *content = nullptr;
    tagZVXML_LOOKUP *l = handle >= 0 && handle < ZvList_GetCount(m_lookups) ? (tagZVXML_LOOKUP *)ZvList_GetItem(m_lookups, (int)handle)
                                                                    : nullptr;
    if (!l || !l->used)
        return E_HANDLE;
    if (!l->element || l->next >= ZvList_GetCount(l->element->contents))
        return ZVERR_NOT_FOUND;
    *content = (tagZVXML_CONTENT *)ZvList_GetItem(l->element->contents, l->next++);
    return S_OK;
}

HRESULT CZvXML_Document::FindContentClose(INT_PTR handle)
{
    tagZVXML_LOOKUP *l = handle >= 0 && handle < ZvList_GetCount(m_lookups) ? (tagZVXML_LOOKUP *)ZvList_GetItem(m_lookups, (int)handle)
                                                                    : nullptr;
    if (!l || !l->used)
        return E_HANDLE;
    memset(l, 0, sizeof *l);
    return S_OK;
}

HRESULT CZvXML_Document::FindChild(tagZVXML_CONTENT *content, const WCHAR *name, tagZVXML_CONTENT **child)
{
    if (!name || !child)
        return E_INVALIDARG;
    *child = nullptr;
    if (!content) {
        if (m_root && wcscmp(m_root->element.name, name) == 0) {
            *child = m_root;
            return S_OK;
        }
        return ZVERR_NOT_FOUND;
    }
    if (content->type != ZVXML_ELEMENT)
        return ZVERR_NOT_FOUND;
    tZVLIST *list = content->element.contents;
    for (int i = 0, n = ZvList_GetCount(list); i < n; i++) {
        tagZVXML_CONTENT *c = (tagZVXML_CONTENT *)ZvList_GetItem(list, i);
        if (c->type == ZVXML_ELEMENT && wcscmp(c->element.name, name) == 0) {
            *child = c;
            return S_OK;
        }
    }
    return ZVERR_NOT_FOUND;
}

HRESULT CZvXML_Document::GetCharDataContent(tagZVXML_ELEMENT *element, tagZVXML_CONTENT **content)
{
    if (!element || !content)
        return E_INVALIDARG;
    *content = nullptr;
    tZVLIST *list = element->contents;
    for (int i = 0, n = ZvList_GetCount(list); i < n; i++) {
        tagZVXML_CONTENT *c = (tagZVXML_CONTENT *)ZvList_GetItem(list, i);
        if (c->type == ZVXML_CHARDATA) {
            *content = c;
            return S_OK;
        }
    }
    return ZVERR_NOT_FOUND;
}

HRESULT CZvXML_Document::GetContentStringReqLen(tagZVXML_ELEMENT *element, int *length)
{
    if (!length)
        return E_INVALIDARG;
    *length = 0;
    tagZVXML_CONTENT *c;
    HRESULT hr = GetCharDataContent(element, &c);
    if (FAILED(hr))
        return hr;
    *length = (int)wcslen(c->text) + 1;
    return S_OK;
}

HRESULT CZvXML_Document::GetContentString(tagZVXML_ELEMENT *element, WCHAR *buffer, int capacity)
{
    if (!buffer || capacity <= 0)
        return E_INVALIDARG;
    buffer[0] = 0;
    tagZVXML_CONTENT *c;
    HRESULT hr = GetCharDataContent(element, &c);
    return FAILED(hr) ? hr : CopyOut(c->text, buffer, capacity);
}

HRESULT CZvXML_Document::GetAttribute(tagZVXML_ELEMENT *element, const WCHAR *name, tagZVXML_ATTRIBUTE **attribute)
{
    if (!element || !name || !attribute)
        return E_INVALIDARG;
    *attribute = nullptr;
    tZVLIST *list = element->attributes;
    for (int i = 0, n = ZvList_GetCount(list); i < n; i++) {
        tagZVXML_ATTRIBUTE *a = (tagZVXML_ATTRIBUTE *)ZvList_GetItem(list, i);
        if (a->name && a->value && wcscmp(a->name, name) == 0) {
            *attribute = a;
            return S_OK;
        }
    }
    return ZVERR_NOT_FOUND;
}

HRESULT CZvXML_Document::GetAttributeString(tagZVXML_ELEMENT *element, const WCHAR *name, WCHAR *buffer,
                                            int capacity)
{
    if (!element || !name || !buffer || capacity <= 0)
        return E_INVALIDARG;
    buffer[0] = 0;
    tagZVXML_ATTRIBUTE *a;
    HRESULT hr = GetAttribute(element, name, &a);
    return FAILED(hr) ? hr : CopyOut(a->value, buffer, capacity);
}

HRESULT CZvXML_Document::GetChildContentString(tagZVXML_CONTENT *content, const WCHAR *name, WCHAR *buffer,
                                               int capacity)
{
    if (!name || !buffer || capacity <= 0)
        return E_INVALIDARG;
    buffer[0] = 0;
    tagZVXML_CONTENT *child;
    HRESULT hr = FindChild(content, name, &child);
    return FAILED(hr) ? hr : GetContentString(&child->element, buffer, capacity);
}
