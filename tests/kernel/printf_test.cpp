#include <gtest/gtest.h>
#include "zvprintf.h"
#include <atomic>
#include <string>
#include <thread>

namespace {

std::wstring fmt(const wchar_t *format, ...)
{
    wchar_t buffer[2048];
    va_list args;
    va_start(args, format);
    int written = -1;
    HRESULT hr = ZvNVPrintF(buffer, 2048, &written, format, args);
    va_end(args);
    EXPECT_EQ(hr, S_OK) << format;
    EXPECT_EQ(written, lstrlenW(buffer));
    return buffer;
}

std::wstring localeText(LCTYPE type)
{
    wchar_t text[16] = {};
    GetLocaleInfoW(LOCALE_USER_DEFAULT, type, text, 16);
    return text;
}

// Thousands and decimal separators as the user's locale has them.
std::wstring th() { return localeText(LOCALE_STHOUSAND); }
std::wstring dec() { return fmt(L"$*"); }

} // namespace

TEST(ZvPrintFFormat, ClassicConversions)
{
    EXPECT_EQ(fmt(L"%d|%5d|%-5d|%05d|%+d|% d", 42, 42, 42, -42, 7, 7), L"42|   42|42   |-0042|+7| 7");
    EXPECT_EQ(fmt(L"%x %X %#x %o %#o %u", 255, 255, 255, 8, 8, 0xFFFFFFFFu), L"ff FF 0xff 10 010 4294967295");
    EXPECT_EQ(fmt(L"%I64d %lld %I64u", -9000000000ll, 1ll << 40, ~0ull),
              L"-9000000000 1099511627776 18446744073709551615");
    EXPECT_EQ(fmt(L"%.3d|%.0d|%hd|%hhu", 5, 0, 70000, 300), L"005||4464|44");
    EXPECT_EQ(fmt(L"%s|%.2s|%6s|%-4s|%hs|%c|%hc", L"abc", L"abc", L"ab", L"x", "narrow", L'W', 'n'),
              L"abc|ab|    ab|x   |narrow|W|n");
    EXPECT_EQ(fmt(L"%s", (const wchar_t *)nullptr), L"(null)");
    EXPECT_EQ(fmt(L"%.2f|%8.3f|%-8.1f|%08.2f|%e|%.3g|%G", 3.14159, -2.5, 1.75, -1.5, 12345.678, 0.0001234, 1e-10),
              L"3.14|  -2.500|1.8     |-0001.50|1.234568e+04|0.000123|1E-10");
    EXPECT_EQ(fmt(L"%%|$$|100%% sure"), L"%|$|100% sure");
    // Not conversions: copied as text, no argument taken.
    EXPECT_EQ(fmt(L"50%q|$5|%5|%", 1), L"50%q|$5|%5|%");
    std::wstring longDirective = L"%" + std::wstring(300, L'1') + L"d";
    EXPECT_EQ(fmt(longDirective.c_str(), 1), longDirective);
}

TEST(ZvPrintFFormat, LocaleFormsAndFixedPoint)
{
    std::wstring t = th(), d = dec();
    EXPECT_EQ(fmt(L"$d|%d", 1234567, 1234567), L"1" + t + L"234" + t + L"567|1234567");
    EXPECT_EQ(fmt(L"$d|$u|$I64d", -1000, 999u, -1234567890123ll),
              L"-1" + t + L"000|999|-1" + t + L"234" + t + L"567" + t + L"890" + t + L"123");
    EXPECT_EQ(fmt(L"$x", 0x123456), L"123456");
    EXPECT_EQ(fmt(L"$.2f|%.2f", 1234567.126, 1234567.126), L"1" + t + L"234" + t + L"567" + d + L"13|1234567.13");
    EXPECT_EQ(fmt(L"$10.1f|", 1234.5), L"   1" + t + L"234" + d + L"5|");
    EXPECT_EQ(fmt(L"$.1z Gigabytes", 25), L"2" + d + L"5 Gigabytes");
    EXPECT_EQ(fmt(L"%.2z|%.1z|%z|$.3z", -5, 123456, 42, 1234567), L"-0.05|12345.6|42|1" + t + L"234" + d + L"567");
    EXPECT_EQ(fmt(L"%.20z", 5), L"0.00000000000000000005");
    EXPECT_EQ(fmt(L"$(1234567.5)|$(-42)|$(.5)"), L"1" + t + L"234" + t + L"567" + d + L"5|-42|" + d + L"5");
}

