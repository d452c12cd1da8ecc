// Values of a template (ZVFIO_TEMPLATE_INFO) and basic templates.
#pragma once
#include "templates/zvtemplate.h"

enum ZVFIO_TEMPLATE_INFO {
    ZVTI_FORMAT_TAG = 1,          // 16-bit
    ZVTI_VIDEO_COMPRESSION = 2,   // 32-bit
    ZVTI_AUDIO_BITRATE = 3,       // 32-bit, bits per second
    ZVTI_VIDEO_BITRATE = 4,       // 64-bit, bits per second
    ZVTI_AUDIO_STREAMS = 10,
    ZVTI_VIDEO_STREAMS = 11,
    ZVTI_SAMPLE_RATE = 12,
    ZVTI_BITS = 13,               // 16-bit
    ZVTI_CHANNELS = 14,           // 16-bit
    ZVTI_CHANNEL_MASK = 15,
    ZVTI_WIDTH = 16,
    ZVTI_HEIGHT = 17,
    ZVTI_FRAME_RATE = 18,         // double
    ZVTI_PIXEL_ASPECT = 19,       // double
    ZVTI_FRAME_SIZE = 20,         // width and height
    ZVTI_VIDEO_EXTENSION = 21,    // 64 bytes
    ZVTI_AUDIO_EXTENSION = 22,    // 32 bytes
    ZVTI_WRITABLE = 23,           // the plug-in's own answer: 0 if it refuses the template
};

ZVAPI HRESULT ZvFio_GetTemplateInfo(const tagZVTEMPLATExV2 *t, DWORD streamMask, void *buffer, DWORD size,
                                    DWORD id);
// A 540-byte record with one audio stream of the format; an encoded format
// goes to the encoded place with 16-bit PCM as the decoded form.
ZVAPI HRESULT ZvFio_InitBasicAudioTemplate(tagZVTEMPLATExV2 **record, const ZVWAVEFORMAT *format);
// A template of the streams described (one record per stream, audio or
// video; others are passed over), with the matching encoded record of each
// if given and carrying a format. E_POINTER for a null out or array.
ZVAPI HRESULT ZvFio_GenerateTemplate(tagZVTEMPLATExV2 **record, const _ZVFILESTREAMFORMATINFOv2 *formats,
                                     const _ZVFILESTREAMFORMATINFOv2 *encoded, LONG count, DWORD extra,
                                     LPCWSTR name, LPCWSTR notes);
// Asked of a video stream for the frame as stored in the file; a reader
// that decodes offers it (the blankets hand it out raw).
extern "C" const IID IID_IZvReadVideoRenderStream;
struct IZvReadVideoRenderStream : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetStoredFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format) = 0;
};
// The same from live streams of the given types (1 audio, 2 video, others
// passed over): the decoded format of each and, where the stream tells it,
// the stored one; no name or notes.
ZVAPI_CXX HRESULT ZvFio_GenerateTemplate(tagZVTEMPLATExV2 **record, IZvReadStream *const *streams, LONG count,
                                         const ZVFILESTREAMTYPE *types, DWORD extra);
ZVAPI DWORD ZvFio_CountSetBits(DWORD value);
