// The two character forms of an XML document: 8-bit text in the system ANSI
// code page and 16-bit little-endian text. Both scan with the byte class
// table; strings are measured in one pass and copied in a second.
#include "zvxml.h"
#include <string.h>

namespace {

// Built once from the class rows of the syntax.
struct ClassTable {
    BYTE c[256];
    ClassTable()
    {
        memset(c, 0, sizeof c); // controls and everything from 0x80
        c['\t'] = c['\n'] = c['\r'] = c[' '] = 1;
        c['!'] = 4;
        c['"'] = 5;
        c['#'] = 6;
        c['$'] = c['@'] = c['\\'] = c['^'] = c['`'] = 7;
        for (int i = 0x7B; i <= 0x7F; i++)
            c[i] = 7;
        c['%'] = 8;
        c['&'] = 9;
        c['\''] = 10; c['('] = 11; c[')'] = 12; c['*'] = 13; c['+'] = 14; c[','] = 15;
        c['-'] = 16;
        c['/'] = 17;
        for (int i = '0'; i <= '9'; i++)
            c[i] = 18;
        c[':'] = 19;
        c[';'] = 20;
        c['<'] = 21;
        c['='] = 22;
        c['>'] = 23;
        c['?'] = 24;
        for (int i = 'a'; i <= 'z'; i++)
            c[i] = c[i - 'a' + 'A'] = 26;
        c['.'] = c['_'] = 26;
        c['['] = 27;
        c[']'] = 28;
    }
};
const ClassTable kClasses;

// The ANSI code page: a byte-to-character table where it is single-byte,
// else the system's converter. Chosen once per process.
struct AnsiPage {
    UINT cp;
    bool singleByte;
    WCHAR map[256];
    AnsiPage()
    {
        cp = GetACP();
        CPINFO info;
        singleByte = GetCPInfo(cp, &info) && info.MaxCharSize == 1;
        for (int i = 0; i < 256; i++) {
            char b = (char)i;
            WCHAR w = (WCHAR)i;
            if (i >= 0x80 && singleByte && MultiByteToWideChar(cp, 0, &b, 1, &w, 1) != 1)
                w = (WCHAR)i;
            map[i] = w;
        }
    }
};
const AnsiPage &Ansi()
{
    static const AnsiPage page;
    return page;
}

inline WCHAR Lower(WCHAR c) { return c >= 'A' && c <= 'Z' ? (WCHAR)(c + 32) : c; }

} // namespace

int ZvXML_ByteClass(BYTE c)
{
    return kClasses.c[c];
}

HRESULT STDMETHODCALLTYPE ZvXMLEncodingUtf::QueryInterface(REFIID, void **out)
{
    if (out)
        *out = nullptr;
    return E_NOTIMPL;
}

ULONG STDMETHODCALLTYPE ZvXMLEncodingUtf::AddRef()
{
    return (ULONG)InterlockedIncrement(&refs_);
}

ULONG STDMETHODCALLTYPE ZvXMLEncodingUtf::Release()
{
    LONG n = InterlockedDecrement(&refs_);
    if (n == 0)
        DeleteThis();
    return (ULONG)n;
}

// ---- 8-bit ----

ZvXMLEncodingUtf8::ZvXMLEncodingUtf8(const BYTE *data, ULONGLONG size) : ZvXMLEncodingUtf(data, size)
{
    Ansi();
}

HRESULT ZvXMLEncodingUtf8::Advance()
{
    if (cursor_ >= size_)
        return E_FAIL;
    cursor_++;
    return S_OK;
}

int ZvXMLEncodingUtf8::Class()
{
    return cursor_ < size_ ? (int)kClasses.c[data_[cursor_]] : (int)ZVXMLC_END;
}

int ZvXMLEncodingUtf8::Match(const WCHAR *text, int length, BOOL caseSensitive)
{
    if ((ULONGLONG)length > size_ - cursor_)
        return 1;
    const BYTE *p = data_ + cursor_;
    for (int i = 0; i < length; i++) {
        WCHAR c = (WCHAR)p[i];
        if (caseSensitive ? c != text[i] : Lower(c) != Lower(text[i]))
            return 1;
    }
    cursor_ += (ULONGLONG)length;
    return 0;
}

int ZvXMLEncodingUtf8::CopyUntil(DWORD stopClasses, WCHAR *buffer)
{
    const BYTE *p = data_ + cursor_, *end = data_ + size_;
    const BYTE *q = p;
    // Stop classes never include class 0, so bytes from 0x80 never stop.
    while (q < end && !((stopClasses >> kClasses.c[*q]) & 1))
        q++;
    ULONGLONG n = (ULONGLONG)(q - p);
    if (n > 0x3FFFFFF0ull)
        return -1;
    const AnsiPage &page = Ansi();
    int count = (int)n;
    if (!page.singleByte && n) {
        for (const BYTE *r = p; r < q; r++)
            if (*r >= 0x80) {
                count = MultiByteToWideChar(page.cp, 0, (const char *)p, (int)n, nullptr, 0);
                break;
            }
    }
    if (!buffer)
        return count;
    if (count == (int)n) {
        for (int i = 0; i < count; i++)
            buffer[i] = page.map[p[i]];
    } else {
        MultiByteToWideChar(page.cp, 0, (const char *)p, (int)n, buffer, count);
    }
    buffer[count] = 0;
    cursor_ += n;
    return count;
}

// ---- 16-bit ----

HRESULT ZvXMLEncodingUtf16::Advance()
{
    if (cursor_ + 2 > size_)
        return E_FAIL;
    cursor_ += 2;
    return S_OK;
}

int ZvXMLEncodingUtf16::Class()
{
    if (cursor_ + 2 > size_)
        return ZVXMLC_END;
    unsigned c = data_[cursor_] | (unsigned)data_[cursor_ + 1] << 8;
    return c > 127 ? (int)ZVXMLC_NAME : (int)kClasses.c[c];
}

int ZvXMLEncodingUtf16::Match(const WCHAR *text, int length, BOOL caseSensitive)
{
    if ((ULONGLONG)length * 2 > size_ - cursor_)
        return 1;
    const BYTE *p = data_ + cursor_;
    for (int i = 0; i < length; i++) {
        WCHAR c = (WCHAR)(p[2 * i] | p[2 * i + 1] << 8);
        if (caseSensitive ? c != text[i] : Lower(c) != Lower(text[i]))
            return 1;
    }
    cursor_ += (ULONGLONG)length * 2;
    return 0;
}

int ZvXMLEncodingUtf16::CopyUntil(DWORD stopClasses, WCHAR *buffer)
{
    const BYTE *p = data_ + cursor_, *end = data_ + size_;
    const BYTE *q = p;
    while (q + 2 <= end) {
        unsigned c = q[0] | (unsigned)q[1] << 8;
        if (c <= 127 && ((stopClasses >> kClasses.c[c]) & 1))
            break;
        q += 2;
    }
    ULONGLONG n = (ULONGLONG)(q - p) / 2;
    if (n > 0x3FFFFFF0ull)
        return -1;
    if (!buffer)
        return (int)n;
    memcpy(buffer, p, (size_t)n * 2); // the data may sit at an odd address
    buffer[n] = 0;
    cursor_ += n * 2;
    return (int)n;
}
