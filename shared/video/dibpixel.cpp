// Pixels of the RGB types one at a time and as rows of 8-bit BGRA, the
// common ground of set, fill, fade and the type conversions of ZvDibCopy.
#include "video/dibrows.h"
#include <string.h>

namespace zvdib {

namespace {

inline BYTE Expand5(DWORD v) { return (BYTE)((v << 3) | (v >> 2)); }
inline BYTE Expand6(DWORD v) { return (BYTE)((v << 2) | (v >> 4)); }
inline BYTE Expand2(DWORD v) { return (BYTE)(v * 85); }
inline float ClampF(float v) { return v < 0.f ? 0.f : v > 1.f ? 1.f : v; }

} // namespace

int BitsOf(ZVPIXELTYPE t)
{
    int bits = 0;
    return SUCCEEDED(ZvPixelTypeToBitAttribs(t, &bits, nullptr, nullptr, nullptr)) ? bits : 0;
}

bool Rows(const BITMAPINFOHEADER *h, const void *pixels, int stride, BYTE **top, LONG_PTR *step)
{
    if (!h || h->biWidth <= 0 || h->biHeight == 0)
        return false;
    BYTE *p = (BYTE *)(pixels ? pixels : ZvDibPixels(h));
    LONG_PTR s = stride ? stride : ZvDibStride(h);
    int rows = h->biHeight < 0 ? -h->biHeight : h->biHeight;
    if (h->biHeight > 0) {
        p += (LONG_PTR)(rows - 1) * s;
        s = -s;
    }
    *top = p;
    *step = s;
    return true;
}

bool CanRead(ZVPIXELTYPE t)
{
    return (t >= 16 && t <= 32 && t != 17 && t != 18 && t != 19) || t == 34;
}

bool CanWrite(ZVPIXELTYPE t)
{
    return t == 20 || (t >= 25 && t <= 32) || t == 34;
}

// A row of the type to BGRA (0xAARRGGBB words); palette types look up pal.
void ToBGRA(ZVPIXELTYPE t, const BYTE *row, int x0, int n, const RGBQUAD *pal, int palCount, DWORD *out)
{
    for (int i = 0; i < n; ++i) {
        int x = x0 + i;
        DWORD c = 0;
        switch (t) {
        case 16: case 23: case 24: {
            int idx = t == 24 ? row[x] : t == 23 ? (row[x >> 1] >> ((x & 1) ? 0 : 4)) & 15
                                                  : (row[x >> 3] >> (7 - (x & 7))) & 1;
            c = idx < palCount ? (ZvVideo_PaletteRGBAFromEntry(&pal[idx]) | 0xFF000000u) : 0xFF000000u;
            break;
        }
        case 20: c = 0xFF000000u | row[x] * 0x010101u; break;
        case 21: c = 0xFF000000u | (((const WORD *)row)[x] >> 8) * 0x010101u; break;
        case 22: {
            float g = ClampF(((const float *)row)[x]);
            c = 0xFF000000u | (DWORD)(g * 255.f + 0.5f) * 0x010101u;
            break;
        }
        case 25: {
            DWORD v = ((const WORD *)row)[x];
            // the top bit is unused in frames that carry no alpha: opaque
            c = 0xFF000000u | (Expand5(v >> 10 & 31) << 16) |
                (Expand5(v >> 5 & 31) << 8) | Expand5(v & 31);
            break;
        }
        case 26: {
            DWORD v = ((const WORD *)row)[x];
            c = 0xFF000000u | (Expand5(v >> 11) << 16) | (Expand6(v >> 5 & 63) << 8) | Expand5(v & 31);
            break;
        }
        case 27: c = 0xFF000000u | (row[3 * x + 2] << 16) | (row[3 * x + 1] << 8) | row[3 * x]; break;
        case 28: memcpy(&c, row + 4 * x, 4); break;
        case 29: {
            const BYTE *q = row + 4 * x;
            c = ((DWORD)q[3] << 24) | (q[0] << 16) | (q[1] << 8) | q[2];
            break;
        }
        case 30: case 34: {
            DWORD v = ((const DWORD *)row)[x];
            DWORD hi = v >> 22 & 255, mid = v >> 12 & 255, lo = v >> 2 & 255;
            DWORD r = t == 30 ? hi : lo, b = t == 30 ? lo : hi;
            c = (Expand2(v >> 30) << 24) | (r << 16) | (mid << 8) | b;
            break;
        }
        case 31: {
            const WORD *q = (const WORD *)row + 4 * x;
            c = ((DWORD)(q[3] >> 8) << 24) | ((q[0] >> 8) << 16) | ((q[1] >> 8) << 8) | (q[2] >> 8);
            break;
        }
        case 32: {
            const float *q = (const float *)row + 4 * x;
            DWORD v[4];
            for (int k = 0; k < 4; ++k)
                v[k] = (DWORD)(ClampF(q[k]) * 255.f + 0.5f);
            c = (v[3] << 24) | (v[0] << 16) | (v[1] << 8) | v[2];
            break;
        }
        }
        out[i] = c;
    }
}

void FromBGRA(ZVPIXELTYPE t, const DWORD *in, int n, BYTE *row, int x0)
{
    for (int i = 0; i < n; ++i) {
        DWORD c = in[i], a = c >> 24, r = c >> 16 & 255, g = c >> 8 & 255, b = c & 255;
        int x = x0 + i;
        switch (t) {
        case 20: row[x] = (BYTE)((r * 77 + g * 150 + b * 29 + 128) >> 8); break;
        case 25: ((WORD *)row)[x] = (WORD)((a >= 128 ? 0x8000 : 0) | (r >> 3) << 10 | (g >> 3) << 5 | b >> 3); break;
        case 26: ((WORD *)row)[x] = (WORD)((r >> 3) << 11 | (g >> 2) << 5 | b >> 3); break;
        case 27: row[3 * x] = (BYTE)b; row[3 * x + 1] = (BYTE)g; row[3 * x + 2] = (BYTE)r; break;
        case 28: memcpy(row + 4 * x, &c, 4); break;
        case 29: {
            BYTE *q = row + 4 * x;
            q[0] = (BYTE)r; q[1] = (BYTE)g; q[2] = (BYTE)b; q[3] = (BYTE)a;
            break;
        }
        case 30: case 34: {
            DWORD r10 = r << 2 | r >> 6, g10 = g << 2 | g >> 6, b10 = b << 2 | b >> 6;
            DWORD hi = t == 30 ? r10 : b10, lo = t == 30 ? b10 : r10;
            ((DWORD *)row)[x] = (a >> 6) << 30 | hi << 20 | g10 << 10 | lo;
            break;
        }
        case 31: {
            WORD *q = (WORD *)row + 4 * x;
            q[0] = (WORD)(r * 257); q[1] = (WORD)(g * 257); q[2] = (WORD)(b * 257); q[3] = (WORD)(a * 257);
            break;
        }
        case 32: {
            float *q = (float *)row + 4 * x;
            q[0] = r / 255.f; q[1] = g / 255.f; q[2] = b / 255.f; q[3] = a / 255.f;
            break;
        }
        }
    }
}

} // namespace zvdib
