// The kernel's printf: classic "%" and locale "$" conversions, named tokens
// from one process-wide table, message composition and control texts.
#include "zvprintf.h"
#include "zvprintfint.h"
#include "zvlist.h"
#include "zvlang.h"
#include <math.h>
#include <stdio.h>
#include <string.h>

namespace {

const int kMaxDirective = 260;      // longer conversion directives are plain text
const int kMaxTokenName = 260;
const int kMaxPrecision = 100; // beyond this a float shows no more digits
const int kMaxWidth = 4096;

// --- Output -------------------------------------------------------------------

struct Out {
    wchar_t *buffer;
    size_t cap; // characters including the terminator
    size_t len;
    bool cut;

    void put(wchar_t c)
    {
        if (len + 1 < cap)
            buffer[len++] = c;
        else
            cut = true;
    }
    void put(const wchar_t *text, size_t n)
    {
        size_t room = cap > len + 1 ? cap - len - 1 : 0;
        if (n > room) {
            n = room;
            cut = true;
        }
        memcpy(buffer + len, text, n * sizeof(wchar_t));
        len += n;
    }
    void pad(wchar_t c, int n)
    {
        for (; n > 0 && !cut; n--)
            put(c);
    }
};

// A user text: plain, a string number below 0x10000 or a language record.
const wchar_t *userText(const wchar_t *text)
{
    ULONG_PTR p = (ULONG_PTR)text;
    if (!text || (p >= 0x10000 && (p & 3)))
        return text; // unaligned: plain text for sure
    return ZvGetStringSmart(nullptr, text);
}

// --- Token table ----------------------------------------------------------------

// Item: a zero word, the name, the value's length, the value; the two texts
// follow in the same block.
struct Token {
    DWORD zero;
    const wchar_t *name;
    DWORD valueLength;
    const wchar_t *value;
};

tZVLIST *volatile g_tokens = nullptr;

int WINAPI compareTokenName(ULONG_PTR, const void *key, const void *item)
{
    return lstrcmpiW((const wchar_t *)key, ((const Token *)item)->name);
}

tZVLIST *tokens()
{
    tZVLIST *list = g_tokens;
    if (list)
        return list;
    if (FAILED(ZvList_CreateExZ(&list, 0, 16, 16, ZVLIST_THREADSAFE | ZVLIST_HEAPITEMS, 0, 0, 0)))
        return nullptr;
    tZVLIST *prior = (tZVLIST *)InterlockedCompareExchangePointer((void *volatile *)&g_tokens, list, nullptr);
    if (prior) {
        ZvList_Destroy(list); // another thread was first
        return prior;
    }
    return list;
}

class TableLock {
public:
    explicit TableLock(tZVLIST *list) : list_(list) { EnterCriticalSection(&list_->lock); }
    ~TableLock() { LeaveCriticalSection(&list_->lock); }
    TableLock(const TableLock &) = delete;
    TableLock &operator=(const TableLock &) = delete;
private:
    tZVLIST *list_;
};

// Writes the token's value; false when no token has that name.
bool putToken(Out &out, const wchar_t *name)
{
    tZVLIST *list = tokens();
    if (!list)
        return false;
    TableLock lock(list);
    int at = ZvList_FindSortedItemRange(list, name, 0, -1, compareTokenName);
    if (at < 0)
        return false;
    const Token *t = (const Token *)ZvList_GetItem(list, at);
    out.put(t->value, t->valueLength);
    return true;
}

// --- Conversions -----------------------------------------------------------------

bool isConversion(wchar_t c)
{
    switch (c) {
    case L'!': case L'&': case L'*': case L',': case L':': case L'E': case L'G': case L'X': case L'c':
    case L'd': case L'e': case L'f': case L'g': case L'i': case L'o': case L's': case L'u': case L'x':
    case L'z':
        return true;
    default:
        return false;
    }
}

enum Size { kDefault, kChar, kShort, kLong, kLongLong, kPointer, kNarrow, kWide };

struct Directive {
    bool left, plus, space, alt, zero;
    int width;     // -1 none
    int precision; // -1 none
    Size size;
    wchar_t conv;
    bool locale;   // "$" form
};

// Parses flags, width, precision and size between start and conv. False when
// the text between is not a conversion directive, which then counts as text.
bool parseDirective(const wchar_t *p, const wchar_t *conv, Directive *s)
{
    memset(s, 0, sizeof *s);
    s->width = -1;
    s->precision = -1;
    for (;; p++) {
        if (*p == L'-') s->left = true;
        else if (*p == L'+') s->plus = true;
        else if (*p == L' ') s->space = true;
        else if (*p == L'#') s->alt = true;
        else if (*p == L'0') s->zero = true;
        else break;
    }
    if (*p >= L'1' && *p <= L'9') {
        s->width = 0;
        while (*p >= L'0' && *p <= L'9') {
            if (s->width < kMaxWidth)
                s->width = s->width * 10 + (*p - L'0');
            p++;
        }
        if (s->width > kMaxWidth)
            s->width = kMaxWidth;
    }
    if (*p == L'.') {
        p++;
        s->precision = 0;
        while (*p >= L'0' && *p <= L'9') {
            if (s->precision < kMaxWidth)
                s->precision = s->precision * 10 + (*p - L'0');
            p++;
        }
        if (s->precision > kMaxWidth)
            s->precision = kMaxWidth;
    }
    s->size = kDefault;
    if (p[0] == L'I' && p[1] == L'6' && p[2] == L'4') { s->size = kLongLong; p += 3; }
    else if (p[0] == L'I' && p[1] == L'3' && p[2] == L'2') { s->size = kLong; p += 3; }
    else if (p[0] == L'I') { s->size = kPointer; p++; }
    else if (p[0] == L'l' && p[1] == L'l') { s->size = kLongLong; p += 2; }
    else if (p[0] == L'h' && p[1] == L'h') { s->size = kChar; p += 2; }
    else if (p[0] == L'h') { s->size = kShort; p++; }
    else if (p[0] == L'l' || p[0] == L'w') { s->size = kLong; p++; }
    else if (p[0] == L'L' || p[0] == L'j' || p[0] == L't') { s->size = p[0] == L'L' ? kDefault : kLongLong; p++; }
    s->conv = *conv;
    return p == conv;
}

// Pads the text of a conversion to the directive's width. zeroAfter is where zero
// padding goes (behind a sign or "0x").
void putPadded(Out &out, const Directive &s, const wchar_t *text, int n, bool zeroAllowed, int zeroAfter)
{
    int fill = s.width > n ? s.width - n : 0;
    if (s.left) {
        out.put(text, n);
        out.pad(L' ', fill);
    } else if (s.zero && zeroAllowed) {
        out.put(text, zeroAfter);
        out.pad(L'0', fill);
        out.put(text + zeroAfter, n - zeroAfter);
    } else {
        out.pad(L' ', fill);
        out.put(text, n);
    }
}

void putInteger(Out &out, const Directive &s, ULONGLONG magnitude, bool negative)
{
    wchar_t digits[80];
    int n = 0;
    unsigned base = s.conv == L'o' ? 8 : (s.conv == L'x' || s.conv == L'X') ? 16 : 10;
    const wchar_t *set = s.conv == L'X' ? L"0123456789ABCDEF" : L"0123456789abcdef";
    wchar_t rev[70];
    int r = 0;
    for (ULONGLONG v = magnitude; v; v /= base)
        rev[r++] = set[v % base];
    int precision = s.precision < 0 ? 1 : s.precision;
    if (precision > 64)
        precision = 64;
    bool signedConv = s.conv == L'd' || s.conv == L'i';
    wchar_t prefix[3];
    int prefixLen = 0;
    if (signedConv && negative)
        prefix[prefixLen++] = L'-';
    else if (signedConv && s.plus)
        prefix[prefixLen++] = L'+';
    else if (signedConv && s.space)
        prefix[prefixLen++] = L' ';
    if (s.alt && base == 16 && magnitude) {
        prefix[prefixLen++] = L'0';
        prefix[prefixLen++] = s.conv;
    }
    if (s.alt && base == 8 && precision <= r)
        precision = r + 1;
    for (int k = r; k < precision; k++)
        digits[n++] = L'0';
    while (r)
        digits[n++] = rev[--r];

    wchar_t text[160];
    int len = 0;
    memcpy(text, prefix, prefixLen * sizeof(wchar_t));
    len = prefixLen;
    if (s.locale && base == 10) {
        wchar_t grouped[150];
        zvprintf_Regroup(digits, n, grouped, 150, true, false, -1);
        int g = lstrlenW(grouped);
        memcpy(text + len, grouped, g * sizeof(wchar_t));
        len += g;
    } else {
        memcpy(text + len, digits, n * sizeof(wchar_t));
        len += n;
    }
    putPadded(out, s, text, len, s.precision < 0, prefixLen);
}

// Classic float text through the C library, then the locale's separators.
void putFloat(Out &out, const Directive &s, double value)
{
    char format[16];
    int f = 0;
    format[f++] = '%';
    if (s.plus) format[f++] = '+';
    if (s.space) format[f++] = ' ';
    if (s.alt) format[f++] = '#';
    format[f++] = '.';
    format[f++] = '*';
    format[f++] = (char)s.conv;
    format[f] = 0;
    int precision = s.precision < 0 ? 6 : s.precision > kMaxPrecision ? kMaxPrecision : s.precision;
    char ascii[512];
    int n = snprintf(ascii, sizeof ascii, format, precision, value);
    if (n < 0)
        n = 0;
    if (n >= (int)sizeof ascii)
        n = sizeof ascii - 1;
    wchar_t wide[512];
    for (int i = 0; i < n; i++)
        wide[i] = (unsigned char)ascii[i];
    bool finite = isfinite(value);
    wchar_t text[700];
    int len = n;
    if (s.locale && finite) {
        len = zvprintf_Regroup(wide, n, text, 700, true, true, -1);
        if (len > 699)
            len = 699;
    } else {
        memcpy(text, wide, n * sizeof(wchar_t));
    }
    int signLen = (len && (text[0] == L'-' || text[0] == L'+' || text[0] == L' ')) ? 1 : 0;
    putPadded(out, s, text, len, finite, signLen);
}

// Integer in fixed point: value / 10^precision with that many decimals.
void putFixed(Out &out, const Directive &s, LONGLONG value)
{
    int p = s.precision < 0 ? 0 : s.precision;
    wchar_t number[120];
    int n = 0;
    if (p <= 18) {
        static const ULONGLONG powers[19] = {1ull, 10ull, 100ull, 1000ull, 10000ull, 100000ull, 1000000ull,
                                             10000000ull, 100000000ull, 1000000000ull, 10000000000ull,
                                             100000000000ull, 1000000000000ull, 10000000000000ull,
                                             100000000000000ull, 1000000000000000ull, 10000000000000000ull,
                                             100000000000000000ull, 1000000000000000000ull};
        ULONGLONG magnitude = value < 0 ? 0ull - (ULONGLONG)value : (ULONGLONG)value;
        ULONGLONG whole = magnitude / powers[p], frac = magnitude % powers[p];
        if (value < 0)
            number[n++] = L'-';
        wchar_t rev[40];
        int r = 0;
        do {
            rev[r++] = (wchar_t)(L'0' + whole % 10);
            whole /= 10;
        } while (whole);
        while (r)
            number[n++] = rev[--r];
        if (p > 0) {
            number[n++] = L'.';
            for (int k = p - 1; k >= 0; k--) {
                number[n + k] = (wchar_t)(L'0' + frac % 10);
                frac /= 10;
            }
            n += p;
        }
    } else {
        if (p > kMaxPrecision)
            p = kMaxPrecision;
        char ascii[400];
        int a = snprintf(ascii, sizeof ascii, "%.*f", p, (double)value / pow(10.0, p));
        if (a < 0)
            a = 0;
        if (a > 119)
            a = 119;
        for (int i = 0; i < a; i++)
            number[i] = (unsigned char)ascii[i];
        n = a;
    }
    if (n < 0)
        n = 0;
    wchar_t text[200];
    int len = zvprintf_Regroup(number, n, text, 200, s.locale, s.locale, -1);
    if (len > 199)
        len = 199;
    putPadded(out, s, text, len, true, value < 0 ? 1 : 0);
}

void putString(Out &out, const Directive &s, const wchar_t *text, int n)
{
    if (s.precision >= 0 && n > s.precision)
        n = s.precision;
    int fill = s.width > n ? s.width - n : 0;
    if (!s.left)
        out.pad(L' ', fill);
    out.put(text, n);
    if (s.left)
        out.pad(L' ', fill);
}

void putNarrowString(Out &out, const Directive &s, const char *text)
{
    int n = (int)strlen(text);
    if (s.precision >= 0 && n > s.precision)
        n = s.precision;
    if (n == 0) {
        putString(out, s, L"", 0);
        return;
    }
    wchar_t local[256];
    int wide = MultiByteToWideChar(CP_ACP, 0, text, n, nullptr, 0);
    wchar_t *buffer = wide <= 256 ? local : (wchar_t *)HeapAlloc(GetProcessHeap(), 0, wide * sizeof(wchar_t));
    if (!buffer)
        return;
    wide = MultiByteToWideChar(CP_ACP, 0, text, n, buffer, wide);
    putString(out, s, buffer, wide);
    if (buffer != local)
        HeapFree(GetProcessHeap(), 0, buffer);
}

void putSeparator(Out &out, int selector)
{
    wchar_t text[16];
    int n = zvprintf_Separator(selector, text, 16);
    out.put(text, n);
}

// Runs one conversion. Returns the characters of the format it consumed
// after the conversion character (the follower of "!" and "&").
int convert(Out &out, const Directive &s, const wchar_t *after, va_list *args)
{
    switch (s.conv) {
    case L'!':
        if (*after == L':' || *after == L'.' || *after == L',') {
            putSeparator(out, *after == L':' ? 100 : *after == L'.' ? 101 : 102);
            return 1;
        }
        return 0;
    case L'&':
        if (*after == L':' || *after == L'.') {
            putSeparator(out, *after == L':' ? 120 : 121);
            return 1;
        }
        return 0;
    case L'*':
        putSeparator(out, 24);
        return 0;
    case L',':
        putSeparator(out, 40);
        return 0;
    case L':':
        putSeparator(out, 60);
        return 0;
    case L's':
        if (s.size == kShort || s.size == kChar) {
            const char *text = va_arg(*args, const char *);
            putNarrowString(out, s, text ? text : "(null)");
        } else {
            const wchar_t *text = userText(va_arg(*args, const wchar_t *));
            if (!text)
                text = L"(null)";
            int n = 0;
            // Never read further than the precision allows.
            while (text[n] && (s.precision < 0 || n < s.precision))
                n++;
            putString(out, s, text, n);
        }
        return 0;
    case L'c': {
        int c = va_arg(*args, int);
        wchar_t ch = (wchar_t)c;
        if (s.size == kShort || s.size == kChar) {
            char narrow = (char)c;
            MultiByteToWideChar(CP_ACP, 0, &narrow, 1, &ch, 1);
        }
        Directive plain = s;
        plain.precision = -1;
        putString(out, plain, &ch, 1);
        return 0;
    }
    case L'd':
    case L'i': {
        LONGLONG v;
        switch (s.size) {
        case kLongLong: v = va_arg(*args, LONGLONG); break;
        case kPointer: v = va_arg(*args, INT_PTR); break;
        case kShort: v = (short)va_arg(*args, int); break;
        case kChar: v = (signed char)va_arg(*args, int); break;
        default: v = va_arg(*args, int); break;
        }
        putInteger(out, s, v < 0 ? 0ull - (ULONGLONG)v : (ULONGLONG)v, v < 0);
        return 0;
    }
    case L'u':
    case L'o':
    case L'x':
    case L'X': {
        ULONGLONG v;
        switch (s.size) {
        case kLongLong: v = va_arg(*args, ULONGLONG); break;
        case kPointer: v = va_arg(*args, UINT_PTR); break;
        case kShort: v = (unsigned short)va_arg(*args, unsigned); break;
        case kChar: v = (unsigned char)va_arg(*args, unsigned); break;
        default: v = va_arg(*args, unsigned); break;
        }
        putInteger(out, s, v, false);
        return 0;
    }
    case L'f':
    case L'e':
    case L'E':
    case L'g':
    case L'G':
        putFloat(out, s, va_arg(*args, double));
        return 0;
    case L'z': {
        LONGLONG v;
        if (s.size == kLongLong)
            v = va_arg(*args, LONGLONG);
        else if (s.size == kPointer)
            v = va_arg(*args, INT_PTR);
        else
            v = va_arg(*args, int);
        putFixed(out, s, v);
        return 0;
    }
    default:
        return 0;
    }
}

// "$(" at p: a literal number or a token. Returns the characters consumed,
// 0 when the element is not one (no ")" close enough).
size_t putParenthesised(Out &out, const wchar_t *p)
{
    const wchar_t *name = p + 2;
    const wchar_t *close = name;
    while (*close && *close != L')' && close - name <= kMaxTokenName)
        close++;
    if (*close != L')')
        return 0;
    size_t n = close - name;
    if (*name == L'-' || *name == L'.' || (*name >= L'0' && *name <= L'9')) {
        wchar_t number[kMaxTokenName + 1];
        memcpy(number, name, n * sizeof(wchar_t));
        number[n] = 0;
        wchar_t text[2 * kMaxTokenName];
        int len = zvprintf_Regroup(number, (int)n, text, 2 * kMaxTokenName, true, true, -1);
        out.put(text, len < 2 * kMaxTokenName ? len : 2 * kMaxTokenName - 1);
        return n + 3;
    }
    wchar_t key[kMaxTokenName + 1];
    memcpy(key, name, n * sizeof(wchar_t));
    key[n] = 0;
    if (!putToken(out, key))
        out.put(p, n + 3); // an unknown token stays as written
    return n + 3;
}

void format(Out &out, const wchar_t *fmt, va_list *args)
{
    const wchar_t *p = fmt;
    while (*p && !out.cut) {
        wchar_t c = *p;
        if (c != L'%' && c != L'$') {
            const wchar_t *run = p;
            while (*p && *p != L'%' && *p != L'$')
                p++;
            out.put(run, p - run);
            continue;
        }
        if (p[1] == c) {
            out.put(c);
            p += 2;
            continue;
        }
        if (c == L'$' && p[1] == L'(') {
            size_t used = putParenthesised(out, p);
            if (used) {
                p += used;
                continue;
            }
            out.put(p, 2); // no closing bracket: copied as it stands
            p += 2;
            continue;
        }
        const wchar_t *conv = p + 1;
        while (*conv && !isConversion(*conv) && conv - p <= kMaxDirective)
            conv++;
        Directive s;
        if (!*conv || !isConversion(*conv) || !parseDirective(p + 1, conv, &s)) {
            out.put(c); // not a conversion: plain text
            p++;
            continue;
        }
        s.locale = c == L'$';
        p = conv + 1;
        p += convert(out, s, p, args);
    }
}

HRESULT run(wchar_t *buffer, size_t cap, int *written, const wchar_t *fmt, va_list args)
{
    fmt = userText(fmt);
    if (written)
        *written = 0;
    if (!buffer && cap)
        return E_INVALIDARG;
    Out out = {buffer, cap, 0, false};
    HRESULT hr = S_OK;
    if (!fmt) {
        hr = E_INVALIDARG;
    } else {
        va_list copy;
        va_copy(copy, args);
        format(out, fmt, &copy);
        va_end(copy);
        if (out.cut)
            hr = ZVERR_BUFFER_TOO_SMALL;
    }
    if (cap)
        buffer[out.len] = 0;
    if (written)
        *written = (int)out.len;
    return hr;
}

// Large enough for any text a caller could have made room for.
const size_t kUnbounded = ((size_t)-1 / sizeof(wchar_t)) / 2;

// --- Text arguments -----------------------------------------------------------------

// A user text; a string number the kernel's language does not know (before
// the kernel started) is looked up in the program's own resources.
const wchar_t *resolveText(const wchar_t *text, wchar_t *buffer, int cch)
{
    const wchar_t *resolved = userText(text);
    if ((ULONG_PTR)text >= 0x10000 || (resolved && *resolved))
        return resolved;
    buffer[0] = 0;
    if (text)
        LoadStringW(GetModuleHandleW(nullptr), (UINT)(ULONG_PTR)text, buffer, cch);
    return buffer;
}

// Formats into a heap text that grows until the whole text fits.
wchar_t *formatAlloc(const wchar_t *fmt, va_list args)
{
    size_t cap = 1024;
    for (;;) {
        wchar_t *text = (wchar_t *)HeapAlloc(GetProcessHeap(), 0, cap * sizeof(wchar_t));
        if (!text)
            return nullptr;
        HRESULT hr = run(text, cap, nullptr, fmt, args);
        if (hr != ZVERR_BUFFER_TOO_SMALL || cap >= (1u << 22))
            return text;
        HeapFree(GetProcessHeap(), 0, text);
        cap *= 4;
    }
}

BOOL setText(HWND window, const wchar_t *text, bool noFlash)
{
    if (!window || !text)
        return FALSE;
    if (noFlash) {
        const int kCompare = 8192;
        wchar_t *current = (wchar_t *)HeapAlloc(GetProcessHeap(), 0, (kCompare + 1) * sizeof(wchar_t));
        if (current) {
            int n = GetWindowTextW(window, current, kCompare + 1);
            current[n] = 0;
            bool same = lstrcmpW(current, text) == 0;
            HeapFree(GetProcessHeap(), 0, current);
            if (same)
                return TRUE;
        }
    }
    return SetWindowTextW(window, text);
}

BOOL setFormatted(HWND window, const wchar_t *fmt, va_list args, bool noFlash)
{
    if (!window)
        return FALSE;
    wchar_t loaded[1024];
    const wchar_t *resolved = resolveText(fmt, loaded, 1024);
    wchar_t *text = formatAlloc(resolved, args);
    if (!text)
        return FALSE;
    BOOL ok = setText(window, text, noFlash);
    HeapFree(GetProcessHeap(), 0, text);
    return ok;
}

BOOL setPlain(HWND window, const wchar_t *text, bool noFlash)
{
    wchar_t loaded[1024];
    return setText(window, resolveText(text, loaded, 1024), noFlash);
}

} // namespace

