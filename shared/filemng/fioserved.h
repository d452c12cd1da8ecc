// The served side of the surrogate link: what CVantry32 does with its own
// manager. Written against plain types so that the object's C-form source
// can call it.
#pragma once
#include <windows.h>
#include <objbase.h>

struct tZVLIST;

// The surrogate object's state: its manager (an IZvFileIOMgrForApp, null
// until created) and the plug-in paths waiting for ProcessPluginList.
struct ZvFioServedState {
    void *manager;
    struct tZVLIST *pending;
};

// Reader and renderer class interfaces through the manager, anything else
// straight from the DLL's class factory.
HRESULT ZvFioServed_CreateObject(ZvFioServedState *state, LPCWSTR dllPath, REFCLSID classId, REFIID iid,
                                 void **out);
HRESULT ZvFioServed_CreateManager(ZvFioServedState *state, DWORD flags, const BYTE *mask, DWORD maskLength,
                                  const LONG *values, DWORD valueCount, LPCWSTR hostPath, LPCWSTR productName);
HRESULT ZvFioServed_AddPlugin(ZvFioServedState *state, LPCWSTR dllPath);
HRESULT ZvFioServed_ProcessPluginList(ZvFioServedState *state);
HRESULT ZvFioServed_EditTemplate(ZvFioServedState *state, UINT64 parentWindow, IUnknown *rendererClass,
                                 DWORD flags, IStream *templates, DWORD templateSize, const BYTE *templateData,
                                 LPCWSTR title, BYTE_BLOB **edited);
// Frees the pending list, cleans the manager up and releases it.
void ZvFioServed_Destroy(ZvFioServedState *state);
