// The small list formats of the metadata stream: the summary list of text
// fields (LIST INFO, LIST UNFO), the display list (DISP chunks), and the
// self-sizing media-format and picture blocks.
#pragma once
#include "zvbase.h"
#include <objidl.h>

// One text field; an id of 0 with a null text is a hole. Texts and the
// array are locked, zero-filled movable global blocks.
struct tagZVSUMMARYPAIR {
    DWORD id;
    WCHAR *text;
};

struct _summarylisttag {
    DWORD count;
    tagZVSUMMARYPAIR *pairs;

    // Stream form: count and a meaningless pointer word (8 bytes), then per
    // pair the id, the byte size of the wide text with its terminator (0
    // without one) and the text.
    HRESULT Persist(IStream *stream, DWORD flag) const;
    static HRESULT Create(IStream *stream, DWORD flag, _summarylisttag *out);
};

ZVAPI HRESULT ZvSummary_Load(HANDLE file, _summarylisttag *list, DWORD *remaining);
ZVAPI HRESULT ZvSummary_LoadUNFO(HANDLE file, _summarylisttag *list, DWORD *remaining);
// Writes LIST INFO (UNFO) at the handle; written gets its bytes for
// riff_UpdateRIFFSize.
ZVAPI HRESULT ZvSummary_Save(HANDLE file, const _summarylisttag *list, DWORD *written);
ZVAPI HRESULT ZvSummary_SaveUNFO(HANDLE file, const _summarylisttag *list, DWORD *written);
ZVAPI void ZvSummary_Free(_summarylisttag *list);
ZVAPI int ZvSummary_GetItemIndex(const _summarylisttag *list, DWORD id);
ZVAPI const WCHAR *ZvSummary_GetItemText(const _summarylisttag *list, DWORD id);
ZVAPI HRESULT ZvSummary_SetItem(_summarylisttag *list, DWORD id, const WCHAR *text);
ZVAPI HRESULT ZvSummary_Copy(_summarylisttag *target, const _summarylisttag *source);
// Moves source pairs over; moved is the number that went.
ZVAPI HRESULT ZvSummary_Merge(_summarylisttag *target, _summarylisttag *source, BOOL overwrite, DWORD *moved);
ZVAPI int ZvSummary_Compare(const _summarylisttag *a, const _summarylisttag *b);
// One entry of the LIST the handle stands in; the position is kept.
ZVAPI HRESULT ZvSummary_GetStringFromFile(HANDLE file, DWORD id, WCHAR *buffer, DWORD capacity, DWORD *remaining);

// Display list: items of a clipboard format and its data.
struct tagZVDISPITEM {
    DWORD format;
    DWORD size;
    void *data;
};
struct tagZVDISPLIST {
    DWORD count;
    tagZVDISPITEM *items;
};

ZVAPI tagZVDISPLIST *displist_Create(void);
ZVAPI void displist_Free(tagZVDISPLIST *list);
ZVAPI void displist_Destroy(tagZVDISPLIST *list);
ZVAPI tagZVDISPITEM *displist_GetItem(tagZVDISPLIST *list, DWORD format);
// -1 for a format the list has no item of.
ZVAPI int displist_SetItem(tagZVDISPLIST *list, DWORD format, DWORD size, const void *data);
// All DISP chunks from the handle on, within remaining bytes; a format the
// list does not have gets an item of its own.
ZVAPI HRESULT displist_Load(HANDLE file, tagZVDISPLIST *list, DWORD *remaining);
ZVAPI HRESULT displist64_Load(HANDLE file, tagZVDISPLIST *list, ULONGLONG *remaining);
// A generic display stream: frame, then items of format id and data.
ZVAPI HRESULT displist_LoadFromStream(IStream *stream, tagZVDISPLIST *list);
ZVAPI HRESULT displist_Save(HANDLE file, const tagZVDISPLIST *list, DWORD *written);
ZVAPI HRESULT displist64_Save(HANDLE file, const tagZVDISPLIST *list, ULONGLONG *written);
ZVAPI HBITMAP displist_CreateBitmapFromFile(const WCHAR *path);

// Media-format block: total size, versions, data size, data.
#pragma pack(push, 1)
struct tagZVSMFMF {
    DWORD totalSize;
    DWORD smfmfVersion; // 0x10041
    DWORD structVersion; // 2
    DWORD dataSize;
};
struct tagZVPICTURE {
    DWORD totalSize;
    DWORD structVersion; // 2
    DWORD pictureType;   // _PICTUREMETADATATYPE_
    DWORD mimeBytes;
    DWORD descriptionBytes;
    DWORD dataSize;
};
#pragma pack(pop)
static_assert(sizeof(tagZVSMFMF) == 16, "media-format block header is 16 bytes");
static_assert(sizeof(tagZVPICTURE) == 24, "picture block header is 24 bytes");

// Blocks that Create returns are fixed global memory: GlobalFree frees them.
ZVAPI void *ZvSmfmf_CreateMeta(DWORD size, const void *data);
ZVAPI HRESULT ZvSmfmf_SetMeta(void *block, DWORD size, const void *data);
ZVAPI DWORD ZvSmfmf_GetMetaSizeNeeded(DWORD size);
ZVAPI const void *ZvSmfmf_GetData(const void *block);
ZVAPI DWORD ZvSmfmf_GetDataSize(const void *block);
ZVAPI DWORD ZvSmfmf_GetTotalSize(const void *block);
ZVAPI const void *ZvSmfmf_GetSerializableData(const void *block);
ZVAPI DWORD ZvSmfmf_GetSmfmfVersion(const void *block);
ZVAPI DWORD ZvSmfmf_GetStructVersion(const void *block);

ZVAPI void *ZvPicture_CreateMeta(DWORD type, const WCHAR *mime, const WCHAR *description, DWORD size,
                                 const void *data);
ZVAPI HRESULT ZvPicture_SetMeta(void *block, DWORD type, const WCHAR *mime, const WCHAR *description, DWORD size,
                                const void *data);
ZVAPI DWORD ZvPicture_GetMetaSizeNeeded(const WCHAR *mime, const WCHAR *description, DWORD size);
ZVAPI const WCHAR *ZvPicture_GetMimeType(const void *block);
ZVAPI DWORD ZvPicture_GetMimeTypeByteCount(const void *block);
ZVAPI const WCHAR *ZvPicture_GetDescription(const void *block);
ZVAPI DWORD ZvPicture_GetDescriptionByteCount(const void *block);
ZVAPI DWORD ZvPicture_GetPictureType(const void *block);
ZVAPI const void *ZvPicture_GetPictureData(const void *block);
ZVAPI DWORD ZvPicture_GetPictureDataSize(const void *block);
ZVAPI DWORD ZvPicture_GetPictureTotalSize(const void *block);
ZVAPI DWORD ZvPicture_GetStructVersion(const void *block);
// A picture block is whole: its sizes add up within size bytes.
ZVAPI BOOL ZvPicture_IsValid(const void *block, DWORD size);
