#include <gtest/gtest.h>
#include <algorithm>
#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <vector>
#include "video/yuv.h"

namespace {

BITMAPINFOHEADER Header(ZVPIXELTYPE type, int w, int h)
{
    BITMAPINFOHEADER hd;
    EXPECT_EQ(ZvDibInfo(nullptr, nullptr, &hd, type, w, h, nullptr, 0), S_OK);
    return hd;
}

// A frame of the type with its image right behind the header.
struct Frame {
    std::vector<BYTE> mem;
    BITMAPINFOHEADER *h() { return (BITMAPINFOHEADER *)mem.data(); }
    BYTE *image() { return mem.data() + sizeof(BITMAPINFOHEADER); }
    int bytes() { return (int)h()->biSizeImage; }
};

Frame Make(ZVPIXELTYPE type, int w, int h, unsigned seed)
{
    Frame f;
    BITMAPINFOHEADER hd = Header(type, w, h);
    f.mem.resize(sizeof(hd) + hd.biSizeImage);
    memcpy(f.mem.data(), &hd, sizeof(hd));
    for (size_t i = sizeof(hd); i < f.mem.size(); ++i) {
        seed = seed * 1103515245u + 12345u;
        f.mem[i] = (BYTE)(seed >> 16);
    }
    return f;
}

// Support words for the optimised forms: SSE2 without the wide unit, then
// whatever the processor has.
const DWORD kVectorWords[] = {0x7FF, 0xFFFFFFFF};

// One pixel of 8-bit YUV in I420, decoded to BGRA.
void DecodeOne(int y, int u, int v, int selector, int limited, BYTE out[4])
{
    Frame f = Make(ZVPT_I420, 2, 2, 1);
    memset(f.image(), y, 4);
    f.image()[4] = (BYTE)u;
    f.image()[5] = (BYTE)v;
    BITMAPINFOHEADER d = Header(ZVPT_BGRA32, 2, -2);
    BYTE px[16];
    ZVYUVSETTINGS s = {};
    s.selector = selector;
    s.limited = limited;
    ASSERT_EQ(ZvYUV_YUVToRGB(&d, px, 0, f.h(), nullptr, nullptr, nullptr, &s), S_OK);
    memcpy(out, px, 4);
}

} // namespace

TEST(YuvLayout, GeometryOfTheTable)
{
    BITMAPINFOHEADER h = Header(ZVPT_V210, 1920, 1080);
    ZVYUVPLANES p;
    EXPECT_EQ(ZvYUVImageBytesAndOffsets(&h, &p), 5120 * 1080);   // 40 blocks of 128 bytes
    EXPECT_EQ(p.pitch[0], 5120);
    h = Header(ZVPT_V210, 48, 2);
    EXPECT_EQ(ZvYUVImageBytesAndOffsets(&h, nullptr), 256);
    h = Header(ZVPT_V210, 49, 2);
    EXPECT_EQ(ZvYUVImageBytesAndOffsets(&h, nullptr), 512);

    h = Header(ZVPT_P010, 5, 3);
    EXPECT_EQ(ZvYUVImageBytesAndOffsets(&h, &p), 2 * 15 + 4 * 3 * 1);
    EXPECT_EQ(p.count, 2);
    EXPECT_EQ(p.offset[1], 30);
    EXPECT_EQ(p.pitch[1], 12);

    h = Header(ZVPT_I420, 6, 4);
    EXPECT_EQ(ZvYUVImageBytesAndOffsets(&h, &p), 24 + 12);
    EXPECT_EQ(p.offset[1], 24);
    EXPECT_EQ(p.offset[2], 30);
    EXPECT_EQ(p.pitch[2], 3);
    h = Header(ZVPT_NV12, 6, -4);   // the sign of the height is not geometry
    EXPECT_EQ(ZvYUVImageBytesAndOffsets(&h, &p), 36);
    EXPECT_EQ(p.pitch[1], 6);
    h = Header(ZVPT_YV16, 6, 4);
    EXPECT_EQ(ZvYUVImageBytesAndOffsets(&h, nullptr), 24 + 24);
    h = Header(ZVPT_P216, 4, 2);
    EXPECT_EQ(ZvYUVImageBytesAndOffsets(&h, nullptr), 16 + 16);

    BITMAPINFOHEADER rgb = Header(ZVPT_BGRA32, 4, 4);
    EXPECT_EQ(ZvYUVImageBytesAndOffsets(&rgb, &p), 0);
}

