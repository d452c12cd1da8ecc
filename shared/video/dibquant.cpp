// Palette fitting and the broadcast gamut tests.
#include "video/dibrows.h"
#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <vector>

using namespace zvdib;

ZVAPI HRESULT ZvDibCreateColorQuantizer(BYTE **table, const BITMAPINFOHEADER *paletteFrame)
{
    if (!table)
        return E_POINTER;
    *table = nullptr;
    if (!paletteFrame)
        return E_INVALIDARG;
    int count = ZvDibPaletteCount(paletteFrame);
    if (count < 1)
        return E_INVALIDARG;
    if (count > 256)
        count = 256;
    const RGBQUAD *pal = (const RGBQUAD *)((const BYTE *)paletteFrame + paletteFrame->biSize);
    BYTE *t = (BYTE *)malloc(32768);
    if (!t)
        return E_OUTOFMEMORY;
    std::vector<bool> filled(32768, false);
    std::vector<int> frontier, next;
    for (int i = 0; i < count; ++i) {
        int cell = (pal[i].rgbRed >> 3) << 10 | (pal[i].rgbGreen >> 3) << 5 | pal[i].rgbBlue >> 3;
        if (!filled[cell]) {   // the first colour in a cell wins
            filled[cell] = true;
            t[cell] = (BYTE)i;
            frontier.push_back(cell);
        }
    }
    int done = (int)frontier.size();
    // grow the filled region one step at a time along the three axes
    while (!frontier.empty() && done < 32768) {
        next.clear();
        for (int cell : frontier) {
            int r = cell >> 10, g = cell >> 5 & 31, b = cell & 31;
            const int nb[6][3] = {{r - 1, g, b}, {r + 1, g, b}, {r, g - 1, b}, {r, g + 1, b}, {r, g, b - 1}, {r, g, b + 1}};
            for (auto &n : nb) {
                if ((unsigned)n[0] > 31 || (unsigned)n[1] > 31 || (unsigned)n[2] > 31)
                    continue;
                int c = n[0] << 10 | n[1] << 5 | n[2];
                if (!filled[c]) {
                    filled[c] = true;
                    t[c] = t[cell];
                    next.push_back(c);
                    ++done;
                }
            }
        }
        frontier.swap(next);
    }
    *table = t;
    return S_OK;
}

ZVAPI void ZvDibFreeColorQuantizer(BYTE *table)
{
    free(table);
}

ZVAPI HRESULT ZvDibQuantizePalette(const BITMAPINFOHEADER *src, const void *srcPixels,
                                   const BITMAPINFOHEADER *dst, void *dstPixels, int paletteSize)
{
    if (!src || !dst)
        return E_POINTER;
    ZVPIXELTYPE st = ZvGetPixelType(src);
    if (ZvGetPixelType(dst) != ZVPT_PAL8 || !CanRead(st))
        return E_NOTIMPL;
    if (src->biWidth != dst->biWidth || abs(src->biHeight) != abs(dst->biHeight) || paletteSize < 1)
        return E_INVALIDARG;
    BYTE *table;
    HRESULT hr = ZvDibCreateColorQuantizer(&table, dst);
    if (FAILED(hr))
        return hr;
    BYTE *stop, *dtop;
    LONG_PTR sstep, dstep;
    Rows(src, srcPixels, 0, &stop, &sstep);
    Rows(dst, dstPixels, 0, &dtop, &dstep);
    int w = src->biWidth, h = abs(src->biHeight);
    std::vector<DWORD> row(w);
    const RGBQUAD *pal = (const RGBQUAD *)((const BYTE *)src + src->biSize);
    for (int y = 0; y < h; ++y) {
        ToBGRA(st, stop + sstep * y, 0, w, pal, ZvDibPaletteCount(src), row.data());
        BYTE *out = dtop + dstep * y;
        for (int x = 0; x < w; ++x) {
            DWORD c = row[x];
            BYTE idx = table[(c >> 19 & 31) << 10 | (c >> 11 & 31) << 5 | (c >> 3 & 31)];
            out[x] = idx < paletteSize ? idx : (BYTE)(paletteSize - 1);
        }
    }
    free(table);
    return S_OK;
}

namespace {

float Encode(float v)
{
    return v < 0.018f ? 4.5f * v : 1.099f * powf(v, 0.45f) - 0.099f;
}

float Decode(float v)
{
    return v < 0.081f ? v / 4.5f : powf((v + 0.099f) / 1.099f, 1.f / 0.45f);
}

enum Space { YIQ, NTSC_YUV, PAL_YUV };

// bgr: blue, green, red, linear 0 to 1. TRUE when outside; inside gets the
// colour with its chroma pulled in to the limit.
BOOL Check(Space s, const float bgr[3], float *inside)
{
    float b = Encode(bgr[0]), g = Encode(bgr[1]), r = Encode(bgr[2]);
    float y = 0.114f * b + 0.587f * g + 0.299f * r;
    float c1, c2;
    if (s == YIQ) {
        c1 = 0.595879f * r - 0.274133f * g - 0.321746f * b;
        c2 = 0.211205f * r - 0.523083f * g + 0.311878f * b;
    } else {
        c1 = 0.492111f * (b - y);
        c2 = 0.877283f * (r - y);
    }
    float limit = s == PAL_YUV ? 1.3333333f - y : 1.2162162f - y;
    float mag2 = c1 * c1 + c2 * c2;
    BOOL out = mag2 > limit * limit;
    if (inside) {
        // a hair inside the limit, so that the result tests inside again
        float k = out && mag2 > 0 ? (limit > 0 ? 0.999f * limit / sqrtf(mag2) : 0.f) : 1.f;
        float e[3] = {y + (b - y) * k, y + (g - y) * k, y + (r - y) * k};
        for (int i = 0; i < 3; ++i)
            inside[i] = Decode(e[i] < 0 ? 0 : e[i] > 1 ? 1 : e[i]);
    }
    return out;
}

} // namespace

ZVAPI BOOL HotCheckNTSCYIQ(const float c[3]) { return Check(YIQ, c, nullptr); }
ZVAPI BOOL HotCheckNTSCYUV(const float c[3]) { return Check(NTSC_YUV, c, nullptr); }
ZVAPI BOOL HotCheckPALYUV(const float c[3]) { return Check(PAL_YUV, c, nullptr); }
ZVAPI BOOL HotCheckNTSCYIQReturn(const float c[3], float in[3]) { return Check(YIQ, c, in); }
ZVAPI BOOL HotCheckNTSCYUVReturn(const float c[3], float in[3]) { return Check(NTSC_YUV, c, in); }
ZVAPI BOOL HotCheckPALYUVReturn(const float c[3], float in[3]) { return Check(PAL_YUV, c, in); }
