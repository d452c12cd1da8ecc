// The surrogate's command line and class ids, parsed in-process.
#include <gtest/gtest.h>
#include "vantrycmd.h"

namespace {

LANGID parsedLanguage(const wchar_t *line, LANGID before = 0x1234)
{
    LANGID lang = before;
    Vantry_ParseLanguage(line, &lang);
    return lang;
}

TEST(VantryCommandLine, LanguageIsTheLastBlankSeparatedNumber)
{
    EXPECT_EQ(0x409, parsedLanguage(L"\"C:\\app\\x86\\Vantry.exe\" 1033"));
    EXPECT_EQ(0x407, parsedLanguage(L"\"C:\\my app\\Vantry.exe\" 9 1031"));
    EXPECT_EQ(0xFFFF, parsedLanguage(L"Vantry.exe 65535"));
}

TEST(VantryCommandLine, LanguageStaysWhenTheLastTokenIsNoNumber)
{
    // no blank at all
    EXPECT_EQ(0x1234, parsedLanguage(L"Vantry.exe"));
    EXPECT_EQ(0x1234, parsedLanguage(L"\"C:\\app\\Vantry.exe\""));
    // a letter after the digits, a sign, an empty token, a value out of range
    EXPECT_EQ(0x1234, parsedLanguage(L"Vantry.exe 1033x"));
    EXPECT_EQ(0x1234, parsedLanguage(L"Vantry.exe -1033"));
    EXPECT_EQ(0x1234, parsedLanguage(L"Vantry.exe +1033"));
    EXPECT_EQ(0x1234, parsedLanguage(L"Vantry.exe 1033 "));
    EXPECT_EQ(0x1234, parsedLanguage(L"Vantry.exe 65536"));
    EXPECT_EQ(0x1234, parsedLanguage(L"Vantry.exe 99999999999999999999"));
    EXPECT_EQ(0x1234, parsedLanguage(L""));
    EXPECT_EQ(0x1234, parsedLanguage(NULL));
    LANGID lang = 7;
    EXPECT_FALSE(Vantry_ParseLanguage(L"Vantry.exe 12a", &lang));
    EXPECT_EQ(7, lang);
}

TEST(VantryCommandLine, LanguageZeroIsTheUsersLanguage)
{
    LANGID expected = (LANGID)((GetUserDefaultLangID() & 0x3FF) | 0x400);
    LANGID lang = 0x1234;
    ASSERT_TRUE(Vantry_ParseLanguage(L"\"Vantry.exe\" 0", &lang));
    EXPECT_EQ(expected, lang);
    EXPECT_EQ(0x400, lang & 0xFC00);
}

TEST(VantryCommandLine, SwitchesIgnoreCaseAndPrefix)
{
    EXPECT_EQ(VANTRY_REGSERVER, Vantry_ParseSwitch(L"Vantry.exe /RegServer"));
    EXPECT_EQ(VANTRY_REGSERVER, Vantry_ParseSwitch(L"Vantry.exe -regserver"));
    EXPECT_EQ(VANTRY_UNREGSERVER, Vantry_ParseSwitch(L"Vantry.exe -UNREGSERVER 1033"));
    EXPECT_EQ(VANTRY_REGSERVER_PERUSER, Vantry_ParseSwitch(L"Vantry.exe /regServerPerUser\t9"));
    EXPECT_EQ(VANTRY_UNREGSERVER_PERUSER, Vantry_ParseSwitch(L"Vantry.exe -UnregServerPerUser"));
}

TEST(VantryCommandLine, AnythingElseRuns)
{
    EXPECT_EQ(VANTRY_RUN, Vantry_ParseSwitch(L"\"C:\\app\\x86\\Vantry.exe\" 1033"));
    // a further letter makes the token none of the switches
    EXPECT_EQ(VANTRY_RUN, Vantry_ParseSwitch(L"Vantry.exe /RegServerX 1033"));
    EXPECT_EQ(VANTRY_RUN, Vantry_ParseSwitch(L"Vantry.exe -UnregServerPerUsers"));
    // a switch must be followed by a blank, a tab or the end
    EXPECT_EQ(VANTRY_RUN, Vantry_ParseSwitch(L"\"Z:/build/RegServer\" 1033"));
    EXPECT_EQ(VANTRY_RUN, Vantry_ParseSwitch(L"Vantry.exe /Reg Server"));
    EXPECT_EQ(VANTRY_RUN, Vantry_ParseSwitch(L"Vantry.exe / -"));
    EXPECT_EQ(VANTRY_RUN, Vantry_ParseSwitch(L""));
    EXPECT_EQ(VANTRY_RUN, Vantry_ParseSwitch(NULL));
    // the scan goes on after a token that matched nothing
    EXPECT_EQ(VANTRY_UNREGSERVER, Vantry_ParseSwitch(L"Vantry.exe /RegServerX -unregserver"));
    EXPECT_EQ(VANTRY_REGSERVER, Vantry_ParseSwitch(L"C:/x/-y/Vantry.exe /regserver"));
}

TEST(VantryCommandLine, ProcessClassIdChangesOnlyData1)
{
    CLSID a, b;
    Vantry_ProcessClassId(0, &a);
    EXPECT_TRUE(IsEqualGUID(a, CLSID_Vantry32));
    Vantry_ProcessClassId(0x1234, &b);
    EXPECT_EQ(0x5CDF45F4u ^ 0x1234u, b.Data1);
    EXPECT_EQ(0, memcmp(&b.Data2, &CLSID_Vantry32.Data2, sizeof(CLSID) - 4));
}

TEST(VantryCommandLine, SurrogateLiesInTheX86FolderOfA64BitHost)
{
    wchar_t path[MAX_PATH];
    ASSERT_TRUE(Vantry_SurrogatePath(L"C:\\Program Files\\App\\app.exe", path, MAX_PATH));
#ifdef _WIN64
    EXPECT_STREQ(L"C:\\Program Files\\App\\x86\\Vantry.exe", path);
#else
    EXPECT_STREQ(L"C:\\Program Files\\App\\Vantry.exe", path);
#endif
    ASSERT_TRUE(Vantry_SurrogatePath(L"app.exe", path, MAX_PATH));
    EXPECT_EQ(0, wcsncmp(path + wcslen(path) - 10, L"Vantry.exe", 10));
    EXPECT_FALSE(Vantry_SurrogatePath(L"C:\\a\\app.exe", path, 8));
    std::wstring deep = L"C:\\" + std::wstring(250, L'a') + L"\\app.exe";
    EXPECT_FALSE(Vantry_SurrogatePath(deep.c_str(), path, MAX_PATH));
    EXPECT_EQ(E_INVALIDARG, Vantry_Launch(NULL, 1033, NULL));
    PROCESS_INFORMATION pi;
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE), Vantry_Launch(std::wstring(400, L'a').c_str(), 1033, &pi));
}

} // namespace
