// Language handles, text forms, numbered strings, resources and locale.
#include <gtest/gtest.h>
#include "zvlang.h"
#include "zvprintf.h"
#include <string>
#include <vector>

namespace {

// A record whose columns name themselves, to see which column is chosen.
ZVLANGSTRING g_columns = {ZVLANG_MARK_WORD,
                          {L"c1", L"c2", L"c3", L"c4", L"c5", L"c6", L"c7", L"c8", L"c9", L"c10", L"c11",
                           L"c12", L"c13", L"c14", L"c15", L"c16", L"c17", L"c18"},
                          0};

// Kernel handle for the calls that need one; the language is put back to
// English by each test that changes it.
HZVLANG kernelLang()
{
    if (!ZvLang_GetKernelLang())
        ZvLang_OpenKernelLang(GetModuleHandleW(nullptr));
    return ZvLang_GetKernelLang();
}

class LangHandle {
public:
    explicit LangHandle(LCID lcid = 0, UINT pool = 0)
    {
        EXPECT_EQ(S_OK, ZvLang_Open(&lang_, GetModuleHandleW(nullptr), lcid, pool));
    }
    ~LangHandle()
    {
        if (ZvLang_GetKernelLang())
            ZvLang_UpdateKernelLCID(lang_, ZVLANG_ENGLISH, 0);
        ZvLang_Close(lang_);
    }
    operator HZVLANG() const { return lang_; }
    HZVLANG operator->() const { return lang_; }
private:
    HZVLANG lang_ = nullptr;
};

std::wstring column(LCID lcid)
{
    LangHandle lang(lcid);
    return ZvGetString(lang, &g_columns);
}

} // namespace

TEST(LangColumns, RegionalFormsFallOnTheirLanguageRow)
{
    // a regional form, the language row it falls on, the column it reads
    const struct { LCID lcid, row; const wchar_t *column; } rows[] = {
        {0x0C0A, 0x40A, L"c4"}, {0x0C04, 0x404, L"c7"}, {0x1404, 0x404, L"c7"}, {0x1004, 0x804, L"c6"},
        {0x0816, 0x816, L"c15"}, {0x0416, 0x416, L"c14"}, {0x0809, 0x409, L"c1"}, {0x0409, 0x409, L"c1"},
        {0x0411, 0x411, L"c2"}, {0x0415, 0x415, L"c18"},
        {0x041F, 0x41F, L"c1"}};  // Turkish has no column
    for (const auto &r : rows) {
        EXPECT_EQ(r.row, ZvLang_GetConditionedLCID(r.lcid)) << std::hex << r.lcid;
        EXPECT_EQ(r.column, column(r.lcid)) << std::hex << r.lcid;
    }
}

TEST(LangColumns, LanguageChangeRecomputesTheColumn)
{
    ASSERT_NE(nullptr, kernelLang());
    LangHandle lang(0x407);
    EXPECT_STREQ(L"c3", ZvGetString(lang, &g_columns));
    EXPECT_TRUE(ZvLang_UpdateKernelLCID(lang, 0x40C, 0));
    EXPECT_STREQ(L"c5", ZvGetString(lang, &g_columns));
    EXPECT_EQ(0x40Cu, ZvLang_GetLCID(ZvLang_GetKernelLang()));
    EXPECT_TRUE(ZvLang_UpdateKernelLCID(lang, 0, 0));
    EXPECT_EQ(0x409u, ZvLang_GetLCID(lang));
    EXPECT_FALSE(ZvLang_UpdateKernelLCID(nullptr, 0x407, 0));
}

TEST(LangText, ThreeFormsOfATextArgument)
{
    LangHandle lang(0x409);
    EXPECT_EQ(nullptr, ZvGetStringSmart(lang, nullptr));
    // Plain text, also when it is 4-aligned.
    static const wchar_t plain[] alignas(4) = L"plain";
    EXPECT_EQ(plain, ZvGetStringSmart(lang, plain));
    EXPECT_FALSE(IsZVLANGSTRINGID(lang, plain));
    // An odd address is plain text whatever its first code unit.
    alignas(4) static unsigned char raw[16] = {0, 0xFE, 0xFF, 'x', 0, 0, 0};
    const wchar_t *odd = reinterpret_cast<const wchar_t *>(raw + 1);
    EXPECT_EQ(odd, ZvGetStringSmart(lang, odd));
    EXPECT_FALSE(IsZVLANGSTRINGID(lang, odd));
    // A string number.
    EXPECT_STREQ(L"English six", ZvGetStringSmart(lang, MAKEINTRESOURCEW(0x6000)));
    // A record.
    EXPECT_TRUE(IsZVLANGSTRINGID(lang, &g_columns));
    EXPECT_STREQ(L"c1", ZvGetStringSmart(lang, ZVLANGTEXT(g_columns)));
}