TEST(YuvMatrix, ChoiceByFrameSize)
{
    EXPECT_EQ(ZvYUV_ResolveMatrix(0, 720, 480), ZVYUV_BT601);
    EXPECT_EQ(ZvYUV_ResolveMatrix(0, 720, 576), ZVYUV_BT601);
    EXPECT_EQ(ZvYUV_ResolveMatrix(0, 1280, 720), ZVYUV_BT709);
    EXPECT_EQ(ZvYUV_ResolveMatrix(0, 640, 480), ZVYUV_BT709);
    EXPECT_EQ(ZvYUV_ResolveMatrix(0, 704, 719), ZVYUV_BT601);
    EXPECT_EQ(ZvYUV_ResolveMatrix(0, 703, 480), ZVYUV_BT709);
    EXPECT_EQ(ZvYUV_ResolveMatrix(0, 720, 720), ZVYUV_BT709);
    EXPECT_EQ(ZvYUV_ResolveMatrix(2, 720, 480), ZVYUV_BT709);
    EXPECT_EQ(ZvYUV_ResolveMatrix(517, 720, 480), ZVYUV_BT2020);
}

TEST(YuvMatrix, RangesAndChromaGains)
{
    BYTE px[4];
    DecodeOne(235, 128, 128, 515, 1, px);
    EXPECT_EQ(px[0], 255);
    EXPECT_EQ(px[1], 255);
    EXPECT_EQ(px[2], 255);
    EXPECT_EQ(px[3], 255);
    DecodeOne(16, 128, 128, 515, 1, px);
    EXPECT_EQ(px[0] | px[1] | px[2], 0);

    // limited: R = 1.1643835 * 112 + 1.402 * 1.1383928 * 72 = 245.3
    DecodeOne(128, 128, 200, 515, 1, px);
    EXPECT_EQ(px[2], 245);
    // full: luma as it stands, chroma by 219 / 224: 128 + 1.402 * 0.9776786 * 72 = 226.7
    DecodeOne(128, 128, 200, 515, 0, px);
    EXPECT_EQ(px[2], 227);
    EXPECT_EQ(px[1], 78);   // G = 128 - 0.7141 * 0.9776786 * 72 = 77.7
    // BT.709 full: B = 128 + 1.8556 * 0.9776786 * 60 = 236.85
    DecodeOne(128, 188, 128, 516, 0, px);
    EXPECT_EQ(px[0], 237);
    // BT.2020 limited: B = 1.1643835 * 112 + 1.8814 * 1.1383928 * -60 = 1.92
    DecodeOne(128, 68, 128, 517, 1, px);
    EXPECT_EQ(px[0], 2);
}

TEST(YuvMatrix, DeepLayoutsMatchTheirEightBitValues)
{
    // P010 words hold 10 bits in the high bits; 940 is white, 64 black.
    Frame f = Make(ZVPT_P010, 2, 2, 1);
    WORD *w = (WORD *)f.image();
    for (int i = 0; i < 4; ++i)
        w[i] = (WORD)((i & 1 ? 940 : 64) << 6);
    w[4] = w[5] = 512 << 6;
    BITMAPINFOHEADER d = Header(ZVPT_BGRA32, 2, -2);
    BYTE px[16];
    ZVYUVSETTINGS s = {};
    s.limited = 1;
    ASSERT_EQ(ZvYUV_YUVToRGB(&d, px, 0, f.h(), nullptr, nullptr, nullptr, &s), S_OK);
    EXPECT_EQ(px[0], 0);
    EXPECT_EQ(px[4], 255);
    EXPECT_EQ(px[6], 255);

    // float destination: limited white is 1.0
    BITMAPINFOHEADER fd = Header(ZVPT_RGBAF, 2, -2);
    float fp[16];
    ASSERT_EQ(ZvYUV_YUVToRGB(&fd, fp, 0, f.h(), nullptr, nullptr, nullptr, &s), S_OK);
    EXPECT_FLOAT_EQ(fp[4], 1.0f);
    EXPECT_FLOAT_EQ(fp[0], 0.0f);
}

