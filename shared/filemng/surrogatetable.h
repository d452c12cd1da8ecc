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
// Creates `iid` for a routed record inside its surrogate: launches it if
// need be, makes first contact (except for the listing interface), and wraps
// reader and renderer class objects in blankets owned by `manager`.
HRESULT ZvFioRoutedCreate(ZVFIO_PLUGININFO *record, void **out, REFIID iid, IUnknown *manager);

struct IZvFileIOManagerSurrogate;
struct tZVLIST;
// The slot's control interface for the calling thread, borrowed; null when
// the slot has none.
IZvFileIOManagerSurrogate *ZvFioSurrogateSlot_Get(ZVFIO_SURROGATESLOT *slot);

ZVAPI BOOL ZVFileIO_IsSurrogateProcessId(DWORD processId);

// Duplicates `handle` of process `processId` into this process, or a handle
// of this process into `processId`, with the same access. The Win32 error as
// an HRESULT on failure.
ZVAPI HRESULT DuplicateHandleFromProcessId(DWORD handle, DWORD processId, void **out);
ZVAPI HRESULT DuplicateHandleToProcessId(void *handle, DWORD processId, void **out);

// The process in which a record's objects live: its surrogate's (TRUE) or
// this one (FALSE).
BOOL ZvFioRecordProcess(ZVFIO_PLUGININFO *record, DWORD *processId);

// Identification: Begin forgets every slot's duplicate (nothing is closed),
// IdentifyHandle gives the handle and process id to put in the
// identification record of `record` (a routed record gets the file
// duplicated into its surrogate once per slot), End closes the duplicates
// through their surrogates.
void ZvFioSurrogate_BeginIdentification();
HRESULT ZvFioSurrogate_IdentifyHandle(ZVFIO_PLUGININFO *record, HANDLE file, UINT64 *wireHandle, DWORD *processId);
void ZvFioSurrogate_EndIdentification();

// Opening: the handle and process id to give OpenFile of `record`'s reader; a
// routed record gets a duplicate of its own, which the caller closes with
// ZvFioSurrogate_CloseRemoteHandle(processId, wireHandle) when the file is
// closed (nothing happens for a handle of this process).
HRESULT ZvFioSurrogate_DuplicateForRecord(ZVFIO_PLUGININFO *record, HANDLE file, UINT64 *wireHandle,
                                          DWORD *processId);
HRESULT ZvFioSurrogate_CloseRemoteHandle(DWORD processId, UINT64 wireHandle);