TEST(LangText, RecordNumbersResolveInPlaceWithEnglishFallback)
{
    static ZVLANGSTRING fromResources = ZVLANG_RESOURCE_TEXT(0x6010);
    static ZVLANGSTRING unterminated = ZVLANG_RESOURCE_TEXT(0x6011);
    static ZVLANGSTRING missing = ZVLANG_RESOURCE_TEXT(0x60FF);
    {
        LangHandle lang(0x409);
        const wchar_t *text = ZvGetString(lang, &fromResources);
        EXPECT_STREQ(L"Record English", text);
        EXPECT_EQ(text, fromResources.text[0]);  // replaced by its pointer
    }
    {
        // The resource language is the row after the column's own: the
        // German column reads the Spanish table.
        LangHandle lang(0x407);
        EXPECT_STREQ(L"Record Spanish", ZvGetString(lang, &fromResources));
    }
    {
        LangHandle lang(0x40C);
        EXPECT_STREQ(L"Record English", ZvGetString(lang, &fromResources));
        // A text without its terminator cannot be pointed at.
        EXPECT_STREQ(L"", ZvGetString(lang, &unterminated));
        EXPECT_STREQ(L"", ZvGetString(lang, &missing));
    }
}

TEST(LangStrings, NumberedStringsFallBackToEnglishAndStripTheMarker)
{
    ASSERT_NE(nullptr, kernelLang());
    LangHandle lang(0x409);
    const wchar_t *six = ZvGetString(lang, 0x6000);
    EXPECT_STREQ(L"English six", six);
    EXPECT_EQ(six, ZvGetString(lang, 0x6000));  // cached
    EXPECT_STREQ(L"Word", ZvGetString(lang, 0x6002));
    EXPECT_STREQ(L"^", ZvGetString(lang, 0x6004));
    EXPECT_EQ(ZvLang_EmptyString(), ZvGetString(lang, 0x60FF));
    EXPECT_EQ(ZvLang_EmptyString(), ZvGetString(nullptr, 0x6000));

    wchar_t buffer[64];
    auto told = [&](int n) { return std::to_wstring(n) + L":" + buffer; };
    EXPECT_EQ(L"4:Word", told(ZvLoadString(lang, 0x6002, buffer, 64)));
    EXPECT_EQ(L"4:Engl", told(ZvLoadString(lang, 0x6000, buffer, 5)));
    EXPECT_EQ(L"0:", told(ZvLoadString(lang, 0x60FF, buffer, 64)));
    EXPECT_EQ(0, ZvLoadString(lang, 0x6000, nullptr, 64));

    // German, then a regional German, then a language with no table.
    ASSERT_TRUE(ZvLang_UpdateKernelLCID(lang, 0x407, 0));
    EXPECT_STREQ(L"Deutsch sechs", ZvGetString(lang, 0x6000));
    EXPECT_STREQ(L"Only English", ZvGetString(lang, 0x6001));
    ASSERT_TRUE(ZvLang_UpdateKernelLCID(lang, 0x0C07, 0));
    EXPECT_STREQ(L"English six", ZvGetString(lang, 0x6000));
    ASSERT_TRUE(ZvLang_UpdateKernelLCID(lang, 0x41F, 0));
    EXPECT_STREQ(L"English six", ZvGetString(lang, 0x6000));
}

TEST(LangStrings, LongStringIsCutInTheCache)
{
    LangHandle lang(0x409);
    EXPECT_EQ(1024, lstrlenW(ZvGetString(lang, 0x6003)));
    std::vector<wchar_t> buffer(4000);
    EXPECT_EQ(2000, ZvLoadString(lang, 0x6003, buffer.data(), 4000));
}

