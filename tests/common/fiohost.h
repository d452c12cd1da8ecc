// The manager as a host creates it, for the areas that test through it.
#pragma once
#include "filemng/filemng.h"
#include "filemng/fiodiscovery.h"
#include <string>

namespace zvtest {

// A manager whose data files lie beside a host that doesn't exist in `dir`
// (none given: in the user's folders). The data paths are reset before and
// after; loaded classes hold the manager, so it is cleaned up before the
// last release.
struct HostManager {
    IZvFileIOMgrForApp *app = nullptr;
    CZvFileIOManager *mgr = nullptr;
    HRESULT created = E_FAIL;

    explicit HostManager(const std::wstring &dir, DWORD flags = ZVFIO_CREATE_MANAGERONLY,
                         _ZVFIO_KEYED_INFO *info = nullptr)
    {
        ZvFioResetDataPaths();
        if (!dir.empty()) {
            flags |= ZVFIO_CREATE_BESIDEPROGRAM;
            ZvFioResolveDataPaths(ZVFIO_CREATE_BESIDEPROGRAM, (dir + L"\\host.exe").c_str());
        }
        long reserved = 0;
        created = ZVFileIO_CreateInstance(&app, nullptr, flags, info, reserved);
        mgr = static_cast<CZvFileIOManager *>(app);
    }
    ~HostManager()
    {
        release();
        ZvFioResetDataPaths();
    }
    void release()
    {
        if (!app)
            return;
        app->CleanUp();
        app->Release();
        app = nullptr;
        mgr = nullptr;
    }
    // Lists the plug-ins the configuration files in `folder` name and makes
    // them the manager's list.
    HRESULT listConfigured(const std::wstring &folder, DWORD listFlags)
    {
        if (FAILED(created))
            return created;
        tZVLIST *list = nullptr;
        HRESULT hr = ZvFioCreateRecordList(&list);
        if (SUCCEEDED(hr))
            hr = ZvFioReadConfigFiles(list, folder.c_str(), nullptr, 0);
        if (SUCCEEDED(hr))
            hr = mgr->GrovelSpecifiedPlugins(list, listFlags, nullptr);
        if (SUCCEEDED(hr))
            hr = mgr->SetPluginList(list, 0, 0, nullptr);
        if (FAILED(hr) && list)
            ZvFioFreeRecordList(list);
        return hr;
    }
    // The record of a plug-in class, or null.
    ZVFIO_PLUGININFO *record(const GUID &clsid) const
    {
        tZVLIST *list = mgr ? mgr->pluginList() : nullptr;
        for (int i = 0; list && i < list->count; ++i) {
            ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
            if (r && IsEqualGUID(r->clsidPlugin, clsid))
                return r;
        }
        return nullptr;
    }
};

} // namespace zvtest
