// Language handles, text records and numbered strings.
#include "zvlang.h"
#include "zvlangint.h"
#include "zvlist.h"
#include "zvmemory.h"
#include <wchar.h>

namespace {

// Record columns in order; ZvLang_GetConditionedLCID maps a language onto
// one of these rows.
const LCID kColumnLanguages[ZVLANG_COLUMNS] = {
    0x409, 0x411, 0x407, 0x40A, 0x40C, 0x804, 0x404, 0x406, 0x40B,
    0x410, 0x412, 0x413, 0x414, 0x416, 0x816, 0x419, 0x41D, 0x415,
};

const wchar_t kEmptyText[1] = L"";
const char kEmptyNarrow[1] = "";

HZVLANG g_kernelLang;

const DWORD kDefaultPool = 8192;
const DWORD kMinimumPool = 2048;
const DWORD kPoolMargin = 1024;
// Numbered strings longer than this are cut in the cache.
const int kCachedChars = 1024;

// A cached numbered string: the number, then the text.
struct CacheItem {
    DWORD id;
    wchar_t text[1];
};

int WINAPI compareCacheIds(ULONG_PTR, const void *key, const void *item)
{
    DWORD a = *static_cast<const DWORD *>(key);
    DWORD b = static_cast<const CacheItem *>(item)->id;
    return a < b ? -1 : (a > b ? 1 : 0);
}

class HandleLock {
public:
    explicit HandleLock(HZVLANG lang) : lang_(lang && lang->lockReady ? lang : nullptr)
    {
        if (lang_)
            EnterCriticalSection(&lang_->lock);
    }
    ~HandleLock()
    {
        if (lang_)
            LeaveCriticalSection(&lang_->lock);
    }
    HandleLock(const HandleLock &) = delete;
    HandleLock &operator=(const HandleLock &) = delete;
private:
    HZVLANG lang_;
};

bool isRtlPrimary(LCID lcid)
{
    WORD primary = PRIMARYLANGID(LANGIDFROMLCID(lcid));
    return primary == 1 || primary == 13 || primary == 32 || primary == 41;
}

// Sets a handle's language: a change forgets the column and the cached
// numbered strings.
void applyLanguage(HZVLANG lang, LCID lcid)
{
    if (lang->lcid == lcid)
        return;
    lang->lcid = lcid;
    lang->column = 0;
    HandleLock hold(lang);
    if (lang->cache)
        ZvList_DeleteList(lang->cache, 0, lang->cache->count, FALSE);
}

DWORD resolveColumn(HZVLANG lang)
{
    DWORD column = lang ? lang->column : 0;
    if (column)
        return column;
    LCID lcid = lang ? lang->lcid : 0;
    if (!lcid)
        lcid = GetUserDefaultUILanguage();
    LCID wanted = ZvLang_GetConditionedLCID(lcid);
    column = 1;
    for (DWORD row = 0; row < ZVLANG_COLUMNS; ++row) {
        if (ZvLang_GetConditionedLCID(kColumnLanguages[row]) == wanted) {
            column = row + 1;
            break;
        }
    }
    if (lang)
        lang->column = column;
    return column;
}

// The module that holds a record: its string numbers refer to that module's
// resources, whichever handle asks.
HMODULE recordModule(const void *record, HZVLANG lang)
{
    HMODULE module = nullptr;
    if (GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           static_cast<LPCWSTR>(record), &module))
        return module;
    return lang ? lang->module : nullptr;
}

bool isNumber(const void *p)
{
    return reinterpret_cast<UINT_PTR>(p) < 0x10000;
}

} // namespace

// --- Shared with the other language files ------------------------------------

