// Language handles, multi-language text records, numbered strings and
// language-aware resource loading.
//
// Every user text argument of the kernel is a `const wchar_t*` in one of
// three forms: plain text, a string number below 0x10000 (MAKEINTRESOURCE
// style), or a 4-aligned pointer to a ZVLANGSTRING record whose first 16 bits
// are 0xFFFE. ZvGetStringSmart turns any of them into text.
#pragma once
#include "zvbase.h"
#include <commctrl.h>

struct tZVLIST;

// Language columns of a record, in this order.
#define ZVLANG_COLUMNS 18
#define ZVLANG_RECORD_MARK 0xFFFEu
#define ZVLANG_ENGLISH 0x409u

// One text in all languages. Entries above 0xFFFF point to text; smaller ones
// are string resource numbers, replaced by the text's pointer on first use
// (hence records are writable data).
typedef struct tagZVLANGSTRING {
    UINT_PTR mark;                           // 0xFFFE | (columns << 16)
    const wchar_t *text[ZVLANG_COLUMNS];     // English first
    UINT_PTR end;                            // zero
} ZVLANGSTRING;

#define ZVLANG_MARK_WORD ((UINT_PTR)(ZVLANG_RECORD_MARK | (ZVLANG_COLUMNS << 16)))
#define ZVLANG_RCID(id) ((const wchar_t *)(UINT_PTR)(id))

// Initialiser of a record with English text only: every column repeats it.
//   ZVLANGSTRING g_myLabel = ZVLANG_TEXT(L"Label");
#define ZVLANG_TEXT(english)                                                      \
    {ZVLANG_MARK_WORD,                                                            \
     {english, english, english, english, english, english, english, english,    \
      english, english, english, english, english, english, english, english,    \
      english, english}, 0}
// Initialiser of a record whose texts are string resource `id` of the module
// that holds the record, in each language, English as the fallback. The
// texts must be compiled with a terminator ("text\0").
#define ZVLANG_RESOURCE_TEXT(id)                                                  \
    {ZVLANG_MARK_WORD,                                                            \
     {ZVLANG_RCID(id), ZVLANG_RCID(id), ZVLANG_RCID(id), ZVLANG_RCID(id),         \
      ZVLANG_RCID(id), ZVLANG_RCID(id), ZVLANG_RCID(id), ZVLANG_RCID(id),         \
      ZVLANG_RCID(id), ZVLANG_RCID(id), ZVLANG_RCID(id), ZVLANG_RCID(id),         \
      ZVLANG_RCID(id), ZVLANG_RCID(id), ZVLANG_RCID(id), ZVLANG_RCID(id),         \
      ZVLANG_RCID(id), ZVLANG_RCID(id)}, 0}
// A record as a text argument.
#define ZVLANGTEXT(record) ((const wchar_t *)&(record))

// The language handle block.
typedef struct tagZVLANG {
    HMODULE module;          // whose resources are searched
    DWORD lockReady;         // 1 once lock is initialised
    CRITICAL_SECTION lock;   // cache and pool position
    DWORD poolChars;         // temporary text pool, wide characters
    DWORD poolMargin;        // 1024: the largest single request
    DWORD poolPos;           // next free position
    wchar_t *pool;
    DWORD notEnglish;        // primary language of lcid is not 9
    LCID lcid;               // 0 before any was set
    DWORD column;            // 1-based record column, 0 = not resolved yet
    struct tZVLIST *cache;   // numbered strings, sorted by number
} ZVLANG, *HZVLANG;

#if defined(__cplusplus) && (defined(_M_IX86) || defined(__i386__))
static_assert(sizeof(ZVLANGSTRING) == 80, "a record is 20 words");
static_assert(sizeof(ZVLANG) == 64, "the language block of the 32-bit build");
#endif

// A compiled resource (.res) image in memory.
typedef struct _ZVRESPOOL {
    DWORD reserved;
    DWORD size;              // bytes
    const BYTE *bytes;
} ZVRESPOOL;

// Process-wide locale settings; texts are each followed by their length.
typedef struct tagZVINTERNATIONALS {
    DWORD size;
    LCID systemLanguage;
    DWORD languageNumber;
    wchar_t languageName[64];        DWORD languageNameLen;
    wchar_t englishLanguageName[64]; DWORD englishLanguageNameLen;
    DWORD countryNumber;
    wchar_t countryName[64];         DWORD countryNameLen;
    wchar_t englishCountryName[64];  DWORD englishCountryNameLen;
    wchar_t negativeSign[8];         DWORD negativeSignLen;
    wchar_t plainMinus[8];           DWORD plainMinusLen;
    wchar_t thousandSep[8];          DWORD thousandSepLen;
    wchar_t decimalSep[8];           DWORD decimalSepLen;
    DWORD grouping;
    DWORD digits;
    DWORD leadingZero;
    wchar_t timeSep[8];              DWORD timeSepLen;
    wchar_t listSep[8];              DWORD listSepLen;
    DWORD measure;
    wchar_t tcWholeSep[8];           DWORD tcWholeSepLen;
    wchar_t tcNonDropSep[8];         DWORD tcNonDropSepLen;
    wchar_t tcDropSep[8];            DWORD tcDropSepLen;
    wchar_t langCode[4];             DWORD langCodeLen;
    wchar_t measureBeatSep[8];       DWORD measureBeatSepLen;
    wchar_t beatTickSep[8];          DWORD beatTickSepLen;
} ZVINTERNATIONALS;

