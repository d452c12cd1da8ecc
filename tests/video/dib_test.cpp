#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <vector>
#include "video/scale.h"
#include "video/yuv.h"

namespace {

struct Dib {
    BITMAPINFOHEADER *h = nullptr;
    explicit Dib(ZVPIXELTYPE t, int w, int ht, const RGBQUAD *pal = nullptr, int n = 0)
    {
        EXPECT_EQ(ZvDibAlloc(&h, t, w, ht, pal, n, ZVDIBALLOC_ZERO, 0), S_OK);
    }
    ~Dib() { ZvDibFree(h, 0); }
    BYTE *px() { return ZvDibPixels(h); }
    int stride() { return ZvDibStride(h); }
    DWORD at(int x, int y)
    {
        DWORD c = 0;
        POINT p = {x, y};
        EXPECT_EQ(ZvDibGetPixel(h, nullptr, p, &c), S_OK);
        return c;
    }
};

struct MaskedHeader {
    BITMAPINFOHEADER h;
    DWORD masks[3];
};

} // namespace

TEST(DibTypes, HeadersMapToTypes)
{
    MaskedHeader m = {};
    m.h.biSize = sizeof(m.h);
    m.h.biBitCount = 16;
    m.h.biCompression = 3;
    m.masks[0] = 0xF800, m.masks[1] = 0x7E0, m.masks[2] = 0x1F;
    EXPECT_EQ(ZvGetPixelType(&m.h), ZVPT_RGB565);
    m.masks[0] = 0xF00, m.masks[1] = 0xF0, m.masks[2] = 0xF;
    EXPECT_EQ(ZvGetPixelType(&m.h), 0);
    m.h.biBitCount = 32;
    m.masks[0] = 0x3FF00000, m.masks[1] = 0xFFC00, m.masks[2] = 0x3FF;
    EXPECT_EQ(ZvGetPixelType(&m.h), ZVPT_RGB10A2);

    BITMAPINFOHEADER h = {};
    h.biSize = 40;
    h.biBitCount = 24;
    h.biWidth = 3;
    EXPECT_EQ(ZvGetPixelType(&h), ZVPT_BGR24);
    EXPECT_EQ(ZvDibStride(&h), 12);
    h.biCompression = ZVFOURCC_DEEP;
    h.biBitCount = 128;
    EXPECT_EQ(ZvGetPixelType(&h), ZVPT_RGBAF);
    EXPECT_FALSE(ZvVideo_IsCompressed(&h));
    h.biCompression = ZVFOURCC('Y', 'U', 'Y', '2');
    EXPECT_EQ(ZvGetPixelType(&h), ZVPT_YUYV);
    EXPECT_TRUE(ZvVideo_IsCompressed(&h));   // YUV counts as compressed
    h.biCompression = ZVFOURCC_GREY;
    h.biBitCount = 12;
    EXPECT_EQ(ZvGetPixelType(&h), 0);

    BYTE ch[4];
    EXPECT_EQ(ZvGetPixelBitsPerChannel(25, ch), 16);
    EXPECT_EQ(ch[0] * 1000 + ch[1] * 100 + ch[2] * 10 + ch[3], 5551);
    EXPECT_EQ(ZvGetPixelBitsPerChannel(23, ch), 4);
    EXPECT_EQ(ch[2], 8);
    EXPECT_EQ(ZvGetPixelBitsPerChannel(20, ch), 8);
    EXPECT_EQ(ch[3], 8);
    DWORD masks[3];
    int bits;
    DWORD comp;
    EXPECT_EQ(ZvPixelTypeToBitAttribs(34, &bits, &comp, nullptr, masks), S_OK);
    EXPECT_EQ(comp, 3u);
    EXPECT_EQ(masks[2], 0x3FF00000u);
    EXPECT_EQ(ZvPixelTypeToBitAttribs(33, &bits, &comp, nullptr, masks), E_INVALIDARG);
    EXPECT_EQ(ZvCountBits(0xF0F0), 8);
    EXPECT_EQ(ZvCreateBitMask(5, 10), 0x7C00u);
}

