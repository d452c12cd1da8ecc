// Bilinear and bicubic scaling with 14-bit fixed-point positions. Separable:
// each destination row first blends its source rows into a row of 32-bit
// sums, then each pixel blends along that row. Samples beyond the source
// rectangle repeat its edge pixels.
#include "video/scale.h"
#include "video/dibrows.h"
#include "video/scalerows.h"
#include "video/yuvrows.h"
#include <math.h>
#include <stdlib.h>
#include <string.h>

namespace {

const LONG ONE = ZVSUBPIXEL_ONE;

RECT ClipFixed(const RECT *r, int w, int h)
{
    RECT f = {0, 0, (LONG)w * ONE, (LONG)h * ONE};
    if (!r)
        return f;
    RECT c = {r->left > 0 ? r->left : 0, r->top > 0 ? r->top : 0, r->right < f.right ? r->right : f.right,
              r->bottom < f.bottom ? r->bottom : f.bottom};
    return c;
}

struct Job {
    const ZVSUBPIXELPARAM *p;
    bool cubic;
    int ch;
    int lo, hi;   // source pixel columns that may be sampled
    int top, bottom;
    // AVX2 form (four 8-bit channels): per destination column its taps'
    // sample offsets into the row of sums and their weights
    const int *hcol, *hw;
};

// Source position (fixed point) of the centre of destination pixel i.
inline int64_t SrcPos(int i, LONG dstStart, LONG srcStart, LONG scale)
{
    return srcStart + ((((int64_t)i * ONE + ONE / 2 - dstStart) * scale) >> 14) - ONE / 2;
}

inline int ClampI(int64_t v, int lo, int hi)
{
    return (int)(v < lo ? lo : v > hi ? hi : v);
}

void RunRows(void *ctx, int first, int end)
{
    const Job &j = *(const Job *)ctx;
    const ZVSUBPIXELPARAM &p = *j.p;
    const int ch = j.ch, span = j.hi - j.lo + 1, taps = j.cubic ? 4 : 2;
    const bool isFloat = p.type == ZVPT_RGBAF;
    void *mem = malloc((size_t)span * ch * (isFloat ? sizeof(float) : sizeof(int32_t)));
    if (!mem)
        return;
    int32_t *acc = (int32_t *)mem;
    float *facc = (float *)mem;
    const zvscale::CubicTable &ct = zvscale::Cubic();
    for (int r = first; r < end; ++r) {
        int dy = p.dstY0 + r;
        int64_t sy = SrcPos(dy, p.dstRect.top, p.srcRect.top, p.scaleY);
        int iy = (int)(sy >> 14) - (j.cubic ? 1 : 0), fy = (int)((sy & (ONE - 1)) >> 6);
        int wy[4];
        float fwy[4];
        for (int k = 0; k < taps; ++k) {
            wy[k] = j.cubic ? ct.w[fy][k] : (k ? fy : 256 - fy);
            fwy[k] = j.cubic ? ct.f[fy][k] : (k ? fy / 256.f : 1.f - fy / 256.f);
        }
        BYTE *out = p.dstTop + p.dstStep * dy;
        if (j.hcol) {
            const BYTE *rows[4];
            for (int k = 0; k < taps; ++k)
                rows[k] = p.srcTop + p.srcStep * ClampI(iy + k, j.top, j.bottom) + j.lo * ch;
            zvscale::VerticalAVX2(rows, wy, taps, span * ch, acc);
            zvscale::HorizontalAVX2(acc, j.hcol, j.hw, taps, p.dstX1 - p.dstX0, j.cubic ? 24 : 16,
                                    out + (LONG_PTR)p.dstX0 * ch);
            continue;
        }
        // vertical pass over the sampled columns
        if (isFloat) {
            memset(facc, 0, sizeof(float) * span * ch);
            for (int k = 0; k < taps; ++k) {
                const float *s = (const float *)(p.srcTop + p.srcStep * ClampI(iy + k, j.top, j.bottom)) + j.lo * ch;
                for (int i = 0; i < span * ch; ++i)
                    facc[i] += fwy[k] * s[i];
            }
        } else {
            memset(acc, 0, sizeof(int32_t) * span * ch);
            for (int k = 0; k < taps; ++k) {
                const BYTE *s = p.srcTop + p.srcStep * ClampI(iy + k, j.top, j.bottom) + j.lo * ch;
                for (int i = 0; i < span * ch; ++i)
                    acc[i] += wy[k] * s[i];
            }
        }
        for (int dx = p.dstX0; dx < p.dstX1; ++dx) {
            int64_t sx = SrcPos(dx, p.dstRect.left, p.srcRect.left, p.scaleX);
            int ix = (int)(sx >> 14) - (j.cubic ? 1 : 0), fx = (int)((sx & (ONE - 1)) >> 6);
            int col[4];
            for (int k = 0; k < taps; ++k)
                col[k] = ClampI(ix + k, j.lo, j.hi) - j.lo;
            for (int c = 0; c < ch; ++c) {
                if (isFloat) {
                    float v = 0;
                    for (int k = 0; k < taps; ++k)
                        v += (j.cubic ? ct.f[fx][k] : (k ? fx / 256.f : 1.f - fx / 256.f)) * facc[col[k] * ch + c];
                    ((float *)out)[dx * ch + c] = v;
                    continue;
                }
                int64_t v = 0;
                for (int k = 0; k < taps; ++k)
                    v += (int64_t)(j.cubic ? ct.w[fx][k] : (k ? fx : 256 - fx)) * acc[col[k] * ch + c];
                int sh = j.cubic ? 24 : 16;
                v = (v + ((int64_t)1 << (sh - 1))) >> sh;
                out[dx * ch + c] = (BYTE)(v < 0 ? 0 : v > 255 ? 255 : v);
            }
        }
    }
    free(mem);
}

// The plain form's filtered rows: workers over ranges of rows.
HRESULT PlainRows(const ZVSUBPIXELPARAM &p, bool cubic, void *)
{
    ZVPIXELTYPE t = p.type;
    Job j = {&p, cubic, zvscale::Channels(t), 0, 0, 0, 0, nullptr, nullptr};
    j.lo = p.srcRect.left >> 14;
    j.hi = (p.srcRect.right - 1) >> 14;
    j.top = p.srcRect.top >> 14;
    j.bottom = (p.srcRect.bottom - 1) >> 14;
    int *table = nullptr;
    const int n = p.dstX1 - p.dstX0, taps = cubic ? 4 : 2;
    if ((t == ZVPT_BGRA32 || t == ZVPT_RGBA32) && zvyuv::UseAvx2(zvyuv::CpuWord()) &&
        (table = (int *)malloc(sizeof(int) * 2 * taps * (size_t)n)) != nullptr) {
        // the columns' taps once per call rather than once per row
        const zvscale::CubicTable &ct = zvscale::Cubic();
        for (int x = 0; x < n; ++x) {
            int64_t sx = SrcPos(p.dstX0 + x, p.dstRect.left, p.srcRect.left, p.scaleX);
            int ix = (int)(sx >> 14) - (cubic ? 1 : 0), fx = (int)((sx & (ONE - 1)) >> 6);
            for (int k = 0; k < taps; ++k) {
                table[x * taps + k] = (ClampI(ix + k, j.lo, j.hi) - j.lo) * 4;
                table[(n + x) * taps + k] = cubic ? ct.w[fx][k] : (k ? fx : 256 - fx);
            }
        }
        j.hcol = table;
        j.hw = table + n * taps;
    }
    zvyuv::ForRanges(p.dstY1 - p.dstY0, p.threads, (LONGLONG)n * taps, RunRows, &j);
    free(table);
    return S_OK;
}

} // namespace

