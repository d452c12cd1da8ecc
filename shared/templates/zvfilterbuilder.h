// File filters of the open and save dialogs: pairs of a description and a
// semicolon-separated pattern list, each ended by NUL, the whole by a further
// NUL; with the class ids behind the pairs and the list of unique extensions.
// The builder lives in the caller's process only: it is never marshalled.
#pragma once
#include "zvbase.h"
#include "zvlist.h"
#include "zvplugin.h"
#include "zvmanager.h"
#include "audio/waveformat.h"

#define ZVFILTER_DESCRIPTION_ONLY  0x4u          // no "(patterns)" behind the description
#define ZVFILTER_HIDDEN            0x800u
#define ZVFILTER_NO_EXTLIST        0x10000000u
#define ZVFILTER_OPT_INVERT        0x1u          // keep entries outside the mask
#define ZVFILTER_OPT_ALLFILES      0x20u         // extension list cut at 260 units
#define ZVFILTER_OPT_ON_MASK       0x1000u

// Information record of one entry, 4,720 bytes.
typedef struct ZVFIO_FILTERENTRYINFO {
    DWORD cbSize;
    DWORD id;
    DWORD flags;
    DWORD extensionCount;
    GUID classGuid;
    GUID secondGuid;
    WCHAR extensions[1036];
    WCHAR description[1300];
} ZVFIO_FILTERENTRYINFO;
#ifdef __cplusplus
static_assert(sizeof(ZVFIO_FILTERENTRYINFO) == 4720, "entry information is 4,720 bytes");
#endif

extern "C" const IID IID_IZvFioFilterBuilder2;

struct IZvFioFilterBuilder2 : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE AddReaders(DWORD sourceMask, DWORD count, DWORD options) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddRenderers(DWORD sourceMask, DWORD count, DWORD options) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetDefault(DWORD id, DWORD value) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetDefaultEx(DWORD id, DWORD value, DWORD flag) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetLastWord(DWORD value) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSingleList(BOOL single) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddEntry(LPCWSTR extensions, LPCWSTR description, DWORD id, int insertAt,
                                               DWORD flags, const GUID *classGuid) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddEntryEx(LPCWSTR extensions, LPCWSTR description, DWORD id, int insertAt,
                                                 DWORD flags, const GUID *classGuid, const GUID *secondGuid) = 0;
    // One entry whose patterns are the unique extensions of the entries
    // that the mask keeps.
    virtual HRESULT STDMETHODCALLTYPE AddCombinedEntry(const GUID *mask, int maskCount, DWORD options,
                                                       LPCWSTR description, DWORD id, int insertAt, DWORD flags,
                                                       const GUID *classGuid) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveEntry(int index) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reserved13() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetFilterString(WCHAR *buffer, DWORD *size, DWORD *ids, DWORD *count,
                                                      const GUID *mask, int maskCount, DWORD options) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetEntryCount(int *count) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetEntryInfo(ZVFIO_FILTERENTRYINFO *info, int index) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetEntryHidden(int index, BOOL hidden) = 0;
    virtual HRESULT STDMETHODCALLTYPE FindEntryByGuid(int *index, const GUID *guid) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetEntriesHidden(const GUID *mask, int maskCount, BOOL hidden,
                                                       DWORD options) = 0;
    virtual HRESULT STDMETHODCALLTYPE BuildFilter(const GUID *mask, int maskCount, DWORD flags, DWORD options) = 0;
    virtual HRESULT STDMETHODCALLTYPE BuildExtensionList(const GUID *mask, int maskCount, DWORD flags,
                                                         DWORD options) = 0;
    // Filter string in bytes, extension list in units with its NUL, ids.
    virtual HRESULT STDMETHODCALLTYPE GetSizes(DWORD *filterBytes, DWORD *extensionUnits, DWORD *idCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyFilter(WCHAR *buffer, DWORD capacity) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyIds(DWORD *ids, DWORD count) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyExtensionList(WCHAR *buffer, DWORD capacity, WCHAR separator) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetFilterPointer(LPCWSTR *filter) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetExtensionListPointer(LPCWSTR *list) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetIdsPointer(const DWORD **ids, DWORD *count) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDefault(DWORD *id, DWORD *value, DWORD *lastWord) = 0;
};

// A new builder whose Add operations read the classes of the manager.
ZVAPI HRESULT ZvFio_CreateFilterBuilder(IZvFileIOMgrForApp *manager, REFIID iid, void **out);

// The unique extensions of the builder's entries (as BuildExtensionList
// keeps them) as a heap list of strings, without "*.*" and "?" patterns,
// sorted case-insensitively and without duplicates; *list is created if
// null, else added to.
ZVAPI_CXX HRESULT ZvFio_BuildUniqueExtensionList(tZVLIST **list, IZvFioFilterBuilder2 *builder, const GUID *mask,
                                                 int maskCount, DWORD options);
// The same from a new builder filled with the manager's reader classes.
ZVAPI_CXX HRESULT ZvFio_BuildUniqueExtensionList(IZvFileIOMgrForApp *manager, tZVLIST **list, DWORD sourceMask,
                                                 DWORD count, const GUID *mask, int maskCount, DWORD options);
