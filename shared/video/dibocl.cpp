// OpenCL forms of the frame operations (the copy family): red and blue
// swapped, the fade and the fill in place, the box filter and the scaling
// copy, for the types the plain forms take.
#include "video/dibrows.h"
#include "video/opencl.h"
#include "video/scalerows.h"
#include <stdlib.h>
#include <string.h>

using namespace zvocl;

namespace {

const char *const kNames[] = {"k3b07d5e2", "k8d16c4f0", "k5a2e9c31", "k0f63b8d7", zvocl::kScaleName};
enum { SWAP, FADE, FILL, BOX, SCALE };

const char kSource[] = R"CL(
/* rows packed tightly: w pixels of bpp bytes; channels of size bytes */
__kernel void k3b07d5e2(__global uchar *p, int w, int bpp, int size)
{
    int x = get_global_id(0), r = get_global_id(1);
    if (x >= w)
        return;
    __global uchar *q = p + ((long)r * w + x) * bpp;
    for (int i = 0; i < size; ++i) {
        uchar t = q[i];
        q[i] = q[2 * size + i];
        q[2 * size + i] = t;
    }
}

/* the plain form's single operations in its order, none fused */
#pragma OPENCL FP_CONTRACT OFF
__kernel void k8d16c4f0(__global uchar *p, int w, int channels, int isFloat, int a, float f, uchar4 c4,
                        float4 fc4)
{
    uchar c[4] = {c4.s0, c4.s1, c4.s2, c4.s3};
    float fc[4] = {fc4.s0, fc4.s1, fc4.s2, fc4.s3};
    int x = get_global_id(0), r = get_global_id(1);
    if (x >= w)
        return;
    long at = (long)r * w + x;
    for (int ch = 0; ch < channels; ++ch) {
        if (isFloat) {
            __global float *q = (__global float *)(p + 16 * at) + ch;
            *q += (fc[ch] - *q) * f;
        } else {
            __global uchar *q = p + 4 * at + ch;
            *q = (uchar)(*q + (((c[ch] - *q) * a + 32768) >> 16));
        }
    }
}

/* the bits of mask take pat's: a pixel of bits / 8 bytes, or below 8 bits a
   byte of pixels, those from lo to hi (counted in the block) written */
__kernel void k5a2e9c31(__global uchar *p, int w, int bits, int lo, int hi, uchar16 pat16, uchar16 mask16)
{
    uchar pat[16], mask[16];
    vstore16(pat16, 0, pat);
    vstore16(mask16, 0, mask);
    int x = get_global_id(0), r = get_global_id(1);
    if (x >= w)
        return;
    if (bits >= 8) {
        int bpp = bits / 8;
        __global uchar *q = p + ((long)r * w + x) * bpp;
        for (int i = 0; i < bpp; ++i)
            q[i] = (uchar)((q[i] & ~mask[i]) | (pat[i] & mask[i]));
        return;
    }
    int per = 8 / bits, m = 0;
    for (int s = 0; s < per; ++s)
        if (x * per + s >= lo && x * per + s < hi)
            m |= ((1 << bits) - 1) << ((per - 1 - s) * bits);
    m &= mask[0];
    __global uchar *q = p + (long)r * w + x;
    *q = (uchar)((*q & ~m) | (pat[0] & m));
}

/* src: source rows sy0.. packed, columns lo..hi; dst: the rectangle packed.
   g: ch isFloat rx ry span lo sy0 width height left top rw n; column sums
   down the box, then their sum along it, in the plain form's order */
__kernel void k0f63b8d7(__global const uchar *src, __global uchar *dst, __constant int *g, float inv)
{
    int x = get_global_id(0), y = get_global_id(1);
    if (x >= g[11])
        return;
    int ch = g[0], rx = g[2], ry = g[3], span = g[4], X = g[9] + x, Y = g[10] + y;
    for (int c = 0; c < ch; ++c) {
        float fv = 0.f;
        int v = 0;
        for (int kx = -rx; kx <= rx; ++kx) {
            int col = clamp(X + kx, 0, g[7] - 1) - g[5];
            float fa = 0.f;
            int a = 0;
            for (int ky = -ry; ky <= ry; ++ky) {
                long at = (long)(clamp(Y + ky, 0, g[8] - 1) - g[6]) * span + col;
                if (g[1])
                    fa += ((__global const float *)src)[at * 4 + c];
                else
                    a += src[at * ch + c];
            }
            fv += fa;
            v += a;
        }
        long out = (long)y * g[11] + x;
        if (g[1])
            ((__global float *)dst)[out * 4 + c] = fv * inv;
        else
            dst[out * ch + c] = (uchar)((v + g[12] / 2) / g[12]);
    }
}
)CL";

