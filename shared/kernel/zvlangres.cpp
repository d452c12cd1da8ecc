// Resource loading in the handle's language with a fallback to English, and
// look-ups in resource pools (.res images in memory).
#include "zvlang.h"
#include "zvlangint.h"
#include "zvmemory.h"
#include <string.h>

namespace {

// The handle's language first (only when it is not English), then English,
// or with `plain` the platform's own lookup.
HRSRC findWithFallback(HZVLANG lang, const wchar_t *name, const wchar_t *type, bool plain)
{
    HMODULE module = zvlang_Module(lang);
    if (lang && lang->notEnglish) {
        HRSRC res = FindResourceExW(module, type, name, LANGIDFROMLCID(lang->lcid));
        if (res)
            return res;
    }
    return plain ? FindResourceW(module, name, type) : FindResourceExW(module, type, name, ZVLANG_ENGLISH);
}

const void *lockResource(HMODULE module, HRSRC res, DWORD *size)
{
    if (size)
        *size = 0;
    if (!res)
        return nullptr;
    HGLOBAL data = LoadResource(module, res);
    const void *p = data ? LockResource(data) : nullptr;
    if (p && size)
        *size = SizeofResource(module, res);
    return p;
}

const DLGTEMPLATE *dialogTemplate(HZVLANG lang, const wchar_t *name, bool plain)
{
    HRSRC res = findWithFallback(lang, name, RT_DIALOG, plain);
    return static_cast<const DLGTEMPLATE *>(lockResource(zvlang_Module(lang), res, nullptr));
}

// Strips the marker from every label of a menu and its sub-menus.
void cleanMenuLabels(HMENU menu, int depth)
{
    if (!menu || depth > 16)
        return;
    int count = GetMenuItemCount(menu);
    for (int i = 0; i < count; ++i) {
        wchar_t label[512];
        MENUITEMINFOW info = {};
        info.cbSize = sizeof(info);
        info.fMask = MIIM_STRING | MIIM_SUBMENU;
        info.dwTypeData = label;
        info.cch = ARRAYSIZE(label);
        if (!GetMenuItemInfoW(menu, i, TRUE, &info))
            continue;
        if (info.dwTypeData && info.cch >= 2 && label[0] == L'^' && label[1] == L'*') {
            zvlang_StripMarker(label, static_cast<int>(info.cch));
            MENUITEMINFOW update = {};
            update.cbSize = sizeof(update);
            update.fMask = MIIM_STRING;
            update.dwTypeData = label;
            SetMenuItemInfoW(menu, i, TRUE, &update);
        }
        if (info.hSubMenu)
            cleanMenuLabels(info.hSubMenu, depth + 1);
    }
}

// Accelerator resources store 8-byte entries; the last has bit 0x80.
HACCEL acceleratorsFromResource(const BYTE *data, DWORD size)
{
    const DWORD entrySize = 8;
    int count = 0;
    ACCEL table[256];
    for (DWORD at = 0; at + entrySize <= size && count < 256; at += entrySize) {
        WORD flags, key, cmd;
        memcpy(&flags, data + at, 2);
        memcpy(&key, data + at + 2, 2);
        memcpy(&cmd, data + at + 4, 2);
        table[count].fVirt = static_cast<BYTE>(flags & 0x7F);
        table[count].key = key;
        table[count].cmd = cmd;
        ++count;
        if (flags & 0x80)
            break;
    }
    return count ? CreateAcceleratorTableW(table, count) : nullptr;
}

} // namespace

HWND ZvCreateDialogParam(HZVLANG lang, const wchar_t *name, HWND owner, DLGPROC proc, LPARAM param)
{
    const DLGTEMPLATE *tmpl = dialogTemplate(lang, name, false);
    return tmpl ? CreateDialogIndirectParamW(zvlang_Module(lang), tmpl, owner, proc, param) : nullptr;
}

HWND ZvCreateDialogIndirectParam(HZVLANG lang, const wchar_t *name, HWND owner, DLGPROC proc, LPARAM param)
{
    return ZvCreateDialogParam(lang, name, owner, proc, param);
}

INT_PTR ZvDialogBoxParam(HZVLANG lang, const wchar_t *name, HWND owner, DLGPROC proc, LPARAM param)
{
    const DLGTEMPLATE *tmpl = dialogTemplate(lang, name, false);
    return tmpl ? DialogBoxIndirectParamW(zvlang_Module(lang), tmpl, owner, proc, param) : -1;
}

INT_PTR ZvDialogBoxIndirectParam(HZVLANG lang, const wchar_t *name, HWND owner, DLGPROC proc, LPARAM param)
{
    return ZvDialogBoxParam(lang, name, owner, proc, param);
}

HACCEL ZvLoadAccelerators(HZVLANG lang, const wchar_t *name)
{
    HMODULE module = zvlang_Module(lang);
    if (lang && lang->notEnglish) {
        HRSRC res = FindResourceExW(module, RT_ACCELERATOR, name, LANGIDFROMLCID(lang->lcid));
        DWORD size = 0;
        const void *data = lockResource(module, res, &size);
        if (data) {
            HACCEL accel = acceleratorsFromResource(static_cast<const BYTE *>(data), size);
            if (accel)
                return accel;
        }
    }
    return LoadAcceleratorsW(module, name);
}

