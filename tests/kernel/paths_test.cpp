// Folder work, preset and shared folders, temporary files and paths shortened
// for display.
#include <gtest/gtest.h>
#include <shlobj.h>
#include <string>
#include "testutil.h"
#include "zverror.h"
#include "zvpaths.h"
#include "zvprintf.h"

namespace {

std::wstring Str(const wchar_t *s) { return s; }

// Width of a text in the DC's font.
int Extent(HDC dc, const wchar_t *text)
{
    SIZE size = {};
    GetTextExtentPoint32W(dc, text, (int)wcslen(text), &size);
    return size.cx;
}

} // namespace

TEST(ZvPathsFolders, MoveFolderKeepsEverythingAndRefusesBadTargets)
{
    zvtest::TempDir tmp;
    std::wstring src = tmp.file(L"src"), dst = tmp.file(L"dst");
    ASSERT_EQ(2, ZvCreateDirectory((src + L"\\inner").c_str(), nullptr));
    ASSERT_TRUE(zvtest::WriteFileBytes(src + L"\\a.bin", "abc", 3));
    ASSERT_TRUE(zvtest::WriteFileBytes(src + L"\\inner\\b.bin", "defg", 4));

    EXPECT_EQ(S_OK, ZvCanMoveFolder(src.c_str(), dst.c_str()));
    EXPECT_EQ(E_INVALIDARG, ZvCanMoveFolder(src.c_str(), (src + L"\\inner\\deeper").c_str())) << "into itself";
    EXPECT_EQ(ZVERR_NOT_FOUND, ZvCanMoveFolder(tmp.file(L"none").c_str(), dst.c_str()));
    EXPECT_EQ(ZVERR_NOT_FOUND, ZvCanMoveFolder(src.c_str(), tmp.file(L"no\\parent").c_str()));
    EXPECT_EQ(E_POINTER, ZvCanMoveFolder(nullptr, dst.c_str()));
    ASSERT_EQ(1, ZvCreateDirectory(tmp.file(L"taken").c_str(), nullptr));
    EXPECT_TRUE(FAILED(ZvCanMoveFolder(src.c_str(), tmp.file(L"taken").c_str()))) << "the target exists";
    EXPECT_TRUE(FAILED(ZvMoveFolder(src.c_str(), tmp.file(L"taken").c_str())));
    EXPECT_TRUE(ZvDoesFileExist((src + L"\\a.bin").c_str())) << "a refused move leaves the source alone";

    ASSERT_EQ(S_OK, ZvMoveFolder(src.c_str(), dst.c_str()));
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(src.c_str()));
    EXPECT_EQ(3, ZvGetFileSizeByName((dst + L"\\a.bin").c_str()));
    EXPECT_EQ(4, ZvGetFileSizeByName((dst + L"\\inner\\b.bin").c_str()));
}

TEST(ZvPathsFolders, DiskFreeSpaceTextAndTempFileErrors)
{
    zvtest::TempDir tmp;
    wchar_t text[64];
    int n = ZvFormatDiskFreeSpace(tmp.path().c_str(), text, 64);
    ASSERT_GT(n, 0);
    EXPECT_EQ((size_t)n, wcslen(text));
    EXPECT_EQ(0, ZvFormatDiskFreeSpace(L"Q:\\no\\such\\disk", text, 64));
    EXPECT_STREQ(L"", text);
    EXPECT_EQ(0, ZvFormatDiskFreeSpace(tmp.path().c_str(), text, 2)) << "too small a buffer";

    wchar_t name[MAX_PATH] = L"x";
    EXPECT_EQ(ZVERR_NOT_FOUND,
              ZvCreateTempFileAndNameEx(tmp.file(L"missing\\sub").c_str(), L"t", L".tmp", nullptr, name, MAX_PATH));
    EXPECT_STREQ(L"", name);
}