TEST(LangPool, RingWrapsAndRefusesOversizedRequests)
{
    LangHandle lang(0x409, 100);  // raised to 2048
    EXPECT_EQ(2048u, lang->poolChars);
    wchar_t *first = ZvGetTempStringBuffer(lang, 0);
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(0, first[0]);
    wchar_t *second = ZvGetTempStringBuffer(lang, 10);
    EXPECT_EQ(first + 2, second);
    EXPECT_EQ(second + 12, ZvGetTempStringBuffer(lang, 11));  // 13 rounded down to 12
    EXPECT_EQ(nullptr, ZvGetTempStringBuffer(lang, 1025));
    // Requests of the margin wrap to the start before they could overrun.
    for (int i = 0; i < 8; ++i) {
        wchar_t *area = ZvGetTempStringBuffer(lang, 1024);
        ASSERT_NE(nullptr, area);
        EXPECT_LE(area + 1024, lang->pool + lang->poolChars);
    }
    EXPECT_EQ(nullptr, ZvGetTempStringBuffer(nullptr, 4));

    EXPECT_STREQ("abc", ZvGetMultiByteFromPrintString(lang, L"abc"));
    EXPECT_STREQ(L"abc", ZvGetPrintFromMultiByteString(lang, "abc"));
    EXPECT_STREQ("", ZvGetMultiByteFromPrintString(nullptr, L"abc"));
    std::wstring longText(5000, L'y');
    EXPECT_GT(lstrlenA(ZvGetMultiByteFromPrintString(lang, longText.c_str())), 0);
}

TEST(LangInat, SelectorsAndSeparators)
{
    wchar_t buffer[64];
    auto told = [&](int n) { return std::to_wstring(n) + L":" + buffer; };
    ZvLang_GetInternationals(nullptr, 0);
    EXPECT_EQ(L"1::", told(ZvGetInat(ZVINAT_TC_WHOLE, buffer)));
    EXPECT_EQ(L"1:,", told(ZvGetInat(ZVINAT_TC_DROP, buffer)));
    EXPECT_EQ(L"0:", told(ZvGetInat(7, buffer)));
    EXPECT_EQ(L"0:", told(ZvGetInatN(ZVINAT_TIMESEP, buffer, 1)));
    EXPECT_EQ(static_cast<int>(GetSystemDefaultLCID()), ZvGetInat(ZVINAT_SYSLANGUAGE, nullptr));
    // The refresh also sets the tokens of timecode and music time labels.
    EXPECT_EQ(L"11:hr:mn:sc,fr", told(ZvPrintF_GetToken(L"SMPTE.Label.Drop", buffer, 64)));
    EXPECT_EQ(L"28:hours:minutes:seconds.frames", told(ZvPrintF_GetToken(L"SMPTE.Label.NonDrop.Full", buffer, 64)));
    EXPECT_EQ(L"8:ms.bt.tk", told(ZvPrintF_GetToken(L"MusicTime.Label", buffer, 64)));

    ZVINTERNATIONALS small = {};
    EXPECT_EQ(12, ZvLang_GetInternationals(&small, 12));
    EXPECT_EQ(12u, small.size);

    ZvSetLangID(L"DEUX");
    ZVINTERNATIONALS full = {};
    ZvLang_GetInternationals(&full, sizeof(full));
    EXPECT_STREQ(L"DEU", full.langCode);
    ZvSetLangID(nullptr);
    ZvLang_GetInternationals(&full, sizeof(full));
    EXPECT_STREQ(L"ENU", full.langCode);
}

void zvlang_FixSeparators(ZVINTERNATIONALS &record);

TEST(LangInat, DecimalSeparatorThatReadsLikeThousandsIsReplaced)
{
    auto fixed = [](const wchar_t *thousands, const wchar_t *decimal) {
        ZVINTERNATIONALS r = {};
        lstrcpyW(r.thousandSep, thousands);
        r.thousandSepLen = lstrlenW(thousands);
        lstrcpyW(r.decimalSep, decimal);
        r.decimalSepLen = lstrlenW(decimal);
        zvlang_FixSeparators(r);
        return std::wstring(r.decimalSep);
    };
    EXPECT_EQ(L",", fixed(L".", L"."));
    EXPECT_EQ(L".", fixed(L",", L","));
    EXPECT_EQ(L",", fixed(L"\u00a0", L","));
    EXPECT_EQ(L",", fixed(L"", L","));
}

