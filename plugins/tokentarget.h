// tokentarget.h: for the plug-ins built in this tree, the memory one call
// reads from or writes to: a host's shared buffer through the stream's kept
// view, any other token mapped for this call. (Plug-ins built from the SDK
// alone use zvplugin_view.h and the kit's WriteToken.)
#pragma once
#include "zvplugin_view.h"
#include "filemng/zvmemtoken.h"
#include <optional>

class TokenTarget {
public:
    // access: ZVMEMTOKEN_READ or ZVMEMTOKEN_WRITE, which are FILE_MAP_READ and
    // FILE_MAP_WRITE
    TokenTarget(zvsdk::KeptView &kept, const _zvmemorytoken &token, DWORD access)
        : held_(kept, token, access), data_(held_.get())
    {
        if (!data_)
            data_ = (BYTE *)mapped_.emplace(token, access).Pointer();
    }
    BYTE *get() const { return data_; }

private:
    zvsdk::HeldView held_;
    std::optional<CMappingOfZvMemoryToken> mapped_;
    BYTE *data_;
};