TEST(YuvConvert, RoundTripsThroughEveryEncodedLayout)
{
    const ZVPIXELTYPE layouts[] = {ZVPT_YV24, ZVPT_YV16, ZVPT_YV12, ZVPT_NV12, ZVPT_I420, ZVPT_P410,
                                   ZVPT_P210, ZVPT_P216, ZVPT_P010, ZVPT_V210, ZVPT_YUYV, ZVPT_UYVY};
    const int w = 14, h = 6;
    // flat 2x2 blocks, so subsampled chroma loses nothing
    Frame rgb = Make(ZVPT_BGRA32, w, h, 7);
    BYTE *px = rgb.image();
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 4; ++c)
                px[(y * w + x) * 4 + c] = px[((y & ~1) * w + (x & ~1)) * 4 + c];
    for (ZVPIXELTYPE t : layouts) {
        SCOPED_TRACE(t);
        Frame yuv = Make(t, w, h, 1);
        ZVYUVSETTINGS s = {};
        s.selector = 516;
        ASSERT_EQ(ZvYUV_RGBToYUV(rgb.h(), nullptr, 0, yuv.h(), nullptr, nullptr, &s), S_OK);
        Frame back = Make(ZVPT_BGRA32, w, h, 2);
        ASSERT_EQ(ZvYUV_YUVToRGB(back.h(), nullptr, 0, yuv.h(), nullptr, nullptr, nullptr, &s), S_OK);
        int worst = 0;
        for (int i = 0; i < w * h * 4; ++i)
            if ((i & 3) != 3)
                worst = std::max(worst, abs((int)back.image()[i] - (int)px[i]));
        EXPECT_LE(worst, 3);
    }
}

TEST(YuvConvert, VectorAndThreadedFormsEqualThePlainOne)
{
    const ZVPIXELTYPE layouts[] = {ZVPT_I420, ZVPT_NV12, ZVPT_UYVY, ZVPT_YUYV, ZVPT_YV12, ZVPT_YV24, ZVPT_P010};
    const int sizes[][2] = {{1, 1}, {3, 5}, {17, 9}, {33, -7}, {47, 4}, {721, 487}, {1001, -290}};
    for (ZVPIXELTYPE t : layouts)
        for (auto &sz : sizes) {
            SCOPED_TRACE(testing::Message() << t << " " << sz[0] << "x" << sz[1]);
            Frame src = Make(t, sz[0], abs(sz[1]), sz[0] * 31 + t);
            for (int dt : {ZVPT_BGRA32, ZVPT_RGBA32}) {
                BITMAPINFOHEADER d = Header(dt, sz[0], sz[1]);
                // an unaligned stride with a pad the conversion must not touch
                int stride = sz[0] * 4 + 3;
                std::vector<BYTE> want(stride * abs(sz[1]) + 1, 0xAB), got(want.size(), 0xAB);
                ZVYUVSETTINGS s = {};
                s.limited = 1;
                s.threads = 1;
                ZvVideo_SetKernelOverride(0, 1);
                ASSERT_EQ(ZvYUV_YUVToRGB(&d, want.data() + 1, stride, src.h(), nullptr, nullptr, nullptr, &s), S_OK);
                s.threads = 0;
                // the SSE2 bodies alone, then every body the processor has, on three
                // workers whatever the load
                for (DWORD word : kVectorWords) {
                    ZvVideo_SetKernelOverride(word, 3);
                    std::fill(got.begin(), got.end(), 0xAB);
                    ASSERT_EQ(ZvYUV_YUVToRGB(&d, got.data() + 1, stride, src.h(), nullptr, nullptr, nullptr, &s), S_OK);
                    EXPECT_EQ(want, got) << std::hex << word;
                    EXPECT_EQ(got[0], 0xAB);
                }
                // from an even and an odd column, a row down
                for (LONG left : {2, 1}) {
                    RECT r = {left, 1, abs(sz[0]), abs(sz[1])};
                    ZvVideo_SetKernelOverride(0, 1);
                    ASSERT_EQ(ZvYUV_YUVToRGB(&d, want.data() + 1, stride, src.h(), nullptr, nullptr, &r, &s), S_OK);
                    for (DWORD word : kVectorWords) {
                        ZvVideo_SetKernelOverride(word, 3);
                        ASSERT_EQ(ZvYUV_YUVToRGB(&d, got.data() + 1, stride, src.h(), nullptr, nullptr, &r, &s), S_OK);
                        EXPECT_EQ(want, got) << std::hex << word;
                    }
                }
            }
        }
    ZvVideo_SetKernelOverride(0xFFFFFFFF, 0);
}

