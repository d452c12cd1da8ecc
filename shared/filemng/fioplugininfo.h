// The plug-in record: one per plug-in class, the item of the manager's
// plug-in list, and the helpers that allocate, copy and free it.
#pragma once
#include "zvbase.h"
#include <objbase.h>

struct tZVLIST;

// record flags
#define ZVFIO_RF_PRELOADED  0x001u  // preload modules were loaded and must be released
#define ZVFIO_RF_UNUSABLE   0x002u  // no usable class; no list shows it
#define ZVFIO_RF_EXCLUDED   0x004u  // class on the excluded list (with 0x002)
#define ZVFIO_RF_AMD64      0x010u  // the DLL's machine type is 0x8664
#define ZVFIO_RF_DIRTY      0x020u  // differs from the cache; must be written
#define ZVFIO_RF_UNCACHED   0x040u  // the cache doesn't cover the DLL; list it
#define ZVFIO_RF_FIRST      0x080u  // first record of its DLL; carries the DLL section
#define ZVFIO_RF_SURROGATE  0x100u  // the plug-in runs in a surrogate

// load flags
#define ZVFIO_LF_LOADONINIT 0x1u    // load this record at start
#define ZVFIO_LF_NOFORCE    0x2u    // exempt from the forced refresh of three classes

// Access bits
#ifndef ZVFIO_ACCESS_READER
#define ZVFIO_ACCESS_READER   0x10
#define ZVFIO_ACCESS_RENDERER 0x20
#endif

// per-class load state
#define ZVFIO_STATE_NONE   0
#define ZVFIO_STATE_LOADED 1
#define ZVFIO_STATE_FAILED 2

#define ZVFIO_RECORD_VERSION 5

typedef struct ZVFIO_PLUGININFO {
    DWORD cbSize;               // 1216 on 32-bit
    GUID clsidPlugin;           // asked of DllGetClassObject
    HMODULE hModule;            // 0 when not loaded
    IClassFactory *pFactory;
    WCHAR szName[MAX_PATH];     // class display name
    WCHAR szPath[MAX_PATH];     // full path of the DLL
    void *pSpare;               // freed at destruction if set
    WCHAR *DialogName;          // heap strings (ZvFioStrDup)
    DWORD LangID;               // language of the cached strings
    WCHAR *PreloadModules;
    DWORD dwRecordFlags;        // ZVFIO_RF_*
    DWORD dwSpare1;
    DWORD StreamType;
    DWORD Access;               // ZVFIO_ACCESS_*
    HRESULT hrSurrogate;        // why the record's surrogate didn't start; S_OK when it did or wasn't asked
    DWORD dwSpare2;
    DWORD dwLoadFlags;          // ZVFIO_LF_*
    DWORD Flags;                // as the plug-in listed them
    DWORD ModTime;              // DOS date and time of the DLL, UTC
    DWORD dwListed;             // lets a class through the enumerators' duplicate test
    GUID clsidReader;
    LONG nReaderIndex;
    IUnknown *pReaderClass;     // owned
    LONG nReaderState;          // ZVFIO_STATE_*
    WCHAR *ExtReader;
    GUID clsidRenderer;
    LONG nRendererIndex;
    IUnknown *pRendererClass;   // owned
    LONG nRendererState;
    WCHAR *ExtRenderer;
    DWORD dwVersion;            // ZVFIO_RECORD_VERSION
    LONG Surrogate;             // group number, -1 if none
    DWORD MeritValue;
    GUID MeritReader;
} ZVFIO_PLUGININFO;

#if defined(_M_IX86) || defined(__i386__)
static_assert(sizeof(ZVFIO_PLUGININFO) == 1216, "plug-in record is 1216 bytes on 32-bit");
#endif

// Heap strings of a record.
WCHAR *ZvFioStrDup(const WCHAR *text);
void ZvFioStrFree(WCHAR *text);
// Replaces *slot with a copy of text (null or empty text clears it).
void ZvFioStrSet(WCHAR **slot, const WCHAR *text);

// A zero-filled record, or a copy of `from` that shares nothing with it: the
// copy has no strings, class objects, factory, module or preload flag.
ZVFIO_PLUGININFO *ZvFioAllocRecord(const ZVFIO_PLUGININFO *from);
// Releases what the record owns, in order, then the record itself.
void ZvFioFreeRecord(ZVFIO_PLUGININFO *record);
// Frees every record of the list and the list.
void ZvFioFreeRecordList(tZVLIST *list);

// Releases the preload modules named in `list` (";"-separated) below `folder`.
void ZvFioReleasePreloadModules(const WCHAR *folder, const WCHAR *list);

// Splits a string in place: the next token up to `sep`, null at the end.
WCHAR *ZvFioNextToken(WCHAR **cursor, WCHAR sep);

// Excluded classes: compared by their first 10 bytes.
BOOL ZvFioIsExcludedClass(const GUID &clsid);
// First 10 bytes equal.
inline bool ZvFioSameClass10(const GUID &a, const GUID &b) { return memcmp(&a, &b, 10) == 0; }
