// The two character forms of an XML document: 8-bit text in the system ANSI
// code page and 16-bit little-endian text. Both scan with the byte class
// table; strings are measured in one pass and copied in a second.
#include "zvxmlspan.h"
#include <string.h>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Built at compile time from the class rows of the syntax.
static constexpr ZvXMLClassTable MakeClassTable()
{
    ZvXMLClassTable t{}; // controls and everything from 0x80 are 0
    t.c['\t'] = t.c['\n'] = t.c['\r'] = t.c[' '] = 1;
    t.c['!'] = 4;
    t.c['"'] = 5;
    t.c['#'] = 6;
    t.c['$'] = t.c['@'] = t.c['\\'] = t.c['^'] = t.c['`'] = 7;
    for (int i = 0x7B; i <= 0x7F; i++)
        t.c[i] = 7;
    t.c['%'] = 8;
    t.c['&'] = 9;
    t.c['\''] = 10; t.c['('] = 11; t.c[')'] = 12; t.c['*'] = 13; t.c['+'] = 14; t.c[','] = 15;
    t.c['-'] = 16;
    t.c['/'] = 17;
    for (int i = '0'; i <= '9'; i++)
        t.c[i] = 18;
    t.c[':'] = 19;
    t.c[';'] = 20;
    t.c['<'] = 21;
    t.c['='] = 22;
    t.c['>'] = 23;
    t.c['?'] = 24;
    for (int i = 'a'; i <= 'z'; i++)
        t.c[i] = t.c[i - 'a' + 'A'] = 26;
    t.c['.'] = t.c['_'] = 26;
    t.c['['] = 27;
    t.c[']'] = 28;
    return t;
}
const ZvXMLClassTable g_zvXMLClasses = MakeClassTable(); // declared extern in the header


namespace {

const ZvXMLClassTable &kClasses = g_zvXMLClasses;

const ZvXMLAnsiPage &Ansi()
{
    static const ZvXMLAnsiPage page;
    return page;
}

// Stop bytes of a set of classes for a wide compare, or false when a class
// in it has more than one byte besides the blanks (then the table decides).
bool StopBytes(DWORD stopClasses, BYTE *bytes, int *count)
{
    static const char kSingle[30] = {0, 0, 0, 0, '!', '"', '#', 0, '%', '&', '\'', '(', ')', '*', '+',
                                     ',', '-', '/', 0, ':', ';', '<', '=', '>', '?', 0, 0, '[', ']', 0};
    int n = 0;
    for (DWORD m = stopClasses & ~ZVXML_CLASSBIT(ZVXMLC_END); m; m &= m - 1) {
        int c = __builtin_ctz(m);
        if (c == ZVXMLC_BLANK) {
            bytes[n++] = '\t'; bytes[n++] = '\n'; bytes[n++] = '\r'; bytes[n++] = ' ';
        } else if (kSingle[c]) {
            if (n == 8)
                return false;
            bytes[n++] = (BYTE)kSingle[c];
        } else if (c == 0 || c == 7 || c == 18 || c == 26 || c > ZVXMLC_END) {
            return false;
        }
    }
    *count = n;
    return true;
}

bool IsAscii(const BYTE *p, size_t n)
{
    for (size_t i = 0; i < n; i++)
        if (p[i] >= 0x80)
            return false;
    return true;
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

ZvXMLEncodingUtf8::ZvXMLEncodingUtf8(const BYTE *data, ULONGLONG size)
    : ZvXMLEncodingUtf(data, size, 1), page_(&Ansi()), scanFrom_(~0ull), scanLength_(0), scanStop_(0), scanCount_(0)
{
    for (StopSet &st : stops_)
        st.classes = 0, st.count = 0;
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


__attribute__((noinline)) const ZvXMLEncodingUtf8::StopSet &ZvXMLEncodingUtf8::FillStops(StopSet &s, DWORD stopClasses)
{
    BYTE bytes[12];
    int n = 0;
    if (!StopBytes(stopClasses, bytes, &n))
        n = 0;
    s.classes = stopClasses;
    s.count = n;
    for (int i = 0; i < n; i++)
        memset(s.pattern[i], bytes[i], 16);
    return s;
}


int ZvXMLEncodingUtf8::CopyUntil(DWORD stopClasses, WCHAR *buffer)
{
    const BYTE *p = data_ + cursor_, *end = data_ + size_;
    const ZvXMLAnsiPage &page = *page_;
    ULONGLONG n;
    int count;
    if (cursor_ == scanFrom_ && stopClasses == scanStop_) {
        n = scanLength_;
        count = scanCount_;
    } else {
        n = (ULONGLONG)(ScanTo(p, end, stopClasses) - p);
        if (n > 0x3FFFFFF0ull)
            return -1;
        count = (int)n;
        if (!page.singleByte && n && !IsAscii(p, (size_t)n))
            count = MultiByteToWideChar(page.cp, 0, (const char *)p, (int)n, nullptr, 0);
        scanFrom_ = cursor_;
        scanStop_ = stopClasses;
        scanLength_ = n;
        scanCount_ = count;
    }
    if (!buffer)
        return count;
    if (count == (int)n)
        ZvXMLWiden(p, (size_t)n, buffer, page.map, (size_t)n, false);
    else
        MultiByteToWideChar(page.cp, 0, (const char *)p, (int)n, buffer, count);
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