Family g_copy;

// A frame's rows and rect clipped to it: S_FALSE when nothing is left.
HRESULT Area(const BITMAPINFOHEADER *frame, void *pixels, const RECT *rect, BYTE **top, LONG_PTR *step, RECT *r)
{
    if (!zvdib::Rows(frame, pixels, 0, top, step))
        return E_INVALIDARG;
    return zvdib::ClipRect(frame, rect, r) ? S_OK : S_FALSE;
}

// The scalers of ZvDibCopyOCL: the plain forms' steps, rows on the device.
template <bool Fixed, bool Cubic>
HRESULT DeviceScale(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride, const RECT *srcRect,
                    const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *dstRect, DWORD)
{
    return zvscale::Scale(src, srcPixels, srcStride, srcRect, dst, dstPixels, dstStride, dstRect, Fixed, Cubic,
                          ScaleRows, &g_copy.kernels[SCALE]);
}

} // namespace

ZVAPI HRESULT DibCopy_OpenCL_Initialize(const void *, ZVOPENCLLOG log)
{
    const char *sources[] = {kSource, kScaleSource};
    return Start(&g_copy, sources, 2, kNames, (int)(sizeof kNames / sizeof kNames[0]), log);
}

ZVAPI HRESULT DibCopy_OpenCL_Shutdown()
{
    return Stop(&g_copy);
}

ZVAPI HRESULT ZvDibSwapRB_OCL(const BITMAPINFOHEADER *frame, void *pixels, int stride)
{
    if (!frame)
        return E_INVALIDARG;
    ZVPIXELTYPE t = ZvGetPixelType(frame);
    int size = zvdib::SwapSize(t);
    if (!size)
        return E_NOTIMPL;
    BYTE *top;
    LONG_PTR step;
    if (!zvdib::Rows(frame, pixels, stride, &top, &step))
        return E_INVALIDARG;
    int bpp = zvdib::BitsOf(t) / 8;
    const Arg args[] = {{4, &bpp}, {4, &size}};
    return InPlace(&g_copy, SWAP, top, step, 0, 0, frame->biWidth, abs(frame->biHeight), bpp, args, 2);
}

ZVAPI HRESULT ZvDibFadeToColorOCL(const BITMAPINFOHEADER *frame, void *pixels, const RECT *rect, DWORD color,
                                  DWORD flags, float amount)
{
    zvdib::Fade k;
    HRESULT hr = zvdib::MakeFade(&k, frame, color, flags, amount);
    if (FAILED(hr))
        return hr;
    BYTE *top;
    LONG_PTR step;
    RECT r;
    if ((hr = Area(frame, pixels, rect, &top, &step, &r)) != S_OK)
        return FAILED(hr) ? hr : S_OK;
    int isFloat = k.t == 32, bpp = isFloat ? 16 : 4;
    const Arg args[] = {{4, &k.channels}, {4, &isFloat}, {4, &k.a}, {4, &k.f}, {4, k.c}, {16, k.fc}};
    return InPlace(&g_copy, FADE, top, step, r.left, r.top, r.right - r.left, r.bottom - r.top, bpp, args, 6);
}

ZVAPI HRESULT ZvDibFillRectOCL(const BITMAPINFOHEADER *frame, void *pixels, const RECT *rect, DWORD color)
{
    if (!frame)
        return E_INVALIDARG;
    // the bytes the plain form writes: one pixel (below 8 bits one byte of
    // them) set over zeros and over ones; the bits both agree on are its
    BYTE head[160], a[16] = {}, b[16];
    size_t hs = frame->biSize + (frame->biCompression == BI_BITFIELDS ? 12 : 0);
    if (frame->biSize < sizeof(BITMAPINFOHEADER) || hs > sizeof(head))
        return E_INVALIDARG;
    memcpy(head, frame, hs);
    BITMAPINFOHEADER *one = (BITMAPINFOHEADER *)head;
    int bits = zvdib::BitsOf(ZvGetPixelType(frame));
    one->biWidth = bits > 0 && bits < 8 ? 8 / bits : 1;
    one->biHeight = 1;
    memset(b, 0xFF, sizeof(b));
    HRESULT hr = ZvDibSet(one, a, sizeof(a), nullptr, color);
    if (FAILED(hr) || FAILED(hr = ZvDibSet(one, b, sizeof(b), nullptr, color)))
        return hr;
    BYTE mask[16];
    for (int i = 0; i < 16; ++i)
        mask[i] = (BYTE)~(a[i] ^ b[i]);
    BYTE *top;
    LONG_PTR step;
    RECT r;
    if ((hr = Area(frame, pixels, rect, &top, &step, &r)) != S_OK)
        return FAILED(hr) ? hr : S_OK;
    // below 8 bits the unit is a byte of pixels: lo and hi count from its first
    int per = bits < 8 ? 8 / bits : 1, x0 = r.left / per, x1 = (r.right - 1) / per + 1;
    int lo = r.left - x0 * per, hi = r.right - x0 * per;
    const Arg args[] = {{4, &bits}, {4, &lo}, {4, &hi}, {16, a}, {16, mask}};
    return InPlace(&g_copy, FILL, top, step, x0, r.top, x1 - x0, r.bottom - r.top, bits < 8 ? 1 : bits / 8, args,
                   5);
}