// The vector bodies' integer shortcuts hold for every 8-bit sample triple:
// a UYVY frame per U value, V down the rows, every Y in each row.
TEST(YuvConvert, VectorDecodeEqualsThePlainOneForEveryTriple)
{
    Frame src = Make(ZVPT_UYVY, 256, 256, 1);
    BITMAPINFOHEADER d = Header(ZVPT_BGRA32, 256, -256);
    std::vector<BYTE> want(256 * 256 * 4), got(want.size());
    for (int selector : {ZVYUV_BT601, ZVYUV_BT709, ZVYUV_BT2020})
        for (int limited : {0, 1}) {
            ZVYUVSETTINGS s = {};
            s.selector = selector;
            s.limited = limited;
            s.threads = 1;
            int bad = 0;
            for (int u = 0; u < 256 && !bad; ++u) {
                for (int v = 0; v < 256; ++v)
                    for (int k = 0; k < 128; ++k) {
                        BYTE *g = src.image() + v * 512 + 4 * k;
                        g[0] = (BYTE)u;
                        g[1] = (BYTE)(2 * k);
                        g[2] = (BYTE)v;
                        g[3] = (BYTE)(2 * k + 1);
                    }
                ZvVideo_SetKernelOverride(0, 1);
                ASSERT_EQ(ZvYUV_YUVToRGB(&d, want.data(), 0, src.h(), nullptr, nullptr, nullptr, &s), S_OK);
                for (DWORD word : kVectorWords) {
                    ZvVideo_SetKernelOverride(word, 1);
                    ASSERT_EQ(ZvYUV_YUVToRGB(&d, got.data(), 0, src.h(), nullptr, nullptr, nullptr, &s), S_OK);
                    if (want != got) {
                        size_t i = std::mismatch(want.begin(), want.end(), got.begin()).first - want.begin();
                        ADD_FAILURE() << "selector " << selector << " limited " << limited << " word " << std::hex
                                      << word << std::dec << ": Y " << (i / 4) % 256 << " U " << u << " V "
                                      << i / 1024;
                        bad = 1;
                    }
                }
            }
        }
    ZvVideo_SetKernelOverride(0xFFFFFFFF, 0);
}

TEST(YuvConvert, OddWidthsAndNegativeHeights)
{
    // bottom-up destination: the top source row lands in the last memory row
    Frame src = Make(ZVPT_I420, 5, 2, 1);
    memset(src.image(), 235, 5);      // top row white
    memset(src.image() + 5, 16, 5);   // bottom row black
    memset(src.image() + 10, 128, src.bytes() - 10);
    BITMAPINFOHEADER up = Header(ZVPT_BGRA32, 5, 2), down = Header(ZVPT_BGRA32, 5, -2);
    BYTE a[40], b[40];
    ZVYUVSETTINGS s = {};
    s.limited = 1;
    ASSERT_EQ(ZvYUV_YUVToRGB(&up, a, 0, src.h(), nullptr, nullptr, nullptr, &s), S_OK);
    ASSERT_EQ(ZvYUV_YUVToRGB(&down, b, 0, src.h(), nullptr, nullptr, nullptr, &s), S_OK);
    EXPECT_EQ(a[0], 0);
    EXPECT_EQ(a[20 + 16], 255);   // the odd last column is decoded too
    EXPECT_EQ(b[16], 255);
    EXPECT_EQ(b[20], 0);

    EXPECT_EQ(ZvUYVY2RGBA(a, 10, b, 20, 5, 1, 0), E_INVALIDARG);
    EXPECT_EQ(ZvUYVY2RGBA(a, 8, b, 16, 4, 1, 0), S_OK);
}

