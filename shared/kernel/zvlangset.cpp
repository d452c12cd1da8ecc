// The user's language setting ("ULangID") and the process record of locale
// settings.
#include "zvlang.h"
#include "zvlangint.h"
#include "zvmetric.h"
#include "zvprintf.h"
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

const wchar_t kDefaultCompany[] = ZVMETRIC_COMPANY;
const wchar_t kLangValue[] = L"ULangID";

void langKeyPath(wchar_t *path, size_t cch, const wchar_t *company, const wchar_t *app, DWORD version,
                 BOOL noVersion)
{
    int major = static_cast<int>((version >> 24) & 0xFF);
    int minor = static_cast<int>((version >> 16) & 0xFF);
    if (noVersion || major == 0)
        _snwprintf(path, cch, L"Software\\%s\\%s\\Lang", company, app);
    else
        _snwprintf(path, cch, L"Software\\%s\\%s\\%d.%d\\Lang", company, app, major, minor);
    path[cch - 1] = 0;
}

bool readLangValue(HKEY hive, const wchar_t *path, LCID *lcid)
{
    HKEY key;
    if (RegOpenKeyExW(hive, path, 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS)
        return false;
    DWORD value = 0, type = 0, size = sizeof(value);
    LONG rc = RegQueryValueExW(key, kLangValue, nullptr, &type, reinterpret_cast<BYTE *>(&value), &size);
    RegCloseKey(key);
    if (rc != ERROR_SUCCESS || type != REG_DWORD || size != sizeof(value))
        return false;
    *lcid = value & 0xFFFF;
    return true;
}

BOOL loadUserLcid(const wchar_t *app, DWORD version, LCID *lcid, const wchar_t *company, BOOL noVersion)
{
    if (!app || !lcid)
        return FALSE;
    wchar_t path[800];
    langKeyPath(path, ARRAYSIZE(path), company && *company ? company : kDefaultCompany, app, version, noVersion);
    return readLangValue(HKEY_CURRENT_USER, path, lcid) || readLangValue(HKEY_LOCAL_MACHINE, path, lcid);
}

BOOL saveUserLcid(const wchar_t *app, DWORD version, LCID lcid, const wchar_t *company, BOOL noVersion)
{
    if (!app)
        return FALSE;
    wchar_t path[800];
    langKeyPath(path, ARRAYSIZE(path), company && *company ? company : kDefaultCompany, app, version, noVersion);
    HKEY key;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, path, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr) !=
        ERROR_SUCCESS)
        return FALSE;
    DWORD value = lcid & 0xFFFF;
    LONG rc = RegSetValueExW(key, kLangValue, 0, REG_DWORD, reinterpret_cast<const BYTE *>(&value), sizeof(value));
    RegCloseKey(key);
    return rc == ERROR_SUCCESS;
}

} // namespace

BOOL ZvLang_LoadUserLCIDMetric(const wchar_t *app, DWORD version, LCID *lcid, BOOL noVersion)
{
    return loadUserLcid(app, version, lcid, nullptr, noVersion);
}

BOOL ZvLang_LoadUserLCIDMetricAppReg(const wchar_t *app, DWORD version, LCID *lcid, const wchar_t *company)
{
    return loadUserLcid(app, version, lcid, company, FALSE);
}

BOOL ZvLang_SaveUserLCIDMetric(const wchar_t *app, DWORD version, LCID lcid, BOOL noVersion)
{
    return saveUserLcid(app, version, lcid, nullptr, noVersion);
}

BOOL ZvLang_SaveUserLCIDMetricAppReg(const wchar_t *app, DWORD version, LCID lcid, const wchar_t *company)
{
    return saveUserLcid(app, version, lcid, company, FALSE);
}

// --- The process record of locale settings ---------------------------------

