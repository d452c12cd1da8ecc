// The OpenCL forms: a clear failure where no OpenCL is installed (the plain
// forms unaffected), and where one is, results equal to the plain forms'.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <vector>
#include "video/scale.h"
#include "video/yuv.h"

namespace {

// A frame in one block (header, masks or palette, pixels), pixels random.
std::vector<BYTE> Frame(ZVPIXELTYPE t, int w, int h, unsigned seed)
{
    BITMAPINFOHEADER *a = nullptr;
    int hs = 0, is = 0;
    EXPECT_EQ(ZvDibInfo(&hs, &is, nullptr, t, w, h, nullptr, 0), S_OK);
    EXPECT_EQ(ZvDibAlloc(&a, t, w, h, nullptr, 0, 0, 0), S_OK);
    if (!a)
        return std::vector<BYTE>(sizeof(BITMAPINFOHEADER));
    std::vector<BYTE> f((BYTE *)a, (BYTE *)a + hs + is);
    ZvDibFree(a, 0);
    for (size_t i = hs; i < f.size(); ++i)
        f[i] = (BYTE)((seed = seed * 1103515245u + 12345u) >> 16);
    return f;
}

// Floats of 0..1 in place of random bytes (random bits would be NaNs and more).
void Unit(BYTE *p, size_t bytes)
{
    for (size_t i = 0; i + 4 <= bytes; i += 4) {
        float v = p[i] / 255.f + p[i + 1] / 65536.f;
        memcpy(p + i, &v, 4);
    }
}

BITMAPINFOHEADER *H(std::vector<BYTE> &f)
{
    return (BITMAPINFOHEADER *)f.data();
}

// A frame's pixels in a block of their own at offset at, rows of the frame's
// stride plus extra bytes (filler that must stay).
struct Pixels {
    std::vector<BYTE> buf;
    int at, stride;
    BYTE *p() { return buf.data() + at; }
};

Pixels Loose(std::vector<BYTE> &f, int extra, int at)
{
    BITMAPINFOHEADER *h = (BITMAPINFOHEADER *)f.data();
    int row = ZvDibStride(h), rows = abs(h->biHeight);
    Pixels x = {std::vector<BYTE>(at + (size_t)(row + extra) * rows + 2, 0xAB), at, row + extra};
    for (int r = 0; r < rows; ++r)
        memcpy(x.p() + (size_t)x.stride * r, ZvDibPixels(h) + (size_t)row * r, row);
    return x;
}

void CALLBACK Log(const char *text)
{
    ADD_FAILURE() << "OpenCL build: " << text;
}

} // namespace

