/*
 * File helpers that reader plug-ins share, header only: opening a file by a
 * name that may carry a moniker tail, matching a name against a pattern
 * list such as "*.avi;*.divx", positioned reads, and answering GetInfoText
 * from a plug-in's few texts, and what a reader class without streams
 * of IStream, metadata or a renderer answers.
 */
#pragma once
#include "zvplugin_com.h"
#include <string.h>
#include <wchar.h>

namespace zvsdk {

// Opens `name` for reading without what follows its first "?".
inline HRESULT OpenForReading(LPCWSTR name, HANDLE *out)
{
    *out = NULL;
    if (!name || !*name)
        return E_INVALIDARG;
    const size_t cut = wcscspn(name, L"?");
    wchar_t path[520];
    if (cut >= sizeof path / sizeof path[0])
        return ZVERR_BUFFER_TOO_SMALL;
    memcpy(path, name, cut * sizeof(wchar_t));
    path[cut] = 0;
    HANDLE h = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, NULL);
    if (h == INVALID_HANDLE_VALUE)
        return HRESULT_FROM_WIN32(GetLastError());
    *out = h;
    return S_OK;
}

// The file a reader is asked to open: the caller's handle when it passed
// one (adopted), else the name opened for reading.
inline HRESULT OpenGiven(UINT64 wire, DWORD processId, LPCWSTR name, HANDLE *out)
{
    HANDLE given = ZvSdk_WireToHandle(wire);
    return given == INVALID_HANDLE_VALUE || given == NULL ? OpenForReading(name, out)
                                                          : AdoptHandle(wire, processId, out);
}

// True when the extension of `name` (before any "?") is one of `patterns`.
inline bool NameHasExtension(const wchar_t *name, const wchar_t *patterns)
{
    const size_t end = wcscspn(name, L"?");
    size_t dot = end;
    for (size_t i = end; i-- > 0 && name[i] != L'\\' && name[i] != L'/';)
        if (name[i] == L'.') {
            dot = i;
            break;
        }
    if (dot == end)
        return false;
    const size_t extLen = end - dot;   // with its dot
    while (*patterns) {
        const size_t n = wcscspn(patterns, L";");
        if (n == extLen + 1 && patterns[0] == L'*' && _wcsnicmp(patterns + 1, name + dot, extLen) == 0)
            return true;
        patterns += n;
        if (*patterns)
            ++patterns;
    }
    return false;
}

// Reads exactly `size` bytes at `offset` without moving the file position
// that other users of the handle rely on.
inline bool ReadExactAt(HANDLE file, ULONGLONG offset, void *data, DWORD size)
{
    OVERLAPPED at = {};
    at.Offset = (DWORD)offset;
    at.OffsetHigh = (DWORD)(offset >> 32);
    DWORD got = 0;
    return ReadFile(file, data, size, &got, &at) && got == size;
}

// The texts a reader class answers GetInfoText with; null ones are absent.
struct ClassTexts {
    const wchar_t *shortName, *description, *extensions, *pluginName, *version;
    const wchar_t *readExtensions;   // null: the same as extensions
};

inline HRESULT AnswerInfoTexts(const ClassTexts &t, const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts)
{
    if (count < 0)
        return E_INVALIDARG;
    if (count > 0 && (!ids || !texts))
        return E_POINTER;
    for (LONG i = 0; i < count; i++)
        texts[i] = NULL;
    for (LONG i = 0; i < count; i++) {
        const wchar_t *text = ids[i] == ZVFIO_INFOTEXT_SHORTNAME        ? t.shortName
                              : ids[i] == ZVFIO_INFOTEXT_DESCRIPTION    ? t.description
                              : ids[i] == ZVFIO_INFOTEXT_READEXTENSIONS ? (t.readExtensions ? t.readExtensions : t.extensions)
                              : ids[i] == ZVFIO_INFOTEXT_EXTENSIONS     ? t.extensions
                              : ids[i] == ZVFIO_INFOTEXT_PLUGINNAME     ? t.pluginName
                              : ids[i] == ZVFIO_INFOTEXT_VERSION        ? t.version
                                                                        : NULL;
        if (text && (texts[i] = SysAllocString(text)) == NULL) {
            while (i-- > 0) {
                SysFreeString(texts[i]);
                texts[i] = NULL;
            }
            return E_OUTOFMEMORY;
        }
    }
    return S_OK;
}

// A reader class object that reads files by handle or name only: no
// IStream input, no metadata, no renderer, always ready. A reader gives
// OpenHandle.
class PlainReadClass : public ClassObject<IZvReadFileClass, &IID_IZvReadFileClass> {
public:
    // Makes the open file of a handle and a copy of the name (null if none
    // was given); both are the hook's from then on, also when it fails.
    virtual HRESULT OpenHandle(HANDLE file, BSTR name, IZvReadFile **out) = 0;

    HRESULT STDMETHODCALLTYPE OpenFile(IZvReadFile **out, UINT64 fileHandle, DWORD processId, LPCWSTR name,
                                       BOOL) override
    {
        if (!out)
            return E_POINTER;
        *out = nullptr;
        HANDLE file = NULL;
        HRESULT hr = OpenGiven(fileHandle, processId, name, &file);
        if (FAILED(hr))
            return hr;
        BSTR copy = name ? SysAllocString(name) : NULL;
        if (name && !copy) {
            CloseHandle(file);
            return E_OUTOFMEMORY;
        }
        return OpenHandle(file, copy, out);
    }
    HRESULT STDMETHODCALLTYPE GetRenderClass(IZvRenderFileClass **renderClass) override
    {
        if (!renderClass)
            return E_POINTER;
        *renderClass = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT STDMETHODCALLTYPE IdentifyStream(IStream *, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenStreamFile(IZvReadFile **file, IStream *, LPCWSTR, DWORD) override
    {
        if (!file)
            return E_POINTER;
        *file = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetMetaTypes(DWORD *types) override
    {
        return zvsdk::Answer(types, 0);
    }
    HRESULT STDMETHODCALLTYPE GetPluginStatus(HRESULT *status, BSTR *message) override
    {
        if (!status)
            return E_POINTER;
        *status = S_OK;
        return message && !(*message = SysAllocString(L"ready")) ? E_OUTOFMEMORY : S_OK;
    }
};

} // namespace zvsdk