// ZvGetInat selectors.
#define ZVINAT_SYSLANGUAGE      0
#define ZVINAT_LANGUAGE         1
#define ZVINAT_LANGNAME         2
#define ZVINAT_ENGLANGNAME      3
#define ZVINAT_COUNTRY          4
#define ZVINAT_DECIMALSEP       24
#define ZVINAT_LISTSEP          40
#define ZVINAT_TIMESEP          60
#define ZVINAT_TC_WHOLE         100
#define ZVINAT_TC_NONDROP       101
#define ZVINAT_TC_DROP          102
#define ZVINAT_MEASUREBEAT      120
#define ZVINAT_BEATTICK         121

// --- Language handle ------------------------------------------------------
ZVAPI HRESULT ZvLang_Open(HZVLANG *lang, HMODULE module, LCID lcid, UINT poolChars);
ZVAPI void ZvLang_Close(HZVLANG lang);
ZVAPI HMODULE ZvLang_InstFromLang(HZVLANG lang);
ZVAPI LCID ZvLang_GetLCID(HZVLANG lang);
ZVAPI LCID ZvLang_GetConditionedLCID(LCID lcid);
ZVAPI BOOL ZvLang_UpdateKernelLCID(HZVLANG lang, LCID lcid, DWORD unused);
ZVAPI BOOL ZvLang_UpdateThreadLocale(HZVLANG lang);
ZVAPI BOOL ZvLang_IsLCIDEnglish(LCID lcid);
ZVAPI BOOL ZvLang_UseRTL(HZVLANG lang);
ZVAPI void ZvLang_EnableProcessMirroring(void);
ZVAPI void ZvLang_DisableProcessMirroring(void);
ZVAPI BOOL ZvLang_IsNameOrderReversed(HZVLANG lang);
ZVAPI int ZvLang_LocalizeUserName(HZVLANG lang, const wchar_t *first, const wchar_t *last,
                                  wchar_t *buffer, int cch);
ZVAPI BOOL ZvLang_GetLangAbbrev(HZVLANG lang, wchar_t *buffer, int cch);
ZVAPI int ZvLang_GetLangllCC(HZVLANG lang, wchar_t *buffer, int cch);
ZVAPI void ZvSetLangID(const wchar_t *code);

// The kernel's own language handle. The kernel start opens it (language 0)
// and closes it at terminate; an application applies its language to it with
// ZvLang_UpdateKernelLCID. Null before the kernel started.
ZVAPI HZVLANG ZvLang_GetKernelLang(void);
ZVAPI HRESULT ZvLang_OpenKernelLang(HMODULE module);
ZVAPI void ZvLang_CloseKernelLang(void);

// --- User language setting ("ULangID") -------------------------------------
// version packs major in bits 24-31 and minor in bits 16-23.
ZVAPI BOOL ZvLang_LoadUserLCIDMetric(const wchar_t *app, DWORD version, LCID *lcid, BOOL noVersion);
ZVAPI BOOL ZvLang_LoadUserLCIDMetricAppReg(const wchar_t *app, DWORD version, LCID *lcid,
                                           const wchar_t *company);
ZVAPI BOOL ZvLang_SaveUserLCIDMetric(const wchar_t *app, DWORD version, LCID lcid, BOOL noVersion);
ZVAPI BOOL ZvLang_SaveUserLCIDMetricAppReg(const wchar_t *app, DWORD version, LCID lcid,
                                           const wchar_t *company);