const wchar_t *zvlang_FindStringResource(HMODULE module, UINT id, LANGID language, int *length,
                                         bool *terminated)
{
    HRSRC res = FindResourceExW(module, RT_STRING, MAKEINTRESOURCEW(((id >> 4) + 1) & 0xFFFF), language);
    if (!res)
        return nullptr;
    HGLOBAL data = LoadResource(module, res);
    const wchar_t *p = data ? static_cast<const wchar_t *>(LockResource(data)) : nullptr;
    if (!p)
        return nullptr;
    const wchar_t *end = p + SizeofResource(module, res) / sizeof(wchar_t);
    for (UINT skip = id & 15; skip && p < end; --skip)
        p += 1 + *p;
    if (p >= end)
        return nullptr;
    int count = *p++;
    if (count > end - p)
        return nullptr;
    // Tables compiled with terminators count the zero: drop it.
    if (count > 0 && p[count - 1] == 0)
        --count;
    if (count == 0)
        return nullptr;
    if (length)
        *length = count;
    if (terminated)
        *terminated = p + count < end && p[count] == 0;
    return p;
}

int zvlang_StripMarker(wchar_t *text, int length)
{
    if (length >= 2 && text[0] == L'^' && text[1] == L'*') {
        memmove(text, text + 2, (length - 1) * sizeof(wchar_t));
        return length - 2;
    }
    return length;
}

HMODULE zvlang_Module(HZVLANG lang)
{
    return lang && lang->module ? lang->module : GetModuleHandleW(nullptr);
}

LCID zvlang_EffectiveLCID(HZVLANG lang)
{
    LCID lcid = lang ? lang->lcid : 0;
    return lcid ? lcid : GetUserDefaultUILanguage();
}

// --- Handle ----------------------------------------------------------------

HRESULT ZvLang_Open(HZVLANG *out, HMODULE module, LCID lcid, UINT poolChars)
{
    if (!out)
        return E_POINTER;
    *out = nullptr;
    if (poolChars == 0)
        poolChars = kDefaultPool;
    else if (poolChars < kMinimumPool)
        poolChars = kMinimumPool;
    if (poolChars > 0x4000000)
        return E_OUTOFMEMORY;

    HZVLANG lang = static_cast<HZVLANG>(ZvMem_Alloc(sizeof(ZVLANG)));
    if (!lang)
        return E_OUTOFMEMORY;
    lang->poolChars = poolChars;
    lang->poolMargin = kPoolMargin;
    // Two spare characters hold the terminator of a request of poolMargin.
    lang->pool = static_cast<wchar_t *>(ZvMem_Alloc((poolChars + 2) * sizeof(wchar_t)));
    if (!lang->pool) {
        ZvMem_Free(lang);
        return E_OUTOFMEMORY;
    }
    HRESULT hr = ZvList_CreateExZ(&lang->cache, 8, 0, 0, ZVLIST_HEAPITEMS | ZVLIST_ANYTHREAD);
    if (FAILED(hr)) {
        ZvMem_Free(lang->pool);
        ZvMem_Free(lang);
        return hr;
    }
    if (lcid) {
        lang->lcid = lcid;
        lang->column = 0;
    }
    lang->module = module;
    InitializeCriticalSection(&lang->lock);
    lang->lockReady = 1;
    *out = lang;
    return S_OK;
}

void ZvLang_Close(HZVLANG lang)
{
    if (!lang)
        return;
    if (lang == g_kernelLang)
        g_kernelLang = nullptr;
    if (lang->lockReady) {
        lang->lockReady = 0;
        DeleteCriticalSection(&lang->lock);
    }
    ZvList_Destroy(lang->cache);
    ZvMem_Free(lang->pool);
    ZvMem_Free(lang);
}

HMODULE ZvLang_InstFromLang(HZVLANG lang)
{
    return lang ? lang->module : nullptr;
}

LCID ZvLang_GetLCID(HZVLANG lang)
{
    return lang ? lang->lcid : 0;
}

LCID ZvLang_GetConditionedLCID(LCID lcid)
{
    DWORD primary = lcid & 0x3FF;
    DWORD sub = (lcid >> 10) & 0x3F;
    if (primary == LANG_CHINESE)
        return (sub == 1 || sub == 3 || sub == 5) ? 0x404 : 0x804;
    if (primary == LANG_PORTUGUESE)
        return lcid;
    return primary | 0x400;
}

HZVLANG ZvLang_GetKernelLang(void)
{
    return g_kernelLang;
}

HRESULT ZvLang_OpenKernelLang(HMODULE module)
{
    if (g_kernelLang)
        return S_OK;
    return ZvLang_Open(&g_kernelLang, module, 0, 0);
}

