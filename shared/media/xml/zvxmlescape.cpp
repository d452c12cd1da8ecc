// The three escapes the system knows, added and removed.
#include "zvxml.h"
#include <string.h>

namespace {

struct XmlEscape {
    WCHAR c;
    const WCHAR *text;
    int length;
};
const XmlEscape kEscapes[3] = {{L'&', L"&amp;", 5}, {L'<', L"&lt;", 4}, {L'>', L"&gt;", 4}};

// The escape that starts at p, or null.
const XmlEscape *EscapeAt(const WCHAR *p)
{
    if (*p != L'&')
        return nullptr;
    for (const XmlEscape &e : kEscapes)
        if (wcsncmp(p, e.text, (size_t)e.length) == 0)
            return &e;
    return nullptr;
}

const XmlEscape *EscapeOf(WCHAR c)
{
    for (const XmlEscape &e : kEscapes)
        if (e.c == c)
            return &e;
    return nullptr;
}

} // namespace

BOOL ZvXML_DoesStringNeedEscapes(const WCHAR *text)
{
    if (!text)
        return FALSE;
    for (const WCHAR *p = text; *p; p++)
        if (EscapeOf(*p) && !EscapeAt(p))
            return TRUE;
    return FALSE;
}

BOOL ZvXML_DoesStringHaveEscapes(const WCHAR *text)
{
    if (!text)
        return FALSE;
    for (const WCHAR *p = text; *p; p++)
        if (EscapeAt(p))
            return TRUE;
    return FALSE;
}

HRESULT ZvXML_RemoveEscapes(WCHAR *text)
{
    if (!text)
        return E_POINTER;
    WCHAR *out = text;
    for (const WCHAR *p = text; *p;) {
        const XmlEscape *e = EscapeAt(p);
        if (e) {
            *out++ = e->c;
            p += e->length;
        } else {
            *out++ = *p++;
        }
    }
    *out = 0;
    return S_OK;
}

int ZvXML_EscapedLength(const WCHAR *source)
{
    if (!source)
        return 0;
    int n = 0;
    for (const WCHAR *p = source; *p; p++) {
        const XmlEscape *e = EscapeAt(p) ? nullptr : EscapeOf(*p);
        n += e ? e->length : 1;
    }
    return n;
}

HRESULT ZvXML_AddEscapes(WCHAR *buffer, int capacity, const WCHAR *source)
{
    if (!buffer || !source || capacity <= 0)
        return E_POINTER;
    int n = 0;
    for (const WCHAR *p = source; *p; p++) {
        const XmlEscape *e = EscapeAt(p) ? nullptr : EscapeOf(*p);
        const WCHAR *piece = e ? e->text : p;
        int length = e ? e->length : 1;
        if (n + length >= capacity) {
            buffer[n] = 0;
            return ZVERR_BUFFER_TOO_SMALL;
        }
        memcpy(buffer + n, piece, (size_t)length * sizeof(WCHAR));
        n += length;
    }
    buffer[n] = 0;
    return S_OK;
}