// --- printf family -------------------------------------------------------------

int ZvVPrintF(wchar_t *buffer, const wchar_t *format, va_list args)
{
    int written = 0;
    run(buffer, buffer ? kUnbounded : 0, &written, format, args);
    return written;
}

int ZvPrintF(wchar_t *buffer, const wchar_t *format, ...)
{
    va_list args;
    va_start(args, format);
    int n = ZvVPrintF(buffer, format, args);
    va_end(args);
    return n;
}

HRESULT ZvNVPrintF(wchar_t *buffer, int cch, int *written, const wchar_t *format, va_list args)
{
    if (cch < 0)
        return E_INVALIDARG;
    return run(buffer, (size_t)cch, written, format, args);
}

HRESULT ZvCchPrintF(wchar_t *buffer, int cch, int *written, const wchar_t *format, ...)
{
    va_list args;
    va_start(args, format);
    HRESULT hr = ZvNVPrintF(buffer, cch, written, format, args);
    va_end(args);
    return hr;
}

// --- Tokens ------------------------------------------------------------------------

BOOL ZvPrintF_InitTokens(void)
{
    return tokens() != nullptr;
}

void ZvPrintF_FreeTokens(void)
{
    tZVLIST *list = (tZVLIST *)InterlockedExchangePointer((void *volatile *)&g_tokens, nullptr);
    ZvList_Destroy(list);
}