TEST(ZvPrintFFormat, Separators)
{
    EXPECT_EQ(fmt(L"$u$&:%u$&.%03u", 12, 3, 45), L"12.3.045");
    EXPECT_EQ(fmt(L"%02d$!:%02d$!.%02d$!,%02d", 1, 2, 3, 4), L"01:02.03,04");
    EXPECT_EQ(fmt(L"a$!xb$&,c"), L"axb,c"); // other followers: nothing written, follower kept
    EXPECT_EQ(fmt(L"$,"), localeText(LOCALE_SLIST));
    EXPECT_EQ(fmt(L"$:"), localeText(LOCALE_STIME));
    EXPECT_FALSE(dec().empty());
}

TEST(ZvPrintFFormat, Tokens)
{
    ASSERT_TRUE(ZvPrintF_InitTokens());
    EXPECT_TRUE(ZvPrintF_AddToken(L"TestApp.Name", L"Lumen"));
    EXPECT_EQ(fmt(L"[$(TestApp.Name)] $(testapp.NAME)"), L"[Lumen] Lumen");
    EXPECT_TRUE(ZvPrintF_AddToken(L"TESTAPP.name", L"Other")); // replaces, whatever the case
    EXPECT_EQ(fmt(L"$(TestApp.Name)"), L"Other");
    wchar_t value[8];
    EXPECT_EQ(ZvPrintF_GetToken(L"testapp.name", value, 8), 5);
    EXPECT_STREQ(value, L"Other");
    EXPECT_EQ(fmt(L"$(No.Such.Token) $(unclosed %d", 3), L"$(No.Such.Token) $(unclosed 3");
    EXPECT_TRUE(ZvPrintF_AddToken(L"Empty", nullptr));
    EXPECT_EQ(fmt(L"<$(Empty)>"), L"<>");
    EXPECT_TRUE(ZvPrintF_DeleteToken(L"TESTAPP.NAME"));
    EXPECT_FALSE(ZvPrintF_DeleteToken(L"TestApp.Name"));
    EXPECT_TRUE(ZvPrintF_DeleteToken(L"Empty"));
    EXPECT_EQ(fmt(L"$(TestApp.Name)"), L"$(TestApp.Name)");
    EXPECT_FALSE(ZvPrintF_AddToken(L"", L"x"));
    EXPECT_FALSE(ZvPrintF_AddToken(nullptr, L"x"));
    EXPECT_EQ(ZvPrintF_GetToken(L"gone", nullptr, 0), -1);
    std::wstring longName = L"$(" + std::wstring(300, L'n') + L")";
    EXPECT_EQ(fmt(longName.c_str()), longName);

    // Many tokens stay sorted and findable; freeing and recreating works.
    for (int i = 0; i < 100; i++) {
        wchar_t name[16], val[16];
        ZvCchPrintF(name, 16, nullptr, L"T%03d", (i * 37) % 100);
        ZvCchPrintF(val, 16, nullptr, L"v%d", (i * 37) % 100);
        ASSERT_TRUE(ZvPrintF_AddToken(name, val));
    }
    EXPECT_EQ(fmt(L"$(t000)$(T050)$(t099)"), L"v0v50v99");
    ZvPrintF_FreeTokens();
    EXPECT_EQ(fmt(L"$(T050)"), L"$(T050)");
    EXPECT_TRUE(ZvPrintF_AddToken(L"T050", L"back"));
    EXPECT_EQ(fmt(L"$(T050)"), L"back");
    ZvPrintF_FreeTokens();
}