TEST(YuvOpenCL, WithoutAndWithARuntime)
{
    std::vector<BYTE> i420 = Frame(ZVPT_I420, 16, 8, 1), bgra = Frame(ZVPT_BGRA32, 16, 8, 2);
    const HRESULT notStarted = HRESULT_FROM_WIN32(ERROR_INVALID_STATE);
    EXPECT_EQ(ZvYUV_YUVToRGB_OCL(H(bgra), nullptr, 0, H(i420), nullptr, nullptr, nullptr, nullptr), notStarted);

    // no library: a clear failure, and the plain path still works
    SetEnvironmentVariableW(L"ZV_OPENCL_DLL", L"zv-no-opencl-here.dll");
    EXPECT_EQ(YUV_OpenCL_Initialize(nullptr, Log), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
    EXPECT_EQ(ZvYUV_RGBToYUV_OCL(H(bgra), nullptr, 0, H(i420), nullptr, nullptr, nullptr), notStarted);
    EXPECT_EQ(ZvYUV_YUVToRGB(H(bgra), nullptr, 0, H(i420), nullptr, nullptr, nullptr, nullptr), S_OK);
    SetEnvironmentVariableW(L"ZV_OPENCL_DLL", nullptr);

    HRESULT hr = YUV_OpenCL_Initialize(nullptr, Log);
    if (hr == HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND) || hr == (HRESULT)0x8004E01B)
        GTEST_SKIP() << "no OpenCL runtime or device here: " << std::hex << hr;
    ASSERT_EQ(hr, S_OK);

    const int sizes[][2] = {{1, 1}, {7, -5}, {33, 9}, {64, -31}, {321, 17}};
    for (ZVPIXELTYPE t : {ZVPT_I420, ZVPT_YV12, ZVPT_NV12, ZVPT_UYVY, ZVPT_YUYV, ZVPT_YV16, ZVPT_YV24})
        for (auto &sz : sizes)
            for (ZVPIXELTYPE dt : {ZVPT_BGRA32, ZVPT_RGBA32}) {
                SCOPED_TRACE(testing::Message() << t << " " << sz[0] << "x" << sz[1] << " to " << dt);
                std::vector<BYTE> src = Frame(t, sz[0], abs(sz[1]), sz[0] + t);
                BITMAPINFOHEADER d;
                ZvDibInfo(nullptr, nullptr, &d, dt, sz[0], sz[1], nullptr, 0);
                int stride = sz[0] * 4 + 3;
                std::vector<BYTE> want(stride * abs(sz[1]) + 1, 0xAB), got(want);
                ZVYUVSETTINGS s = {};
                s.limited = sz[0] & 1;
                s.dstGamma = sz[0] == 33 ? 1.8 : 0;
                RECT r = {1, 1, sz[0], abs(sz[1])};
                for (const RECT *rect : {(const RECT *)nullptr, (const RECT *)&r}) {
                    ASSERT_EQ(ZvYUV_YUVToRGB(&d, want.data() + 1, stride, H(src), nullptr, nullptr, rect, &s), S_OK);
                    ASSERT_EQ(ZvYUV_YUVToRGB_OCL(&d, got.data() + 1, stride, H(src), nullptr, nullptr, rect, &s), S_OK);
                    EXPECT_TRUE(want == got);
                }
            }
    for (ZVPIXELTYPE t : {ZVPT_I420, ZVPT_YV12, ZVPT_NV12})
        for (ZVPIXELTYPE st : {ZVPT_BGRA32, ZVPT_RGBA32, ZVPT_BGR24})
            for (auto &sz : sizes) {
                SCOPED_TRACE(testing::Message() << st << " to " << t << " " << sz[0] << "x" << sz[1]);
                std::vector<BYTE> rgb = Frame(st, sz[0], sz[1], sz[0] * 3 + st);
                std::vector<BYTE> want = Frame(t, sz[0], abs(sz[1]), 5), got = want;
                ZVYUVSETTINGS s = {};
                s.limited = sz[0] & 1;
                ASSERT_EQ(ZvYUV_RGBToYUV(H(rgb), nullptr, 0, H(want), nullptr, nullptr, &s), S_OK);
                ASSERT_EQ(ZvYUV_RGBToYUV_OCL(H(rgb), nullptr, 0, H(got), nullptr, nullptr, &s), S_OK);
                EXPECT_TRUE(want == got);
            }
    // deep layouts stay with the plain forms
    std::vector<BYTE> p010 = Frame(ZVPT_P010, 16, 8, 3);
    EXPECT_EQ(ZvYUV_YUVToRGB_OCL(H(bgra), nullptr, 0, H(p010), nullptr, nullptr, nullptr, nullptr),
              ZVERR_UNSUPPORTED_MEDIA);
    // the copy family shares the context: it outlives the YUV family's end
    ASSERT_EQ(DibCopy_OpenCL_Initialize(nullptr, Log), S_OK);
    EXPECT_EQ(YUV_OpenCL_Shutdown(), S_OK);
    EXPECT_EQ(ZvYUV_YUVToRGB_OCL(H(bgra), nullptr, 0, H(i420), nullptr, nullptr, nullptr, nullptr), notStarted);
    for (ZVPIXELTYPE t : {ZVPT_BGR24, ZVPT_BGRA32, ZVPT_RGBA32, ZVPT_RGBA64, ZVPT_RGBAF})
        for (auto &sz : sizes) {
            SCOPED_TRACE(testing::Message() << "swap " << t << " " << sz[0] << "x" << sz[1]);
            std::vector<BYTE> want = Frame(t, sz[0], sz[1], sz[0] ^ t), got = want;
            ASSERT_EQ(ZvDibSwapRB(H(want), nullptr, 0), S_OK);
            ASSERT_EQ(ZvDibSwapRB_OCL(H(got), nullptr, 0), S_OK);
            EXPECT_TRUE(want == got);
        }
    EXPECT_EQ(ZvDibSwapRB_OCL(H(i420), nullptr, 0), E_NOTIMPL);
    // fades: whole frames and clipped rectangles, alpha kept or not, amounts
    // beyond 0..1; the float frame's sums in the plain order, unfused
    RECT part = {-3, 2, 20, 200};
    for (ZVPIXELTYPE t : {ZVPT_BGRA32, ZVPT_RGBA32, ZVPT_RGBAF})
        for (auto &sz : sizes)
            for (float amount : {-0.5f, 0.3f, 0.77f, 1.5f}) {
                SCOPED_TRACE(testing::Message() << "fade " << t << " " << sz[0] << "x" << sz[1] << " " << amount);
                std::vector<BYTE> want = Frame(t, sz[0], sz[1], sz[0] ^ t);
                if (t == ZVPT_RGBAF)
                    Unit(&want[sizeof(BITMAPINFOHEADER)], want.size() - sizeof(BITMAPINFOHEADER));
                std::vector<BYTE> got = want;
                const RECT *rect = amount > 0.5f ? &part : nullptr;
                DWORD flags = amount < 0.5f ? 1 : 0;
                ASSERT_EQ(ZvDibFadeToColor(H(want), nullptr, rect, 0x80FF4010, flags, amount), S_OK);
                ASSERT_EQ(ZvDibFadeToColorOCL(H(got), nullptr, rect, 0x80FF4010, flags, amount), S_OK);
                EXPECT_TRUE(want == got);
            }
    EXPECT_EQ(ZvDibFadeToColorOCL(H(i420), nullptr, nullptr, 0, 0, 0.5f), E_NOTIMPL);
    EXPECT_EQ(DibCopy_OpenCL_Shutdown(), S_OK);
    EXPECT_EQ(ZvDibSwapRB_OCL(H(bgra), nullptr, 0), notStarted);
}

