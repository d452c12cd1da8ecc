// The one manager of a command, with COM set up around it; the command ends
// only after the surrogates it started have ended.
#pragma once
#include "filemng/filemng.h"
#include "templates/zvtemplate.h"
#include <string>

namespace zvfio {

class Manager {
public:
    Manager() : app_(nullptr), com_(false) {}
    ~Manager();
    // flags: ZVFIO_CREATE_... of the manager
    HRESULT Create(DWORD flags = 0);
    CZvFileIOManager *operator->() const { return static_cast<CZvFileIOManager *>(app_); }
    CZvFileIOManager *get() const { return static_cast<CZvFileIOManager *>(app_); }

private:
    IZvFileIOMgrForApp *app_;
    bool com_;
};

// A renderer class by GUID, by extension ("wav", ".wav" or "*.wav") or by
// a part of its display name.
HRESULT FindRenderer(Manager &mgr, const std::wstring &key, IZvRenderFileClass **cls);
// A template's audio format in words ("44100 Hz, 16-bit, 2 channels").
std::string FormatText(const tagZVTEMPLATExV2 *t);

} // namespace zvfio
