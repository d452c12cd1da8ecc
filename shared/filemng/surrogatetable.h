// The process-wide table of surrogate processes on the calling side, and the
// routing of plug-in records to them.
#pragma once
#include "zvbase.h"
#include "filemng/fiotypes.h"
#include "filemng/fioplugininfo.h"
#include "filemng/zvgitholder.h"
#include <objbase.h>

#define ZVFIO_SURROGATE_SLOTS 30

struct ZVFIO_SURROGATESLOT {
    DWORD processId;       // 0 until launched
    ZvFioGitPointer git;   // the surrogate's control interface
    LONG hDuplicate;       // file handle duplicated into the surrogate, -1 when none
    LONG group;            // the group number of its plug-ins
    BYTE initialised;      // set before the first manager creation is sent
};

struct ZVFIO_SURROGATETABLE {
    ZVFIO_SURROGATESLOT slots[ZVFIO_SURROGATE_SLOTS];
    LONG used;
    BYTE isSurrogate;      // this process is itself a surrogate: route nothing
    IUnknown *firstManager; // not a counted reference
    LONG refs;
    _ZVFIO_INITIALIZATION_METRICS metrics;
    DWORD flags;
};

extern ZVFIO_SURROGATETABLE *g_pZvFioSurrogateTable;

// Creates the table if there is none; null stays when it can't be allocated.
HRESULT ZvFioSurrogateTable_Create();
// Counts a manager. The first reference stores the surrogate flag, manager,
// flags and metrics (null metrics: zeros); later ones only count.
HRESULT ZvFioSurrogateTable_AddRef(BOOL surrogate, IUnknown *manager, DWORD flags,
                                   const _ZVFIO_INITIALIZATION_METRICS *metrics);
// Drops a manager's reference; the last one resets every slot and frees the table.
void ZvFioSurrogateTable_Release();
// The slot of a group number, or null.
ZVFIO_SURROGATESLOT *ZvFioSurrogateTable_FindSlot(LONG group);

// Re-derives the routing bit 0x100 of a record: set when this process isn't a
// surrogate and the group number is above 0. Returns the bit's state.
BOOL ZvFioDeriveRouting(ZVFIO_PLUGININFO *record);
// Makes sure the record's surrogate runs. S_OK and nothing done for a record
// that isn't routed.
HRESULT ZvFioLaunchSurrogate(ZVFIO_PLUGININFO *record);
// Creates `iid` for a routed record inside its surrogate.
HRESULT ZvFioRoutedCreate(ZVFIO_PLUGININFO *record, void **out, REFIID iid, IUnknown *manager);

ZVAPI BOOL ZVFileIO_IsSurrogateProcessId(DWORD processId);