#define START_OR_SKIP(call)                                                                     \
    do {                                                                                        \
        HRESULT hr_ = (call);                                                                   \
        if (hr_ == HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND) || hr_ == (HRESULT)0x8004E01B)       \
            GTEST_SKIP() << "no OpenCL runtime or device here: " << std::hex << hr_;            \
        ASSERT_EQ(hr_, S_OK);                                                                   \
    } while (0)

// Fill, box filter and the scaling copy of the copy family against their
// plain forms: every type each takes, odd sizes, both row orders, clipped
// rectangles, loose strides at odd addresses.
TEST(DibOpenCL, FillBoxAndScalingCopy)
{
    const HRESULT notStarted = HRESULT_FROM_WIN32(ERROR_INVALID_STATE);
    std::vector<BYTE> bgra = Frame(ZVPT_BGRA32, 16, 8, 2), other = Frame(ZVPT_BGRA32, 16, 8, 3);
    std::vector<BYTE> i420 = Frame(ZVPT_I420, 16, 8, 1), bgr = Frame(ZVPT_BGR24, 16, 8, 4);
    EXPECT_EQ(ZvDibFillRectOCL(H(bgra), nullptr, nullptr, 0), notStarted);
    EXPECT_EQ(ZvDibBoxFilterOCL(H(bgra), nullptr, 0, H(other), nullptr, 0, nullptr, 1, 1), notStarted);
    EXPECT_EQ(ZvDibCopyOCL(H(bgra), nullptr, 0, nullptr, H(other), nullptr, 0, nullptr, 0), notStarted);
    START_OR_SKIP(DibCopy_OpenCL_Initialize(nullptr, Log));

    const int sizes[][2] = {{1, 1}, {7, -5}, {33, 9}, {64, -31}, {321, 17}};
    const RECT rects[] = {{}, {-3, 2, 20, 200}, {5, 1, 6, 4}, {3, 0, 30, 3}};
    for (ZVPIXELTYPE t : {16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 34})
        for (auto &sz : sizes)
            for (int i = 0; i < 4; ++i) {
                SCOPED_TRACE(testing::Message() << "fill " << t << " " << sz[0] << "x" << sz[1] << " rect " << i);
                std::vector<BYTE> want = Frame(t, sz[0], sz[1], sz[0] + t), got = want;
                DWORD color = 0x80FF4010u + 0x01234567u * i;
                ASSERT_EQ(ZvDibFillRect(H(want), nullptr, i ? &rects[i] : nullptr, color), S_OK);
                ASSERT_EQ(ZvDibFillRectOCL(H(got), nullptr, i ? &rects[i] : nullptr, color), S_OK);
                EXPECT_TRUE(want == got);
            }
    EXPECT_EQ(ZvDibFillRectOCL(H(i420), nullptr, nullptr, 0), E_NOTIMPL);

    const ZVPIXELTYPE scaled[] = {ZVPT_GREY8, ZVPT_BGR24, ZVPT_BGRA32, ZVPT_RGBA32, ZVPT_RGBAF};
    const int radii[][2] = {{0, 0}, {1, 2}, {3, 0}, {5, 4}};
    for (ZVPIXELTYPE t : scaled)
        for (auto &sz : sizes)
            for (int i = 0; i < 4; ++i) {
                SCOPED_TRACE(testing::Message() << "box " << t << " " << sz[0] << "x" << sz[1] << " radii " << i);
                bool fl = t == ZVPT_RGBAF;
                std::vector<BYTE> src = Frame(t, sz[0], sz[1], sz[0] ^ t), dst = Frame(t, sz[0], sz[1], 9);
                if (fl)
                    Unit(ZvDibPixels(H(src)), H(src)->biSizeImage);
                Pixels in = Loose(src, fl ? 8 : 3, fl ? 4 : 1), want = Loose(dst, fl ? 4 : 5, fl ? 8 : 3), got = want;
                const RECT *rect = i & 1 ? &rects[1] : nullptr;
                ASSERT_EQ(ZvDibBoxFilter(H(src), in.p(), in.stride, H(dst), want.p(), want.stride, rect, radii[i][0],
                                         radii[i][1]), S_OK);
                ASSERT_EQ(ZvDibBoxFilterOCL(H(src), in.p(), in.stride, H(dst), got.p(), got.stride, rect, radii[i][0],
                                            radii[i][1]), S_OK);
                EXPECT_TRUE(want.buf == got.buf);
            }
    // in place, a negative radius, two types, a type the filter lacks
    EXPECT_EQ(ZvDibBoxFilterOCL(H(bgra), nullptr, 0, H(bgra), nullptr, 0, nullptr, 1, 1), E_INVALIDARG);
    EXPECT_EQ(ZvDibBoxFilterOCL(H(bgra), nullptr, 0, H(other), nullptr, 0, nullptr, -1, 1), E_INVALIDARG);
    EXPECT_EQ(ZvDibBoxFilterOCL(H(bgr), nullptr, 0, H(other), nullptr, 0, nullptr, 1, 1), E_NOTIMPL);
    EXPECT_EQ(ZvDibBoxFilterOCL(H(i420), nullptr, 0, H(i420), nullptr, 0, nullptr, 1, 1), E_NOTIMPL);

    // scaled up and down, bilinear and bicubic, at whole and fractional
    // positions, and a 1:1 copy
    const int shapes[][4] = {{33, 9, 64, -31}, {321, 17, 7, -5}, {64, -31, 64, 31}, {7, 5, 7, -5}, {1, 1, 9, 4}};
    const RECT fs = {3000, 5000, 20 * 16384 - 7000, 5 * 16384 + 100}, fd = {8192, 0, 6 * 16384 + 3, 4 * 16384};
    for (ZVPIXELTYPE t : scaled)
        for (auto &sh : shapes)
            for (DWORD flags : {0u, ZVDIBCOPY_BICUBIC, ZVDIBCOPY_FIXEDPOINT, ZVDIBCOPY_FIXEDPOINT | ZVDIBCOPY_BICUBIC}) {
                SCOPED_TRACE(testing::Message() << "copy " << t << " " << sh[0] << "x" << sh[1] << " to " << sh[2]
                                                << "x" << sh[3] << " flags " << std::hex << flags);
                bool fl = t == ZVPT_RGBAF, fixed = (flags & ZVDIBCOPY_FIXEDPOINT) != 0;
                std::vector<BYTE> src = Frame(t, sh[0], sh[1], sh[0] ^ t), dst = Frame(t, sh[2], sh[3], 7);
                if (fl)
                    Unit(ZvDibPixels(H(src)), H(src)->biSizeImage);
                Pixels in = Loose(src, fl ? 8 : 3, fl ? 4 : 1), want = Loose(dst, fl ? 4 : 5, fl ? 8 : 3), got = want;
                ASSERT_EQ(ZvDibCopy(H(src), in.p(), in.stride, fixed ? &fs : nullptr, H(dst), want.p(), want.stride,
                                    fixed ? &fd : nullptr, flags), S_OK);
                ASSERT_EQ(ZvDibCopyOCL(H(src), in.p(), in.stride, fixed ? &fs : nullptr, H(dst), got.p(), got.stride,
                                       fixed ? &fd : nullptr, flags), S_OK);
                EXPECT_TRUE(want.buf == got.buf);
            }
    // conversions between types and YUV stay with the plain form
    EXPECT_EQ(ZvDibCopyOCL(H(bgr), nullptr, 0, nullptr, H(other), nullptr, 0, nullptr, 0), ZVERR_UNSUPPORTED_MEDIA);
    EXPECT_EQ(ZvDibCopyOCL(H(i420), nullptr, 0, nullptr, H(other), nullptr, 0, nullptr, 0), ZVERR_UNSUPPORTED_MEDIA);
    EXPECT_EQ(DibCopy_OpenCL_Shutdown(), S_OK);
    EXPECT_EQ(ZvDibFillRectOCL(H(bgra), nullptr, nullptr, 0), notStarted);
}

