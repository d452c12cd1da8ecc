// The one manager of a command, with COM set up around it; the command ends
// only after the surrogates it started have ended.
#pragma once
#include "filemng/filemng.h"

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

} // namespace zvfio