TEST(DibAlloc, SizesPalettesAndCounters)
{
    LONGLONG bytes0;
    LONG n0 = ZvDibGetAllocCount(&bytes0);
    {
        Dib i420(ZVPT_I420, 64, 48);
        EXPECT_EQ((int)i420.h->biSizeImage, 64 * 48 + 2 * (64 * 48 / 4));
        EXPECT_EQ((int)GlobalSize(GlobalHandle(i420.h)), 40 + 64 * 48 * 3 / 2);
        Dib pal(ZVPT_PAL8, 3, 3);
        EXPECT_EQ(pal.h->biClrUsed, 255u);   // 2^8 - 1 with no palette given
        EXPECT_EQ(pal.px() - (BYTE *)pal.h, 40 + 255 * 4);
        Dib m565(ZVPT_RGB565, 5, -2);
        EXPECT_EQ(ZvGetPixelType(m565.h), ZVPT_RGB565);
        EXPECT_EQ(ZvDibStride(m565.h), 12);
        LONGLONG bytes;
        EXPECT_EQ(ZvDibGetAllocCount(&bytes), n0 + 3);
        EXPECT_EQ(bytes - bytes0, (LONGLONG)(64 * 48 * 3 / 2 + 12 + 24));
    }
    EXPECT_EQ(ZvDibGetAllocCount(nullptr), n0);
    BITMAPINFOHEADER *f = (BITMAPINFOHEADER *)1;
    EXPECT_EQ(ZvDibAlloc(&f, 33, 4, 4, nullptr, 0, 0, 0), E_INVALIDARG);
    EXPECT_EQ(f, nullptr);
    EXPECT_EQ(ZvDibAlloc(&f, 28, 0, 4, nullptr, 0, 0, 0), E_INVALIDARG);
    EXPECT_EQ(ZvDibFree(nullptr, 0), 0);
}

TEST(DibOps, FillFlipSwapFadeAndPixels)
{
    Dib d(ZVPT_BGRA32, 4, 3);   // bottom-up
    RECT r = {1, 0, 3, 1};
    EXPECT_EQ(ZvDibFillRect(d.h, nullptr, &r, 0xFF102030), S_OK);
    EXPECT_EQ(d.at(1, 0), 0xFF102030u);
    EXPECT_EQ(d.at(0, 0), 0u);
    // the top row is the last in memory
    EXPECT_EQ(*(DWORD *)(d.px() + 2 * d.stride() + 4), 0xFF102030u);
    EXPECT_EQ(ZvDibFlip(d.h, nullptr, 0, ZVDIBFLIP_VERTICAL | ZVDIBFLIP_HORIZONTAL), S_OK);
    EXPECT_EQ(d.at(2, 2), 0xFF102030u);
    EXPECT_EQ(d.at(1, 0), 0u);
    EXPECT_EQ(ZvDibSwapRB(d.h, nullptr, 0), S_OK);
    EXPECT_EQ(d.at(2, 2), 0xFF302010u);
    EXPECT_EQ(ZvDibFillRectChannel(d.h, nullptr, nullptr, 3, 0x80), S_OK);
    EXPECT_EQ(d.at(0, 0), 0x80000000u);
    RECT one = {2, 2, 3, 3};
    EXPECT_EQ(ZvDibFadeToColor(d.h, nullptr, &one, 0xFFFFFFFF, 0, 0.5f), S_OK);
    EXPECT_EQ(d.at(2, 2), 0xC0989088u);   // each channel halfway to 255, rounded
    POINT p = {3, 1};
    EXPECT_EQ(ZvDibSetPixel(d.h, nullptr, p, 0x01020304), S_OK);
    EXPECT_EQ(d.at(3, 1), 0x01020304u);
    p.x = 4;
    EXPECT_EQ(ZvDibSetPixel(d.h, nullptr, p, 0), E_INVALIDARG);

    Dib bgr(ZVPT_BGR24, 3, 2);
    EXPECT_EQ(ZvDibFadeToColor(bgr.h, nullptr, nullptr, 0, 0, 1.f), E_NOTIMPL);
    Dib yuv(ZVPT_UYVY, 4, 2);
    EXPECT_EQ(ZvDibSet(yuv.h, nullptr, 0, nullptr, 0), E_NOTIMPL);
}

