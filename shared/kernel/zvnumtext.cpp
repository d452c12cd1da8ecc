// Number texts: grouping and decimal separators of the user's locale,
// integer and fixed point texts, byte sizes, number parsing tokens, colours.
#include "zvprintf.h"
#include "zvprintfint.h"
#include "zvlang.h"
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>
#include <limits>

namespace {

ZvNumberLocale g_locales[2];
ZvNumberLocale *volatile g_locale = nullptr;
LONG g_localeSlot = 0;

void localeText(LCTYPE type, wchar_t *text, int cch, int *length, const wchar_t *fallback)
{
    int n = GetLocaleInfoW(LOCALE_USER_DEFAULT, type, text, cch);
    if (n <= 1)
        lstrcpynW(text, fallback, cch);
    *length = lstrlenW(text);
}

void loadLocale(ZvNumberLocale &l)
{
    memset(&l, 0, sizeof l);
    localeText(LOCALE_STHOUSAND, l.thousand, 8, &l.thousandLen, L",");
    // The decimal separator as the locale record has it: it never reads like
    // the thousands separator.
    l.decimalLen = ZvGetInatN(ZVINAT_DECIMALSEP, l.decimal, 8);
    if (!l.decimalLen)
        l.decimalLen = lstrlenW(lstrcpynW(l.decimal, L".", 8));
    wchar_t grouping[32];
    int n = GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_SGROUPING, grouping, 32);
    if (n <= 1)
        lstrcpynW(grouping, L"3;0", 32);
    // "3;0" repeats groups of 3, "3;2;0" is 3 then 2s, "3" groups once.
    int values[10];
    int count = 0;
    for (const wchar_t *p = grouping; *p && count < 10;) {
        int v = 0;
        while (*p >= L'0' && *p <= L'9')
            v = v * 10 + (*p++ - L'0');
        values[count++] = v > 9 ? 9 : v;
        while (*p && (*p < L'0' || *p > L'9'))
            p++;
    }
    if (count && values[count - 1] == 0) {
        l.repeatLast = true;
        count--;
    }
    for (int i = 0; i < count; i++)
        l.groups[i] = (unsigned char)values[i];
    l.groupCount = count;
}

void putText(wchar_t *buffer, int cch, int *at, const wchar_t *text, int n)
{
    for (int i = 0; i < n; i++, (*at)++) {
        if (*at < cch - 1)
            buffer[*at] = text[i];
    }
}

inline void putChar(wchar_t *buffer, int cch, int *at, wchar_t c)
{
    putText(buffer, cch, at, &c, 1);
}

inline int stored(int needed, int cch)
{
    if (cch <= 0)
        return 0;
    return needed < cch - 1 ? needed : cch - 1;
}

