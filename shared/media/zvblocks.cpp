// Self-sizing blocks that carry a media-format block or a picture through
// the metadata interfaces.
#include "media/zvsummary.h"
#include <string.h>
#include <wchar.h>

namespace {

const DWORD kSmfmfVersion = 0x10041, kStructVersion = 2;

// Room for a text and its terminator, in bytes, even; 0 for none.
DWORD TextBytes(const WCHAR *text)
{
    return text ? (((DWORD)wcslen(text) * sizeof(WCHAR)) | 1) + 1 : 0;
}

const tagZVSMFMF *Smfmf(const void *block) { return (const tagZVSMFMF *)block; }
const tagZVPICTURE *Picture(const void *block) { return (const tagZVPICTURE *)block; }

} // namespace

DWORD ZvSmfmf_GetMetaSizeNeeded(DWORD size) { return size + sizeof(tagZVSMFMF); }

HRESULT ZvSmfmf_SetMeta(void *block, DWORD size, const void *data)
{
    if (!block || (size && !data) || size > 0xFFFFFFFF - sizeof(tagZVSMFMF))
        return E_INVALIDARG;
    tagZVSMFMF head = {size + (DWORD)sizeof(tagZVSMFMF), kSmfmfVersion, kStructVersion, size};
    memcpy(block, &head, sizeof head);
    if (size)
        memcpy((BYTE *)block + sizeof head, data, size);
    return S_OK;
}

void *ZvSmfmf_CreateMeta(DWORD size, const void *data)
{
    if ((size && !data) || size > 0xFFFFFFFF - sizeof(tagZVSMFMF))
        return nullptr;
    void *block = GlobalAlloc(GPTR, ZvSmfmf_GetMetaSizeNeeded(size));
    if (block)
        ZvSmfmf_SetMeta(block, size, data);
    return block;
}

const void *ZvSmfmf_GetData(const void *block) { return block ? (const BYTE *)block + sizeof(tagZVSMFMF) : nullptr; }
DWORD ZvSmfmf_GetDataSize(const void *block) { return block ? Smfmf(block)->dataSize : 0; }
DWORD ZvSmfmf_GetTotalSize(const void *block) { return block ? Smfmf(block)->totalSize : 0; }
const void *ZvSmfmf_GetSerializableData(const void *block) { return block; }
DWORD ZvSmfmf_GetSmfmfVersion(const void *block) { return block ? Smfmf(block)->smfmfVersion : 0; }
DWORD ZvSmfmf_GetStructVersion(const void *block) { return block ? Smfmf(block)->structVersion : 0; }

DWORD ZvPicture_GetMetaSizeNeeded(const WCHAR *mime, const WCHAR *description, DWORD size)
{
    ULONGLONG total = (ULONGLONG)sizeof(tagZVPICTURE) + TextBytes(mime) + TextBytes(description) + size;
    return total > 0xFFFFFFFF ? 0 : (DWORD)total;
}

HRESULT ZvPicture_SetMeta(void *block, DWORD type, const WCHAR *mime, const WCHAR *description, DWORD size,
                          const void *data)
{
    DWORD total = ZvPicture_GetMetaSizeNeeded(mime, description, size);
    if (!block || (size && !data) || !total)
        return E_INVALIDARG;
    tagZVPICTURE head = {total, kStructVersion, type, TextBytes(mime), TextBytes(description), size};
    BYTE *p = (BYTE *)block;
    memset(p, 0, total);
    memcpy(p, &head, sizeof head);
    p += sizeof head;
    if (mime)
        memcpy(p, mime, wcslen(mime) * sizeof(WCHAR));
    p += head.mimeBytes;
    if (description)
        memcpy(p, description, wcslen(description) * sizeof(WCHAR));
    p += head.descriptionBytes;
    if (size)
        memcpy(p, data, size);
    return S_OK;
}

void *ZvPicture_CreateMeta(DWORD type, const WCHAR *mime, const WCHAR *description, DWORD size, const void *data)
{
    DWORD total = ZvPicture_GetMetaSizeNeeded(mime, description, size);
    if (!total || (size && !data))
        return nullptr;
    void *block = GlobalAlloc(GPTR, total);
    if (block)
        ZvPicture_SetMeta(block, type, mime, description, size, data);
    return block;
}

const WCHAR *ZvPicture_GetMimeType(const void *block)
{
    return block && Picture(block)->mimeBytes ? (const WCHAR *)((const BYTE *)block + sizeof(tagZVPICTURE)) : nullptr;
}
DWORD ZvPicture_GetMimeTypeByteCount(const void *block) { return block ? Picture(block)->mimeBytes : 0; }
const WCHAR *ZvPicture_GetDescription(const void *block)
{
    return block && Picture(block)->descriptionBytes
               ? (const WCHAR *)((const BYTE *)block + sizeof(tagZVPICTURE) + Picture(block)->mimeBytes)
               : nullptr;
}
DWORD ZvPicture_GetDescriptionByteCount(const void *block) { return block ? Picture(block)->descriptionBytes : 0; }
DWORD ZvPicture_GetPictureType(const void *block) { return block ? Picture(block)->pictureType : 0; }
const void *ZvPicture_GetPictureData(const void *block)
{
    return block ? (const BYTE *)block + sizeof(tagZVPICTURE) + Picture(block)->mimeBytes +
                       Picture(block)->descriptionBytes
                 : nullptr;
}
DWORD ZvPicture_GetPictureDataSize(const void *block) { return block ? Picture(block)->dataSize : 0; }
DWORD ZvPicture_GetPictureTotalSize(const void *block) { return block ? Picture(block)->totalSize : 0; }
DWORD ZvPicture_GetStructVersion(const void *block) { return block ? Picture(block)->structVersion : 0; }

BOOL ZvPicture_IsValid(const void *block, DWORD size)
{
    if (!block || size < sizeof(tagZVPICTURE))
        return FALSE;
    const tagZVPICTURE *p = Picture(block);
    ULONGLONG need = (ULONGLONG)sizeof *p + p->mimeBytes + p->descriptionBytes + p->dataSize;
    // texts end in a terminator within their room
    const BYTE *b = (const BYTE *)block;
    bool texts = (!p->mimeBytes || (p->mimeBytes >= 2 && !(p->mimeBytes & 1))) &&
                 (!p->descriptionBytes || (p->descriptionBytes >= 2 && !(p->descriptionBytes & 1)));
    return texts && need <= size && p->totalSize == need &&
           (!p->mimeBytes || !memcmp(b + sizeof *p + p->mimeBytes - 2, "\0", 2)) &&
           (!p->descriptionBytes || !memcmp(b + sizeof *p + p->mimeBytes + p->descriptionBytes - 2, "\0", 2));
}