TEST(DibOps, CopyConvertsBetweenTypes)
{
    const ZVPIXELTYPE types[] = {ZVPT_BGR24, ZVPT_BGRA32, ZVPT_RGBA32, ZVPT_RGBA64, ZVPT_RGBAF, ZVPT_RGB10A2,
                                 ZVPT_RGB10A2_2};
    Dib src(ZVPT_BGRA32, 7, -5);
    for (int i = 0; i < 35; ++i)
        ((DWORD *)src.px())[i] = 0xFF000000u | (DWORD)(i * 0x070B0D);
    for (ZVPIXELTYPE t : types) {
        SCOPED_TRACE(t);
        Dib mid(t, 7, 5), back(ZVPT_BGRA32, 7, -5);
        ASSERT_EQ(ZvDibCopy(src.h, nullptr, 0, nullptr, mid.h, nullptr, 0, nullptr, 0), S_OK);
        ASSERT_EQ(ZvDibCopy(mid.h, nullptr, 0, nullptr, back.h, nullptr, 0, nullptr, 0), S_OK);
        EXPECT_EQ(memcmp(src.px(), back.px(), 35 * 4), 0);
        EXPECT_EQ(mid.at(6, 4) & 0xFFFFFF, 34u * 0x070B0D & 0xFFFFFF);
    }
    // a clipped sub-rectangle lands where the destination rectangle says
    Dib small(ZVPT_BGRA32, 3, -3);
    RECT s = {5, 3, 9, 9}, d = {1, 1, 5, 5};
    ASSERT_EQ(ZvDibCopy(src.h, nullptr, 0, &s, small.h, nullptr, 0, &d, 0), S_OK);
    EXPECT_EQ(small.at(1, 1), src.at(5, 3));
    EXPECT_EQ(small.at(2, 2), src.at(6, 4));
    EXPECT_EQ(small.at(0, 0), 0u);
    RECT so, dout;
    ZVDIBCLIP clip;
    ZvDibPrepareRects(src.h, &so, &s, small.h, &dout, &d, &clip);
    EXPECT_EQ(so.right, 7);
    EXPECT_EQ(clip.right, 2);
    EXPECT_EQ(clip.bottom, 4);

    Dib y(ZVPT_I420, 8, 4), back(ZVPT_BGRA32, 8, 4);
    EXPECT_EQ(ZvDibCopy(y.h, nullptr, 0, nullptr, back.h, nullptr, 0, nullptr, 0), S_OK);
    Dib grey16(ZVPT_GREY16, 7, 5);
    EXPECT_EQ(ZvDibCopy(src.h, nullptr, 0, nullptr, grey16.h, nullptr, 0, nullptr, 0), ZVERR_UNSUPPORTED_MEDIA);
}

TEST(DibQuantizer, EveryCellHoldsAPaletteIndex)
{
    RGBQUAD pal[32];
    for (int i = 0; i < 32; ++i)
        pal[i] = {(BYTE)(i * 8), (BYTE)(255 - i * 8), (BYTE)(i * 37 % 256), 0};
    pal[31] = pal[0];   // a repeated colour: the first index keeps its cell
    Dib p(ZVPT_PAL8, 2, 2, pal, 32);
    BYTE *t = nullptr;
    ASSERT_EQ(ZvDibCreateColorQuantizer(&t, p.h), S_OK);
    int cell0 = (pal[0].rgbRed >> 3) << 10 | (pal[0].rgbGreen >> 3) << 5 | pal[0].rgbBlue >> 3;
    EXPECT_EQ(t[cell0], 0);
    bool all = true;
    for (int i = 0; i < 32768; ++i)
        all = all && t[i] < 32;
    EXPECT_TRUE(all);
    int cell5 = (pal[5].rgbRed >> 3) << 10 | (pal[5].rgbGreen >> 3) << 5 | pal[5].rgbBlue >> 3;
    EXPECT_EQ(t[cell5], 5);
    EXPECT_EQ(t[cell5 + 1], 5);   // a neighbour grows from its palette cell
    ZvDibFreeColorQuantizer(t);

    BITMAPINFOHEADER none = {};
    none.biSize = 40;
    none.biBitCount = 24;
    EXPECT_EQ(ZvDibCreateColorQuantizer(&t, &none), E_INVALIDARG);
}

