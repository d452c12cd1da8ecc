// Reading through the plug-in contract: tokens over this process's memory
// and a file's streams by their interface.
#pragma once
#include "filemng/zvmemtoken.h"

namespace zvtest {

// A token over `size` bytes of this process's memory.
inline _zvmemorytoken LocalToken(void *data, DWORD size)
{
    _zvmemorytoken t;
    ZvMemoryToken_InitLocal(&t, data, size, ZVMEMTOKEN_KIND_LOCAL);
    return t;
}

// Stream `index` of an open file (of stream type `type`, 0: any) as `Itf`,
// or null.
template <class Itf> Itf *OpenStreamAs(IZvReadFile *file, LONG index, REFIID iid, DWORD type = 0)
{
    IZvReadStream *s = nullptr;
    Itf *out = nullptr;
    if (file && SUCCEEDED(file->OpenStream(&s, index, type, 0, 0)) && s) {
        s->QueryInterface(iid, (void **)&out);
        s->Release();
    }
    return out;
}

inline IZvReadAudioStream *OpenAudio(IZvReadFile *file, LONG index = 0, DWORD type = 0)
{
    return OpenStreamAs<IZvReadAudioStream>(file, index, IID_IZvReadAudioStream, type);
}

} // namespace zvtest