TEST(ZvPrintFFormat, TokensUnderConcurrentChange)
{
    ASSERT_TRUE(ZvPrintF_AddToken(L"Steady", L"value"));
    std::atomic<int> failed{0};
    auto churn = [&] {
        for (int i = 0; i < 300; i++) {
            failed += !ZvPrintF_AddToken(L"Churn", (i & 1) ? L"odd" : L"even");
            ZvPrintF_DeleteToken(L"Churn");
        }
    };
    std::thread one(churn), two(churn);
    for (int i = 0; i < 300; i++) {
        std::wstring text = fmt(L"$(Steady)/$(Churn)");
        EXPECT_TRUE(text == L"value/odd" || text == L"value/even" || text == L"value/$(Churn)") << text;
    }
    one.join();
    two.join();
    EXPECT_EQ(failed.load(), 0);
    EXPECT_TRUE(ZvPrintF_DeleteToken(L"Steady"));

    wchar_t b[32];
    EXPECT_EQ(ZvComposeStr(b, 32, L"%1 of %2!d!", L"one", 5), 8);
    EXPECT_STREQ(b, L"one of 5");
    EXPECT_EQ(ZvComposeStr(b, 32, nullptr), 0);
    EXPECT_STREQ(b, L"");
}

TEST(ZvPrintFFormat, SmallBuffersAndBadArguments)
{
    wchar_t buffer[8];
    int written = -1;
    buffer[0] = L'x';
    EXPECT_EQ(ZvCchPrintF(buffer, 1, &written, L"abc"), ZVERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(buffer[0], 0);
    EXPECT_EQ(written, 0);
    EXPECT_EQ(ZvCchPrintF(buffer, 1, &written, L""), S_OK);
    // A cut inside an element stores what fits.
    EXPECT_EQ(ZvCchPrintF(buffer, 6, &written, L"ab%d", 123456), ZVERR_BUFFER_TOO_SMALL);
    EXPECT_STREQ(buffer, L"ab123");
    EXPECT_EQ(written, 5);
    EXPECT_EQ(ZvCchPrintF(buffer, 8, &written, L"%s", L"exactly"), S_OK);
    EXPECT_EQ(written, 7);
    EXPECT_EQ(ZvCchPrintF(buffer, 8, &written, L"%20s", L"x"), ZVERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(written, 7);
    EXPECT_EQ(ZvCchPrintF(buffer, 0, &written, L"abc"), ZVERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(ZvCchPrintF(nullptr, 8, &written, L"abc"), E_INVALIDARG);
    EXPECT_EQ(ZvCchPrintF(buffer, 8, &written, nullptr), E_INVALIDARG);
    EXPECT_EQ(buffer[0], 0);
    EXPECT_EQ(ZvCchPrintF(buffer, -1, &written, L"abc"), E_INVALIDARG);

    // String numbers the program does not have read as empty text.
    EXPECT_EQ(ZvCchPrintF(buffer, 8, &written, (const wchar_t *)(ULONG_PTR)60001), S_OK);
    EXPECT_EQ(written, 0);
    EXPECT_EQ(ZvCchPrintF(buffer, 8, &written, L"<%s>", (const wchar_t *)(ULONG_PTR)60001), S_OK);
    EXPECT_STREQ(buffer, L"<>");

    wchar_t big[64];
    EXPECT_EQ(ZvPrintF(big, L"%s=%d", L"n", 5), 3);
    EXPECT_STREQ(big, L"n=5");
}

TEST(ZvPrintFNumbers, GroupingAndTexts)
{
    std::wstring t = th(), d = dec();
    wchar_t b[64];
    EXPECT_EQ(ZvFormatNumber(L"-1234567.891", b, 64), (int)(14 + 2 * t.size()) - 2);
    EXPECT_EQ(std::wstring(b), L"-1" + t + L"234" + t + L"567.891");
    ZvFormatDecimalNumber(L"1234.5", b, 64);
    EXPECT_EQ(std::wstring(b), L"1234" + d + L"5");
    const struct { const wchar_t *number; int places; std::wstring text; } grouped[] = {
        {L"-1234567.896", 2, L"-1" + t + L"234" + t + L"567" + d + L"90"},
        {L"999.995", 2, L"1" + t + L"000" + d + L"00"}, {L"12", 3, L"12" + d + L"000"}, {L"2.5", 0, L"3"}};
    for (const auto &g : grouped) {
        ZvFormatGroupDecimalNumber(g.number, b, 64, g.places);
        EXPECT_EQ(g.text, std::wstring(b)) << g.number;
    }
    EXPECT_EQ(ZvFormatNumber(L"1234567", b, 4), 3); // cut, terminated
    EXPECT_STREQ(b, (L"1" + t + L"2").substr(0, 3).c_str());
    EXPECT_EQ(ZvFormatNumber(nullptr, b, 64), 0);

    ZvLongToText(LONG_MIN, b, FALSE);
    EXPECT_STREQ(b, L"-2147483648");
    ZvLongLongToText(LLONG_MIN, b, FALSE);
    EXPECT_STREQ(b, L"-9223372036854775808");
    ZvDWordToText(4000000000u, b, TRUE);
    EXPECT_EQ(std::wstring(b), L"4" + t + L"000" + t + L"000" + t + L"000");
    ZvDWordLongToText(~0ull, b, FALSE);
    EXPECT_STREQ(b, L"18446744073709551615");
    EXPECT_EQ(ZvLongToTextN(123456, b, 4, FALSE), 3);
    EXPECT_STREQ(b, L"123");
    ZvDoubleToText(b, -1234.5678, 2, TRUE);
    EXPECT_EQ(std::wstring(b), L"-1" + t + L"234" + d + L"57");
    ZvDoubleToTextN(b, 64, 0.5, 0, FALSE);
    EXPECT_TRUE(std::wstring(b) == L"0" || std::wstring(b) == L"1");
}

TEST(ZvPrintFNumbers, ByteSizes)
{
    std::wstring d = dec(), t = th();
    wchar_t b[64];
    const struct { ULONGLONG size; std::wstring text; } sizes[] = {
        {512, L"512"}, {1536, L"1" + d + L"50KB"},
        {0xFA000 - 1, L"1" + t + L"000" + d + L"00KB"}, // still KB: 999.999
        {0xFA000, L"1" + d + L"00MB"}, {0x3D090000, L"1" + d + L"00GB"}, {0x100000000ull, L"4" + d + L"19GB"}};
    for (const auto &s : sizes) {
        ZvGetByteSizeText(s.size, b);
        EXPECT_EQ(s.text, std::wstring(b)) << s.size;
    }
    ZvGetByteSizeTextWithSpace(2048, b);
    EXPECT_EQ(std::wstring(b), L"2" + d + L"00 KB");
    ZvGetByteSizeText2(7, b);
    EXPECT_STREQ(b, L"7 bytes");

    const struct { ULONGLONG size; DWORD options; std::wstring text; } files[] = {
        {0, 0, L"0 B"}, {1023, ZVFFS_LONGBYTES, L"1" + t + L"023 bytes"}, {1536, 0, L"1" + d + L"50 KB"},
        {1048575, 0, L"1" + t + L"023 KB"}, // never rounds up to 1024 KB
        {15ull << 60, 0, L"15" + d + L"0 EB"}};
    for (const auto &f : files) {
        ZvFormatFileSize(f.size, b, 64, f.options);
        EXPECT_EQ(f.text, std::wstring(b)) << f.size;
    }
    EXPECT_EQ(ZvFormatFileSize(5, nullptr, 64, 0), 0);
}

TEST(ZvPrintFNumbers, ParsingTokens)
{
    const wchar_t *text = L"  12, -7 ;0x1F zz";
    const wchar_t *end = nullptr;
    EXPECT_EQ(ZvTextToDWordToken(text, &end), 12u);
    EXPECT_EQ(ZvTextToLongToken(end, &end), -7);
    EXPECT_EQ(ZvHexToDWordToken(end, &end), 0x1Fu);
    EXPECT_STREQ(end, L"zz");
    EXPECT_EQ(ZvTextToDWordToken(end, &end), 0u);
    EXPECT_STREQ(end, L"zz"); // nothing read, nothing stepped over

    EXPECT_EQ(ZvTextToDWordToken(L"99999999999", nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(ZvTextToLongToken(L"-99999999999", nullptr), LONG_MIN);
    EXPECT_EQ(ZvTextToLongLongToken(L"-9223372036854775808", nullptr), LLONG_MIN);
    EXPECT_EQ(ZvTextToDWordLongToken(L"18446744073709551616", nullptr), ~0ull);
    EXPECT_EQ(ZvHexToDWordLongToken(L"ffffffffffff", nullptr), 0xFFFFFFFFFFFFull);
    EXPECT_DOUBLE_EQ(ZvTextToDoubleToken(L"-3.25e2, 1", &end), -325.0);
    EXPECT_STREQ(end, L"1");
    EXPECT_EQ(ZvTextToDWordToken(nullptr, &end), 0u);

    // Ex: defaults for what is no number, clamps for what is.
    EXPECT_EQ(ZvTextToDWordTokenEx(L"abc", &end, 0, 100, 55), 55u);
    EXPECT_EQ(ZvTextToDWordTokenEx(L"", &end, 0, 100, 55), 0u);
    EXPECT_EQ(ZvTextToDWordTokenEx(L"500", &end, 0, 100, 55), 100u);
    EXPECT_EQ(ZvTextToLongTokenEx(L"-50", &end, -10, 10, 3), -10);
    EXPECT_EQ(ZvTextToLongTokenEx(L"0x", &end, -10, 10, 3), 3);
    EXPECT_EQ(ZvTextToLongLongTokenEx(L"7 ", &end, 0, 10, 3), 7);
    EXPECT_EQ(ZvTextToDWordLongTokenEx(L"-", &end, 0, 10, 4), 4u);
    EXPECT_EQ(ZvHexToDWordTokenEx(L"g", &end, 0, 10, 9), 9u);
    EXPECT_EQ(ZvHexToDWordLongTokenEx(L"FF", &end, 0, 10, 9), 10u);
    EXPECT_DOUBLE_EQ(ZvTextToDoubleTokenEx(L"x", &end, 0.0, 1.0, 0.5), 0.5);
    EXPECT_DOUBLE_EQ(ZvTextToDoubleTokenEx(L"7.5", &end, 0.0, 1.0, 0.5), 1.0);

    wchar_t b[16];
    EXPECT_EQ(ZvColorrefToText(RGB(255, 128, 0), b), 9);
    EXPECT_STREQ(b, L"255,128,0");
    EXPECT_EQ(ZvTextToColorref(b), RGB(255, 128, 0));
    EXPECT_EQ(ZvTextToColorref(L"#FF8001"), RGB(255, 128, 1));
    EXPECT_EQ(ZvTextToColorref(L"0x00010203"), RGB(3, 2, 1));
    EXPECT_EQ(ZvTextToColorref(L"1 2"), 0u);
    EXPECT_EQ(ZvTextToColorrefToken(L"1 2 3, 4", &end), RGB(1, 2, 3));
    EXPECT_STREQ(end, L"4");

    EXPECT_STREQ(ZvFourCCToString(0x20424944, b), L"DIB ");
    EXPECT_STREQ(ZvFourCCToString(0x00017761, b), L"aw..");
}

// A multi-line edit control needs CR LF: the printed text's bare LFs are
// turned into them.
TEST(ZvPrintFControls, EditTextGetsCrLf)
{
    HWND edit = CreateWindowExW(0, L"EDIT", L"", WS_POPUP | ES_MULTILINE, 0, 0, 100, 100, nullptr, nullptr,
                                nullptr, nullptr);
    if (!edit)
        GTEST_SKIP() << "no window station";
    wchar_t b[64];
    EXPECT_TRUE(ZvMEditPrintF(edit, L"a\nb\r\n%d", 3));
    GetWindowTextW(edit, b, 64);
    EXPECT_STREQ(b, L"a\r\nb\r\n3");
    EXPECT_TRUE(ZvSetWindowTextNoF(edit, L"100%")); // no format: taken as it stands
    GetWindowTextW(edit, b, 64);
    EXPECT_STREQ(b, L"100%");
    DestroyWindow(edit);
    EXPECT_FALSE(ZvSetWindowTextF(nullptr, L"x"));
}