TEST(YuvConvert, LayoutToLayout)
{
    Frame i420 = Make(ZVPT_I420, 10, 6, 3);
    Frame nv12 = Make(ZVPT_NV12, 10, 6, 4), yv12 = Make(ZVPT_YV12, 10, 6, 5), back = Make(ZVPT_I420, 10, 6, 6);
    ASSERT_EQ(ZvYUV_YUVToYUV(i420.h(), nullptr, 0, nv12.h(), nullptr, 0), S_OK);
    ASSERT_EQ(ZvYUV_YUVToYUV(nv12.h(), nullptr, 0, back.h(), nullptr, 0), S_OK);
    EXPECT_EQ(i420.mem, back.mem);
    ASSERT_EQ(ZvYUV_YUVToYUV(i420.h(), nullptr, 0, yv12.h(), nullptr, 0), S_OK);
    EXPECT_EQ(memcmp(yv12.image() + 60, i420.image() + 75, 15), 0);   // V first
    // IYUV is I420 by another name
    Frame iyuv = Make(ZVPT_I420, 10, 6, 7);
    iyuv.h()->biCompression = ZVFOURCC('I', 'Y', 'U', 'V');
    ASSERT_EQ(ZvYUV_YUVToYUV(i420.h(), nullptr, 0, iyuv.h(), nullptr, 0), S_OK);
    EXPECT_EQ(memcmp(iyuv.image(), i420.image(), i420.bytes()), 0);
    EXPECT_EQ(ZvYUV_YUVToYUV(i420.h(), nullptr, 0, nullptr, nullptr, 0), E_POINTER);
    Frame p010 = Make(ZVPT_P010, 10, 6, 1);
    EXPECT_EQ(ZvYUV_YUVToYUV(i420.h(), nullptr, 0, p010.h(), nullptr, 0), ZVERR_UNSUPPORTED_MEDIA);

    // v210 and P210 carry the same 10-bit samples
    Frame p210 = Make(ZVPT_P210, 12, 2, 9), v210 = Make(ZVPT_V210, 12, 2, 1), p210b = Make(ZVPT_P210, 12, 2, 2);
    for (int i = 0; i < p210.bytes() / 2; ++i)
        ((WORD *)p210.image())[i] &= 0xFFC0;
    ASSERT_EQ(ZvYUV_P210_To_v210(p210.h(), nullptr, v210.h(), nullptr), S_OK);
    ASSERT_EQ(ZvYUV_v210_To_P210(v210.h(), nullptr, p210b.h(), nullptr), S_OK);
    EXPECT_EQ(p210.mem, p210b.mem);

    // a sub-rectangle into a smaller frame
    Frame big = Make(ZVPT_I420, 8, 8, 11), small = Make(ZVPT_I420, 4, 4, 12);
    RECT r = {2, 4, 6, 8};
    ASSERT_EQ(ZvYUV_I420_To_I420_SubRect(big.h(), nullptr, small.h(), nullptr, &r), S_OK);
    EXPECT_EQ(memcmp(small.image(), big.image() + 4 * 8 + 2, 4), 0);
    EXPECT_EQ(small.image()[16], big.image()[64 + 2 * 4 + 1]);
}