BOOL ZvPrintF_AddToken(const wchar_t *name, const wchar_t *value)
{
    if (!name || !*name)
        return FALSE;
    if (!value)
        value = L"";
    size_t nameLen = lstrlenW(name), valueLen = lstrlenW(value);
    if (nameLen > (size_t)kMaxTokenName || valueLen > 0x100000)
        return FALSE;
    tZVLIST *list = tokens();
    if (!list)
        return FALSE;
    TableLock lock(list);
    int old = ZvList_FindSortedItemRange(list, name, 0, -1, compareTokenName);
    if (old >= 0)
        ZvList_DeleteList(list, old, 1, FALSE);
    int at = ZvList_FindSortedInsertIndexRange(list, name, 0, -1, compareTokenName);
    void *block = nullptr;
    size_t bytes = sizeof(Token) + (nameLen + 1 + valueLen + 1) * sizeof(wchar_t);
    if (FAILED(ZvList_AllocItem(list, (int)bytes, &block)))
        return FALSE;
    Token *t = (Token *)block;
    wchar_t *text = (wchar_t *)(t + 1);
    memcpy(text, name, (nameLen + 1) * sizeof(wchar_t));
    memcpy(text + nameLen + 1, value, (valueLen + 1) * sizeof(wchar_t));
    t->name = text;
    t->valueLength = (DWORD)valueLen;
    t->value = text + nameLen + 1;
    if (FAILED(ZvList_InsertList(list, at, nullptr, -1))) {
        ZvList_DeleteList(list, -1, -1, FALSE);
        return FALSE;
    }
    return TRUE;
}

