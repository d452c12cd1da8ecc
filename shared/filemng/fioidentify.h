// Identification of a file's reader class and the helpers that opening
// shares with it.
#pragma once
#include "zvbase.h"
#include "filemng/fioplugininfo.h"
#include <objbase.h>

class CZvFileIOManager;
struct IZvReadFileClass;

// Result codes of identification and opening.
#define ZVERR_OWN_CONTAINER        ((HRESULT)0x8004E033)
#define ZVERR_READER_UNINITIALISED ((HRESULT)0x8004E047)
// success: a reader opened the file after another one said it wasn't ready
#define ZVS_READER_AFTER_UNINITIALISED ((HRESULT)0x0004E016)

// Size of the first chunk of a file that readers are shown.
#define ZVFIO_CHUNK_SIZE 65536u

// Rows of the table from quick type ids to candidate reader classes.
#define ZVFIO_SIGNATURE_ROWS 140
struct ZvFioSignatureRow {
    DWORD typeId;
    DWORD classData1; // first 32 bits of the class id
};
// The table, in its order of preference.
const ZvFioSignatureRow *ZvFioSignatureTable();
// Full class id of a table entry by its first 32 bits; null if unknown.
const GUID *ZvFioSignatureClass(DWORD data1);

// Files of the application's own containers, which no plug-in reads, told
// by their first bytes (at least 12 must be given).
BOOL ZvFioIdentifyIsRejectedContainer(const BYTE *chunk, DWORD size);

// The reader list's class with the highest merit that says yes to the file,
// merit 0 never asked; E_FAIL when none.
HRESULT ZvFioHighestMeritReaderClass(CZvFileIOManager *manager, IZvReadFileClass **out, const WCHAR *path);

// A 32-byte aligned, zero-filled chunk buffer; free with ZvFioFreeChunk.
BYTE *ZvFioAllocChunk();
void ZvFioFreeChunk(BYTE *chunk);
// Opens `path` for reading (shared read and write, sequential) and reads its
// first ZVFIO_CHUNK_SIZE bytes. The handle is the caller's even on failure
// (INVALID_HANDLE_VALUE when the open failed).
HRESULT ZvFioGetInitialFileChunk(HANDLE *out, BYTE *chunk, const WCHAR *path, DWORD *size);

// The optional interface of a reader class that wants a progress dialog
// while it opens large files.
// {E769409F-5CE7-459F-8F30-4AF5A164E02A}
static const GUID IID_IZvOpenWithProgressClass = {
    0xE769409F, 0x5CE7, 0x459F, {0x8F, 0x30, 0x4A, 0xF5, 0xA1, 0x64, 0xE0, 0x2A}};
struct IZvOpenWithProgressClass : public IUnknown {
    // S_OK when opening `path` is slow enough to show progress
    virtual HRESULT STDMETHODCALLTYPE IsOpenProgressNeeded(LPCWSTR path) = 0;
};

// Monikers: "path?first&second".
ZVAPI HRESULT ZvFio_BuildMoniker(wchar_t *buffer, unsigned size, const wchar_t *path, const wchar_t *first,
                                 const wchar_t *second);
ZVAPI HRESULT ZvFio_ParseMoniker(const wchar_t *moniker, wchar_t *path, unsigned pathSize, wchar_t *rest,
                                 unsigned restSize);
struct IZvRenderFileClass;
ZVAPI HRESULT ZvFio_GetPluginPath(IZvRenderFileClass *renderClass, wchar_t *path, unsigned size);