void ZvLang_CloseKernelLang(void)
{
    ZvLang_Close(g_kernelLang);
}

BOOL ZvLang_UpdateKernelLCID(HZVLANG lang, LCID lcid, DWORD)
{
    HZVLANG kernel = g_kernelLang;
    if (!lang || !kernel)
        return FALSE;
    if (!lcid)
        lcid = ZVLANG_ENGLISH;
    applyLanguage(lang, lcid);
    applyLanguage(kernel, lcid);
    DWORD notEnglish = PRIMARYLANGID(LANGIDFROMLCID(lang->lcid)) != LANG_ENGLISH;
    lang->notEnglish = notEnglish;
    kernel->notEnglish = notEnglish;
    SetProcessDefaultLayout(isRtlPrimary(lang->lcid) ? LAYOUT_RTL : 0);
    return TRUE;
}

BOOL ZvLang_UpdateThreadLocale(HZVLANG lang)
{
    if (!lang)
        return FALSE;
    LCID lcid = zvlang_EffectiveLCID(lang);
    SetThreadLocale(lcid);
    HMODULE controls = GetModuleHandleW(L"comctl32.dll");
    if (!controls)
        controls = LoadLibraryW(L"comctl32.dll");
    typedef void(WINAPI * InitMuiProc)(LANGID);
    InitMuiProc initMui = controls ? reinterpret_cast<InitMuiProc>(
                                         reinterpret_cast<void *>(GetProcAddress(controls, "InitMUILanguage")))
                                   : nullptr;
    if (initMui)
        initMui(LANGIDFROMLCID(lcid));
    return TRUE;
}

BOOL ZvLang_IsLCIDEnglish(LCID lcid)
{
    return PRIMARYLANGID(LANGIDFROMLCID(lcid)) == LANG_ENGLISH;
}

BOOL ZvLang_UseRTL(HZVLANG lang)
{
    return lang && isRtlPrimary(lang->lcid);
}

void ZvLang_EnableProcessMirroring(void)
{
    SetProcessDefaultLayout(LAYOUT_RTL);
}

void ZvLang_DisableProcessMirroring(void)
{
    SetProcessDefaultLayout(0);
}

BOOL ZvLang_IsNameOrderReversed(HZVLANG lang)
{
    return lang && lang->lcid == 1041;
}

int ZvLang_LocalizeUserName(HZVLANG lang, const wchar_t *first, const wchar_t *last, wchar_t *buffer, int cch)
{
    if (!buffer || cch <= 0)
        return 0;
    buffer[0] = 0;
    const wchar_t *a = first ? first : L"";
    const wchar_t *b = last ? last : L"";
    if (ZvLang_IsNameOrderReversed(lang)) {
        const wchar_t *t = a;
        a = b;
        b = t;
    }
    int n = 0;
    auto append = [&](const wchar_t *s) {
        while (*s && n < cch - 1)
            buffer[n++] = *s++;
    };
    append(a);
    if (*a && *b)
        append(L" ");
    append(b);
    buffer[n] = 0;
    return n;
}

BOOL ZvLang_GetLangAbbrev(HZVLANG lang, wchar_t *buffer, int cch)
{
    if (!buffer || cch <= 0)
        return FALSE;
    buffer[0] = 0;
    if (!lang)
        return FALSE;
    LCID lcid = ZvLang_GetConditionedLCID(zvlang_EffectiveLCID(lang));
    if (GetLocaleInfoW(MAKELCID(LANGIDFROMLCID(lcid), SORT_DEFAULT), LOCALE_SABBREVLANGNAME, buffer, cch) > 0)
        return TRUE;
    buffer[0] = 0;
    return FALSE;
}