TEST(YuvConvert, VectorEncodeEqualsThePlainOne)
{
    const int sizes[][2] = {{2, 2}, {9, 5}, {17, 3}, {40, -9}, {49, 4}, {1023, 601}};
    for (ZVPIXELTYPE t : {ZVPT_I420, ZVPT_YV12, ZVPT_NV12})
        for (ZVPIXELTYPE st : {ZVPT_BGRA32, ZVPT_RGBA32})
            for (auto &sz : sizes)
                for (int limited : {0, 1}) {
                    SCOPED_TRACE(testing::Message() << t << " " << st << " " << sz[0] << "x" << sz[1]);
                    Frame rgb = Make(st, sz[0], sz[1], sz[0] + 7 * limited);
                    Frame want = Make(t, sz[0], abs(sz[1]), 1), got = Make(t, sz[0], abs(sz[1]), 1);
                    ZVYUVSETTINGS s = {};
                    s.limited = limited;
                    // limited range reads its pixels at an odd address and stride
                    int stride = limited ? sz[0] * 4 + 5 : 0;
                    Frame padded = Make(ZVPT_GREY8, stride + 1, abs(sz[1]) + 1, sz[0]);
                    const BYTE *px = limited ? padded.image() + 1 : nullptr;
                    ZvVideo_SetKernelOverride(0, 1);
                    ASSERT_EQ(ZvYUV_RGBToYUV(rgb.h(), px, stride, want.h(), nullptr, nullptr, &s), S_OK);
                    for (DWORD word : kVectorWords) {
                        ZvVideo_SetKernelOverride(word, 3);
                        ASSERT_EQ(ZvYUV_RGBToYUV(rgb.h(), px, stride, got.h(), nullptr, nullptr, &s), S_OK);
                        EXPECT_EQ(want.mem, got.mem) << std::hex << word;
                    }
                }
}

// Luma of every 8-bit colour, and chroma of the blocks they make, for each
// matrix and range: the vector encode against the plain one.
TEST(YuvConvert, VectorEncodeEqualsThePlainOneForEveryColour)
{
    Frame rgb = Make(ZVPT_BGRA32, 4096, -4096, 1);
    for (int p = 0; p < 4096 * 4096; ++p)
        memcpy(rgb.image() + 4 * p, &p, 3);
    Frame want = Make(ZVPT_I420, 4096, 4096, 1), got = Make(ZVPT_I420, 4096, 4096, 1);
    for (int selector : {ZVYUV_BT601, ZVYUV_BT709, ZVYUV_BT2020})
        for (int limited : {0, 1}) {
            SCOPED_TRACE(testing::Message() << "selector " << selector << " limited " << limited);
            ZVYUVSETTINGS s = {};
            s.selector = selector;
            s.limited = limited;
            ZvVideo_SetKernelOverride(0, 1);
            ASSERT_EQ(ZvYUV_RGBToYUV(rgb.h(), nullptr, 0, want.h(), nullptr, nullptr, &s), S_OK);
            for (DWORD word : kVectorWords) {
                ZvVideo_SetKernelOverride(word, 3);
                ASSERT_EQ(ZvYUV_RGBToYUV(rgb.h(), nullptr, 0, got.h(), nullptr, nullptr, &s), S_OK);
                EXPECT_TRUE(want.mem == got.mem) << std::hex << word;
            }
        }
    ZvVideo_SetKernelOverride(0xFFFFFFFF, 0);
}

