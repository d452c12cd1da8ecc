#include "filemng/fioplugininfo.h"
#include "zvlist.h"
#include "zvmemory.h"
#include "zvpaths.h"
#include <wchar.h>

WCHAR *ZvFioStrDup(const WCHAR *text)
{
    if (!text)
        return NULL;
    size_t n = wcslen(text) + 1;
    WCHAR *copy = (WCHAR *)ZvMem_Alloc(n * sizeof(WCHAR));
    if (copy)
        memcpy(copy, text, n * sizeof(WCHAR));
    return copy;
}

void ZvFioStrFree(WCHAR *text)
{
    if (text)
        ZvMem_Free(text);
}

void ZvFioStrSet(WCHAR **slot, const WCHAR *text)
{
    ZvFioStrFree(*slot);
    *slot = (text && *text) ? ZvFioStrDup(text) : NULL;
}

ZVFIO_PLUGININFO *ZvFioAllocRecord(const ZVFIO_PLUGININFO *from)
{
    HGLOBAL h = GlobalAlloc(GHND, sizeof(ZVFIO_PLUGININFO));
    if (!h)
        return NULL;
    ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)GlobalLock(h);
    if (!r) {
        GlobalFree(h);
        return NULL;
    }
    if (from) {
        *r = *from;
        r->hModule = NULL;
        r->pFactory = NULL;
        r->pSpare = NULL;
        r->DialogName = r->PreloadModules = r->ExtReader = r->ExtRenderer = NULL;
        r->pReaderClass = r->pRendererClass = NULL;
        r->dwRecordFlags &= ~ZVFIO_RF_PRELOADED;
    }
    return r;
}

static void FolderOf(const WCHAR *path, WCHAR *folder)
{
    folder[0] = 0;
    if (FAILED(ZvGetPathNameFromFilePath(path, folder, MAX_PATH)))
        folder[0] = 0;
    ZvRemoveSlashFromPathNameEnd(folder);
}

void ZvFioFreeRecord(ZVFIO_PLUGININFO *r)
{
    if (!r)
        return;
    ZvFioStrFree(r->ExtReader);
    ZvFioStrFree(r->ExtRenderer);
    ZvFioStrFree(r->DialogName);
    if (r->pSpare)
        ZvMem_Free(r->pSpare);
    if ((r->dwRecordFlags & ZVFIO_RF_PRELOADED) && r->PreloadModules) {
        WCHAR folder[MAX_PATH];
        FolderOf(r->szPath, folder);
        ZvFioReleasePreloadModules(folder, r->PreloadModules);
    }
    ZvFioStrFree(r->PreloadModules);
    if (r->pReaderClass)
        r->pReaderClass->Release();
    if (r->pRendererClass)
        r->pRendererClass->Release();
    if (r->pFactory)
        r->pFactory->Release();
    // the module stays: loaded plug-ins live until the process ends
    HGLOBAL h = GlobalHandle(r);
    GlobalUnlock(h);
    GlobalFree(h);
}

void ZvFioFreeRecordList(tZVLIST *list)
{
    if (!list)
        return;
    for (int i = 0; i < list->count; ++i)
        ZvFioFreeRecord((ZVFIO_PLUGININFO *)ZvList_GetItem(list, i));
    ZvList_Destroy(list);
}

WCHAR *ZvFioNextToken(WCHAR **cursor, WCHAR sep)
{
    WCHAR *start = *cursor;
    if (!start)
        return NULL;
    WCHAR *end = wcschr(start, sep);
    if (end) {
        *end = 0;
        *cursor = end + 1;
    } else {
        *cursor = NULL;
    }
    return start;
}

static const GUID g_excluded[16] = {
    {0xB50802D8, 0x9917, 0x11D3, {0x8A, 0xB7, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0xFBBDA1DC, 0x3D4B, 0x11D4, {0x8B, 0x33, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0xC70B096E, 0x3E7E, 0x4F62, {0x8E, 0x1A, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x00ADFBF2, 0x9D28, 0x11D3, {0xBB, 0x2E, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0xF95CD890, 0x9D37, 0x11D3, {0xBB, 0x2E, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0xD6C9703A, 0x3257, 0x11D4, {0x8B, 0x2F, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x52EEE45E, 0xD508, 0x11D3, {0x8A, 0xC5, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0xB014DC30, 0xE11C, 0x4BB0, {0x91, 0x1A, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x3FA1F53B, 0x94DE, 0x4FA2, {0x96, 0x4E, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0xDDDB20E0, 0x9EAE, 0x11D3, {0xBB, 0x2E, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x85CB92DF, 0x8309, 0x42F2, {0xAD, 0x61, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0xBED0EF76, 0x8D70, 0x11D3, {0xBB, 0x2C, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x2C518B09, 0x194C, 0x41DC, {0xAB, 0x2F, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0xE0859D08, 0x1DF5, 0x4E63, {0x80, 0xDE, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x72961476, 0x42F6, 0x4C58, {0xAE, 0x29, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x1A25D1F1, 0x3EDA, 0x4A4D, {0xA5, 0xE3, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
};

BOOL ZvFioIsExcludedClass(const GUID &clsid)
{
    for (const GUID &g : g_excluded)
        if (ZvFioSameClass10(g, clsid))
            return TRUE;
    return FALSE;
}