namespace {

ZVINTERNATIONALS g_inat;
wchar_t g_langCode[4] = L"ENU";

template <size_t N>
void localeText(LCTYPE type, wchar_t (&text)[N], DWORD &length)
{
    int n = GetLocaleInfoW(LOCALE_USER_DEFAULT, type, text, static_cast<int>(N));
    if (n <= 0) {
        text[0] = 0;
        n = 1;
    }
    text[N - 1] = 0;
    length = static_cast<DWORD>(n - 1);
}

template <size_t N>
void constantText(const wchar_t *value, wchar_t (&text)[N], DWORD &length)
{
    lstrcpynW(text, value, static_cast<int>(N));
    length = static_cast<DWORD>(lstrlenW(text));
}

DWORD localeNumber(LCTYPE type, int base)
{
    wchar_t text[32];
    if (GetLocaleInfoW(LOCALE_USER_DEFAULT, type, text, ARRAYSIZE(text)) <= 0)
        return 0;
    return static_cast<DWORD>(wcstoul(text, nullptr, base));
}

void ensureFilled()
{
    if (!g_inat.size)
        ZvLang_GetInternationals(nullptr, 0);
}

struct Field {
    const wchar_t *text;
    DWORD length;
};

// Text selectors of ZvGetInat; a null text for numbers.
bool inatField(int selector, Field *field, DWORD *number)
{
    ensureFilled();
    const ZVINTERNATIONALS &r = g_inat;
    *field = Field{nullptr, 0};
    *number = 0;
    switch (selector) {
    case ZVINAT_SYSLANGUAGE: *number = r.systemLanguage; return true;
    case ZVINAT_LANGUAGE: *number = r.languageNumber; return true;
    case ZVINAT_COUNTRY: *number = r.countryNumber; return true;
    case ZVINAT_LANGNAME: *field = Field{r.languageName, r.languageNameLen}; return true;
    case ZVINAT_ENGLANGNAME: *field = Field{r.englishLanguageName, r.englishLanguageNameLen}; return true;
    case ZVINAT_DECIMALSEP: *field = Field{r.decimalSep, r.decimalSepLen}; return true;
    case ZVINAT_LISTSEP: *field = Field{r.listSep, r.listSepLen}; return true;
    case ZVINAT_TIMESEP: *field = Field{r.timeSep, r.timeSepLen}; return true;
    case ZVINAT_TC_WHOLE: *field = Field{r.tcWholeSep, r.tcWholeSepLen}; return true;
    case ZVINAT_TC_NONDROP: *field = Field{r.tcNonDropSep, r.tcNonDropSepLen}; return true;
    case ZVINAT_TC_DROP: *field = Field{r.tcDropSep, r.tcDropSepLen}; return true;
    case ZVINAT_MEASUREBEAT: *field = Field{r.measureBeatSep, r.measureBeatSepLen}; return true;
    case ZVINAT_BEATTICK: *field = Field{r.beatTickSep, r.beatTickSepLen}; return true;
    default: return false;
    }
}

} // namespace

namespace {

// Labels of timecode and music time fields, filled with the separators.
ZVLANGSTRING g_smpteLabel = ZVLANG_RESOURCE_TEXT(0x7410);      // "hr%smn%ssc%sfr"
ZVLANGSTRING g_smpteLabelFull = ZVLANG_RESOURCE_TEXT(0x7411);  // "hours%sminutes%sseconds%sframes"
ZVLANGSTRING g_musicLabel = ZVLANG_RESOURCE_TEXT(0x7412);      // "ms%sbt%stk"
ZVLANGSTRING g_musicLabelFull = ZVLANG_RESOURCE_TEXT(0x7413);  // "measures%sbeats%sticks"

void addLabelToken(const wchar_t *name, ZVLANGSTRING &record, const wchar_t *a, const wchar_t *b,
                   const wchar_t *c = nullptr)
{
    wchar_t label[128];
    ZvCchPrintF(label, ARRAYSIZE(label), nullptr, ZvGetString(ZvLang_GetKernelLang(), &record), a, b, c);
    ZvPrintF_AddToken(name, label);
}

// Sets the formatted-text tokens that follow the locale record.
void setLocaleTokens(const ZVINTERNATIONALS &r)
{
    ZvPrintF_AddToken(L"SMPTE.Whole", r.tcWholeSep);
    ZvPrintF_AddToken(L"SMPTE.NonDrop", r.tcNonDropSep);
    ZvPrintF_AddToken(L"SMPTE.Drop", r.tcDropSep);
    addLabelToken(L"SMPTE.Label.NonDrop", g_smpteLabel, r.tcWholeSep, r.tcWholeSep, r.tcNonDropSep);
    addLabelToken(L"SMPTE.Label.Drop", g_smpteLabel, r.tcWholeSep, r.tcWholeSep, r.tcDropSep);
    addLabelToken(L"SMPTE.Label.NonDrop.Full", g_smpteLabelFull, r.tcWholeSep, r.tcWholeSep, r.tcNonDropSep);
    addLabelToken(L"SMPTE.Label.Drop.Full", g_smpteLabelFull, r.tcWholeSep, r.tcWholeSep, r.tcDropSep);
    ZvPrintF_AddToken(L"m.b", r.measureBeatSep);
    ZvPrintF_AddToken(L"b.t", r.beatTickSep);
    addLabelToken(L"MusicTime.Label", g_musicLabel, r.measureBeatSep, r.beatTickSep);
    addLabelToken(L"MusicTime.Label.Full", g_musicLabelFull, r.measureBeatSep, r.beatTickSep);
}

} // namespace