BOOL ZvPrintF_DeleteToken(const wchar_t *name)
{
    if (!name)
        return FALSE;
    tZVLIST *list = tokens();
    if (!list)
        return FALSE;
    TableLock lock(list);
    int at = ZvList_FindSortedItemRange(list, name, 0, -1, compareTokenName);
    if (at < 0)
        return FALSE;
    return SUCCEEDED(ZvList_DeleteList(list, at, 1, FALSE));
}

int ZvPrintF_GetToken(const wchar_t *name, wchar_t *buffer, int cch)
{
    if (!name)
        return -1;
    tZVLIST *list = tokens();
    if (!list)
        return -1;
    TableLock lock(list);
    int at = ZvList_FindSortedItemRange(list, name, 0, -1, compareTokenName);
    if (at < 0)
        return -1;
    const Token *t = (const Token *)ZvList_GetItem(list, at);
    if (buffer && cch > 0)
        lstrcpynW(buffer, t->value, cch);
    return (int)t->valueLength;
}

// --- Message composition ------------------------------------------------------------

int ZvComposeStr(wchar_t *buffer, int cch, const wchar_t *message, ...)
{
    if (!buffer || cch <= 0)
        return 0;
    buffer[0] = 0;
    if (!message)
        return 0;
    va_list args;
    va_start(args, message);
    DWORD n = FormatMessageW(FORMAT_MESSAGE_FROM_STRING, message, 0, 0, buffer, (DWORD)cch, &args);
    va_end(args);
    if (!n)
        buffer[0] = 0;
    return (int)n;
}

