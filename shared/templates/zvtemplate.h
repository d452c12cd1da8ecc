// Render template records: the flat V2 record (also the file form), the old
// V1 stream form and its lifting, loading from files and streams, and the
// two content hashes. Records are single blocks of the C run-time heap;
// whoever receives one frees it with free() or ZvFio_ReleaseTemplate.
#pragma once
#include "zvbase.h"
#include "audio/waveformat.h"
#include <objidl.h>
#include "zvplugin.h"

#define E_ZVTEMPLATE_BAD        ZVERR_MALFORMED
#define E_ZVTEMPLATE_READ       ZVERR_FILE_READ
#define ZVERR_TEMPLATE_REFUSED  ((HRESULT)0x8004E0AF)

#define ZVTEMPLATE_VERSION_V1    0x1000000u
#define ZVTEMPLATE_MIN_SIZE      540u
#define ZVTEMPLATE_STREAM_MAX    0x2000000u
#define ZVTEMPLATE_BLOCK_SIZE    200u

// Byte offsets inside the record.
#define ZVT_OFS_AUDIO            56u
#define ZVT_OFS_AUDIO_COUNT      60u
#define ZVT_OFS_AUDIO_FORMAT     72u
#define ZVT_OFS_AUDIO_EXT        112u
#define ZVT_OFS_AUDIO_ENCODED    144u
#define ZVT_OFS_AUDIO_FLAGS      240u
#define ZVT_OFS_VIDEO            256u
#define ZVT_OFS_VIDEO_COUNT      260u
#define ZVT_OFS_VIDEO_FRAME      264u
#define ZVT_OFS_VIDEO_EXT        304u
#define ZVT_OFS_VIDEO_ENCODED    368u
#define ZVT_OFS_VIDEO_FLAGS      424u
#define ZVT_OFS_VIDEO_RATE       440u
#define ZVT_HASHED_SIZE          472u   // offsets 56 to 527

#define ZVTEMPLATE_AUDIO_RATE_UNUSABLE 0x20u

// SetTemplate flags.
#define ZVTEMPLATE_SET_COMPARE   0x10000u
#define ZVTEMPLATE_SET_COPY      0x20000u

#ifdef __cplusplus
static_assert(sizeof(tagZVTEMPLATExV2) == ZVTEMPLATE_HEADER_SIZE, "template head is 536 bytes");
static_assert(offsetof(tagZVTEMPLATExV2, rendererClass) == 24, "class GUID at 24");
static_assert(offsetof(tagZVTEMPLATExV2, templateId) == 40, "template GUID at 40");
static_assert(offsetof(tagZVTEMPLATExV2, audio) == ZVT_OFS_AUDIO, "audio block at 56");
static_assert(offsetof(tagZVTEMPLATExV2, video) == ZVT_OFS_VIDEO, "video block at 256");
static_assert(offsetof(tagZVTEMPLATExV2, further) == 456, "further block at 456");
static_assert(offsetof(tagZVTEMPLATExV2, dwTextCapacity) == 528, "text capacity at 528");
static_assert(offsetof(tagZVTEMPLATExV2, dwDataSize) == 532, "data size at 532");
#endif

// The old form in memory; its parts are calloc blocks that
// ZvFio_FreeTemplateDataV1 frees.
typedef struct ZVTEMPLATExV1 {
    DWORD dwSize;
    DWORD dwVersion;
    WCHAR name[260];
    WCHAR notes[260];
    DWORD hasAudio;
    BYTE  wfx[18];               // WAVEFORMATEX without extra bytes
    DWORD audioStreams;
    DWORD encodedSize;
    BYTE *encoded;
    BYTE  audioExtension[32];
    DWORD audioDataSize;
    BYTE *audioData;
    DWORD hasVideo;
    DWORD format1Size;
    BYTE *format1;
    DWORD videoStreams;
    BYTE  videoExtension[64];
    DWORD format2Size;
    BYTE *format2;
    DWORD further;
    BYTE  videoExtension2[64];
    DWORD videoDataSize;
    BYTE *videoData;
} ZVTEMPLATExV1;

// Field access that never reads past the record's own size.
ZVAPI DWORD ZvFio_GetTemplateTextOffset(const tagZVTEMPLATExV2 *t);
ZVAPI LPCWSTR ZvFio_GetTemplateName(const tagZVTEMPLATExV2 *t);
ZVAPI LPCWSTR ZvFio_GetTemplateNotes(const tagZVTEMPLATExV2 *t);
ZVAPI BYTE *ZvFio_GetTemplateData(const tagZVTEMPLATExV2 *t);
// Writes name and notes into the text area; notes may point into it.
ZVAPI void ZvFio_SetTemplateText(tagZVTEMPLATExV2 *t, LPCWSTR name, LPCWSTR notes);

ZVAPI LPCWSTR ZvFio_SkipDescriptionInTemplateNotesText(LPCWSTR notes);

ZVAPI_CXX HRESULT ZvFio_LoadTemplateData(tagZVTEMPLATExV2 **out, HANDLE file);
ZVAPI_CXX HRESULT ZvFio_LoadTemplateData(tagZVTEMPLATExV2 **out, IStream *stream, DWORD highestVersion,
                                         IZvRenderFileClass *renderClass);
ZVAPI HRESULT ZvFio_LoadTemplateDataV1(ZVTEMPLATExV1 *v1, IStream *stream, DWORD highestVersion,
                                       BOOL headerRead);
ZVAPI void ZvFio_FreeTemplateDataV1(ZVTEMPLATExV1 *v1);
ZVAPI HRESULT ZvFio_LoadRawUserTemplate(IZvRenderFileClass *renderClass, LPCWSTR path,
                                        tagZVTEMPLATExV2 **out);
ZVAPI BOOL ZvFio_IsUpliftedV1Template(const tagZVTEMPLATExV2 *t);

ZVAPI DWORD ZvFio_GetTemplateDataCRC32(const tagZVTEMPLATExV2 *t, BOOL withText);
ZVAPI HRESULT ZvFio_InitGUIDFromTemplateMD5DataHash(GUID *out, const tagZVTEMPLATExV2 *t, BOOL withText);
// The plain IEEE 802.3 sum, continued from crc (0 to start).
ZVAPI DWORD ZvFio_Crc32(DWORD crc, const void *data, size_t size);

ZVAPI HRESULT ZvFio_MakeTemplate(tagZVTEMPLATExV2 **record, DWORD version, const tagZVTEMPLATExV2 *source,
                                 DWORD streamMask, DWORD extraSize, LPCWSTR name, LPCWSTR notes);
ZVAPI HRESULT ZvFio_SetTemplate(tagZVTEMPLATExV2 **record, const tagZVTEMPLATExV2 *newRecord, DWORD flags);
ZVAPI tagZVTEMPLATExV2 *ZvFio_CopyTemplate(const tagZVTEMPLATExV2 *t);
ZVAPI_CXX void ZvFio_ReleaseTemplate(tagZVTEMPLATExV2 *t);
ZVAPI_CXX void ZvFio_ReleaseTemplate(IZvRenderFileClass *ignored, tagZVTEMPLATExV2 *t);
ZVAPI_CXX void ZvFio_ReleaseTemplate(IZvFileIOManager *ignored, tagZVTEMPLATExV2 *t);

#ifdef __cplusplus
template <typename T> static inline T *ZvTemplateAt(const tagZVTEMPLATExV2 *t, DWORD offset)
{
    return (T *)((BYTE *)t + offset);
}
#endif
