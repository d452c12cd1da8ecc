// What the commands that take samples from a reader share.
#pragma once
#include "zvfio.h"
#include "filemng/filemng.h"
#include "audio/waveformat.h"

namespace zvfio {

// A reader opened by name, released at the end of the command.
struct OpenedFile {
    IZvReadFile *file = nullptr;
    ~OpenedFile()
    {
        if (file) {
            file->Close();
            file->Release();
        }
    }
};

struct AudioFormat {
    bool valid = false;
    ZVSAMPLETYPE type = ZVSAMPLE_NONE;
    DWORD rate = 0;
    UINT channels = 0;
    UINT bits = 0;
    UINT blockAlign = 0;
    bool isFloat = false;
    LONGLONG length = 0;
};

// The index of the file's first audio stream, -1 for none.
LONG FirstAudioStream(IZvReadFile *file);
AudioFormat FormatOf(const _ZVFILESTREAMFORMATINFOv2 &info);
// Opens stream `index` as an audio stream: the stream (null on a failure
// to open it), its format and its length; the result of the format query.
HRESULT OpenAudio(IZvReadFile *file, LONG index, IZvReadAudioStream **as, AudioFormat *a, LONGLONG *total);

} // namespace zvfio