TEST(DibGamut, NtscLimits)
{
    const float grey[3] = {0.5f, 0.5f, 0.5f}, red[3] = {0.f, 0.f, 1.f}, yellow[3] = {0.f, 1.f, 1.f};
    EXPECT_FALSE(HotCheckNTSCYIQ(grey));
    EXPECT_TRUE(HotCheckNTSCYIQ(yellow));   // Y 0.886 leaves room for little chroma
    EXPECT_FALSE(HotCheckNTSCYIQ(red));
    float in[3];
    EXPECT_TRUE(HotCheckNTSCYIQReturn(yellow, in));
    EXPECT_FALSE(HotCheckNTSCYIQ(in));
    EXPECT_FALSE(HotCheckPALYUV(grey));
}

TEST(DibScale, CopiesScalesAndRefuses)
{
    Dib src(ZVPT_BGRA32, 100, -100), dst(ZVPT_BGRA32, 100, -100);
    for (int i = 0; i < 10000; ++i)
        ((DWORD *)src.px())[i] = (DWORD)i * 2654435761u;
    // 1:1 at position 0 is a plain copy
    EXPECT_EQ(ZvDibScale_Bilinear(src.h, nullptr, 0, nullptr, dst.h, nullptr, 0, nullptr, 0), S_OK);
    EXPECT_EQ(memcmp(src.px(), dst.px(), 40000), 0);
    EXPECT_EQ(ZvDibScale_BiCubic(src.h, nullptr, 0, nullptr, dst.h, nullptr, 0, nullptr, 0), S_OK);
    EXPECT_EQ(memcmp(src.px(), dst.px(), 40000), 0);
    // at a fractional position even 1:1 filters
    RECT half = {8192, 0, 50 * 16384 + 8192, 100 * 16384}, left = {0, 0, 50 * 16384, 100 * 16384};
    EXPECT_EQ(ZvDibScale_BilinearSubPixel(src.h, nullptr, 0, &half, dst.h, nullptr, 0, &left, 0), S_OK);
    BYTE a = src.px()[4 * 10], b = src.px()[4 * 11];
    EXPECT_EQ(dst.px()[4 * 10], (a + b + 1) / 2);

    // a destination narrower than one pixel: 0 and nothing written
    Dib narrow(ZVPT_BGRA32, 4, 4);
    memset(narrow.px(), 0x5A, 64);
    RECT tiny = {0, 0, 1000, 16384};
    EXPECT_EQ(ZvDibScale_BilinearSubPixel(src.h, nullptr, 0, nullptr, narrow.h, nullptr, 0, &tiny, 0), S_OK);
    EXPECT_EQ(narrow.px()[0], 0x5A);

    // a flat colour stays flat through both kernels, up and down
    Dib flat(ZVPT_BGR24, 9, 7), up(ZVPT_BGR24, 31, 23), down(ZVPT_BGR24, 4, 3);
    EXPECT_EQ(ZvDibFillRect(flat.h, nullptr, nullptr, 0x406080), S_OK);
    for (DWORD f : {(DWORD)0, (DWORD)ZVDIBCOPY_BICUBIC}) {
        ASSERT_EQ(ZvDibCopy(flat.h, nullptr, 0, nullptr, up.h, nullptr, 0, nullptr, f), S_OK);
        ASSERT_EQ(ZvDibCopy(flat.h, nullptr, 0, nullptr, down.h, nullptr, 0, nullptr, f), S_OK);
        EXPECT_EQ(up.at(30, 22), 0xFF406080u);
        EXPECT_EQ(up.at(13, 9), 0xFF406080u);
        EXPECT_EQ(down.at(3, 2), 0xFF406080u);
    }
    // a ramp scaled up by 2 keeps its ends and rises monotonically
    Dib ramp(ZVPT_GREY8, 16, 1), wide(ZVPT_GREY8, 32, 1);
    for (int x = 0; x < 16; ++x)
        ramp.px()[x] = (BYTE)(x * 16);
    ASSERT_EQ(ZvDibScale_Bilinear(ramp.h, nullptr, 0, nullptr, wide.h, nullptr, 0, nullptr, 0), S_OK);
    for (int x = 1; x < 32; ++x)
        EXPECT_GE(wide.px()[x], wide.px()[x - 1]);
    EXPECT_EQ(wide.px()[0], 0);
    EXPECT_EQ(wide.px()[31], 240);
    Dib other(ZVPT_BGR24, 100, 100);
    EXPECT_EQ(ZvDibScale_Bilinear(src.h, nullptr, 0, nullptr, other.h, nullptr, 0, nullptr, 0), E_NOTIMPL);
}