HMENU ZvLoadMenu(HZVLANG lang, const wchar_t *name)
{
    HRSRC res = findWithFallback(lang, name, RT_MENU, false);
    const void *data = lockResource(zvlang_Module(lang), res, nullptr);
    HMENU menu = data ? LoadMenuIndirectW(data) : nullptr;
    cleanMenuLabels(menu, 0);
    return menu;
}

const void *ZvLoadResourceCustom(HZVLANG lang, const wchar_t *name, const wchar_t *type, DWORD *size)
{
    HRSRC res = findWithFallback(lang, name, type, false);
    return lockResource(zvlang_Module(lang), res, size);
}

HRSRC ZvFindResource(HZVLANG lang, const wchar_t *name, const wchar_t *type)
{
    return findWithFallback(lang, name, type, true);
}

HRSRC ZvFindResourceMulti(HZVLANG lang, const wchar_t *name, const wchar_t *const *types, int count, int *found)
{
    if (found)
        *found = -1;
    if (!types || count <= 0)
        return nullptr;
    HMODULE module = zvlang_Module(lang);
    if (lang && lang->notEnglish) {
        for (int i = 0; i < count; ++i) {
            HRSRC res = FindResourceExW(module, types[i], name, LANGIDFROMLCID(lang->lcid));
            if (res) {
                if (found)
                    *found = i;
                return res;
            }
        }
    }
    for (int i = 0; i < count; ++i) {
        HRSRC res = FindResourceW(module, name, types[i]);
        if (res) {
            if (found)
                *found = i;
            return res;
        }
    }
    return nullptr;
}

DWORD ZvDialogTemplateFromRCID(HZVLANG lang, const wchar_t *name, const DLGTEMPLATE **tmpl)
{
    if (tmpl)
        *tmpl = nullptr;
    HRSRC res = findWithFallback(lang, name, RT_DIALOG, true);
    DWORD size = 0;
    const void *data = lockResource(zvlang_Module(lang), res, &size);
    if (!data)
        return 0;
    if (tmpl)
        *tmpl = static_cast<const DLGTEMPLATE *>(data);
    return size;
}

HBITMAP ZvLoadBitmap(HZVLANG lang, const wchar_t *name)
{
    return LoadBitmapW(zvlang_Module(lang), name);
}

HCURSOR ZvLoadCursor(HZVLANG lang, const wchar_t *name)
{
    HCURSOR cursor = LoadCursorW(zvlang_Module(lang), name);
    // Stock cursors (IDC_ARROW and the like) live in the system.
    return cursor ? cursor : LoadCursorW(nullptr, name);
}

HICON ZvLoadIcon(HZVLANG lang, const wchar_t *name)
{
    HICON icon = LoadIconW(zvlang_Module(lang), name);
    return icon ? icon : LoadIconW(nullptr, name);
}

HANDLE ZvLoadImage(HZVLANG lang, const wchar_t *name, UINT type, int cx, int cy, UINT flags)
{
    return LoadImageW(zvlang_Module(lang), name, type, cx, cy, flags);
}

HIMAGELIST ZvImageList_LoadImage(HZVLANG lang, const wchar_t *name, int cx, int grow, COLORREF mask, UINT type,
                                 UINT flags)
{
    return ImageList_LoadImageW(zvlang_Module(lang), name, cx, grow, mask, type, flags);
}

HGLOBAL ZvLoadResource(HZVLANG lang, HRSRC res)
{
    return res ? LoadResource(zvlang_Module(lang), res) : nullptr;
}

DWORD ZvSizeofResource(HZVLANG lang, HRSRC res)
{
    return res ? SizeofResource(zvlang_Module(lang), res) : 0;
}

namespace {
struct LanguageList {
    wchar_t *buffer;
    int cch;
    int length;
};

BOOL CALLBACK collectLanguage(HMODULE, LPCWSTR, LPCWSTR, WORD language, LONG_PTR param)
{
    LanguageList *list = reinterpret_cast<LanguageList *>(param);
    wchar_t abbrev[16];
    if (GetLocaleInfoW(MAKELCID(language, SORT_DEFAULT), LOCALE_SABBREVLANGNAME, abbrev, ARRAYSIZE(abbrev)) <= 0)
        return TRUE;
    int add = lstrlenW(abbrev);
    if (list->length + add + 1 >= list->cch)
        return FALSE;
    if (list->length)
        list->buffer[list->length++] = L',';
    memcpy(list->buffer + list->length, abbrev, (add + 1) * sizeof(wchar_t));
    list->length += add;
    return TRUE;
}
} // namespace

int ZvEnumResourceLanguages(HZVLANG lang, UINT id, wchar_t *buffer, int cch)
{
    if (!buffer || cch <= 0)
        return 0;
    if (!lang || ZvLang_IsLCIDEnglish(lang->lcid))
        return 0;
    buffer[0] = 0;
    LanguageList list = {buffer, cch, 0};
    EnumResourceLanguagesW(zvlang_Module(lang), RT_VERSION, MAKEINTRESOURCEW(id), collectLanguage,
                           reinterpret_cast<LONG_PTR>(&list));
    return list.length;
}