inline bool isDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }
inline bool isBlank(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

int integerText(bool negative, ULONGLONG magnitude, wchar_t *buffer, int cch, BOOL group)
{
    if (!buffer || cch <= 0)
        return 0;
    wchar_t digits[24];
    int n = 0;
    if (negative)
        digits[n++] = L'-';
    wchar_t rev[21];
    int r = 0;
    do {
        rev[r++] = (wchar_t)(L'0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude);
    while (r)
        digits[n++] = rev[--r];
    if (group)
        return stored(zvprintf_Regroup(digits, n, buffer, cch, true, false, -1), cch);
    int at = 0;
    putText(buffer, cch, &at, digits, n);
    buffer[stored(at, cch)] = 0;
    return stored(at, cch);
}

// Reads the number part of a token. Returns false when no digit was read.
bool readUnsigned(const wchar_t *&p, unsigned base, ULONGLONG limit, ULONGLONG *value)
{
    ULONGLONG v = 0;
    bool any = false;
    for (;; p++) {
        unsigned d;
        wchar_t c = *p;
        if (isDigit(c))
            d = c - L'0';
        else if (base == 16 && c >= L'a' && c <= L'f')
            d = c - L'a' + 10;
        else if (base == 16 && c >= L'A' && c <= L'F')
            d = c - L'A' + 10;
        else
            break;
        any = true;
        if (v > (limit - d) / base)
            v = limit; // saturate and read on
        else
            v = v * base + d;
    }
    *value = v;
    return any;
}

const wchar_t *skipBlanks(const wchar_t *p)
{
    while (isBlank(*p))
        p++;
    return p;
}

// After a number: blanks, then one "," or ";" and the blanks behind it.
const wchar_t *stepOver(const wchar_t *p)
{
    p = skipBlanks(p);
    if (*p == L',' || *p == L';')
        p = skipBlanks(p + 1);
    return p;
}

struct Parsed {
    bool negative;
    ULONGLONG magnitude;
    bool any;
    const wchar_t *stop; // where the digits ended
    const wchar_t *end;  // after the separator behind them
};

Parsed parseInteger(const wchar_t *text, bool allowSign, unsigned base, ULONGLONG limitPositive,
                    ULONGLONG limitNegative)
{
    Parsed r = {false, 0, false, text, text};
    if (!text)
        return r;
    const wchar_t *p = skipBlanks(text);
    if (allowSign && (*p == L'-' || *p == L'+'))
        r.negative = *p++ == L'-';
    if (base == 16 && p[0] == L'0' && (p[1] == L'x' || p[1] == L'X') &&
        (isDigit(p[2]) || ((p[2] | 0x20) >= L'a' && (p[2] | 0x20) <= L'f')))
        p += 2;
    r.any = readUnsigned(p, base, r.negative ? limitNegative : limitPositive, &r.magnitude);
    r.stop = p;
    if (!r.any) {
        r.negative = false;
        r.end = text;
        return r;
    }
    r.end = stepOver(p);
    return r;
}

inline void storeEnd(const wchar_t **end, const wchar_t *at)
{
    if (end)
        *end = at;
}

// The Ex rule: a reading of 0 that stopped at something other than a blank,
// a token separator or the end is no number at all.
inline bool useDefault(const Parsed &r, const wchar_t *text)
{
    if (!text)
        return true;
    wchar_t c = *r.stop;
    return r.magnitude == 0 && c && !isBlank(c) && c != L',' && c != L';';
}

template <typename T>
T clampValue(T v, T lo, T hi)
{
    if (lo > hi)
        return v;
    return v < lo ? lo : v > hi ? hi : v;
}

double parseDouble(const wchar_t *text, const wchar_t **end, bool *any)
{
    *any = false;
    if (!text) {
        storeEnd(end, text);
        return 0.0;
    }
    const wchar_t *p = skipBlanks(text);
    const ZvNumberLocale &loc = zvprintf_NumberLocale();
    wchar_t decimal = loc.decimalLen == 1 && loc.decimal[0] != L',' ? loc.decimal[0] : L'.';
    // Copy the plain number into ASCII for the C parser.
    char ascii[400];
    int n = 0;
    const wchar_t *q = p;
    if (*q == L'-' || *q == L'+')
        ascii[n++] = (char)*q++;
    int digits = 0;
    while (isDigit(*q) && n < 380) {
        ascii[n++] = (char)*q++;
        digits++;
    }
    if ((*q == L'.' || *q == decimal) && n < 380) {
        ascii[n++] = '.';
        q++;
        while (isDigit(*q) && n < 380) {
            ascii[n++] = (char)*q++;
            digits++;
        }
    }
    if (!digits) {
        storeEnd(end, text);
        return 0.0;
    }
    if ((*q == L'e' || *q == L'E') && (isDigit(q[1]) || ((q[1] == L'-' || q[1] == L'+') && isDigit(q[2])))) {
        ascii[n++] = 'e';
        q++;
        if (*q == L'-' || *q == L'+')
            ascii[n++] = (char)*q++;
        int e = 0;
        while (isDigit(*q)) {
            if (n < 395 && e++ < 5)
                ascii[n++] = (char)*q;
            q++;
        }
    }
    ascii[n] = 0;
    *any = true;
    storeEnd(end, stepOver(q));
    return strtod(ascii, nullptr);
}

} // namespace

// --- Locale -------------------------------------------------------------------

const ZvNumberLocale &zvprintf_NumberLocale()
{
    ZvNumberLocale *l = g_locale;
    if (l)
        return *l;
    ZvPrintF_RefreshLocale();
    return *g_locale;
}

void ZvPrintF_RefreshLocale(void)
{
    // Two records: readers keep the old one while the other is filled.
    LONG slot = InterlockedIncrement(&g_localeSlot) & 1;
    loadLocale(g_locales[slot]);
    InterlockedExchangePointer((void *volatile *)&g_locale, &g_locales[slot]);
}

int zvprintf_Separator(int selector, wchar_t *buffer, int cch)
{
    if (!buffer || cch <= 0)
        return 0;
    // The process locale record keeps all of them, timecode and music time
    // separators included.
    return ZvGetInatN(selector, buffer, cch);
}

int zvprintf_Regroup(const wchar_t *number, int length, wchar_t *buffer, int cch, bool group, bool decimal,
                     int decimals)
{
    if (length < 0)
        length = number ? lstrlenW(number) : 0;
    const ZvNumberLocale &loc = zvprintf_NumberLocale();
    int at = 0;
    int i = 0;
    while (i < length && (number[i] == L' ' || number[i] == L'+' || number[i] == L'-'))
        i++;
    putText(buffer, cch, &at, number, i);
    int intStart = i;
    while (i < length && isDigit(number[i]))
        i++;
    int intEnd = i;
    int fracStart = intEnd, fracEnd = intEnd;
    bool point = intEnd < length && number[intEnd] == L'.';
    if (point) {
        fracStart = intEnd + 1;
        fracEnd = fracStart;
        while (fracEnd < length && isDigit(number[fracEnd]))
            fracEnd++;
    }

    // Integer digits and fraction as they will be shown, rounded if asked.
    wchar_t local[128];
    int digitCount = intEnd - intStart;
    int fracShown = decimals >= 0 ? decimals : fracEnd - fracStart;
    int work = digitCount + 1 + (fracShown > fracEnd - fracStart ? fracShown : fracEnd - fracStart);
    wchar_t *digits = work <= 128 ? local : (wchar_t *)HeapAlloc(GetProcessHeap(), 0, work * sizeof(wchar_t));
    if (!digits) {
        if (cch > 0)
            buffer[0] = 0;
        return 0;
    }
    // digits[0] is room for a carry.
    digits[0] = L'0';
    memcpy(digits + 1, number + intStart, digitCount * sizeof(wchar_t));
    int fracHave = fracEnd - fracStart;
    for (int k = 0; k < fracShown; k++)
        digits[1 + digitCount + k] = k < fracHave ? number[fracStart + k] : L'0';
    if (decimals >= 0 && fracHave > decimals && number[fracStart + decimals] >= L'5') {
        for (int k = digitCount + fracShown; k >= 0; k--) {
            if (digits[k] == L'9') {
                digits[k] = L'0';
                continue;
            }
            digits[k]++;
            break;
        }
    }
    int lead = digits[0] != L'0' ? 0 : 1;
    int shownInt = digitCount + 1 - lead;
    const wchar_t *intDigits = digits + lead;

    // Group marks from the right.
    for (int k = 0; k < shownInt; k++) {
        putChar(buffer, cch, &at, intDigits[k]);
        int left = shownInt - 1 - k; // digits still to come
        if (!group || left <= 0 || !loc.thousandLen || !loc.groupCount)
            continue;
        // Is there a boundary with exactly `left` digits to its right?
        int sum = 0;
        for (int g = 0;; g++) {
            int size;
            if (g < loc.groupCount)
                size = loc.groups[g];
            else if (loc.repeatLast)
                size = loc.groups[loc.groupCount - 1];
            else
                break;
            if (size <= 0)
                break;
            sum += size;
            if (sum >= left) {
                if (sum == left)
                    putText(buffer, cch, &at, loc.thousand, loc.thousandLen);
                break;
            }
        }
    }
    if (fracShown > 0 || (point && decimals < 0)) {
        if (decimal)
            putText(buffer, cch, &at, loc.decimal, loc.decimalLen);
        else
            putChar(buffer, cch, &at, L'.');
        putText(buffer, cch, &at, digits + 1 + digitCount, fracShown);
    }
    putText(buffer, cch, &at, number + fracEnd, length - fracEnd);
    if (digits != local)
        HeapFree(GetProcessHeap(), 0, digits);
    if (cch > 0)
        buffer[stored(at, cch)] = 0;
    return at;
}

int ZvFormatNumber(const wchar_t *number, wchar_t *buffer, int cch)
{
    if (!number || !buffer || cch <= 0)
        return 0;
    return stored(zvprintf_Regroup(number, -1, buffer, cch, true, false, -1), cch);
}

int ZvFormatDecimalNumber(const wchar_t *number, wchar_t *buffer, int cch)
{
    if (!number || !buffer || cch <= 0)
        return 0;
    return stored(zvprintf_Regroup(number, -1, buffer, cch, false, true, -1), cch);
}

int ZvFormatGroupDecimalNumber(const wchar_t *number, wchar_t *buffer, int cch, int decimals)
{
    if (!number || !buffer || cch <= 0)
        return 0;
    return stored(zvprintf_Regroup(number, -1, buffer, cch, true, true, decimals), cch);
}

// --- Integer and fixed point texts --------------------------------------------

int ZvLongToTextN(LONG value, wchar_t *buffer, int cch, BOOL group)
{
    return integerText(value < 0, value < 0 ? 0ull - (ULONGLONG)(LONGLONG)value : (ULONGLONG)value, buffer, cch,
                       group);
}

int ZvLongToText(LONG value, wchar_t *buffer, BOOL group)
{
    return ZvLongToTextN(value, buffer, 32, group);
}

int ZvLongLongToTextN(LONGLONG value, wchar_t *buffer, int cch, BOOL group)
{
    return integerText(value < 0, value < 0 ? 0ull - (ULONGLONG)value : (ULONGLONG)value, buffer, cch, group);
}

int ZvLongLongToText(LONGLONG value, wchar_t *buffer, BOOL group)
{
    return ZvLongLongToTextN(value, buffer, 32, group);
}

int ZvDWordToTextN(DWORD value, wchar_t *buffer, int cch, BOOL group)
{
    return integerText(false, value, buffer, cch, group);
}

int ZvDWordToText(DWORD value, wchar_t *buffer, BOOL group)
{
    return ZvDWordToTextN(value, buffer, 32, group);
}

int ZvDWordLongToTextN(ULONGLONG value, wchar_t *buffer, int cch, BOOL group)
{
    return integerText(false, value, buffer, cch, group);
}

int ZvDWordLongToText(ULONGLONG value, wchar_t *buffer, BOOL group)
{
    return ZvDWordLongToTextN(value, buffer, 32, group);
}

int ZvDoubleToTextN(wchar_t *buffer, int cch, double value, int decimals, BOOL group)
{
    if (!buffer || cch <= 0)
        return 0;
    if (decimals < 0)
        decimals = 0;
    if (decimals > 60)
        decimals = 60;
    char ascii[400];
    int n = snprintf(ascii, sizeof ascii, "%.*f", decimals, value);
    if (n < 0 || n >= (int)sizeof ascii)
        n = snprintf(ascii, sizeof ascii, "%.*e", decimals, value);
    if (n < 0)
        n = 0;
    if (n >= (int)sizeof ascii)
        n = sizeof ascii - 1;
    wchar_t wide[400];
    for (int i = 0; i <= n; i++)
        wide[i] = (unsigned char)ascii[i];
    return stored(zvprintf_Regroup(wide, n, buffer, cch, group != 0, true, -1), cch);
}

int ZvDoubleToText(wchar_t *buffer, double value, int decimals, BOOL group)
{
    return ZvDoubleToTextN(buffer, 64 + 310, value, decimals, group);
}

// --- Sizes --------------------------------------------------------------------------

int ZvFormatFileSize(ULONGLONG size, wchar_t *buffer, int cch, DWORD options)
{
    static const wchar_t *const records[] = {L"%1 KB", L"%1 MB", L"%1 GB", L"%1 TB", L"%1 PB", L"%1 EB",
                                             L"%1 ZB", L"%1 YB"};
    if (!buffer || cch <= 0)
        return 0;
    wchar_t number[64];
    if (size < 1024) {
        ZvDWordToTextN((DWORD)size, number, 64, TRUE);
        return ZvComposeStr(buffer, cch, (options & ZVFFS_LONGBYTES) ? L"%1 bytes" : L"%1 B", number);
    }
    // Three significant digits in the largest unit that keeps the value
    // below 1024.
    double value = (double)size;
    int unit = -1;
    while (value >= 1024.0 && unit < 7) {
        value /= 1024.0;
        unit++;
    }
    if (value >= 1024.0)
        return ZvComposeStr(buffer, cch, L"> 9 YB");
    int decimals = value < 10.0 ? 2 : value < 100.0 ? 1 : 0;
    // Truncate rather than round up into a figure of four digits.
    double scale = pow(10.0, decimals);
    value = floor(value * scale) / scale;
    ZvDoubleToTextN(number, 64, value, decimals, TRUE);
    return ZvComposeStr(buffer, cch, records[unit], number);
}

namespace {
int byteSizeText(ULONGLONG size, wchar_t *buffer, const wchar_t *const *formats)
{
    if (!buffer)
        return 0;
    int n = 0;
    if (size < 1024)
        ZvCchPrintF(buffer, 32, &n, formats[0], (int)size);
    else if (size < 0xFA000)
        ZvCchPrintF(buffer, 32, &n, formats[1], (double)size / 1024.0);
    else if (size < 0x3D090000)
        ZvCchPrintF(buffer, 32, &n, formats[2], (double)size / 1024000.0);
    else
        ZvCchPrintF(buffer, 32, &n, formats[3], (double)size / 1024000000.0);
    return n;
}
} // namespace

int ZvGetByteSizeText(ULONGLONG size, wchar_t *buffer)
{
    static const wchar_t *const formats[] = {L"%d", L"$.2fKB", L"$.2fMB", L"$.2fGB"};
    return byteSizeText(size, buffer, formats);
}

int ZvGetByteSizeTextWithSpace(ULONGLONG size, wchar_t *buffer)
{
    static const wchar_t *const formats[] = {L"%d", L"$.2f KB", L"$.2f MB", L"$.2f GB"};
    return byteSizeText(size, buffer, formats);
}

int ZvGetByteSizeText2(ULONGLONG size, wchar_t *buffer)
{
    static const wchar_t *const formats[] = {L"%d bytes", L"$.2f KB", L"$.2f MB", L"$.2f GB"};
    return byteSizeText(size, buffer, formats);
}

// --- Parsing tokens -------------------------------------------------------------

namespace {

template <typename T>
T tokenValue(const wchar_t *text, const wchar_t **end, unsigned base, bool *noNumber)
{
    const bool sign = std::numeric_limits<T>::is_signed;
    const ULONGLONG maxPositive = (ULONGLONG)std::numeric_limits<T>::max();
    const ULONGLONG maxNegative = sign ? 0ull - (ULONGLONG)(LONGLONG)std::numeric_limits<T>::min() : 0;
    Parsed r = parseInteger(text, sign, base, maxPositive, maxNegative);
    storeEnd(end, r.end);
    if (noNumber)
        *noNumber = useDefault(r, text);
    return r.negative ? (T)(0ull - r.magnitude) : (T)r.magnitude;
}

template <typename T>
T tokenValueEx(const wchar_t *text, const wchar_t **end, unsigned base, T minimum, T maximum, T defaultValue)
{
    bool noNumber;
    T v = tokenValue<T>(text, end, base, &noNumber);
    return clampValue(noNumber ? defaultValue : v, minimum, maximum);
}

} // namespace

DWORD ZvTextToDWordToken(const wchar_t *text, const wchar_t **end)
{
    return tokenValue<DWORD>(text, end, 10, nullptr);
}

LONG ZvTextToLongToken(const wchar_t *text, const wchar_t **end)
{
    return tokenValue<LONG>(text, end, 10, nullptr);
}

LONGLONG ZvTextToLongLongToken(const wchar_t *text, const wchar_t **end)
{
    return tokenValue<LONGLONG>(text, end, 10, nullptr);
}

ULONGLONG ZvTextToDWordLongToken(const wchar_t *text, const wchar_t **end)
{
    return tokenValue<ULONGLONG>(text, end, 10, nullptr);
}

DWORD ZvHexToDWordToken(const wchar_t *text, const wchar_t **end)
{
    return tokenValue<DWORD>(text, end, 16, nullptr);
}

ULONGLONG ZvHexToDWordLongToken(const wchar_t *text, const wchar_t **end)
{
    return tokenValue<ULONGLONG>(text, end, 16, nullptr);
}

double ZvTextToDoubleToken(const wchar_t *text, const wchar_t **end)
{
    bool any;
    return parseDouble(text, end, &any);
}

DWORD ZvTextToDWordTokenEx(const wchar_t *text, const wchar_t **end, DWORD minimum, DWORD maximum,
                           DWORD defaultValue)
{
    return tokenValueEx<DWORD>(text, end, 10, minimum, maximum, defaultValue);
}

LONG ZvTextToLongTokenEx(const wchar_t *text, const wchar_t **end, LONG minimum, LONG maximum,
                         LONG defaultValue)
{
    return tokenValueEx<LONG>(text, end, 10, minimum, maximum, defaultValue);
}

LONGLONG ZvTextToLongLongTokenEx(const wchar_t *text, const wchar_t **end, LONGLONG minimum, LONGLONG maximum,
                                 LONGLONG defaultValue)
{
    return tokenValueEx<LONGLONG>(text, end, 10, minimum, maximum, defaultValue);
}

ULONGLONG ZvTextToDWordLongTokenEx(const wchar_t *text, const wchar_t **end, ULONGLONG minimum,
                                   ULONGLONG maximum, ULONGLONG defaultValue)
{
    return tokenValueEx<ULONGLONG>(text, end, 10, minimum, maximum, defaultValue);
}

DWORD ZvHexToDWordTokenEx(const wchar_t *text, const wchar_t **end, DWORD minimum, DWORD maximum,
                          DWORD defaultValue)
{
    return tokenValueEx<DWORD>(text, end, 16, minimum, maximum, defaultValue);
}

ULONGLONG ZvHexToDWordLongTokenEx(const wchar_t *text, const wchar_t **end, ULONGLONG minimum,
                                  ULONGLONG maximum, ULONGLONG defaultValue)
{
    return tokenValueEx<ULONGLONG>(text, end, 16, minimum, maximum, defaultValue);
}

double ZvTextToDoubleTokenEx(const wchar_t *text, const wchar_t **end, double minimum, double maximum,
                             double defaultValue)
{
    bool any;
    double v = parseDouble(text, end, &any);
    if ((!any && (!text || *skipBlanks(text))) || v != v)
        v = defaultValue;
    return clampValue(v, minimum, maximum);
}

// --- Colours ---------------------------------------------------------------------

COLORREF ZvTextToColorrefToken(const wchar_t *text, const wchar_t **end)
{
    storeEnd(end, text);
    if (!text)
        return 0;
    const wchar_t *p = skipBlanks(text);
    if (*p == L'#') {
        const wchar_t *q = p + 1;
        ULONGLONG rgb = 0;
        readUnsigned(q, 16, 0xFFFFFF, &rgb);
        if (q - p != 7)
            return 0;
        storeEnd(end, stepOver(q));
        return RGB((rgb >> 16) & 0xFF, (rgb >> 8) & 0xFF, rgb & 0xFF);
    }
    if (p[0] == L'0' && (p[1] == L'x' || p[1] == L'X')) {
        const wchar_t *stop;
        DWORD v = ZvHexToDWordToken(p, &stop);
        storeEnd(end, stop);
        return v & 0xFFFFFF;
    }
    // "r,g,b" or "r g b"
    DWORD parts[3] = {0, 0, 0};
    const wchar_t *q = p;
    for (int i = 0; i < 3; i++) {
        Parsed r = parseInteger(q, false, 10, 255, 0);
        if (!r.any)
            return 0;
        parts[i] = (DWORD)r.magnitude;
        q = r.end;
    }
    storeEnd(end, q);
    return RGB(parts[0], parts[1], parts[2]);
}

COLORREF ZvTextToColorref(const wchar_t *text)
{
    return ZvTextToColorrefToken(text, nullptr);
}

int ZvColorrefToText(COLORREF color, wchar_t *buffer)
{
    if (!buffer)
        return 0;
    int n = 0;
    ZvCchPrintF(buffer, 12, &n, L"%u,%u,%u", GetRValue(color), GetGValue(color), GetBValue(color));
    return n;
}

wchar_t *ZvFourCCToString(DWORD fourcc, wchar_t *buffer)
{
    if (!buffer)
        return nullptr;
    for (int i = 0; i < 4; i++) {
        unsigned char c = (unsigned char)(fourcc >> (8 * i));
        buffer[i] = (c >= 32 && c < 127) ? (wchar_t)c : L'.';
    }
    buffer[4] = 0;
    return buffer;
}