namespace zvscale {

int Channels(ZVPIXELTYPE t)
{
    switch (t) {
    case ZVPT_GREY8: return 1;
    case ZVPT_BGR24: return 3;
    case ZVPT_BGRA32: case ZVPT_RGBA32: case ZVPT_RGBAF: return 4;
    }
    return 0;
}

CubicTable::CubicTable()
{
    for (int i = 0; i < 256; ++i) {
        double t = i / 256.0, t2 = t * t, t3 = t2 * t;
        double c[4] = {-0.5 * t3 + t2 - 0.5 * t, 1.5 * t3 - 2.5 * t2 + 1, -1.5 * t3 + 2 * t2 + 0.5 * t,
                       0.5 * t3 - 0.5 * t2};
        int sum = 0;
        for (int k = 0; k < 4; ++k) {
            w[i][k] = (int16_t)lround(c[k] * 4096);
            f[i][k] = (float)c[k];
            sum += w[i][k];
        }
        w[i][1] += (int16_t)(4096 - sum);
    }
}

const CubicTable &Cubic()
{
    static const CubicTable t;
    return t;
}

HRESULT Scale(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride, const RECT *srcRect,
              const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *dstRect, bool fixed,
              bool cubic, ScaleRows rows, void *ctx)
{
    if (!src || !dst)
        return E_POINTER;
    ZVPIXELTYPE t = ZvGetPixelType(src);
    if (!Channels(t) || ZvGetPixelType(dst) != t)
        return E_NOTIMPL;
    RECT sr, dr;
    if (!fixed) {
        if (srcRect)
            sr = {srcRect->left * ONE, srcRect->top * ONE, srcRect->right * ONE, srcRect->bottom * ONE};
        if (dstRect)
            dr = {dstRect->left * ONE, dstRect->top * ONE, dstRect->right * ONE, dstRect->bottom * ONE};
        srcRect = srcRect ? &sr : nullptr;
        dstRect = dstRect ? &dr : nullptr;
    }
    ZVSUBPIXELPARAM p;
    if (!ZvPrepareSubpixelParam(&p, src, srcPixels, srcStride, srcRect, dst, dstPixels, dstStride, dstRect))
        return S_OK;
    int bpp = p.bytesPerPixel;
    // 1:1 at whole positions: no filtering
    if (p.scaleX == ONE && p.scaleY == ONE && !((p.srcRect.left | p.srcRect.top | p.dstRect.left | p.dstRect.top) &
                                                 (ONE - 1))) {
        int sx = p.srcRect.left >> 14, sy = p.srcRect.top >> 14;
        int dx = p.dstRect.left >> 14, dy = p.dstRect.top >> 14;
        int w = p.dstX1 - p.dstX0, n = p.dstY1 - p.dstY0;
        for (int r = 0; r < n; ++r)
            memmove(p.dstTop + p.dstStep * (dy + r) + (LONG_PTR)dx * bpp,
                    p.srcTop + p.srcStep * (sy + r) + (LONG_PTR)sx * bpp, (size_t)w * bpp);
        return S_OK;
    }
    return rows(p, cubic, ctx);
}

} // namespace zvscale

