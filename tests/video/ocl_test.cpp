// The OpenCL forms: a clear failure where no OpenCL is installed (the plain
// forms unaffected), and where one is, results equal to the plain forms'.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <vector>
#include "video/yuv.h"

namespace {

std::vector<BYTE> Frame(ZVPIXELTYPE t, int w, int h, unsigned seed)
{
    BITMAPINFOHEADER hd;
    EXPECT_EQ(ZvDibInfo(nullptr, nullptr, &hd, t, w, h, nullptr, 0), S_OK);
    std::vector<BYTE> f(sizeof(hd) + hd.biSizeImage);
    memcpy(f.data(), &hd, sizeof(hd));
    for (size_t i = sizeof(hd); i < f.size(); ++i)
        f[i] = (BYTE)((seed = seed * 1103515245u + 12345u) >> 16);
    return f;
}

BITMAPINFOHEADER *H(std::vector<BYTE> &f)
{
    return (BITMAPINFOHEADER *)f.data();
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
                std::vector<BYTE> want = Frame(t, sz[0], sz[1], sz[0] ^ t), got = want;
                if (t == ZVPT_RGBAF)   // floats of 0..1 (random bits would be NaNs and more)
                    for (size_t i = sizeof(BITMAPINFOHEADER); i + 4 <= want.size(); i += 4) {
                        float v = want[i] / 255.f + want[i + 1] / 65536.f;
                        memcpy(&want[i], &v, 4);
                        memcpy(&got[i], &v, 4);
                    }
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
