#include "filemng/surrogatetable.h"
#include <new>

ZVFIO_SURROGATETABLE *g_pZvFioSurrogateTable;

// The table itself is touched under the managers' shared mutex; creation
// and the reference count also serve managers made on several threads.
static CRITICAL_SECTION *TableLock()
{
    static CRITICAL_SECTION cs;
    static volatile LONG state;
    if (InterlockedCompareExchange(&state, 1, 0) == 0) {
        InitializeCriticalSection(&cs);
        InterlockedExchange(&state, 2);
    }
    while (state != 2)
        Sleep(0);
    return &cs;
}

static void FreeGlobal(void *p)
{
    if (p) {
        HGLOBAL h = GlobalHandle(p);
        GlobalUnlock(h);
        GlobalFree(h);
    }
}

HRESULT ZvFioSurrogateTable_Create()
{
    EnterCriticalSection(TableLock());
    if (!g_pZvFioSurrogateTable) {
        HGLOBAL h = GlobalAlloc(GHND, sizeof(ZVFIO_SURROGATETABLE));
        void *block = h ? GlobalLock(h) : NULL;
        ZVFIO_SURROGATETABLE *t = block ? new (block) ZVFIO_SURROGATETABLE() : NULL;
        if (t)
            for (ZVFIO_SURROGATESLOT &s : t->slots)
                s.hDuplicate = -1;
        g_pZvFioSurrogateTable = t;
    }
    HRESULT hr = g_pZvFioSurrogateTable ? S_OK : E_OUTOFMEMORY;
    LeaveCriticalSection(TableLock());
    return hr;
}

HRESULT ZvFioSurrogateTable_AddRef(BOOL surrogate, IUnknown *manager, DWORD flags,
                                   const _ZVFIO_INITIALIZATION_METRICS *metrics)
{
    EnterCriticalSection(TableLock());
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    HRESULT hr = E_UNEXPECTED;
    if (t) {
        if (t->refs++ == 0) {
            t->isSurrogate = surrogate ? 1 : 0;
            t->firstManager = manager;
            t->flags = flags;
            if (metrics)
                t->metrics = *metrics;
        }
        hr = S_OK;
    }
    LeaveCriticalSection(TableLock());
    return hr;
}

void ZvFioSurrogateTable_Release()
{
    EnterCriticalSection(TableLock());
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    if (t && --t->refs <= 0) {
        for (LONG i = 0; i < t->used && i < ZVFIO_SURROGATE_SLOTS; ++i)
            t->slots[i].git.Reset();
        g_pZvFioSurrogateTable = NULL;
        t->~ZVFIO_SURROGATETABLE();
        FreeGlobal(t);
    }
    LeaveCriticalSection(TableLock());
}

ZVFIO_SURROGATESLOT *ZvFioSurrogateTable_FindSlot(LONG group)
{
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    if (!t)
        return NULL;
    for (LONG i = 0; i < t->used && i < ZVFIO_SURROGATE_SLOTS; ++i)
        if (t->slots[i].group == group)
            return &t->slots[i];
    return NULL;
}

BOOL ZvFioDeriveRouting(ZVFIO_PLUGININFO *record)
{
    if (!record)
        return FALSE;
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    bool inSurrogate = t && t->isSurrogate;
    if (!inSurrogate && record->Surrogate > 0) {
        record->dwRecordFlags |= ZVFIO_RF_SURROGATE;
        return TRUE;
    }
    record->dwRecordFlags &= ~ZVFIO_RF_SURROGATE;
    return FALSE;
}

HRESULT ZvFioLaunchSurrogate(ZVFIO_PLUGININFO *record)
{
    if (!ZvFioDeriveRouting(record))
        return S_OK;
    ZVFIO_SURROGATESLOT *slot = ZvFioSurrogateTable_FindSlot(record->Surrogate);
    if (slot && slot->processId)
        return S_OK;
    // Surrogate processes can't be started from this build: the plug-in
    // stays unavailable.
    return REGDB_E_CLASSNOTREG;
}

HRESULT ZvFioRoutedCreate(ZVFIO_PLUGININFO *record, void **out, REFIID, IUnknown *)
{
    if (out)
        *out = NULL;
    HRESULT hr = ZvFioLaunchSurrogate(record);
    if (FAILED(hr))
        return hr;
    ZVFIO_SURROGATESLOT *slot = ZvFioSurrogateTable_FindSlot(record->Surrogate);
    if (!slot || slot->git.Empty())
        return E_UNEXPECTED;
    return E_NOTIMPL;
}

ZVAPI BOOL ZVFileIO_IsSurrogateProcessId(DWORD processId)
{
    ZVFIO_SURROGATETABLE *t = g_pZvFioSurrogateTable;
    if (!t || !processId)
        return FALSE;
    for (LONG i = 0; i < t->used && i < ZVFIO_SURROGATE_SLOTS; ++i)
        if (t->slots[i].processId == processId)
            return TRUE;
    return FALSE;
}