ZVAPI int ZvPrepareSubpixelParam(ZVSUBPIXELPARAM *p, const BITMAPINFOHEADER *src, const void *srcPixels,
                                 int srcStride, const RECT *srcRect, const BITMAPINFOHEADER *dst, void *dstPixels,
                                 int dstStride, const RECT *dstRect)
{
    if (!p || !src || !dst)
        return 0;
    memset(p, 0, sizeof(*p));
    int sw = src->biWidth, sh = abs(src->biHeight), dw = dst->biWidth, dh = abs(dst->biHeight);
    if (sw < 1 || sh < 1 || dw < 1 || dh < 1 || sw > 65535 || dw > 65535 || sh > 65535 || dh > 65535)
        return 0;
    p->type = ZvGetPixelType(src);
    p->bytesPerPixel = src->biBitCount / 8;
    p->srcRect = ClipFixed(srcRect, sw, sh);
    p->dstRect = ClipFixed(dstRect, dw, dh);
    const RECT &s = p->srcRect, &d = p->dstRect;
    if (s.right - s.left < 1024 || s.bottom - s.top < 1024 || d.right - d.left < 1024 || d.bottom - d.top < 1024)
        return 0;
    p->scaleX = (LONG)(((int64_t)(s.right - s.left) << 14) / (d.right - d.left));
    p->scaleY = (LONG)(((int64_t)(s.bottom - s.top) << 14) / (d.bottom - d.top));
    p->dstX0 = (d.left + ONE / 2 - 1) >> 14;
    p->dstX1 = (d.right + ONE / 2 - 1) >> 14;
    p->dstY0 = (d.top + ONE / 2 - 1) >> 14;
    p->dstY1 = (d.bottom + ONE / 2 - 1) >> 14;
    if (p->dstX1 <= p->dstX0 || p->dstY1 <= p->dstY0)
        return 0;
    BYTE *top;
    zvdib::Rows(src, srcPixels, srcStride, &top, &p->srcStep);
    p->srcTop = top;
    zvdib::Rows(dst, dstPixels, dstStride, &p->dstTop, &p->dstStep);
    p->srcWidth = sw;
    p->srcHeight = sh;
    return 1;
}

ZVAPI HRESULT ZvDibScale_Bilinear(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                                  const RECT *srcRect, const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride,
                                  const RECT *dstRect, DWORD)
{
    return zvscale::Scale(src, srcPixels, srcStride, srcRect, dst, dstPixels, dstStride, dstRect, false, false,
                          PlainRows, nullptr);
}
ZVAPI HRESULT ZvDibScale_BiCubic(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                                 const RECT *srcRect, const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride,
                                 const RECT *dstRect, DWORD)
{
    return zvscale::Scale(src, srcPixels, srcStride, srcRect, dst, dstPixels, dstStride, dstRect, false, true,
                          PlainRows, nullptr);
}
ZVAPI HRESULT ZvDibScale_BilinearSubPixel(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                                          const RECT *srcRect, const BITMAPINFOHEADER *dst, void *dstPixels,
                                          int dstStride, const RECT *dstRect, DWORD)
{
    return zvscale::Scale(src, srcPixels, srcStride, srcRect, dst, dstPixels, dstStride, dstRect, true, false,
                          PlainRows, nullptr);
}
ZVAPI HRESULT ZvDibScale_BiCubicSubPixel(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                                         const RECT *srcRect, const BITMAPINFOHEADER *dst, void *dstPixels,
                                         int dstStride, const RECT *dstRect, DWORD)
{
    return zvscale::Scale(src, srcPixels, srcStride, srcRect, dst, dstPixels, dstStride, dstRect, true, true,
                          PlainRows, nullptr);
}