int ZvLang_GetLangllCC(HZVLANG lang, wchar_t *buffer, int cch)
{
    static const struct {
        WORD primary;
        const wchar_t *tag;
    } kTags[] = {
        {LANG_CHINESE, L"zh-CN"}, {LANG_GERMAN, L"de-DE"}, {LANG_SPANISH, L"es-ES"},
        {LANG_FRENCH, L"fr-FR"},  {LANG_JAPANESE, L"ja-JP"}, {LANG_KOREAN, L"ko-KR"},
        {LANG_POLISH, L"pl-PL"},  {LANG_PORTUGUESE, L"pt-BR"},
    };
    if (buffer && cch > 0)
        buffer[0] = 0;
    if (!lang)
        return 1;
    WORD primary = PRIMARYLANGID(LANGIDFROMLCID(zvlang_EffectiveLCID(lang)));
    for (const auto &t : kTags) {
        if (t.primary == primary) {
            if (buffer && cch > 0)
                lstrcpynW(buffer, t.tag, cch);
            return 0;
        }
    }
    return 1;
}

// --- Text ----------------------------------------------------------------------

const wchar_t *ZvLang_EmptyString(void)
{
    return kEmptyText;
}

BOOL IsZVLANGSTRINGID(HZVLANG, const void *text)
{
    UINT_PTR p = reinterpret_cast<UINT_PTR>(text);
    if (p < 0x10000 || (p & 3))
        return FALSE;
    return *static_cast<const WORD *>(text) == ZVLANG_RECORD_MARK;
}

const wchar_t *ZvGetStringRecord(HZVLANG lang, const ZVLANGSTRING *constRecord)
{
    if (!IsZVLANGSTRINGID(lang, constRecord))
        return kEmptyText;
    if (!lang)
        lang = g_kernelLang;
    // Records are writable data: resolved string numbers are replaced by
    // their text so that the next lookup is a plain index.
    ZVLANGSTRING *record = const_cast<ZVLANGSTRING *>(constRecord);
    DWORD columns = (record->mark >> 16) & 0xFF;
    DWORD column = resolveColumn(lang);
    if (column > columns)
        column = columns;
    if (column < 1)
        column = 1;
    const wchar_t *entry = record->text[column - 1];
    if (!isNumber(entry))
        return entry;

    HMODULE module = recordModule(record, lang);
    // The resource language is the row after the column's own.
    if (column < ZVLANG_COLUMNS) {
        bool terminated = false;
        const wchar_t *text = zvlang_FindStringResource(module, static_cast<UINT>(reinterpret_cast<UINT_PTR>(entry)),
                                                        LANGIDFROMLCID(kColumnLanguages[column]), nullptr,
                                                        &terminated);
        if (text && terminated) {
            record->text[column - 1] = text;
            return text;
        }
    }
    const wchar_t *english = record->text[0];
    if (isNumber(english)) {
        bool terminated = false;
        const wchar_t *text = zvlang_FindStringResource(module, static_cast<UINT>(reinterpret_cast<UINT_PTR>(english)),
                                                        ZVLANG_ENGLISH, nullptr, &terminated);
        if (!text || !terminated)
            return kEmptyText;
        record->text[0] = english = text;
    }
    record->text[column - 1] = english;
    return english;
}

int ZvLoadString(HZVLANG lang, UINT id, wchar_t *buffer, int cch)
{
    if (!buffer || cch <= 0)
        return 0;
    buffer[0] = 0;
    HMODULE module = zvlang_Module(lang);
    int length = 0;
    const wchar_t *text = nullptr;
    if (lang && lang->notEnglish)
        text = zvlang_FindStringResource(module, id, LANGIDFROMLCID(lang->lcid), &length, nullptr);
    if (!text)
        text = zvlang_FindStringResource(module, id, ZVLANG_ENGLISH, &length, nullptr);
    if (!text)
        return 0;
    if (length > cch - 1)
        length = cch - 1;
    memcpy(buffer, text, length * sizeof(wchar_t));
    buffer[length] = 0;
    return zvlang_StripMarker(buffer, length);
}

int ZvLoadStringRecord(HZVLANG lang, const ZVLANGSTRING *record, wchar_t *buffer, int cch)
{
    if (!buffer || cch <= 0)
        return 0;
    lstrcpynW(buffer, ZvGetStringRecord(lang, record), cch);
    return lstrlenW(buffer);
}

