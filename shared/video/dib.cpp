// Pixel types, frame headers and the frame allocator.
#include "video/dib.h"
#include "video/yuv.h"
#include <string.h>

static_assert(sizeof(BITMAPINFOHEADER) == 40, "frame header is 40 bytes");
static_assert(sizeof(ZVPIXELATTRIBS) == 64, "attribute block is 64 bytes");

namespace {

struct TypeRow {
    ZVPIXELTYPE type;
    int bits;
    DWORD compression;
    BYTE ch[4];
    int planes, shiftX, shiftY, sampleBits, sampleBytes;
};

#define FCC ZVFOURCC
const TypeRow kTypes[] = {
    {16, 1, 0, {8, 8, 8, 0}, 0, 0, 0, 0, 0},
    {17, 1, FCC('Z', 'V', 'G', 'S'), {0, 0, 0, 1}, 0, 0, 0, 0, 0},
    {18, 2, FCC('Z', 'V', 'G', 'S'), {0, 0, 0, 2}, 0, 0, 0, 0, 0},
    {19, 4, FCC('Z', 'V', 'G', 'S'), {0, 0, 0, 4}, 0, 0, 0, 0, 0},
    {20, 8, FCC('Z', 'V', 'G', 'S'), {0, 0, 0, 8}, 0, 0, 0, 0, 0},
    {21, 16, FCC('Z', 'V', 'G', 'S'), {0, 0, 0, 16}, 0, 0, 0, 0, 0},
    {22, 32, FCC('Z', 'V', 'G', 'S'), {0, 0, 0, 32}, 0, 0, 0, 0, 0},
    {23, 4, 0, {8, 8, 8, 0}, 0, 0, 0, 0, 0},
    {24, 8, 0, {8, 8, 8, 0}, 0, 0, 0, 0, 0},
    {25, 16, 0, {5, 5, 5, 1}, 0, 0, 0, 0, 0},
    {26, 16, 3, {5, 6, 5, 0}, 0, 0, 0, 0, 0},
    {27, 24, 0, {8, 8, 8, 0}, 0, 0, 0, 0, 0},
    {28, 32, 0, {8, 8, 8, 8}, 0, 0, 0, 0, 0},
    {29, 32, FCC('Z', 'V', 'D', 'B'), {8, 8, 8, 8}, 0, 0, 0, 0, 0},
    {30, 32, 3, {10, 10, 10, 2}, 0, 0, 0, 0, 0},
    {31, 64, FCC('Z', 'V', 'D', 'B'), {16, 16, 16, 16}, 0, 0, 0, 0, 0},
    {32, 128, FCC('Z', 'V', 'D', 'B'), {32, 32, 32, 32}, 0, 0, 0, 0, 0},
    {34, 32, 3, {10, 10, 10, 2}, 0, 0, 0, 0, 0},
    {64, 16, FCC('U', 'Y', 'V', 'Y'), {0}, 1, 1, 0, 8, 1},
    {65, 16, FCC('Y', 'U', 'Y', 'V'), {0}, 1, 1, 0, 8, 1},
    {66, 12, FCC('Y', '4', '1', 'B'), {0}, 3, 2, 0, 8, 1},
    {67, 12, FCC('I', '4', '2', '0'), {0}, 3, 1, 1, 8, 1},
    {68, 20, FCC('v', '2', '1', '0'), {0}, 1, 1, 0, 10, 4},
    {69, 15, FCC('P', '0', '1', '0'), {0}, 2, 1, 1, 10, 2},
    {70, 15, FCC('P', 'L', '1', '0'), {0}, 2, 1, 1, 10, 2},
    {71, 20, FCC('P', '2', '1', '0'), {0}, 2, 1, 0, 10, 2},
    {72, 20, FCC('P', '2', '1', '6'), {0}, 2, 1, 0, 16, 2},
    {73, 20, FCC('Y', '2', '1', '0'), {0}, 1, 1, 0, 10, 2},
    {74, 30, FCC('P', '4', '1', '0'), {0}, 3, 0, 0, 10, 2},
    {75, 12, FCC('N', 'V', '1', '2'), {0}, 2, 1, 1, 8, 1},
    {76, 12, FCC('Y', 'V', '1', '2'), {0}, 3, 1, 1, 8, 1},
    {77, 16, FCC('Y', 'V', '1', '6'), {0}, 3, 1, 0, 8, 1},
    {78, 46, FCC('A', '4', '1', '0'), {0}, 4, 0, 0, 10, 2},
    {82, 18, FCC('P', '0', '1', '2'), {0}, 2, 1, 1, 12, 2},
    {83, 24, FCC('P', '2', '1', '2'), {0}, 2, 1, 0, 12, 2},
    {84, 36, FCC('P', '4', '1', '2'), {0}, 3, 0, 0, 12, 2},
    {85, 24, FCC('Y', 'V', '2', '4'), {0}, 3, 0, 0, 8, 1},
};

const TypeRow *FindType(ZVPIXELTYPE type)
{
    for (const TypeRow &r : kTypes)
        if (r.type == type)
            return &r;
    return nullptr;
}

const DWORD kMask555[3] = {0x7C00, 0x3E0, 0x1F};
const DWORD kMask565[3] = {0xF800, 0x7E0, 0x1F};
const DWORD kMask888[3] = {0xFF0000, 0xFF00, 0xFF};
const DWORD kMask10[3] = {0x3FF00000, 0xFFC00, 0x3FF};
const DWORD kMask10Low[3] = {0x3FF, 0xFFC00, 0x3FF00000};

bool MasksAre(const DWORD *m, const DWORD *want)
{
    return m[0] == want[0] && m[1] == want[1] && m[2] == want[2];
}

volatile LONG g_frames;
volatile LONGLONG g_imageBytes;

} // namespace

