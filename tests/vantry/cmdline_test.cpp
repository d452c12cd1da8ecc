// The surrogate's command line and class ids, parsed in-process.
#include <gtest/gtest.h>
#include "vantrycmd.h"

namespace {

TEST(VantryCommandLine, LanguageIsTheLastTokenWhenItIsANumber)
{
    const LANGID kept = 0x1234;
    const struct {
        const wchar_t *line;
        LANGID lang;
    } cases[] = {
        {L"\"C:\\app\\x86\\Vantry.exe\" 1033", 0x409},
        {L"\"C:\\my app\\Vantry.exe\" 9 1031", 0x407},
        {L"Vantry.exe 65535", 0xFFFF},
        // no blank at all
        {L"Vantry.exe", kept},
        {L"\"C:\\app\\Vantry.exe\"", kept},
        // a letter after the digits, a sign, an empty token, a value out of range
        {L"Vantry.exe 1033x", kept},
        {L"Vantry.exe -1033", kept},
        {L"Vantry.exe +1033", kept},
        {L"Vantry.exe 1033 ", kept},
        {L"Vantry.exe 65536", kept},
        {L"Vantry.exe 99999999999999999999", kept},
        {L"", kept},
        {NULL, kept},
    };
    for (const auto &c : cases) {
        LANGID lang = kept;
        EXPECT_EQ(c.lang != kept, Vantry_ParseLanguage(c.line, &lang) != FALSE) << (c.line ? c.line : L"(null)");
        EXPECT_EQ(c.lang, lang) << (c.line ? c.line : L"(null)");
    }
}

TEST(VantryCommandLine, LanguageZeroIsTheUsersLanguage)
{
    LANGID expected = (LANGID)((GetUserDefaultLangID() & 0x3FF) | 0x400);
    LANGID lang = 0x1234;
    ASSERT_TRUE(Vantry_ParseLanguage(L"\"Vantry.exe\" 0", &lang));
    EXPECT_EQ(expected, lang);
    EXPECT_EQ(0x400, lang & 0xFC00);
}

TEST(VantryCommandLine, SwitchesIgnoreCaseAndPrefixAnythingElseRuns)
{
    const struct {
        const wchar_t *line;
        int mode;
    } cases[] = {
        {L"Vantry.exe /RegServer", VANTRY_REGSERVER},
        {L"Vantry.exe -regserver", VANTRY_REGSERVER},
        {L"Vantry.exe -UNREGSERVER 1033", VANTRY_UNREGSERVER},
        {L"Vantry.exe /regServerPerUser\t9", VANTRY_REGSERVER_PERUSER},
        {L"Vantry.exe -UnregServerPerUser", VANTRY_UNREGSERVER_PERUSER},
        {L"\"C:\\app\\x86\\Vantry.exe\" 1033", VANTRY_RUN},
        // a further letter makes the token none of the switches
        {L"Vantry.exe /RegServerX 1033", VANTRY_RUN},
        {L"Vantry.exe -UnregServerPerUsers", VANTRY_RUN},
        // a switch must be followed by a blank, a tab or the end
        {L"\"Z:/build/RegServer\" 1033", VANTRY_RUN},
        {L"Vantry.exe /Reg Server", VANTRY_RUN},
        {L"Vantry.exe / -", VANTRY_RUN},
        {L"", VANTRY_RUN},
        {NULL, VANTRY_RUN},
        // the scan goes on after a token that matched nothing
        {L"Vantry.exe /RegServerX -unregserver", VANTRY_UNREGSERVER},
        {L"C:/x/-y/Vantry.exe /regserver", VANTRY_REGSERVER},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.mode, (int)Vantry_ParseSwitch(c.line)) << (c.line ? c.line : L"(null)");
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