// The interlace family: each form against ZvDibCopyInterlace with the flags
// it stands for, fields scaled up and down, both row orders, fixed-point
// rectangles, pixels at odd addresses.
TEST(DibOpenCL, InterlaceForms)
{
    typedef HRESULT (*Form)(const BITMAPINFOHEADER *, const void *, const RECT *, const BITMAPINFOHEADER *, void *,
                            const RECT *, DWORD);
    const Form forms[] = {ZvDibCopyInterlaceOCL, ZvDibCopyInterlaceVerticalOCL, ZvDibCopyInterlaceCopyFieldOCL,
                          ZvDibResampledInterlacedFrameOCL};
    const DWORD implied[] = {0, 0, ZVINTERLACE_TOFIELD, ZVINTERLACE_ONEFIELD};
    std::vector<BYTE> a = Frame(ZVPT_BGRA32, 16, 8, 2), b = Frame(ZVPT_BGRA32, 16, 8, 3);
    for (Form f : forms)
        EXPECT_EQ(f(H(a), nullptr, nullptr, H(b), nullptr, nullptr, 0), HRESULT_FROM_WIN32(ERROR_INVALID_STATE));
    START_OR_SKIP(DibInterlace_OpenCL_Initialize(nullptr, Log));

    const int shapes[][4] = {{33, 9, 64, -31}, {64, -31, 33, 17}, {7, -5, 7, 12}, {20, 10, 20, -10}};
    for (ZVPIXELTYPE t : {ZVPT_GREY8, ZVPT_BGR24, ZVPT_BGRA32, ZVPT_RGBAF})
        for (auto &sh : shapes)
            for (DWORD flags : {0u, ZVINTERLACE_FIELD_LOWER, ZVINTERLACE_ONEFIELD, ZVINTERLACE_TOFIELD,
                                ZVINTERLACE_TOFIELD | ZVINTERLACE_FIELD_LOWER, ZVINTERLACE_FIXEDPOINT})
                for (int i = 0; i < 4; ++i) {
                    SCOPED_TRACE(testing::Message() << "form " << i << " type " << t << " " << sh[0] << "x" << sh[1]
                                                    << " to " << sh[2] << "x" << sh[3] << " flags " << flags);
                    bool fl = t == ZVPT_RGBAF;
                    std::vector<BYTE> src = Frame(t, sh[0], sh[1], sh[0] ^ t), dst = Frame(t, sh[2], sh[3], 5);
                    if (fl)
                        Unit(ZvDibPixels(H(src)), H(src)->biSizeImage);
                    Pixels in = Loose(src, 0, fl ? 4 : 1), want = Loose(dst, 0, fl ? 8 : 3), got = want;
                    const LONG one = ZVSUBPIXEL_ONE;
                    RECT sr = {0, 3000, sh[0] * one, abs(sh[1]) * one - 5000}, dr = {0, 8192, sh[2] * one, 3 * one};
                    bool fixed = (flags & ZVINTERLACE_FIXEDPOINT) != 0;
                    HRESULT hr = forms[i](H(src), in.p(), fixed ? &sr : nullptr, H(dst), got.p(), fixed ? &dr : nullptr,
                                          flags);
                    if (i == 1 && sh[0] != sh[2]) {   // the vertical form refuses a change of width
                        EXPECT_EQ(hr, E_INVALIDARG);
                        EXPECT_TRUE(want.buf == got.buf);
                        continue;
                    }
                    ASSERT_EQ(ZvDibCopyInterlace(H(src), in.p(), fixed ? &sr : nullptr, H(dst), want.p(),
                                                 fixed ? &dr : nullptr, flags | implied[i]), S_OK);
                    ASSERT_EQ(hr, S_OK);
                    EXPECT_TRUE(want.buf == got.buf);
                }
    EXPECT_EQ(DibInterlace_OpenCL_Shutdown(), S_OK);
    EXPECT_EQ(ZvDibCopyInterlaceOCL(H(a), nullptr, nullptr, H(b), nullptr, nullptr, 0),
              HRESULT_FROM_WIN32(ERROR_INVALID_STATE));
}
