// Path helpers and the apartment spy.
#include <gtest/gtest.h>
#include "testutil.h"
#include "zvpaths.h"
#include "zvcomspy.h"
#include <shlobj.h>
#include <string>
#include <thread>

TEST(ZvPaths, NamePartsAndEdits)
{
    EXPECT_STREQ(L"b.txt", ZvGetFileNamePtrW(L"C:\\a\\b.txt"));
    EXPECT_STREQ(L".txt", ZvGetFileNameExtensionPtrW(L"C:\\a.d\\b.txt"));
    EXPECT_STREQ(L"", ZvGetFileNameExtensionPtrW(L"C:\\a.d\\b"));
    EXPECT_STREQ("c", ZvGetFileNamePtrA("x/y/c"));

    wchar_t p[MAX_PATH] = L"C:\\plug\\reader";
    EXPECT_EQ(S_OK, ZvAddExtensionToPathName(p, MAX_PATH, L"*.dll"));
    EXPECT_STREQ(L"C:\\plug\\reader.dll", p);
    EXPECT_EQ(S_OK, ZvAddExtensionToPathName(p, MAX_PATH, L"*.exe")); // has one already
    EXPECT_STREQ(L"C:\\plug\\reader.dll", p);
    EXPECT_EQ(S_OK, ZvReplaceExtensionOnPathName(p, MAX_PATH, L"ini"));
    EXPECT_STREQ(L"C:\\plug\\reader.ini", p);
    wchar_t small[8] = L"abc";
    EXPECT_EQ(ZVERR_BUFFER_TOO_SMALL, ZvAddExtensionToPathName(small, 8, L".long1"));
    EXPECT_STREQ(L"abc", small);

    wchar_t d[MAX_PATH] = L"C:\\a\\b\\";
    EXPECT_TRUE(ZvDirectoryUpOneLevel(d));
    EXPECT_STREQ(L"C:\\a\\", d);
    wchar_t r[4] = L"C:\\";
    EXPECT_FALSE(ZvDirectoryUpOneLevel(r));
    wchar_t out[MAX_PATH];
    EXPECT_EQ(S_OK, ZvGetRootPathFromFilePath(L"\\\\srv\\share\\x\\y", out, MAX_PATH));
    EXPECT_STREQ(L"\\\\srv\\share\\", out);
    EXPECT_EQ(S_OK, ZvGetFileNameWithoutPathOrExtension(L"C:\\a\\plug.in.dll", out, MAX_PATH));
    EXPECT_STREQ(L"plug.in", out);
    EXPECT_STREQ(L"b\\c.txt", ZvGetFileNamePtrRelative(L"C:\\A\\b\\c.txt", L"c:\\a"));
    EXPECT_EQ(nullptr, ZvGetFileNamePtrRelative(L"C:\\ab\\c.txt", L"C:\\a"));
}

TEST(ZvPaths, ValidateAndWildcards)
{
    wchar_t n1[] = L"name.";
    EXPECT_EQ(0, ZvValidateFileName(n1, FALSE));
    EXPECT_STREQ(L"name.", n1);
    EXPECT_EQ(0, ZvValidateFileName(n1, TRUE));
    EXPECT_STREQ(L"name_", n1);
    wchar_t n2[] = L"a<b>|c";
    EXPECT_EQ(0, ZvValidateFileName(n2, TRUE));
    EXPECT_STREQ(L"a_b__c", n2);
    wchar_t n3[] = L"";
    EXPECT_EQ(1, ZvValidateFileName(n3, FALSE));
    wchar_t n4[] = L"fine name.txt";
    EXPECT_EQ(1, ZvValidateFileName(n4, TRUE));

    const struct { const wchar_t *pattern, *name; bool match; } wild[] = {
        {L"*", L"a.b.c", true},  {L"*.txt", L"a.txt", true}, {L"*.txt", L"a.b.txt", false},
        {L"*.txt", L"a.TXT", false}, // case-sensitive
        {L"a?c", L"abc", true},  {L"a?c", L"ac", false},     {L"abc.", L"abc", true},
        {L"abc", L"abc.", true}, {L"ab*", L"ab", true}};
    for (const auto &w : wild)
        EXPECT_EQ(w.match, ZvIsMatchWildCard(w.pattern, w.name) != FALSE) << w.pattern << " " << w.name;
    EXPECT_FALSE(ZvIsMatchWildCard(nullptr, L"x"));
}

