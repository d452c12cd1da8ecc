// Project link written by path: into the media file or its sidecar, from a
// source's IZvReadProjectLinkMeta.
#include "media/projectlink.h"
#include "media/zvmeta.h"
#include "media/riff.h"
#include "zvplugin.h"

namespace {

HRESULT OpenAndWrite(const WCHAR *path, IUnknown *meta, bool w64, bool sidecar)
{
    if (!meta)
        return S_OK;
    if (!path)
        return E_INVALIDARG;
    IZvReadProjectLinkMeta *link = nullptr;
    if (FAILED(meta->QueryInterface(IID_IZvReadProjectLinkMeta, (void **)&link)) || !link)
        return S_OK;
    CZvLinkProjectInfo info;
    BOOL found = FALSE;
    HRESULT hr = ProjectLinkReadMeta_LoadInfo(link, &info, &found);
    link->Release();
    if (FAILED(hr) || !found) {
        info.FreeMemory();
        return FAILED(hr) ? hr : S_OK;
    }
    WCHAR target[MAX_PATH];
    if (sidecar)
        ZvFMMeta_CreateMetaName(path, target, MAX_PATH, TRUE);
    else
        lstrcpynW(target, path, MAX_PATH);
    HANDLE h = CreateFileW(target, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           sidecar ? OPEN_ALWAYS : OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        info.FreeMemory();
        return ZVERR_FILE_OPEN;
    }
    if (sidecar && GetLastError() != ERROR_ALREADY_EXISTS) {
        hr = riff_WriteFileID(h, ZVRIFF_ID('Z', 'V', 'P', 'L'), 4);
        if (SUCCEEDED(hr))
            hr = ZvFMMeta_AttachFileToExternList(h, path);
    }
    if (SUCCEEDED(hr))
        hr = w64 ? ProjectLinkRiff64_WriteInfo(h, &info) : ProjectLinkRiff_WriteInfo(h, &info);
    CloseHandle(h);
    info.FreeMemory();
    return hr;
}

} // namespace

HRESULT ProjectLinkRiff_openAndWriteInfo(const WCHAR *path, IUnknown *meta, BOOL useSidecar)
{
    return OpenAndWrite(path, meta, false, useSidecar != FALSE);
}

HRESULT ProjectLinkRiff64_openAndWriteInfo(const WCHAR *path, IUnknown *meta)
{
    return OpenAndWrite(path, meta, true, false);
}