namespace {

// Builds a .res image: the empty leading entry, then the given entries.
struct ResEntry {
    WORD type;
    const wchar_t *name;  // text name, or null for the number
    WORD number;
    WORD language;
    std::string data;
};

std::vector<BYTE> buildRes(const std::vector<ResEntry> &entries)
{
    std::vector<BYTE> out;
    auto put = [&](const void *p, size_t n) {
        const BYTE *b = static_cast<const BYTE *>(p);
        out.insert(out.end(), b, b + n);
    };
    auto align = [&]() {
        while (out.size() % 4)
            out.push_back(0);
    };
    auto entry = [&](WORD type, const wchar_t *name, WORD number, WORD language, const std::string &data) {
        std::vector<BYTE> header;
        size_t start = out.size();
        DWORD dataSize = static_cast<DWORD>(data.size()), headerSize = 0;
        put(&dataSize, 4);
        put(&headerSize, 4);
        WORD ff = 0xFFFF;
        put(&ff, 2);
        put(&type, 2);
        if (name)
            put(name, (wcslen(name) + 1) * 2);
        else {
            put(&ff, 2);
            put(&number, 2);
        }
        align();
        DWORD zero = 0;
        WORD flags = 0x30;
        put(&zero, 4);
        put(&flags, 2);
        put(&language, 2);
        put(&zero, 4);
        put(&zero, 4);
        headerSize = static_cast<DWORD>(out.size() - start);
        memcpy(&out[start + 4], &headerSize, 4);
        put(data.data(), data.size());
        align();
    };
    entry(0, nullptr, 0, 0, "");
    for (const auto &e : entries)
        entry(e.type, e.name, e.number, e.language, e.data);
    return out;
}

std::string poolFind(const std::vector<BYTE> &bytes, const wchar_t *name, const wchar_t *type, LCID lcid,
                     LCID *found = nullptr)
{
    ZVRESPOOL pool = {0, static_cast<DWORD>(bytes.size()), bytes.data()};
    DWORD size = 0;
    const void *p = ZvFindResourceInResPool(&pool, &size, name, type, lcid, found);
    return p ? std::string(static_cast<const char *>(p), size) : std::string("<none>");
}

} // namespace

TEST(LangResPool, ExactLanguageThenFirstOrKernelLanguage)
{
    ASSERT_NE(nullptr, kernelLang());
    std::vector<BYTE> bytes = buildRes({
        {5, nullptr, 100, 0x40C, "french"},
        {5, nullptr, 100, 0x407, "german"},
        {5, nullptr, 100, 0x409, "english"},
        {10, L"NAMED", 0, 0x409, "named"},
    });
    LCID found = 0;
    EXPECT_EQ("german", poolFind(bytes, MAKEINTRESOURCEW(100), RT_DIALOG, 0x0C07, &found));
    EXPECT_EQ(0x407u, found);
    // No match: the first entry, unless one is in the kernel's language.
    ZvLang_UpdateKernelLCID(ZvLang_GetKernelLang(), 0x409, 0);
    EXPECT_EQ("english", poolFind(bytes, MAKEINTRESOURCEW(100), RT_DIALOG, 0x411));
    ZvLang_UpdateKernelLCID(ZvLang_GetKernelLang(), 0x416, 0);
    EXPECT_EQ("french", poolFind(bytes, MAKEINTRESOURCEW(100), RT_DIALOG, 0x411));
    ZvLang_UpdateKernelLCID(ZvLang_GetKernelLang(), 0x409, 0);
    EXPECT_EQ("named", poolFind(bytes, L"named", RT_RCDATA, 0x409));
    EXPECT_EQ("<none>", poolFind(bytes, MAKEINTRESOURCEW(101), RT_DIALOG, 0x409));
    EXPECT_EQ("<none>", poolFind(bytes, L"100", RT_DIALOG, 0x409));

    // Short or damaged pools find nothing and never read past their end.
    std::vector<BYTE> shortPool(bytes.begin(), bytes.begin() + 31);
    EXPECT_EQ("<none>", poolFind(shortPool, MAKEINTRESOURCEW(100), RT_DIALOG, 0x40C));
    std::vector<BYTE> cut(bytes.begin(), bytes.end() - 20);
    EXPECT_EQ("french", poolFind(cut, MAKEINTRESOURCEW(100), RT_DIALOG, 0x40C));
    std::vector<BYTE> bad = bytes;
    DWORD huge = 0x7FFFFFF0;
    memcpy(&bad[32], &huge, 4);
    EXPECT_EQ("<none>", poolFind(bad, MAKEINTRESOURCEW(100), RT_DIALOG, 0x40C));
    EXPECT_EQ(nullptr, ZvFindResourceInResPool(nullptr, nullptr, MAKEINTRESOURCEW(1), RT_DIALOG, 0, nullptr));
    EXPECT_EQ(-1, ZvResPoolDialogBox(nullptr, nullptr, MAKEINTRESOURCEW(1), nullptr, nullptr, 0));
}