// The plain 8-bit forms against the real formulas they round, for each matrix
// and range: every YUV triple decoded, every colour's luma and the chroma of
// the 2x2 blocks of that frame and of a random one encoded, all within 1;
// neutral chroma grey, and limited black and white exact.
TEST(YuvConvert, EightBitFormsStayWithinOneOfTheRealFormulas)
{
    struct Std {
        int selector;
        double kr, kg, kb, rv, gu, gv, bu, u[3], v[3];
    } const stds[] = {
        {ZVYUV_BT601, 0.299, 0.587, 0.114, 1.402, -0.3441, -0.7141, 1.772,
         {-0.172552, -0.338864, 0.511416}, {0.511416, -0.428259, -0.083156}},
        {ZVYUV_BT709, 0.2126, 0.7152, 0.0722, 1.5748, -0.1873, -0.4681, 1.8556,
         {-0.117216, -0.394199, 0.511416}, {0.511416, -0.46457, -0.046846}},
        {ZVYUV_BT2020, 0.2627, 0.678, 0.0593, 1.4746, -0.1646, -0.5714, 1.8814,
         {-0.142787, -0.368628, 0.511416}, {0.511416, -0.470298, -0.041118}},
    };
    auto off = [](double real, int got) { return abs((int)lround(std::min(255.0, std::max(0.0, real))) - got); };
    Frame uyvy = Make(ZVPT_UYVY, 256, 256, 1), all = Make(ZVPT_BGRA32, 4096, -4096, 1);
    Frame noise = Make(ZVPT_BGRA32, 1024, -1024, 5);
    for (int p = 0; p < 4096 * 4096; ++p)
        memcpy(all.image() + 4 * p, &p, 3);
    BITMAPINFOHEADER d = Header(ZVPT_BGRA32, 256, -256);
    std::vector<BYTE> px(256 * 256 * 4);
    ZvVideo_SetKernelOverride(0, 1);
    for (const Std &m : stds)
        for (int limited : {0, 1}) {
            SCOPED_TRACE(testing::Message() << "selector " << m.selector << " limited " << limited);
            ZVYUVSETTINGS s = {};
            s.selector = m.selector;
            s.limited = limited;
            const double gy = limited ? 255.0 / 219 : 1, gc = limited ? 255.0 / 224 : 219.0 / 224;
            const int yoff = limited ? 16 : 0;
            int worst = 0, exact = 1;
            for (int u = 0; u < 256; ++u) {
                for (int v = 0; v < 256; ++v)
                    for (int k = 0; k < 128; ++k) {
                        BYTE g[4] = {(BYTE)u, (BYTE)(2 * k), (BYTE)v, (BYTE)(2 * k + 1)};
                        memcpy(uyvy.image() + v * 512 + 4 * k, g, 4);
                    }
                ASSERT_EQ(ZvYUV_YUVToRGB(&d, px.data(), 0, uyvy.h(), nullptr, nullptr, nullptr, &s), S_OK);
                for (int v = 0; v < 256; ++v)
                    for (int y = 0; y < 256; ++y) {
                        const BYTE *q = &px[(v * 256 + y) * 4];
                        double ys = gy * (y - yoff), uu = gc * (u - 128), vv = gc * (v - 128);
                        worst = std::max({worst, off(ys + m.rv * vv, q[2]), off(ys + m.gu * uu + m.gv * vv, q[1]),
                                          off(ys + m.bu * uu, q[0])});
                        if (u == 128 && v == 128)
                            exact &= q[0] == q[1] && q[1] == q[2] &&
                                     (!limited || ((y > 16 || !q[0]) && (y < 235 || q[0] == 255)));
                    }
            }
            EXPECT_LE(worst, 1) << "decode";
            EXPECT_TRUE(exact);
            // encode: luma of every colour, chroma of every block
            const double g = limited ? 219.0 / 255 : 1;
            for (Frame *rgb : {&all, &noise}) {
                int w = rgb->h()->biWidth, h = -rgb->h()->biHeight;
                Frame yuv = Make(ZVPT_I420, w, h, 1);
                ASSERT_EQ(ZvYUV_RGBToYUV(rgb->h(), nullptr, 0, yuv.h(), nullptr, nullptr, &s), S_OK);
                const BYTE *in = rgb->image(), *py = yuv.image(), *pu = py + w * h, *pv = pu + w * h / 4;
                int wy = 0, wc = 0;
                for (int i = 0; i < w * h; ++i) {
                    const BYTE *q = in + 4 * i;
                    wy = std::max(wy, off(yoff + g * (m.kr * q[2] + m.kg * q[1] + m.kb * q[0]), py[i]));
                }
                for (int by = 0; by < h / 2; ++by)
                    for (int bx = 0; bx < w / 2; ++bx) {
                        double c[3] = {};
                        for (int k = 0; k < 4; ++k)
                            for (int ch = 0; ch < 3; ++ch)
                                c[ch] += in[4 * ((2 * by + k / 2) * w + 2 * bx + k % 2) + 2 - ch] / 4.0;
                        int at = by * (w / 2) + bx;
                        wc = std::max({wc, off(128 + g * (m.u[0] * c[0] + m.u[1] * c[1] + m.u[2] * c[2]), pu[at]),
                                       off(128 + g * (m.v[0] * c[0] + m.v[1] * c[1] + m.v[2] * c[2]), pv[at])});
                    }
                EXPECT_LE(wy, 1) << "encode luma " << w;
                EXPECT_LE(wc, 1) << "encode chroma " << w;
            }
        }
    ZvVideo_SetKernelOverride(0xFFFFFFFF, 0);
}