ZVAPI HRESULT ZvDibBoxFilterOCL(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride,
                                const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *rect,
                                int radiusX, int radiusY)
{
    zvdib::Box k;
    HRESULT hr = zvdib::MakeBox(&k, src, srcPixels, srcStride, dst, dstPixels, dstStride, rect, radiusX, radiusY);
    if (FAILED(hr))
        return hr;
    Lock();
    if (!g_copy.program)
        hr = HRESULT_FROM_WIN32(ERROR_INVALID_STATE);
    Unlock();
    if (hr != S_OK)
        return hr == S_FALSE ? S_OK : hr;
    // the source rows the boxes reach, then the rectangle's pixels, packed
    const int sy0 = k.r.top - k.ry > 0 ? k.r.top - k.ry : 0;
    const int sy1 = k.r.bottom - 1 + k.ry < k.h - 1 ? k.r.bottom - 1 + k.ry : k.h - 1;
    const int span = k.hi - k.lo + 1, rw = k.r.right - k.r.left, rh = k.r.bottom - k.r.top;
    size_t inRow = (size_t)span * k.bpp, outRow = (size_t)rw * k.bpp;
    size_t inBytes = inRow * (sy1 - sy0 + 1), outBytes = outRow * rh;
    BYTE *block = (BYTE *)malloc(inBytes > outBytes ? inBytes : outBytes);
    if (!block)
        return E_OUTOFMEMORY;
    for (int r = sy0; r <= sy1; ++r)
        memcpy(block + inRow * (r - sy0), k.srcTop + k.srcStep * r + (LONG_PTR)k.lo * k.bpp, inRow);
    int g[13] = {k.ch, k.isFloat, k.rx, k.ry, span, k.lo, sy0, k.w, k.h, k.r.left, k.r.top, rw, k.n};
    Lock();
    if (g_copy.program) {
        Buffers b;
        cl_mem ms = b.Add(CL_MEM_READ_ONLY, inBytes, block), md = b.Add(CL_MEM_WRITE_ONLY, outBytes, nullptr);
        cl_mem mg = b.Add(CL_MEM_READ_ONLY, sizeof(g), g);
        const Arg args[] = {{sizeof(cl_mem), &ms}, {sizeof(cl_mem), &md}, {sizeof(cl_mem), &mg}, {4, &k.inv}};
        hr = ms && md && mg ? Run(g_copy.kernels[BOX], args, 4, (size_t)rw, (size_t)rh) : E_OUTOFMEMORY;
        if (SUCCEEDED(hr))
            hr = Read(md, outBytes, block);
    } else {
        hr = HRESULT_FROM_WIN32(ERROR_INVALID_STATE);
    }
    Unlock();
    for (int r = 0; SUCCEEDED(hr) && r < rh; ++r)
        memcpy(k.dstTop + k.dstStep * (k.r.top + r) + (LONG_PTR)k.r.left * k.bpp, block + outRow * r, outRow);
    free(block);
    return hr;
}

ZVAPI HRESULT ZvDibCopyOCL(const BITMAPINFOHEADER *src, const void *srcPixels, int srcStride, const RECT *srcRect,
                           const BITMAPINFOHEADER *dst, void *dstPixels, int dstStride, const RECT *dstRect,
                           DWORD flags)
{
    static const zvscale::ScaleFn scalers[4] = {DeviceScale<false, false>, DeviceScale<false, true>,
                                                DeviceScale<true, false>, DeviceScale<true, true>};
    Lock();
    HRESULT hr = g_copy.program ? zvscale::Copy(src, srcPixels, srcStride, srcRect, dst, dstPixels, dstStride,
                                                dstRect, flags, scalers, false)
                                : HRESULT_FROM_WIN32(ERROR_INVALID_STATE);
    Unlock();
    return hr;
}