// The box filter against a direct sum over each box, edges repeated; only
// the rectangle is written.
TEST(DibBox, MeansWithRepeatedEdges)
{
    const int w = 13, h = 6;
    Dib src(ZVPT_BGR24, w, -h), dst(ZVPT_BGR24, w, h);
    for (int i = 0; i < src.stride() * h; ++i)
        src.px()[i] = (BYTE)(i * 37 + (i >> 3) * 11);
    memset(dst.px(), 0x5A, dst.stride() * h);
    RECT r = {0, 1, 12, 6};
    ASSERT_EQ(ZvDibBoxFilter(src.h, nullptr, 0, dst.h, nullptr, 0, &r, 2, 1), S_OK);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            DWORD want = 0xFF5A5A5A;
            if (x >= r.left && x < r.right && y >= r.top && y < r.bottom) {
                int sum[3] = {};
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -2; dx <= 2; ++dx) {
                        DWORD c = src.at(x + dx < 0 ? 0 : x + dx >= w ? w - 1 : x + dx,
                                         y + dy < 0 ? 0 : y + dy >= h ? h - 1 : y + dy);
                        for (int k = 0; k < 3; ++k)
                            sum[k] += (c >> (8 * k)) & 0xFF;
                    }
                want = 0xFF000000;
                for (int k = 0; k < 3; ++k)
                    want |= (DWORD)((sum[k] + 7) / 15) << (8 * k);
            }
            ASSERT_EQ(dst.at(x, y), want) << x << "," << y;
        }
    EXPECT_EQ(ZvDibBoxFilter(src.h, nullptr, 0, src.h, nullptr, 0, nullptr, 1, 1), E_INVALIDARG);
    EXPECT_EQ(ZvDibBoxFilter(src.h, nullptr, 0, dst.h, nullptr, 0, nullptr, ZVDIBBOX_MAXRADIUS + 1, 0), E_INVALIDARG);
    Dib small(ZVPT_BGR24, w, h - 1), grey(ZVPT_GREY8, w, h);
    EXPECT_EQ(ZvDibBoxFilter(src.h, nullptr, 0, small.h, nullptr, 0, nullptr, 1, 1), E_INVALIDARG);
    EXPECT_EQ(ZvDibBoxFilter(src.h, nullptr, 0, grey.h, nullptr, 0, nullptr, 1, 1), E_NOTIMPL);
}