TEST(ZvPathsFolders, PresetFolderVersionWordAndStore)
{
    const DWORD v50 = 0x05000000u, v73 = 0x07030000u;
    const wchar_t *app = L"zvtest_presets";
    ASSERT_EQ(S_OK, ZvSetPresetFolder(L"C:\\Presets\\Five", v50, app));
    ASSERT_EQ(S_OK, ZvSetPresetFolder(L"C:\\Presets\\SevenThree", v73, app));
    HKEY h;
    ASSERT_EQ(ERROR_SUCCESS,
              RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Kelpo Media Works\\zvtest_presets\\5.0\\Metrics", 0,
                            KEY_READ, &h))
        << "major in bits 24 to 31, minor in 16 to 23";
    RegCloseKey(h);

    wchar_t buf[MAX_PATH];
    ASSERT_EQ(S_OK, ZvGetPresetFolder(buf, MAX_PATH, v50, app));
    EXPECT_STREQ(L"C:\\Presets\\Five", buf);
    ASSERT_EQ(S_OK, ZvGetPresetFolder(buf, MAX_PATH, v73, app));
    EXPECT_STREQ(L"C:\\Presets\\SevenThree", buf);

    // without the value: the documents folder
    ASSERT_EQ(S_OK, ZvSetPresetFolder(nullptr, v50, app));
    wchar_t docs[MAX_PATH];
    ASSERT_EQ(S_OK, SHGetFolderPathW(nullptr, CSIDL_PERSONAL, nullptr, 0, docs));
    ASSERT_EQ(S_OK, ZvGetPresetFolder(buf, MAX_PATH, v50, app));
    EXPECT_STREQ(docs, buf);
    EXPECT_EQ(E_INVALIDARG, ZvGetPresetFolder(buf, 259, v50, app));
    RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\Kelpo Media Works\\zvtest_presets");
}

TEST(ZvPathsFolders, SharedFoldersByIndex)
{
    wchar_t buf[MAX_PATH];
    ASSERT_EQ(S_OK, ZvGetSpecialTolanDefaultFolderName(0, buf, MAX_PATH));
    EXPECT_STREQ(L"Hallin Themes", buf);
    ASSERT_EQ(S_OK, ZvGetSpecialTolanDefaultFolderName(1, buf, MAX_PATH));
    EXPECT_STREQ(L"Audio Transitions", buf);
    EXPECT_EQ(E_INVALIDARG, ZvGetSpecialTolanDefaultFolderName(2, buf, MAX_PATH));
    EXPECT_EQ(ZVERR_BUFFER_TOO_SMALL, ZvGetSpecialTolanDefaultFolderName(1, buf, 5));
    EXPECT_EQ(E_INVALIDARG, ZvSetSpecialTolanFolder(-1, L"C:\\x"));

    // a stored folder wins over the one below the shared components
    wchar_t before[MAX_PATH] = L"";
    HRESULT hadShared = ZvGetSharedComponentsFolder(before, MAX_PATH);
    ASSERT_EQ(S_OK, ZvSetSpecialTolanFolder(1, L"C:\\Transitions\\"));
    ASSERT_EQ(S_OK, ZvGetSpecialTolanFolder(buf, MAX_PATH, 1));
    EXPECT_STREQ(L"C:\\Transitions\\", buf);
    ASSERT_EQ(S_OK, ZvSetSpecialTolanFolder(1, nullptr));
    HRESULT hr = ZvGetSpecialTolanFolder(buf, MAX_PATH, 1);
    if (SUCCEEDED(hadShared)) {
        EXPECT_EQ(S_OK, hr);
        EXPECT_NE(std::wstring::npos, Str(buf).find(L"Audio Transitions\\"));
    } else {
        EXPECT_EQ(hadShared, hr);
    }
}

TEST(ZvPathsFolders, HiddenByDefault)
{
    wchar_t folder[MAX_PATH];
    ASSERT_EQ(S_OK, SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, folder));
    EXPECT_TRUE(ZvIsHiddenFolderByDefault(folder));
    EXPECT_TRUE(ZvIsHiddenFolderByDefault((Str(folder) + L"\\Vendor\\Cache").c_str()));
    ASSERT_EQ(S_OK, SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, 0, folder));
    EXPECT_TRUE(ZvIsHiddenFolderByDefault(folder));
    EXPECT_FALSE(ZvIsHiddenFolderByDefault((Str(folder) + L"x").c_str())) << "a sibling with a longer name";
    ASSERT_EQ(S_OK, SHGetFolderPathW(nullptr, CSIDL_PERSONAL, nullptr, 0, folder));
    EXPECT_FALSE(ZvIsHiddenFolderByDefault(folder));
    EXPECT_FALSE(ZvIsHiddenFolderByDefault(nullptr));
}