// --- Resource pools --------------------------------------------------------------

namespace {

// Reads a type or name field at p (number as 0xFFFF and a value, or
// zero-terminated text) within end; returns the next byte or null.
const BYTE *readResId(const BYTE *p, const BYTE *end, WORD *number, const wchar_t **text)
{
    *number = 0;
    *text = nullptr;
    if (end - p < 2)
        return nullptr;
    WORD first;
    memcpy(&first, p, 2);
    if (first == 0xFFFF) {
        if (end - p < 4)
            return nullptr;
        memcpy(number, p + 2, 2);
        return p + 4;
    }
    *text = reinterpret_cast<const wchar_t *>(p);
    for (; end - p >= 2; p += 2) {
        WORD c;
        memcpy(&c, p, 2);
        if (c == 0)
            return p + 2;
    }
    return nullptr;
}

bool resIdMatches(const wchar_t *wanted, WORD number, const wchar_t *text)
{
    UINT_PTR w = reinterpret_cast<UINT_PTR>(wanted);
    if (w < 0x10000)
        return !text && number == w;
    return text && lstrcmpiW(text, wanted) == 0;
}

} // namespace

const void *ZvFindResourceInResPool(const ZVRESPOOL *pool, DWORD *size, const wchar_t *name, const wchar_t *type,
                                    LCID lcid, LCID *found)
{
    if (size)
        *size = 0;
    if (found)
        *found = 0;
    if (!pool || !pool->bytes || pool->size < 32 || !name || !type)
        return nullptr;
    LCID kernel = ZvLang_GetConditionedLCID(ZvLang_GetLCID(ZvLang_GetKernelLang()));
    LCID wanted = lcid ? ZvLang_GetConditionedLCID(lcid) : kernel;

    const BYTE *base = pool->bytes;
    const BYTE *end = base + pool->size;
    const BYTE *bestData = nullptr;
    DWORD bestSize = 0;
    LCID bestLang = 0;
    for (const BYTE *entry = base; end - entry >= 8;) {
        DWORD dataSize, headerSize;
        memcpy(&dataSize, entry, 4);
        memcpy(&headerSize, entry + 4, 4);
        ULONGLONG total = static_cast<ULONGLONG>(dataSize) + headerSize;
        if (total < 13 || total > static_cast<ULONGLONG>(end - entry))
            break;
        const BYTE *headerEnd = entry + headerSize;
        WORD typeNumber, nameNumber;
        const wchar_t *typeText, *nameText;
        const BYTE *p = readResId(entry + 8, headerEnd, &typeNumber, &typeText);
        p = p ? readResId(p, headerEnd, &nameNumber, &nameText) : nullptr;
        if (p) {
            p = base + ((p - base + 3) & ~static_cast<UINT_PTR>(3));
            // DataVersion (4), MemoryFlags (2), then the language.
            if (headerEnd - p >= 8 && resIdMatches(type, typeNumber, typeText) &&
                resIdMatches(name, nameNumber, nameText)) {
                WORD language;
                memcpy(&language, p + 6, 2);
                LCID conditioned = ZvLang_GetConditionedLCID(language);
                const BYTE *data = headerEnd;
                if (conditioned == wanted) {
                    if (size)
                        *size = dataSize;
                    if (found)
                        *found = language;
                    return data;
                }
                if (!bestData || conditioned == kernel) {
                    bestData = data;
                    bestSize = dataSize;
                    bestLang = language;
                }
            }
        }
        ULONGLONG next = (static_cast<ULONGLONG>(entry - base) + total + 3) & ~3ull;
        if (next >= pool->size)
            break;
        entry = base + next;
    }
    if (!bestData)
        return nullptr;
    if (size)
        *size = bestSize;
    if (found)
        *found = bestLang;
    return bestData;
}

const void *ZvFindDialogTemplateInResPool(const ZVRESPOOL *pool, DWORD *size, const wchar_t *name, LCID lcid)
{
    return ZvFindResourceInResPool(pool, size, name, RT_DIALOG, lcid, nullptr);
}

INT_PTR ZvResPoolDialogBox(const ZVRESPOOL *pool, HZVLANG lang, const wchar_t *name, HWND owner, DLGPROC proc,
                           LPARAM param)
{
    LCID lcid = ZvLang_GetLCID(lang);
    DWORD size = 0;
    const void *data = ZvFindDialogTemplateInResPool(pool, &size, name, lcid ? lcid : ZVLANG_ENGLISH);
    if (!data || !size)
        return -1;
    void *copy = ZvMem_Alloc(size);
    if (!copy)
        return -1;
    memcpy(copy, data, size);
    INT_PTR result = DialogBoxIndirectParamW(zvlang_Module(lang), static_cast<const DLGTEMPLATE *>(copy), owner,
                                             proc, param);
    ZvMem_Free(copy);
    return result;
}