// --- Control texts ---------------------------------------------------------------------

BOOL ZvSetWindowTextF(HWND window, const wchar_t *format, ...)
{
    va_list args;
    va_start(args, format);
    BOOL ok = setFormatted(window, format, args, false);
    va_end(args);
    return ok;
}

BOOL ZvSetWindowTextNoF(HWND window, const wchar_t *text)
{
    return setPlain(window, text, false);
}

BOOL ZvSetWindowTextId(HWND window, UINT id, ...)
{
    va_list args;
    va_start(args, id);
    BOOL ok = id < 0x10000 ? setFormatted(window, (const wchar_t *)(ULONG_PTR)id, args, false) : FALSE;
    va_end(args);
    return ok;
}

BOOL ZvSetDlgItemTextF(HWND dialog, int item, const wchar_t *format, ...)
{
    va_list args;
    va_start(args, format);
    BOOL ok = setFormatted(GetDlgItem(dialog, item), format, args, false);
    va_end(args);
    return ok;
}

BOOL ZvSetDlgItemTextNoF(HWND dialog, int item, const wchar_t *text)
{
    return setPlain(GetDlgItem(dialog, item), text, false);
}

BOOL ZvSetDlgItemTextId(HWND dialog, int item, UINT id, ...)
{
    va_list args;
    va_start(args, id);
    BOOL ok = id < 0x10000 ? setFormatted(GetDlgItem(dialog, item), (const wchar_t *)(ULONG_PTR)id, args, false)
                           : FALSE;
    va_end(args);
    return ok;
}