const wchar_t *ZvGetString(HZVLANG lang, UINT id)
{
    if (!lang || !lang->cache)
        return kEmptyText;
    HandleLock hold(lang);
    DWORD key = id;
    int index = ZvList_FindSortedItemRange(lang->cache, &key, 0, -1, compareCacheIds);
    if (index >= 0)
        return static_cast<const CacheItem *>(ZvList_GetItem(lang->cache, index))->text;

    struct {
        DWORD id;
        wchar_t text[kCachedChars + 1];
    } item;
    item.id = id;
    int length = ZvLoadString(lang, id, item.text, kCachedChars + 1);
    if (length <= 0)
        return kEmptyText;
    int at = ZvList_FindSortedInsertIndexRange(lang->cache, &key, 0, -1, compareCacheIds);
    int size = static_cast<int>(offsetof(CacheItem, text) + (length + 1) * sizeof(wchar_t));
    int inserted = -1;
    if (FAILED(ZvList_AllocAndInsertItem(lang->cache, &item, size, at < 0 ? 0 : at, &inserted)) || inserted < 0)
        return kEmptyText;
    return static_cast<const CacheItem *>(ZvList_GetItem(lang->cache, inserted))->text;
}

const wchar_t *ZvGetStringSmart(HZVLANG lang, const wchar_t *text)
{
    if (!text)
        return nullptr;
    if (isNumber(text))
        return ZvGetString(lang ? lang : g_kernelLang, static_cast<UINT>(reinterpret_cast<UINT_PTR>(text)));
    if (!IsZVLANGSTRINGID(lang, text))
        return text;
    return ZvGetStringRecord(lang, reinterpret_cast<const ZVLANGSTRING *>(text));
}

wchar_t *ZvGetTempStringBuffer(HZVLANG lang, int cch)
{
    if (!lang || !lang->pool)
        return nullptr;
    if (cch < 0 || static_cast<DWORD>(cch) > lang->poolMargin)
        return nullptr;
    HandleLock hold(lang);
    if (lang->poolChars - lang->poolMargin < lang->poolPos)
        lang->poolPos = 0;
    wchar_t *area = lang->pool + lang->poolPos;
    if (cch == 0)
        area[0] = 0;
    lang->poolPos += (cch + 2) & ~1;
    return area;
}

const wchar_t *ZvGetWideFromPrintString(HZVLANG lang, const wchar_t *text)
{
    return lang && lang->pool ? text : kEmptyText;
}

const wchar_t *ZvGetPrintFromWideString(HZVLANG lang, const wchar_t *text)
{
    return lang && lang->pool ? text : kEmptyText;
}

const char *ZvGetMultiByteFromPrintString(HZVLANG lang, const wchar_t *text)
{
    if (!lang || !lang->pool)
        return kEmptyNarrow;
    int bytes = static_cast<int>(lang->poolMargin * sizeof(wchar_t));
    char *area = reinterpret_cast<char *>(ZvGetTempStringBuffer(lang, lang->poolMargin));
    if (!area)
        return kEmptyNarrow;
    area[0] = 0;
    if (!text)
        return area;
    // Cut long text at a character count that always fits.
    int chars = lstrlenW(text);
    int n = WideCharToMultiByte(CP_ACP, 0, text, chars, area, bytes - 1, nullptr, nullptr);
    if (n == 0 && chars > 0)
        n = WideCharToMultiByte(CP_ACP, 0, text, (bytes - 1) / 4, area, bytes - 1, nullptr, nullptr);
    area[n > 0 ? n : 0] = 0;
    return area;
}

const wchar_t *ZvGetPrintFromMultiByteString(HZVLANG lang, const char *text)
{
    if (!lang || !lang->pool)
        return kEmptyText;
    int chars = static_cast<int>(lang->poolMargin);
    wchar_t *area = ZvGetTempStringBuffer(lang, chars);
    if (!area)
        return kEmptyText;
    area[0] = 0;
    if (!text)
        return area;
    int length = lstrlenA(text);
    int n = MultiByteToWideChar(CP_ACP, 0, text, length, area, chars - 1);
    if (n == 0 && length > 0)
        n = MultiByteToWideChar(CP_ACP, 0, text, chars - 1, area, chars - 1);
    area[n > 0 ? n : 0] = 0;
    return area;
}