int ZvLang_GetInternationals(ZVINTERNATIONALS *out, int size)
{
    if (out) {
        ensureFilled();
        if (size < static_cast<int>(sizeof(DWORD)))
            return 0;
        int n = size < static_cast<int>(sizeof(g_inat)) ? size : static_cast<int>(sizeof(g_inat));
        memcpy(out, &g_inat, n);
        out->size = static_cast<DWORD>(n);
        return n;
    }

    ZVINTERNATIONALS &r = g_inat;
    memset(&r, 0, sizeof(r));
    r.size = sizeof(r);
    r.systemLanguage = GetSystemDefaultLCID();
    r.languageNumber = localeNumber(LOCALE_ILANGUAGE, 16);
    localeText(LOCALE_SLANGUAGE, r.languageName, r.languageNameLen);
    localeText(LOCALE_SENGLANGUAGE, r.englishLanguageName, r.englishLanguageNameLen);
    r.countryNumber = localeNumber(LOCALE_ICOUNTRY, 10);
    localeText(LOCALE_SCOUNTRY, r.countryName, r.countryNameLen);
    localeText(LOCALE_SENGCOUNTRY, r.englishCountryName, r.englishCountryNameLen);
    localeText(LOCALE_SNEGATIVESIGN, r.negativeSign, r.negativeSignLen);
    constantText(L"-", r.plainMinus, r.plainMinusLen);
    localeText(LOCALE_STHOUSAND, r.thousandSep, r.thousandSepLen);
    localeText(LOCALE_SDECIMAL, r.decimalSep, r.decimalSepLen);
    r.grouping = localeNumber(LOCALE_SGROUPING, 10);
    r.digits = localeNumber(LOCALE_IDIGITS, 10);
    r.leadingZero = localeNumber(LOCALE_ILZERO, 10);
    localeText(LOCALE_STIME, r.timeSep, r.timeSepLen);
    localeText(LOCALE_SLIST, r.listSep, r.listSepLen);
    r.measure = localeNumber(LOCALE_IMEASURE, 10);
    constantText(L":", r.tcWholeSep, r.tcWholeSepLen);
    constantText(L".", r.tcNonDropSep, r.tcNonDropSepLen);
    constantText(L",", r.tcDropSep, r.tcDropSepLen);
    constantText(g_langCode, r.langCode, r.langCodeLen);
    constantText(L".", r.measureBeatSep, r.measureBeatSepLen);
    constantText(L".", r.beatTickSep, r.beatTickSepLen);
    zvlang_FixSeparators(r);
    setLocaleTokens(r);
    return static_cast<int>(sizeof(r));
}

void zvlang_FixSeparators(ZVINTERNATIONALS &r)
{
    // A decimal separator that reads like the thousands separator would make
    // numbers ambiguous.
    if (r.thousandSepLen && wcsncmp(r.thousandSep, r.decimalSep, r.thousandSepLen) == 0) {
        constantText(r.thousandSep[0] == L'.' ? L"," : L".", r.decimalSep, r.decimalSepLen);
    }
}

void ZvSetLangID(const wchar_t *code)
{
    if (!code || !*code)
        code = L"ENU";
    lstrcpynW(g_langCode, code, ARRAYSIZE(g_langCode));
    constantText(g_langCode, g_inat.langCode, g_inat.langCodeLen);
}

int ZvGetInat(int selector, wchar_t *buffer)
{
    Field field;
    DWORD number;
    if (buffer)
        buffer[0] = 0;
    if (!inatField(selector, &field, &number))
        return 0;
    if (!field.text)
        return static_cast<int>(number);
    if (buffer)
        memcpy(buffer, field.text, (field.length + 1) * sizeof(wchar_t));
    return static_cast<int>(field.length);
}

int ZvGetInatN(int selector, wchar_t *buffer, int cch)
{
    Field field;
    DWORD number;
    if (buffer && cch > 0)
        buffer[0] = 0;
    if (!inatField(selector, &field, &number))
        return 0;
    if (!field.text)
        return static_cast<int>(number);
    if (!buffer || cch <= 0)
        return 0;
    int n = static_cast<int>(field.length);
    if (n > cch - 1)
        n = cch - 1;
    memcpy(buffer, field.text, n * sizeof(wchar_t));
    buffer[n] = 0;
    return n;
}