ZVAPI ZVPIXELTYPE ZvGetPixelType(const BITMAPINFOHEADER *h)
{
    if (!h)
        return 0;
    DWORD c = h->biCompression;
    int d = h->biBitCount;
    if (c == 0) {
        switch (d) {
        case 1: return 16;
        case 4: return 23;
        case 8: return 24;
        case 16: return 25;
        case 24: return 27;
        case 32: return 28;
        }
        return 0;
    }
    if (c == 3) {
        const DWORD *m = (const DWORD *)((const BYTE *)h + h->biSize);
        if (d == 16)
            return MasksAre(m, kMask555) ? 25 : MasksAre(m, kMask565) ? 26 : 0;
        if (d == 32)
            return MasksAre(m, kMask888) ? 28 : MasksAre(m, kMask10) ? 30 : MasksAre(m, kMask10Low) ? 34 : 0;
        return 0;
    }
    if (c == ZVFOURCC_GREY) {
        switch (d) {
        case 1: return 17;
        case 2: return 18;
        case 4: return 19;
        case 8: return 20;
        case 16: return 21;
        case 32: return 22;
        }
        return 0;
    }
    if (c == ZVFOURCC_DEEP) {
        switch (d) {
        case 24: return 27;
        case 32: return 29;
        case 64: return 31;
        case 128: return 32;
        }
        return 0;
    }
    // the other names the same layouts go by
    if (c == FCC('I', 'Y', 'U', 'V'))
        return 67;
    if (c == FCC('Y', 'U', 'Y', '2'))
        return 65;
    for (const TypeRow &r : kTypes)
        if (r.type >= 64 && r.compression == c)
            return r.type;
    return 0;
}

ZVAPI HRESULT ZvPixelTypeToBitAttribs(ZVPIXELTYPE type, int *bits, DWORD *compression, ZVPIXELATTRIBS *attribs,
                                      DWORD *masks)
{
    const TypeRow *r = FindType(type);
    if (!r)
        return E_INVALIDARG;
    const DWORD *m = type == 26 ? kMask565 : type == 30 ? kMask10 : type == 34 ? kMask10Low : nullptr;
    if (bits)
        *bits = r->bits;
    if (compression)
        *compression = r->compression;
    if (masks && m)
        memcpy(masks, m, 3 * sizeof(DWORD));
    if (attribs) {
        memset(attribs, 0, sizeof(*attribs));
        attribs->bits = r->bits;
        attribs->compression = r->compression;
        if (m)
            memcpy(attribs->masks, m, sizeof(attribs->masks));
        memcpy(attribs->channelBits, r->ch, 4);
        attribs->isYUV = type >= 64;
        attribs->planes = r->planes;
        attribs->chromaShiftX = r->shiftX;
        attribs->chromaShiftY = r->shiftY;
        attribs->sampleBits = r->sampleBits;
        attribs->sampleBytes = r->sampleBytes;
    }
    return S_OK;
}