BOOL ZvSetDlgItemTextNoFlashF(HWND dialog, int item, const wchar_t *format, ...)
{
    va_list args;
    va_start(args, format);
    BOOL ok = setFormatted(GetDlgItem(dialog, item), format, args, true);
    va_end(args);
    return ok;
}

BOOL ZvSetDlgItemTextNoFlashNoF(HWND dialog, int item, const wchar_t *text)
{
    return setPlain(GetDlgItem(dialog, item), text, true);
}

BOOL ZvMEditPrintF(HWND edit, const wchar_t *format, ...)
{
    if (!edit)
        return FALSE;
    va_list args;
    va_start(args, format);
    wchar_t loaded[1024];
    wchar_t *text = formatAlloc(resolveText(format, loaded, 1024), args);
    va_end(args);
    if (!text)
        return FALSE;
    // An edit control breaks lines only at "\r\n".
    size_t n = lstrlenW(text), breaks = 0;
    for (size_t i = 0; i < n; i++)
        breaks += text[i] == L'\n' && (i == 0 || text[i - 1] != L'\r');
    wchar_t *lines = (wchar_t *)HeapAlloc(GetProcessHeap(), 0, (n + breaks + 1) * sizeof(wchar_t));
    BOOL ok = FALSE;
    if (lines) {
        size_t k = 0;
        for (size_t i = 0; i < n; i++) {
            if (text[i] == L'\n' && (i == 0 || text[i - 1] != L'\r'))
                lines[k++] = L'\r';
            lines[k++] = text[i];
        }
        lines[k] = 0;
        ok = SetWindowTextW(edit, lines);
        HeapFree(GetProcessHeap(), 0, lines);
    }
    HeapFree(GetProcessHeap(), 0, text);
    return ok;
}