TEST(ZvPathsDisplay, EllipsisByCharacters)
{
    const wchar_t *path = L"C:\\Projects\\Film\\Audio\\Takes\\scene12.wav";
    wchar_t out[MAX_PATH];
    // the text a call leaves, or its failure
    auto text = [&](HRESULT hr) { return hr == S_OK ? std::wstring(out) : L"failed " + std::to_wstring(hr); };
    EXPECT_EQ(path, text(ZvCalcPathEllipsis(path, out, MAX_PATH, 100))) << "a path that fits stays";
    EXPECT_EQ(L"C:\\...\\Audio\\Takes\\scene12.wav", text(ZvCalcPathEllipsis(path, out, MAX_PATH, 32)))
        << "whole folders go first";
    EXPECT_EQ(L"C:\\...\\scene12.wav", text(ZvCalcPathEllipsis(path, out, MAX_PATH, 20)));
    EXPECT_EQ(L"C:\\...\\sc...", text(ZvCalcPathEllipsis(path, out, MAX_PATH, 12))) << "then the name's end";
    EXPECT_EQ(L"..", text(ZvCalcPathEllipsis(path, out, MAX_PATH, 2)));
    EXPECT_EQ(L"\\\\server\\share\\...\\b\\c.txt",
              text(ZvCalcPathEllipsis(L"\\\\server\\share\\alpha\\b\\c.txt", out, MAX_PATH, 26)));
    EXPECT_EQ(ZVERR_BUFFER_TOO_SMALL, ZvCalcPathEllipsis(path, out, 10, 32));
    EXPECT_EQ(E_POINTER, ZvCalcPathEllipsis(nullptr, out, MAX_PATH, 32));

    EXPECT_EQ(L"scene12.wav", text(ZvFilenameFormat(path, out, MAX_PATH, 40))) << "the name without its folder";
    EXPECT_EQ(L"sce....wav", text(ZvFilenameFormat(path, out, MAX_PATH, 10))) << "start and extension around the dots";
    EXPECT_EQ(L"avery...", text(ZvFilenameFormat(L"C:\\x\\averyveryverylongname", out, MAX_PATH, 8)));
    EXPECT_EQ(L"sc...", text(ZvFilenameFormat(path, out, MAX_PATH, 5)))
        << "an extension longer than the room is cut too";
}

TEST(ZvPathsDisplay, EllipsisByPixels)
{
    const wchar_t *path = L"C:\\Projects\\Film\\Audio\\Takes\\scene12.wav";
    HDC dc = CreateCompatibleDC(nullptr);
    ASSERT_NE(dc, nullptr);
    HGDIOBJ old = SelectObject(dc, GetStockObject(DEFAULT_GUI_FONT));
    wchar_t out[MAX_PATH];
    const int full = Extent(dc, path);
    ASSERT_GT(full, 40);
    ASSERT_EQ(S_OK, ZvCalcPathEllipsisEx(dc, path, out, MAX_PATH, full));
    EXPECT_STREQ(path, out);
    const int limit = Extent(dc, L"C:\\...\\Takes\\scene12.wav");
    ASSERT_EQ(S_OK, ZvCalcPathEllipsisEx(dc, path, out, MAX_PATH, limit));
    EXPECT_STREQ(L"C:\\...\\Takes\\scene12.wav", out);
    ASSERT_EQ(S_OK, ZvFilenameFormatForWidth(dc, path, out, MAX_PATH, full / 4));
    EXPECT_LE(Extent(dc, out), full / 4);
    EXPECT_NE(nullptr, wcsstr(out, L"...")) << out;
    EXPECT_EQ(E_INVALIDARG, ZvCalcPathEllipsisEx(nullptr, path, out, MAX_PATH, 100));
    SelectObject(dc, old);
    DeleteDC(dc);
}

// The control's font and client width.
TEST(ZvPathsDisplay, EllipsisForAControl)
{
    const wchar_t *path = L"C:\\Projects\\Film\\Audio\\Takes\\scene12.wav";
    wchar_t out[MAX_PATH];
    HWND label = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 120, 20, nullptr, nullptr, nullptr, nullptr);
    if (!label)
        GTEST_SKIP() << "no window station";
    SendMessageW(label, WM_SETFONT, (WPARAM)GetStockObject(DEFAULT_GUI_FONT), FALSE);
    ASSERT_EQ(S_OK, ZvCalcPathEllipsisExCtl(label, path, out, MAX_PATH));
    HDC ldc = GetDC(label);
    HGDIOBJ lold = SelectObject(ldc, GetStockObject(DEFAULT_GUI_FONT));
    RECT rc;
    GetClientRect(label, &rc);
    EXPECT_LE(Extent(ldc, out), rc.right);
    EXPECT_EQ(0, wcsncmp(out, L"C:\\...\\", 7)) << out;
    ASSERT_EQ(S_OK, ZvFilenameFormatForCtl(label, path, out, MAX_PATH));
    EXPECT_STREQ(L"scene12.wav", out);
    SelectObject(ldc, lold);
    ReleaseDC(label, ldc);
    DestroyWindow(label);
    EXPECT_EQ(E_INVALIDARG, ZvFilenameFormatForCtl(label, path, out, MAX_PATH)) << "a window that is gone";
}