ZVAPI int ZvGetPixelBitsPerChannel(ZVPIXELTYPE type, BYTE channels[4])
{
    const TypeRow *r = FindType(type);
    if (!r || type >= 64) {
        if (channels)
            memset(channels, 0, 4);
        return 0;
    }
    if (channels)
        memcpy(channels, r->ch, 4);
    return r->bits;
}

ZVAPI int ZvCountBits(DWORD w)
{
    int n = 0;
    for (; w; w &= w - 1)
        ++n;
    return n;
}

ZVAPI DWORD ZvCreateBitMask(int count, int shift)
{
    if (count <= 0 || shift >= 32)
        return 0;
    DWORD m = count >= 32 ? 0xFFFFFFFFu : ((1u << count) - 1);
    return shift > 0 ? m << shift : m;
}

ZVAPI BOOL ZvVideo_IsCompressed(const BITMAPINFOHEADER *h)
{
    if (!h)
        return TRUE;
    DWORD c = h->biCompression;
    if (c == 0 || c == 3 || c == ZVFOURCC_GREY || c == ZVFOURCC_DEEP)
        return ZvGetPixelType(h) == 0;
    return TRUE;
}

ZVAPI int ZvDibStride(const BITMAPINFOHEADER *h)
{
    return (int)((((LONGLONG)h->biBitCount * h->biWidth + 31) >> 3) & ~3LL);
}

ZVAPI int ZvDibPaletteCount(const BITMAPINFOHEADER *h)
{
    if (h->biCompression == 3)
        return 0;
    if (h->biClrUsed)
        return (int)h->biClrUsed;
    if (h->biCompression == 0 && h->biBitCount >= 1 && h->biBitCount <= 8)
        return 1 << h->biBitCount;
    return 0;
}

ZVAPI BYTE *ZvDibPixels(const BITMAPINFOHEADER *h)
{
    const BYTE *p = (const BYTE *)h + h->biSize;
    if (h->biCompression == 3)
        return (BYTE *)p + 3 * sizeof(DWORD);
    return (BYTE *)p + ZvDibPaletteCount(h) * sizeof(RGBQUAD);
}

ZVAPI void ZvVideo_InitBitmapInfo(BITMAPINFOHEADER *h, int width, int height, int bits, DWORD compression,
                                  DWORD imageSize)
{
    memset(h, 0, sizeof(*h));
    h->biSize = sizeof(*h);
    h->biWidth = width;
    h->biHeight = height;
    h->biPlanes = 1;
    h->biBitCount = (WORD)bits;
    h->biCompression = compression;
    h->biSizeImage = imageSize;
}

ZVAPI DWORD ZvVideo_PaletteRGBAFromEntry(const RGBQUAD *e)
{
    return ((DWORD)e->rgbReserved << 24) | ((DWORD)e->rgbRed << 16) | ((DWORD)e->rgbGreen << 8) | e->rgbBlue;
}

ZVAPI void ZvVideo_PaletteEntryFromRGBA(RGBQUAD *e, DWORD c)
{
    e->rgbBlue = (BYTE)c;
    e->rgbGreen = (BYTE)(c >> 8);
    e->rgbRed = (BYTE)(c >> 16);
    e->rgbReserved = (BYTE)(c >> 24);
}