// --- Text access -----------------------------------------------------------
ZVAPI BOOL IsZVLANGSTRINGID(HZVLANG lang, const void *text);
// Numbered string: cached, valid until the language changes; never null.
ZVAPI const wchar_t *ZvGetString(HZVLANG lang, UINT id);
ZVAPI const wchar_t *ZvGetStringRecord(HZVLANG lang, const ZVLANGSTRING *record);
ZVAPI const wchar_t *ZvGetStringSmart(HZVLANG lang, const wchar_t *text);
// Characters stored (without terminator).
ZVAPI int ZvLoadString(HZVLANG lang, UINT id, wchar_t *buffer, int cch);
ZVAPI int ZvLoadStringRecord(HZVLANG lang, const ZVLANGSTRING *record, wchar_t *buffer, int cch);
ZVAPI wchar_t *ZvGetTempStringBuffer(HZVLANG lang, int cch);
ZVAPI const wchar_t *ZvGetWideFromPrintString(HZVLANG lang, const wchar_t *text);
ZVAPI const wchar_t *ZvGetPrintFromWideString(HZVLANG lang, const wchar_t *text);
ZVAPI const char *ZvGetMultiByteFromPrintString(HZVLANG lang, const wchar_t *text);
ZVAPI const wchar_t *ZvGetPrintFromMultiByteString(HZVLANG lang, const char *text);
// The shared empty text.
ZVAPI const wchar_t *ZvLang_EmptyString(void);

#ifdef __cplusplus
inline const wchar_t *ZvGetString(HZVLANG lang, const ZVLANGSTRING *record)
{
    return ZvGetStringRecord(lang, record);
}
inline int ZvLoadString(HZVLANG lang, const ZVLANGSTRING *record, wchar_t *buffer, int cch)
{
    return ZvLoadStringRecord(lang, record, buffer, cch);
}
#endif

// --- Locale record ---------------------------------------------------------
ZVAPI int ZvLang_GetInternationals(ZVINTERNATIONALS *out, int size);
ZVAPI int ZvGetInat(int selector, wchar_t *buffer);
ZVAPI int ZvGetInatN(int selector, wchar_t *buffer, int cch);

// --- Resources: the handle's language first, then English ------------------
ZVAPI HWND ZvCreateDialogParam(HZVLANG lang, const wchar_t *name, HWND owner, DLGPROC proc, LPARAM param);
ZVAPI HWND ZvCreateDialogIndirectParam(HZVLANG lang, const wchar_t *name, HWND owner, DLGPROC proc,
                                       LPARAM param);
ZVAPI INT_PTR ZvDialogBoxParam(HZVLANG lang, const wchar_t *name, HWND owner, DLGPROC proc, LPARAM param);
ZVAPI INT_PTR ZvDialogBoxIndirectParam(HZVLANG lang, const wchar_t *name, HWND owner, DLGPROC proc,
                                       LPARAM param);
ZVAPI HACCEL ZvLoadAccelerators(HZVLANG lang, const wchar_t *name);
ZVAPI HMENU ZvLoadMenu(HZVLANG lang, const wchar_t *name);
ZVAPI const void *ZvLoadResourceCustom(HZVLANG lang, const wchar_t *name, const wchar_t *type, DWORD *size);
ZVAPI HRSRC ZvFindResource(HZVLANG lang, const wchar_t *name, const wchar_t *type);
ZVAPI HRSRC ZvFindResourceMulti(HZVLANG lang, const wchar_t *name, const wchar_t *const *types, int count,
                                int *found);
// Size of the dialog template, 0 if there is none; the template through *tmpl.
ZVAPI DWORD ZvDialogTemplateFromRCID(HZVLANG lang, const wchar_t *name, const DLGTEMPLATE **tmpl);
ZVAPI HBITMAP ZvLoadBitmap(HZVLANG lang, const wchar_t *name);
ZVAPI HCURSOR ZvLoadCursor(HZVLANG lang, const wchar_t *name);
ZVAPI HICON ZvLoadIcon(HZVLANG lang, const wchar_t *name);
ZVAPI HANDLE ZvLoadImage(HZVLANG lang, const wchar_t *name, UINT type, int cx, int cy, UINT flags);
ZVAPI HIMAGELIST ZvImageList_LoadImage(HZVLANG lang, const wchar_t *name, int cx, int grow, COLORREF mask,
                                       UINT type, UINT flags);
ZVAPI HGLOBAL ZvLoadResource(HZVLANG lang, HRSRC res);
ZVAPI DWORD ZvSizeofResource(HZVLANG lang, HRSRC res);
ZVAPI int ZvEnumResourceLanguages(HZVLANG lang, UINT id, wchar_t *buffer, int cch);

// --- Resource pools --------------------------------------------------------
ZVAPI const void *ZvFindResourceInResPool(const ZVRESPOOL *pool, DWORD *size, const wchar_t *name,
                                          const wchar_t *type, LCID lcid, LCID *found);
ZVAPI const void *ZvFindDialogTemplateInResPool(const ZVRESPOOL *pool, DWORD *size, const wchar_t *name,
                                                LCID lcid);
ZVAPI INT_PTR ZvResPoolDialogBox(const ZVRESPOOL *pool, HZVLANG lang, const wchar_t *name, HWND owner,
                                 DLGPROC proc, LPARAM param);