TEST(LangResources, LanguageFirstThenEnglish)
{
    ASSERT_NE(nullptr, kernelLang());
    LangHandle lang(0x409);
    DWORD size = 0;
    const char *data = static_cast<const char *>(
        ZvLoadResourceCustom(lang, MAKEINTRESOURCEW(0x6040), RT_RCDATA, &size));
    ASSERT_NE(nullptr, data);
    EXPECT_EQ("english", std::string(data, size));
    EXPECT_EQ(nullptr, ZvLoadResourceCustom(lang, MAKEINTRESOURCEW(0x6041), RT_RCDATA, &size));
    EXPECT_EQ(0u, size);

    ZvLang_UpdateKernelLCID(lang, 0x407, 0);
    data = static_cast<const char *>(ZvLoadResourceCustom(lang, MAKEINTRESOURCEW(0x6040), RT_RCDATA, &size));
    ASSERT_NE(nullptr, data);
    EXPECT_EQ("deutsch", std::string(data, size));
    // The dialog exists in English only.
    const DLGTEMPLATE *tmpl = nullptr;
    EXPECT_GT(ZvDialogTemplateFromRCID(lang, MAKEINTRESOURCEW(0x6030), &tmpl), 0u);
    EXPECT_NE(nullptr, tmpl);
    EXPECT_EQ(0u, ZvDialogTemplateFromRCID(lang, MAKEINTRESOURCEW(0x60FF), &tmpl));
    EXPECT_EQ(nullptr, tmpl);

    const wchar_t *types[] = {RT_DIALOG, RT_RCDATA};
    int found = -1;
    EXPECT_NE(nullptr, ZvFindResourceMulti(lang, MAKEINTRESOURCEW(0x6041), types, 2, &found));
    EXPECT_EQ(1, found);
    EXPECT_EQ(nullptr, ZvFindResourceMulti(lang, MAKEINTRESOURCEW(0x60FF), types, 2, &found));
    EXPECT_EQ(-1, found);
    EXPECT_NE(nullptr, ZvFindResource(lang, MAKEINTRESOURCEW(0x6030), RT_DIALOG));
    EXPECT_EQ(nullptr, ZvLoadMenu(lang, MAKEINTRESOURCEW(0x60FF)));
    EXPECT_EQ(-1, ZvDialogBoxParam(lang, MAKEINTRESOURCEW(0x60FF), nullptr, nullptr, 0));
}

TEST(LangResources, VersionLanguagesAndThreadLocale)
{
    wchar_t buffer[64] = L"untouched";
    LangHandle english(0x409);
    EXPECT_EQ(0, ZvEnumResourceLanguages(english, 0x6050, buffer, 64));
    EXPECT_STREQ(L"untouched", buffer);
    LangHandle german(0x407);
    EXPECT_EQ(7, ZvEnumResourceLanguages(german, 0x6050, buffer, 64));
    EXPECT_STREQ(L"DEU,ENU", buffer);
    EXPECT_EQ(3, ZvEnumResourceLanguages(german, 0x6050, buffer, 6));  // what fits
    EXPECT_EQ(0, ZvEnumResourceLanguages(german, 0x60FF, buffer, 64));

    LCID before = GetThreadLocale();
    EXPECT_TRUE(ZvLang_UpdateThreadLocale(german));
    EXPECT_EQ(0x407u, LANGIDFROMLCID(GetThreadLocale()));
    SetThreadLocale(before);
    EXPECT_FALSE(ZvLang_UpdateThreadLocale(nullptr));
}