ZVAPI HRESULT ZvDibInfo(int *headerSize, int *imageSize, BITMAPINFOHEADER *header, ZVPIXELTYPE type, int width,
                        int height, const RGBQUAD *palette, int paletteSize)
{
    (void)palette;
    int bits;
    DWORD comp;
    if (FAILED(ZvPixelTypeToBitAttribs(type, &bits, &comp, nullptr, nullptr)) || width <= 0 || height == 0)
        return E_INVALIDARG;
    BITMAPINFOHEADER h;
    ZvVideo_InitBitmapInfo(&h, width, height, bits, comp, 0);
    LONGLONG image;
    if (type >= 64)
        image = ZvYUVImageBytesAndOffsets(&h, nullptr);
    else
        image = (LONGLONG)ZvDibStride(&h) * (height < 0 ? -(LONGLONG)height : height);
    if (image <= 0 || image > 0x7FFFFFFF - 4096)
        return E_INVALIDARG;
    h.biSizeImage = (DWORD)image;
    if (paletteSize < 0)
        paletteSize = 0;
    int extra;
    if (comp == 3) {
        extra = 3 * sizeof(DWORD);
    } else {
        if (bits <= 8 && paletteSize == 0)
            paletteSize = (1 << bits) - 1;
        if (bits > 8 && type < 64 && comp != ZVFOURCC_GREY)
            paletteSize = paletteSize > 256 ? 256 : paletteSize;
        h.biClrUsed = (DWORD)paletteSize;
        extra = paletteSize * (int)sizeof(RGBQUAD);
    }
    if (header)
        *header = h;
    if (headerSize)
        *headerSize = (int)sizeof(h) + extra;
    if (imageSize)
        *imageSize = (int)image;
    return S_OK;
}

ZVAPI HRESULT ZvDibAlloc(BITMAPINFOHEADER **frame, ZVPIXELTYPE type, int width, int height, const RGBQUAD *palette,
                         int paletteSize, DWORD flags, DWORD tag)
{
    (void)tag;
    if (!frame)
        return E_POINTER;
    *frame = nullptr;
    BITMAPINFOHEADER h;
    int headerSize, imageSize;
    HRESULT hr = ZvDibInfo(&headerSize, &imageSize, &h, type, width, height, palette, paletteSize);
    if (FAILED(hr))
        return hr;
    HGLOBAL mem = GlobalAlloc(GMEM_MOVEABLE | ((flags & ZVDIBALLOC_ZERO) ? GMEM_ZEROINIT : 0),
                              (SIZE_T)headerSize + imageSize);
    BYTE *p = mem ? (BYTE *)GlobalLock(mem) : nullptr;
    if (!p) {
        if (mem)
            GlobalFree(mem);
        return E_OUTOFMEMORY;
    }
    memcpy(p, &h, sizeof(h));
    BYTE *extra = p + sizeof(h);
    if (h.biCompression == 3) {
        DWORD masks[3];
        if (FAILED(ZvPixelTypeToBitAttribs(type, nullptr, nullptr, nullptr, masks)) || type == 28)
            memcpy(masks, kMask888, sizeof(masks));
        memcpy(extra, masks, sizeof(masks));
    } else if (h.biClrUsed) {
        if (palette && paletteSize > 0)
            memcpy(extra, palette, h.biClrUsed * sizeof(RGBQUAD));
        else if (!(flags & ZVDIBALLOC_ZERO))
            memset(extra, 0, h.biClrUsed * sizeof(RGBQUAD));
    }
    InterlockedIncrement(&g_frames);
    InterlockedExchangeAdd64(&g_imageBytes, imageSize);
    *frame = (BITMAPINFOHEADER *)p;
    return S_OK;
}

ZVAPI HRESULT ZvDibFree(BITMAPINFOHEADER *frame, DWORD flags)
{
    (void)flags;
    if (!frame)
        return 0;
    HGLOBAL mem = GlobalHandle(frame);
    if (!mem)
        return 0;
    InterlockedDecrement(&g_frames);
    InterlockedExchangeAdd64(&g_imageBytes, -(LONGLONG)frame->biSizeImage);
    GlobalUnlock(mem);
    GlobalFree(mem);
    return 0;
}

ZVAPI LONG ZvDibGetAllocCount(LONGLONG *imageBytes)
{
    if (imageBytes)
        *imageBytes = g_imageBytes;
    return g_frames;
}
