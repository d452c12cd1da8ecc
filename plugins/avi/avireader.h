// The AVI reader's open file and its streams (avistreams.cpp), as the class
// object (aviplugin.cpp) makes them.
#pragma once
#include "zvplugin_com.h"
#include "aviformat.h"

// The video extension of a stream description (bytes 24 to 87): frame rate
// and pixel aspect where the template records keep them.
struct AviVideoExtension {
    DWORD pixelType;      // ZVPIXELTYPE of the frames ReadFrame gives as stored
    DWORD storedFourCC;   // the stream header's compression as the file has it
    DWORD interlace;      // 0: progressive
    DWORD reserved;
    double frameRate;
    double pixelAspect;
    BYTE unused[32];
};
static_assert(sizeof(AviVideoExtension) == 64, "video extension is 64 bytes");

// Pixel type of the frames of a video stream, 0 for a coding this reader
// doesn't read. `canonical` gets the compression by which the rest of the
// system knows the layout ("YUYV" for "YUY2", "I420" for "IYUV").
DWORD AviPixelType(const BITMAPINFOHEADER &stored, DWORD *canonical);
// True for linear PCM and float audio with a consistent block size.
bool AviAudioUsable(const WAVEFORMATEX &format);
// True when a parsed file has a stream this reader can give out, and no
// video that it can't (a file of another coding is another reader's).
bool AviReadable(const AviFile &avi);

// An open file over `file` (adopted) with its parsed headers; `name` is
// owned by the object (both are released on a failure too).
HRESULT AviCreateReadFile(IZvReadFileClass *owner, HANDLE file, const AviFile &avi, BSTR name, IZvReadFile **out);