TEST(DibScale, VectorFormsEqualThePlainOne)
{
    // sizes up and down, odd widths, bottom-up and top-down, fractional
    // rectangles; strides with a pad the scaler must not touch
    struct Case {
        int sw, sh, dw, dh;
        RECT src, dst;   // fixed point; right 0: the whole frame
    };
    const Case cases[] = {
        {1920, 1080, 1280, 720, {}, {}},   {33, -17, 71, 40, {}, {}},     {101, 9, 13, -5, {}, {}},
        {64, 64, 64, 64, {8192, 5000, 60 << 14, 63 << 14}, {0, 0, 64 << 14, 64 << 14}},
        {200, -50, 37, 90, {3 << 14, 1 << 14, 190 << 14, 49 << 14}, {16385, 100, 35 << 14, 89 << 14}},
        {5, 3, 2, 2, {}, {}},
    };
    for (ZVPIXELTYPE t : {ZVPT_BGRA32, ZVPT_RGBA32})
        for (const Case &c : cases) {
            SCOPED_TRACE(testing::Message() << t << " " << c.sw << "x" << c.sh << " to " << c.dw << "x" << c.dh);
            BITMAPINFOHEADER sh, dh;
            ZvDibInfo(nullptr, nullptr, &sh, t, c.sw, c.sh, nullptr, 0);
            ZvDibInfo(nullptr, nullptr, &dh, t, c.dw, c.dh, nullptr, 0);
            int ss = c.sw * 4 + 12, ds = c.dw * 4 + 3;
            std::vector<BYTE> src((size_t)ss * abs(c.sh) + 1);
            uint32_t x = (uint32_t)(c.sw * 7919 + c.dh);
            for (BYTE &b : src)
                b = (BYTE)((x = x * 1103515245u + 12345u) >> 24);
            const RECT *sr = c.src.right ? &c.src : nullptr, *dr = c.dst.right ? &c.dst : nullptr;
            for (int cubic = 0; cubic < 2; ++cubic) {
                auto fn = cubic ? ZvDibScale_BiCubicSubPixel : ZvDibScale_BilinearSubPixel;
                std::vector<BYTE> want((size_t)ds * abs(c.dh) + 1, 0xAB), got(want);
                ZvVideo_SetKernelOverride(0, 1);
                ASSERT_EQ(fn(&sh, src.data() + 1, ss, sr, &dh, want.data() + 1, ds, dr, 0), S_OK);
                ZvVideo_SetKernelOverride(0xFFFFFFFF, 3);
                ASSERT_EQ(fn(&sh, src.data() + 1, ss, sr, &dh, got.data() + 1, ds, dr, 0), S_OK);
                EXPECT_TRUE(want == got) << "cubic " << cubic;
            }
        }
    ZvVideo_SetKernelOverride(0xFFFFFFFF, 0);
}

TEST(DibFields, MergeAndInterlacedCopy)
{
    Dib a(ZVPT_GREY8, 4, 5), b(ZVPT_GREY8, 4, 5), c(ZVPT_GREY8, 4, 6);
    memset(b.px(), 7, b.stride() * 5);
    // height 5: field 0 equals the inverse of its low bit (0), so offset 1
    EXPECT_EQ(ZvDibMergeFields(a.h, nullptr, 0, b.h, nullptr, 0, 0, 0), S_OK);
    for (int r = 0; r < 5; ++r)
        EXPECT_EQ(a.px()[r * a.stride()], r & 1 ? 7 : 0);
    EXPECT_EQ(ZvDibMergeFields(a.h, nullptr, 0, c.h, nullptr, 0, 0, 0), E_NOTIMPL);

    // fields scale apart: a frame of alternating rows keeps them unmixed
    Dib fr(ZVPT_GREY8, 8, -8), big(ZVPT_GREY8, 8, -16);
    for (int r = 0; r < 8; ++r)
        memset(fr.px() + r * fr.stride(), r & 1 ? 200 : 50, 8);
    ASSERT_EQ(ZvDibCopyInterlace(fr.h, nullptr, nullptr, big.h, nullptr, nullptr, 0), S_OK);
    for (int r = 0; r < 16; ++r)
        EXPECT_EQ(big.px()[r * big.stride() + 3], r & 1 ? 200 : 50) << r;
}