TEST(ZvPaths, FoldersFilesAndTimes)
{
    zvtest::TempDir tmp;
    std::wstring deep = tmp.path() + L"\\one\\two\\three";
    EXPECT_EQ(3, ZvCreateDirectory(deep.c_str(), nullptr));
    EXPECT_EQ(0, ZvCreateDirectory(deep.c_str(), nullptr));
    EXPECT_EQ(0, ZvCreateDirectory((tmp.path() + L"\\one\\..\\x").c_str(), nullptr));
    EXPECT_EQ(0, ZvCreateDirectory(L"Q:\\no\\such\\root", nullptr));
    EXPECT_FALSE(ZvIsDirectoryEmpty(tmp.path().c_str()));
    EXPECT_TRUE(ZvIsDirectoryEmptyRecursive(tmp.path().c_str()));

    // ten numbered files exist: the next temporary file takes 11
    for (int i = 1; i <= 10; ++i)
        ASSERT_TRUE(zvtest::WriteFileBytes(tmp.file((L"t" + std::to_wstring(i) + L".tmp").c_str()), "x", 1));
    wchar_t name[MAX_PATH];
    ASSERT_EQ(S_OK, ZvCreateTempFileAndNameEx(tmp.path().c_str(), L"t", L".tmp", nullptr, name, MAX_PATH));
    EXPECT_EQ(tmp.file(L"t11.tmp"), std::wstring(name));
    EXPECT_EQ(E_INVALIDARG, ZvCreateTempFileAndNameEx(nullptr, nullptr, nullptr, nullptr, name, MAX_PATH));
    EXPECT_EQ(E_INVALIDARG, ZvCreateTempFileAndNameEx(tmp.path().c_str(), L"t", L".tmp", nullptr, nullptr, 0));
    EXPECT_EQ(E_INVALIDARG, ZvCreateTempFileAndNameEx(tmp.path().c_str(), L"t", L".tmp", nullptr, name, 5));
    EXPECT_FALSE(ZvIsDirectoryEmptyRecursive(tmp.path().c_str()));
    EXPECT_EQ(10, ZvGetDirectorySize(tmp.path().c_str())); // ten bytes and an empty file
    EXPECT_EQ(9, ZvDeleteFiles(tmp.path().c_str(), L"t?.tmp"));
    EXPECT_EQ(2, ZvDeleteFiles(tmp.path().c_str(), L"t??.tmp"));

    EXPECT_EQ(0u, ZvDosGetDateTimeUTC(tmp.file(L"missing").c_str()));
    std::wstring f = tmp.file(L"stamp.bin");
    ASSERT_TRUE(zvtest::WriteFileBytes(f, "abc", 3));
    HANDLE h = CreateFileW(f.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    SYSTEMTIME st = {2021, 6, 0, 15, 10, 20, 30, 0};
    FILETIME ft;
    SystemTimeToFileTime(&st, &ft);
    SetFileTime(h, nullptr, nullptr, &ft);
    CloseHandle(h);
    DWORD dos = ZvDosGetDateTimeUTC(f.c_str());
    EXPECT_EQ((DWORD)(((2021 - 1980) << 9) | (6 << 5) | 15), dos >> 16);
    EXPECT_EQ((DWORD)((10 << 11) | (20 << 5) | 15), dos & 0xFFFF);
    EXPECT_EQ(3, ZvGetFileSizeByName(f.c_str()));
    EXPECT_TRUE(ZvDoesFileExist(f.c_str()));
    EXPECT_FALSE(ZvDoesFileExist(tmp.path().c_str())); // a folder isn't a file
}

TEST(ZvPaths, ExecutableInfo)
{
    zvtest::TempDir tmp;
    WORD machine = 0, subsystem = 0;
    ASSERT_EQ(S_OK, ZvGetFileExecutableInfo(zvtest::ExePath().c_str(), &machine, &subsystem));
#ifdef _WIN64
    EXPECT_EQ(IMAGE_FILE_MACHINE_AMD64, machine);
#else
    EXPECT_EQ(IMAGE_FILE_MACHINE_I386, machine);
#endif
    EXPECT_EQ(IMAGE_SUBSYSTEM_WINDOWS_CUI, subsystem);
    std::wstring text = tmp.file(L"fake.dll");
    ASSERT_TRUE(zvtest::WriteFileBytes(text, "MZ but not really a program", 27));
    EXPECT_EQ(ZVERR_MALFORMED, ZvGetFileExecutableInfo(text.c_str(), &machine, nullptr));
    EXPECT_EQ(0, machine);
    EXPECT_EQ(ZVERR_FILE_OPEN, ZvGetFileExecutableInfo(tmp.file(L"none.dll").c_str(), &machine, nullptr));
    EXPECT_FALSE(ZvIsFileExecutable(text.c_str()));
}

TEST(ZvPaths, SpecialFolders)
{
    wchar_t buf[MAX_PATH];
    EXPECT_EQ(E_INVALIDARG, ZvGetSpecialFolderVer(buf, 259, CSIDL_LOCAL_APPDATA, L"zvtest", 1, 0));
    ASSERT_EQ(S_OK, ZvGetSpecialFolderVer(buf, MAX_PATH, CSIDL_LOCAL_APPDATA, L"zvtest_paths", 3, 1));
    std::wstring got = buf;
    EXPECT_NE(std::wstring::npos, got.find(L"zvtest_paths\\3.1"));
    DWORD a = GetFileAttributesW(buf);
    EXPECT_TRUE(a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY));
    // leave nothing behind
    wchar_t top[MAX_PATH];
    SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, top);
    EXPECT_EQ(S_OK, ZvDeleteDirectoryTree((std::wstring(top) + L"\\zvtest_paths").c_str()));
}

// A spy registers for its thread's apartment while it holds it.
TEST(ZvComSpy, RegistersForTheApartmentAndCopies)
{
    std::thread([] {
        CMonitored_CoInitializeEx spy;
        IUnknown *unk = nullptr;
        EXPECT_EQ(S_OK, spy.QueryInterface(IID_IInitializeSpy, (void **)&unk));
        EXPECT_EQ(unk, &spy);
        EXPECT_EQ(E_NOINTERFACE, spy.QueryInterface(IID_IClassFactory, (void **)&unk));
        EXPECT_EQ(nullptr, unk);
        EXPECT_EQ(1u, spy.AddRef());
        EXPECT_EQ(1u, spy.Release());
        ASSERT_TRUE(SUCCEEDED(spy.CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
        EXPECT_NE(0, spy.Cookie().QuadPart);
        CMonitored_CoInitializeEx copy(spy);
        EXPECT_EQ(spy.Cookie().QuadPart, copy.Cookie().QuadPart);
        spy.CoUninitialize();
        EXPECT_EQ(0, spy.Cookie().QuadPart);
        // without a registration the revoke of cookie 0 fails quietly
        CMonitored_CoInitializeEx never;
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        never.CoUninitialize();
    }).join();
}
