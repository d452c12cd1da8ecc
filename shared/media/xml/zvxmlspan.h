// The 8-bit form's scans and copies, inline where the parser calls them:
// the stop sets it passes are constants, so the set's slot is found at
// compile time and no call is made per token.
#pragma once
#include "zvxml.h"
#include <string.h>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// The ANSI code page: a byte-to-character table where it is single-byte,
// else the system's converter. Chosen once per process.
struct ZvXMLAnsiPage {
    UINT cp;
    bool singleByte;
    WCHAR map[256];
    ZvXMLAnsiPage()
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

// Bytes to characters through the page's map; runs of ASCII (which every
// map keeps as it is) widen sixteen at a time. With room past the end (32
// bytes beyond n characters) a last short run is widened whole as well;
// readable is how many bytes from p may be loaded.
inline void ZvXMLWiden(const BYTE *p, size_t n, WCHAR *out, const WCHAR *map, size_t readable, bool roomPast)
{
    size_t i = 0;
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    size_t wide = roomPast ? n : n & ~(size_t)15;
    for (; i < wide && readable - i >= 16; i += 16) {
        __m128i v = _mm_loadu_si128((const __m128i *)(p + i));
        unsigned high = (unsigned)_mm_movemask_epi8(v);
        if (n - i < 16)
            high &= (1u << (n - i)) - 1;
        if (high) {
            for (size_t k = i; k < i + 16 && k < n; k++)
                out[k] = map[p[k]];
        } else {
            _mm_storeu_si128((__m128i *)(out + i), _mm_unpacklo_epi8(v, zero));
            _mm_storeu_si128((__m128i *)(out + i + 8), _mm_unpackhi_epi8(v, zero));
        }
    }
#else
    (void)readable;
    (void)roomPast;
#endif
    for (; i < n; i++)
        out[i] = map[p[i]];
}

// n bytes at a and b the same? Eight at a time, the last eight overlapping.
inline bool ZvXMLSameBytes(const BYTE *a, const BYTE *b, size_t n)
{
    if (n >= 8) {
        unsigned long long x, y;
        for (size_t i = 0; i + 8 < n; i += 8) {
            memcpy(&x, a + i, 8);
            memcpy(&y, b + i, 8);
            if (x != y)
                return false;
        }
        memcpy(&x, a + n - 8, 8);
        memcpy(&y, b + n - 8, 8);
        return x == y;
    }
    if (n >= 4) {
        unsigned x, y, z, w;
        memcpy(&x, a, 4);
        memcpy(&y, b, 4);
        memcpy(&z, a + n - 4, 4);
        memcpy(&w, b + n - 4, 4);
        return x == y && z == w;
    }
    for (size_t i = 0; i < n; i++)
        if (a[i] != b[i])
            return false;
    return true;
}

inline const ZvXMLEncodingUtf8::StopSet &ZvXMLEncodingUtf8::Stops(DWORD stopClasses)
{
    StopSet &s = stops_[(DWORD)(stopClasses * 0x85EBCA6Bu) >> 29];
    return s.classes == stopClasses ? s : FillStops(s, stopClasses);
}

// The first byte from p whose class is in stopClasses, or end. Stop
// classes never include class 0, so bytes from 0x80 never stop.
inline const BYTE *ZvXMLEncodingUtf8::ScanTo(const BYTE *p, const BYTE *end, DWORD stopClasses)
{
#if defined(__SSE2__)
    const DWORD nameStops = ZVXML_CLASSBIT(ZVXMLC_BLANK) | ZVXML_CLASSBIT(ZVXMLC_SLASH) |
                            ZVXML_CLASSBIT(ZVXMLC_GT) | ZVXML_CLASSBIT(ZVXMLC_END);
    if (stopClasses == nameStops) {
        // The end of a name: three compares find the bytes up to a blank,
        // "/" and ">"; the table then passes over controls that are no blanks.
        const __m128i space = _mm_set1_epi8(' '), slash = _mm_set1_epi8('/'), gt = _mm_set1_epi8('>');
        for (; end - p >= 16; p += 16) {
            __m128i v = _mm_loadu_si128((const __m128i *)p);
            __m128i hit = _mm_or_si128(_mm_cmpeq_epi8(_mm_max_epu8(v, space), space),
                                       _mm_or_si128(_mm_cmpeq_epi8(v, slash), _mm_cmpeq_epi8(v, gt)));
            for (unsigned m = (unsigned)_mm_movemask_epi8(hit); m; m &= m - 1)
                if ((stopClasses >> g_zvXMLClasses.c[p[__builtin_ctz(m)]]) & 1)
                    return p + __builtin_ctz(m);
        }
    } else if (end - p >= 16) {
        const StopSet &s = Stops(stopClasses);
        const int n = s.count;
        if (n > 0) {
            const __m128i *want = (const __m128i *)s.pattern;
            if (n == 1) { // most sets: "<", ">", "=" or a quote
                const __m128i one = _mm_loadu_si128(want);
                for (; end - p >= 16; p += 16)
                    if (int m = _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_loadu_si128((const __m128i *)p), one)))
                        return p + __builtin_ctz((unsigned)m);
            }
            for (; end - p >= 16; p += 16) {
                __m128i v = _mm_loadu_si128((const __m128i *)p);
                __m128i hit = _mm_cmpeq_epi8(v, _mm_loadu_si128(want));
                for (int i = 1; i < n; i++)
                    hit = _mm_or_si128(hit, _mm_cmpeq_epi8(v, _mm_loadu_si128(want + i)));
                if (int m = _mm_movemask_epi8(hit))
                    return p + __builtin_ctz((unsigned)m);
            }
        }
    }
#endif
    while (p < end && !((stopClasses >> g_zvXMLClasses.c[*p]) & 1))
        p++;
    return p;
}

inline bool ZvXMLEncodingUtf8::Span(DWORD stopClasses, const BYTE **start, size_t *length)
{
    if (!page_->singleByte)
        return false;
    const BYTE *p = data_ + cursor_;
    size_t n = (size_t)(ScanTo(p, data_ + size_, stopClasses) - p);
    if (n > 0x3FFFFFF0u)
        return false;
    *start = p;
    *length = n;
    return true;
}

inline const WCHAR *ZvXMLEncodingUtf8::Map() const
{
    return page_->singleByte ? page_->map : nullptr;
}