TEST(LangResources, MenuLabelsLoseTheMarker)
{
    LangHandle lang(0x409);
    HMENU menu = ZvLoadMenu(lang, MAKEINTRESOURCEW(0x6020));
    ASSERT_NE(nullptr, menu);
    wchar_t label[64];
    GetMenuStringW(menu, 0, label, 64, MF_BYPOSITION);
    EXPECT_STREQ(L"File", label);
    HMENU popup = GetSubMenu(menu, 0);
    GetMenuStringW(popup, 0x6021, label, 64, MF_BYCOMMAND);
    EXPECT_STREQ(L"Open", label);
    GetMenuStringW(popup, 0x6022, label, 64, MF_BYCOMMAND);
    EXPECT_STREQ(L"Keep ^*", label);
    DestroyMenu(menu);
    EXPECT_NE(nullptr, ZvLoadCursor(nullptr, IDC_ARROW));
}

TEST(LangSetting, UserLanguageRoundTrip)
{
    const wchar_t *app = L"ZvLangTestApp";
    DWORD version = 0x02030000;  // 2.3
    LCID lcid = 0;
    EXPECT_FALSE(ZvLang_LoadUserLCIDMetric(app, version, &lcid, FALSE));
    EXPECT_TRUE(ZvLang_SaveUserLCIDMetric(app, version, 0x10407, FALSE));
    EXPECT_TRUE(ZvLang_LoadUserLCIDMetric(app, version, &lcid, FALSE));
    EXPECT_EQ(0x407u, lcid);  // low 16 bits only
    HKEY key;
    ASSERT_EQ(ERROR_SUCCESS,
              RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Kelpo Media Works\\ZvLangTestApp\\2.3\\Lang", 0,
                            KEY_READ, &key));
    RegCloseKey(key);
    // Without version the sibling key is used.
    EXPECT_FALSE(ZvLang_LoadUserLCIDMetric(app, version, &lcid, TRUE));
    EXPECT_TRUE(ZvLang_SaveUserLCIDMetricAppReg(app, 0, 0x411, L"Other Works"));
    EXPECT_TRUE(ZvLang_LoadUserLCIDMetricAppReg(app, 0, &lcid, L"Other Works"));
    EXPECT_EQ(0x411u, lcid);
    EXPECT_FALSE(ZvLang_LoadUserLCIDMetric(nullptr, version, &lcid, FALSE));
    RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\Kelpo Media Works\\ZvLangTestApp");
    RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\Other Works");
}

TEST(LangHandleInfo, NamesTagsAndDirection)
{
    LangHandle japanese(1041), english(0x409), traditional(0x404), arabic(0x401);
    wchar_t buffer[64];
    // what a call returns and the text it leaves
    auto told = [&](int n) { return std::to_wstring(n) + L":" + buffer; };
    EXPECT_EQ(L"8:Sato Ken", told(ZvLang_LocalizeUserName(japanese, L"Ken", L"Sato", buffer, 64)));
    EXPECT_EQ(L"8:Ken Sato", told(ZvLang_LocalizeUserName(english, L"Ken", L"Sato", buffer, 64)));
    EXPECT_EQ(3, ZvLang_LocalizeUserName(english, L"Ken", L"Sato", buffer, 4));
    EXPECT_EQ(L"0:ja-JP", told(ZvLang_GetLangllCC(japanese, buffer, 64)));
    EXPECT_EQ(L"0:zh-CN", told(ZvLang_GetLangllCC(traditional, buffer, 64)));
    EXPECT_EQ(L"1:", told(ZvLang_GetLangllCC(english, buffer, 64)));
    EXPECT_TRUE(ZvLang_GetLangAbbrev(english, buffer, 64));
    EXPECT_STREQ(L"ENU", buffer);
    EXPECT_TRUE(ZvLang_UseRTL(arabic));
    EXPECT_FALSE(ZvLang_UseRTL(english));
    EXPECT_FALSE(ZvLang_UseRTL(nullptr));
    EXPECT_TRUE(ZvLang_IsLCIDEnglish(0x809));
    EXPECT_EQ(0u, ZvLang_GetLCID(nullptr));
    HZVLANG out = reinterpret_cast<HZVLANG>(1);
    EXPECT_EQ(E_OUTOFMEMORY, ZvLang_Open(&out, nullptr, 0, 0xFFFFFFFF));
    EXPECT_EQ(nullptr, out);
    ZvLang_Close(nullptr);
}
