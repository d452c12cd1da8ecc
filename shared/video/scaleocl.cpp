// The scalers' rows on an OpenCL device: one work item a destination pixel,
// the plain form's taps, weights and sums in its order (float sums unfused;
// a phase over 256 as an exact product, since OpenCL may round a division
// loosely), so that results equal it bit for bit.
#include "video/opencl.h"
#include "video/scalerows.h"
#include <stdlib.h>
#include <string.h>

namespace zvocl {

const char kScaleName[] = "k91d0b7e4";

const char kScaleSource[] = R"CL(
#pragma OPENCL FP_CONTRACT OFF
long srcpos(int i, int dstStart, int srcStart, int scale)
{
    return srcStart + ((((long)i * 16384 + 8192 - dstStart) * scale) >> 14) - 8192;
}
int clampi(long v, int lo, int hi) { return (int)(v < lo ? lo : v > hi ? hi : v); }

/* src: source rows top..bottom, columns lo..hi, packed; dst: the written
   pixels packed. g: ch isFloat cubic span lo hi top bottom dstX0 dstY0 n
   dstLeft srcLeft scaleX dstTop srcTop scaleY */
__kernel void k91d0b7e4(__global const uchar *src, __global uchar *dst, __constant int *g,
                        __constant int *cw, __constant float *cf)
{
    int x = get_global_id(0), r = get_global_id(1);
    if (x >= g[10])
        return;
    int ch = g[0], isFloat = g[1], cubic = g[2], taps = cubic ? 4 : 2, span = g[3];
    long sy = srcpos(g[9] + r, g[14], g[15], g[16]), sx = srcpos(g[8] + x, g[11], g[12], g[13]);
    int iy = (int)(sy >> 14) - cubic, fy = (int)((sy & 16383) >> 6);
    int ix = (int)(sx >> 14) - cubic, fx = (int)((sx & 16383) >> 6);
    int row[4], col[4], wy[4], wx[4];
    float fwy[4], fwx[4];
    for (int k = 0; k < taps; ++k) {
        row[k] = clampi(iy + k, g[6], g[7]) - g[6];
        col[k] = clampi(ix + k, g[4], g[5]) - g[4];
        wy[k] = cubic ? cw[fy * 4 + k] : (k ? fy : 256 - fy);
        wx[k] = cubic ? cw[fx * 4 + k] : (k ? fx : 256 - fx);
        fwy[k] = cubic ? cf[fy * 4 + k] : (k ? fy * (1.f / 256) : 1.f - fy * (1.f / 256));
        fwx[k] = cubic ? cf[fx * 4 + k] : (k ? fx * (1.f / 256) : 1.f - fx * (1.f / 256));
    }
    for (int c = 0; c < ch; ++c) {
        if (isFloat) {
            __global const float *s = (__global const float *)src;
            float v = 0.f;
            for (int kx = 0; kx < taps; ++kx) {
                float a = 0.f;
                for (int ky = 0; ky < taps; ++ky)
                    a += fwy[ky] * s[((long)row[ky] * span + col[kx]) * 4 + c];
                v += fwx[kx] * a;
            }
            ((__global float *)dst)[((long)r * g[10] + x) * 4 + c] = v;
            continue;
        }
        long v = 0;
        for (int kx = 0; kx < taps; ++kx) {
            int a = 0;
            for (int ky = 0; ky < taps; ++ky)
                a += wy[ky] * src[((long)row[ky] * span + col[kx]) * ch + c];
            v += (long)wx[kx] * a;
        }
        int sh = cubic ? 24 : 16;
        v = (v + ((long)1 << (sh - 1))) >> sh;
        dst[((long)r * g[10] + x) * ch + c] = (uchar)(v < 0 ? 0 : v > 255 ? 255 : v);
    }
}
)CL";

HRESULT ScaleRows(const ZVSUBPIXELPARAM &p, bool cubic, void *kernel)
{
    const int ch = zvscale::Channels(p.type), isFloat = p.type == ZVPT_RGBAF, bpp = p.bytesPerPixel;
    const int lo = p.srcRect.left >> 14, hi = (p.srcRect.right - 1) >> 14;
    const int top = p.srcRect.top >> 14, bottom = (p.srcRect.bottom - 1) >> 14;
    const int span = hi - lo + 1, n = p.dstX1 - p.dstX0, rows = p.dstY1 - p.dstY0;
    int g[17] = {ch, isFloat, cubic, span, lo, hi, top, bottom, p.dstX0, p.dstY0, n, p.dstRect.left,
                 p.srcRect.left, p.scaleX, p.dstRect.top, p.srcRect.top, p.scaleY};
    const zvscale::CubicTable &ct = zvscale::Cubic();
    int cw[256 * 4];
    for (int i = 0; i < 256 * 4; ++i)
        cw[i] = ct.w[i / 4][i % 4];
    // the sampled source rows, then the written pixels, packed
    size_t inRow = (size_t)span * bpp, outRow = (size_t)n * bpp;
    size_t inBytes = inRow * (bottom - top + 1), outBytes = outRow * rows;
    BYTE *block = (BYTE *)malloc(inBytes > outBytes ? inBytes : outBytes);
    if (!block)
        return E_OUTOFMEMORY;
    for (int r = top; r <= bottom; ++r)
        memcpy(block + inRow * (r - top), p.srcTop + p.srcStep * r + (LONG_PTR)lo * bpp, inRow);
    Buffers b;
    cl_mem ms = b.Add(CL_MEM_READ_ONLY, inBytes, block), md = b.Add(CL_MEM_WRITE_ONLY, outBytes, nullptr);
    cl_mem mg = b.Add(CL_MEM_READ_ONLY, sizeof(g), g), mw = b.Add(CL_MEM_READ_ONLY, sizeof(cw), cw);
    cl_mem mf = b.Add(CL_MEM_READ_ONLY, sizeof(ct.f), ct.f);
    HRESULT hr = ms && md && mg && mw && mf ? S_OK : E_OUTOFMEMORY;
    const Arg args[] = {{sizeof(cl_mem), &ms}, {sizeof(cl_mem), &md}, {sizeof(cl_mem), &mg}, {sizeof(cl_mem), &mw},
                        {sizeof(cl_mem), &mf}};
    if (SUCCEEDED(hr))
        hr = Run(*(cl_kernel *)kernel, args, 5, (size_t)n, (size_t)rows);
    if (SUCCEEDED(hr))
        hr = Read(md, outBytes, block);
    for (int r = 0; SUCCEEDED(hr) && r < rows; ++r)
        memcpy(p.dstTop + p.dstStep * (p.dstY0 + r) + (LONG_PTR)p.dstX0 * bpp, block + outRow * r, outRow);
    free(block);
    return hr;
}

} // namespace zvocl
