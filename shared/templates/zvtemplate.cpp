// The V2 template record: text access, making and setting, the content
// checksum and the content GUID.
#include "templates/zvtemplate.h"
#include <stdlib.h>
#include <string.h>
#include <wchar.h>
#include <string>

namespace {

DWORD RoundData(DWORD size)
{
    // a damaged size near the top stays below it; such records have no text
    return size > 0xFFFFFFF0u ? 0xFFFFFFF0u : (size + 3) & ~3u;
}

// Units of the text area that lie inside the record: capacity, cut to the
// record's size so that damaged records never lead reads outside it.
DWORD TextUnits(const tagZVTEMPLATExV2 *t)
{
    if (!t || t->dwSize < ZVTEMPLATE_HEADER_SIZE || !t->dwTextCapacity)
        return 0;
    ULONGLONG start = ZVTEMPLATE_HEADER_SIZE + (ULONGLONG)RoundData(t->dwDataSize);
    if (start >= t->dwSize)
        return 0;
    ULONGLONG room = (t->dwSize - start) / 2;
    return (DWORD)(room < t->dwTextCapacity ? room : t->dwTextCapacity);
}

const WCHAR *TextArea(const tagZVTEMPLATExV2 *t)
{
    return (const WCHAR *)((const BYTE *)t + ZVTEMPLATE_HEADER_SIZE + RoundData(t->dwDataSize));
}

// Name and notes as (pointer, length in units) inside the area.
void TextParts(const tagZVTEMPLATExV2 *t, const WCHAR **name, size_t *nameLen, const WCHAR **notes,
               size_t *notesLen)
{
    *name = *notes = L"";
    *nameLen = *notesLen = 0;
    DWORD units = TextUnits(t);
    if (!units)
        return;
    const WCHAR *area = TextArea(t);
    *name = area;
    *nameLen = wcsnlen(area, units);
    if (*nameLen + 1 < units) {
        *notes = area + *nameLen + 1;
        *notesLen = wcsnlen(*notes, units - *nameLen - 1);
    }
}

// The bytes that both hashes cover, in order.
template <typename Sink> void ForEachHashedPart(const tagZVTEMPLATExV2 *t, BOOL withText, Sink sink)
{
    sink((const BYTE *)t + ZVT_OFS_AUDIO, ZVT_HASHED_SIZE);
    DWORD data = t->dwDataSize;
    if (data && ZVTEMPLATE_HEADER_SIZE + (ULONGLONG)data <= t->dwSize)
        sink((const BYTE *)t + ZVTEMPLATE_HEADER_SIZE, data);
    if (withText) {
        const WCHAR *name, *notes;
        size_t nameLen, notesLen;
        TextParts(t, &name, &nameLen, &notes, &notesLen);
        if (nameLen)
            sink((const BYTE *)name, nameLen * 2);
        if (notesLen)
            sink((const BYTE *)notes, notesLen * 2);
    }
}

// MD5 of the system's cryptography library, resolved once per process.
struct Md5Context {
    ULONG i[2];
    ULONG buf[4];
    unsigned char in[64];
    unsigned char digest[16];
};
typedef void(WINAPI *Md5InitFn)(Md5Context *);
typedef void(WINAPI *Md5UpdateFn)(Md5Context *, const unsigned char *, unsigned int);
typedef void(WINAPI *Md5FinalFn)(Md5Context *);
Md5InitFn g_md5Init;
Md5UpdateFn g_md5Update;
Md5FinalFn g_md5Final;

bool ResolveMd5()
{
    if (g_md5Init && g_md5Update && g_md5Final)
        return true;
    HMODULE dll = LoadLibraryW(L"cryptdll.dll");
    if (!dll)
        return false;
    g_md5Update = (Md5UpdateFn)(void *)GetProcAddress(dll, "MD5Update");
    g_md5Final = (Md5FinalFn)(void *)GetProcAddress(dll, "MD5Final");
    g_md5Init = (Md5InitFn)(void *)GetProcAddress(dll, "MD5Init");
    return g_md5Init && g_md5Update && g_md5Final;
}

} // namespace

DWORD ZvFio_Crc32(DWORD crc, const void *data, size_t size)
{
    static DWORD table[256];
    static volatile LONG ready;
    if (!ready) {
        for (DWORD n = 0; n < 256; n++) {
            DWORD c = n;
            for (int k = 0; k < 8; k++)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            table[n] = c;
        }
        InterlockedExchange(&ready, 1);
    }
    const BYTE *p = (const BYTE *)data;
    crc = ~crc;
    while (size--)
        crc = table[(crc ^ *p++) & 0xFF] ^ (crc >> 8);
    return ~crc;
}

DWORD ZvFio_GetTemplateTextOffset(const tagZVTEMPLATExV2 *t)
{
    return t ? ZVTEMPLATE_HEADER_SIZE + RoundData(t->dwDataSize) : 0;
}

LPCWSTR ZvFio_GetTemplateName(const tagZVTEMPLATExV2 *t)
{
    const WCHAR *name, *notes;
    size_t nameLen, notesLen;
    TextParts(t, &name, &nameLen, &notes, &notesLen);
    // a name without terminator inside the record reads as empty
    return name[nameLen] == 0 ? name : L"";
}

LPCWSTR ZvFio_GetTemplateNotes(const tagZVTEMPLATExV2 *t)
{
    const WCHAR *name, *notes;
    size_t nameLen, notesLen;
    TextParts(t, &name, &nameLen, &notes, &notesLen);
    return notes[notesLen] == 0 ? notes : L"";
}

BYTE *ZvFio_GetTemplateData(const tagZVTEMPLATExV2 *t)
{
    return t ? (BYTE *)t + ZVTEMPLATE_HEADER_SIZE : NULL;
}

void ZvFio_SetTemplateText(tagZVTEMPLATExV2 *t, LPCWSTR name, LPCWSTR notes)
{
    DWORD units = TextUnits(t);
    if (!units)
        return;
    // Both may point into the area that is about to be written.
    std::wstring keepName = name ? name : L"";
    std::wstring keepNotes = notes ? notes : ZvFio_GetTemplateNotes(t);
    WCHAR *area = (WCHAR *)TextArea(t);
    memset(area, 0, (size_t)units * 2);
    size_t n = keepName.size() < units - 1 ? keepName.size() : units - 1;
    memcpy(area, keepName.data(), n * 2);
    size_t rest = units - n - 1;
    if (rest > keepNotes.size())
        memcpy(area + n + 1, keepNotes.data(), keepNotes.size() * 2);
}

LPCWSTR ZvFio_SkipDescriptionInTemplateNotesText(LPCWSTR notes)
{
    static const WCHAR *const keys[] = {L"Audio:", L"Video:", L"Pixel Aspect Ratio:"};
    if (!notes)
        return NULL;
    while (*notes == L' ' || *notes == L'\t')
        notes++;
    for (;;) {
        bool matched = false;
        for (const WCHAR *key : keys)
            if (_wcsnicmp(notes, key, wcslen(key)) == 0)
                matched = true;
        if (!matched)
            return notes;
        while (*notes && *notes != L'\r' && *notes != L'\n')
            notes++;
        while (*notes && iswspace(*notes))
            notes++;
    }
}

DWORD ZvFio_GetTemplateDataCRC32(const tagZVTEMPLATExV2 *t, BOOL withText)
{
    if (!t || t->dwSize < ZVTEMPLATE_HEADER_SIZE)
        return 0;
    DWORD crc = 0;
    ForEachHashedPart(t, withText, [&](const BYTE *p, size_t n) { crc = ZvFio_Crc32(crc, p, n); });
    return crc;
}

HRESULT ZvFio_InitGUIDFromTemplateMD5DataHash(GUID *out, const tagZVTEMPLATExV2 *t, BOOL withText)
{
    if (!out || !t || t->dwSize < ZVTEMPLATE_HEADER_SIZE)
        return E_INVALIDARG;
    if (!ResolveMd5())
        return E_NOTIMPL;
    static const char kStamp[] = "Fileio2007 V2 Template Data";
    static_assert(sizeof(kStamp) == 28, "stamp with its terminator");
    Md5Context ctx;
    memset(&ctx, 0, sizeof ctx);
    g_md5Init(&ctx);
    g_md5Update(&ctx, (const unsigned char *)kStamp, sizeof kStamp);
    ForEachHashedPart(t, withText, [&](const BYTE *p, size_t n) { g_md5Update(&ctx, p, (unsigned)n); });
    g_md5Final(&ctx);
    BYTE *g = (BYTE *)out;
    memcpy(g, ctx.digest, 16);
    // a name-based UUID, version 3
    g[7] = (BYTE)((g[7] & 0x0F) | 0x30);
    g[8] = (BYTE)((g[8] & 0x3F) | 0x80);
    return S_OK;
}

HRESULT ZvFio_MakeTemplate(tagZVTEMPLATExV2 **record, DWORD version, const tagZVTEMPLATExV2 *source,
                           DWORD streamMask, DWORD extraSize, LPCWSTR name, LPCWSTR notes)
{
    if (!record)
        return E_POINTER;
    BYTE scratch[ZVTEMPLATE_MIN_SIZE] = {};
    if (!source || source->dwSize < ZVTEMPLATE_HEADER_SIZE) {
        ((tagZVTEMPLATExV2 *)scratch)->dwSize = ZVTEMPLATE_MIN_SIZE;
        ((tagZVTEMPLATExV2 *)scratch)->dwVersion = ZVTEMPLATE_VERSION_V2;
        source = (const tagZVTEMPLATExV2 *)scratch;
    }
    DWORD sourceData = source->dwDataSize;
    if (ZVTEMPLATE_HEADER_SIZE + (ULONGLONG)sourceData > source->dwSize)
        sourceData = 0; // damaged: no data to copy
    ULONGLONG dataSize = (ULONGLONG)sourceData + extraSize;
    // Copies first: name and notes may live in either record.
    std::wstring keepName = name ? name : L"";
    std::wstring keepNotes = notes ? ZvFio_SkipDescriptionInTemplateNotesText(notes) : L"";
    ULONGLONG textSize = keepName.size() + keepNotes.size() + 2;
    ULONGLONG total = ZVTEMPLATE_HEADER_SIZE + ((dataSize + 3) & ~3ull) + textSize * 2;
    if (total > 0x7FFFFFFFull)
        return E_OUTOFMEMORY;

    tagZVTEMPLATExV2 *t = *record;
    tagZVTEMPLATExV2 *old = NULL;
    if (t && t->dwSize >= ZVTEMPLATE_HEADER_SIZE && t->dwTextCapacity >= textSize && t->dwDataSize == dataSize &&
        TextUnits(t) == t->dwTextCapacity) {
        ZvFio_SetTemplateText(t, keepName.c_str(), keepNotes.c_str());
        if (t != source) {
            memset((BYTE *)t + 4, 0, 528 - 4);
            memset((BYTE *)t + ZVTEMPLATE_HEADER_SIZE, 0, (size_t)dataSize);
        }
    } else {
        old = t;
        t = (tagZVTEMPLATExV2 *)calloc(1, (size_t)total);
        if (!t)
            return E_OUTOFMEMORY;
        t->dwSize = (DWORD)total;
        t->dwDataSize = (DWORD)dataSize;
        t->dwTextCapacity = (DWORD)textSize;
        ZvFio_SetTemplateText(t, keepName.c_str(), keepNotes.c_str());
    }
    t->dwVersion = version;
    if (t != source) {
        t->dwCopied = source->dwCopied;
        t->dwPresetId = source->dwPresetId;
        t->templateId = source->templateId;
        memcpy(t->further, source->further, sizeof t->further);
        if (streamMask & 1)
            memcpy(t->audio, source->audio, sizeof t->audio);
        if (streamMask & 2)
            memcpy(t->video, source->video, sizeof t->video);
        if (sourceData) {
            t->rendererClass = source->rendererClass;
            memcpy((BYTE *)t + ZVTEMPLATE_HEADER_SIZE, (const BYTE *)source + ZVTEMPLATE_HEADER_SIZE, sourceData);
        }
    }
    if (old && old != t)
        free(old);
    *record = t;
    return S_OK;
}

HRESULT ZvFio_SetTemplate(tagZVTEMPLATExV2 **record, const tagZVTEMPLATExV2 *newRecord, DWORD flags)
{
    if (!record)
        return E_POINTER;
    tagZVTEMPLATExV2 *old = *record;
    HRESULT result = S_OK;
    if (flags & ZVTEMPLATE_SET_COMPARE) {
        if (old == newRecord || (old && newRecord && old->dwSize == newRecord->dwSize &&
                                 memcmp(old, newRecord, old->dwSize) == 0))
            result = S_FALSE;
    }
    if (old == newRecord)
        return result;
    if (!newRecord) {
        free(old);
        *record = NULL;
        return result;
    }
    if (flags & ZVTEMPLATE_SET_COPY) {
        if (old && old->dwSize >= newRecord->dwSize) {
            memcpy(old, newRecord, newRecord->dwSize);
            return result;
        }
        tagZVTEMPLATExV2 *copy = ZvFio_CopyTemplate(newRecord);
        if (!copy)
            return E_OUTOFMEMORY;
        free(old);
        *record = copy;
        return result;
    }
    free(old);
    *record = (tagZVTEMPLATExV2 *)newRecord;
    return result;
}

tagZVTEMPLATExV2 *ZvFio_CopyTemplate(const tagZVTEMPLATExV2 *t)
{
    if (!t || t->dwSize < sizeof(DWORD))
        return NULL;
    // never shorter than the head, so readers of the fixed fields stay inside
    size_t alloc = t->dwSize < ZVTEMPLATE_HEADER_SIZE ? ZVTEMPLATE_HEADER_SIZE : t->dwSize;
    tagZVTEMPLATExV2 *copy = (tagZVTEMPLATExV2 *)calloc(1, alloc);
    if (copy)
        memcpy(copy, t, t->dwSize);
    return copy;
}

void ZvFio_ReleaseTemplate(tagZVTEMPLATExV2 *t)
{
    if (t)
        free(t);
}

void ZvFio_ReleaseTemplate(IZvRenderFileClass *, tagZVTEMPLATExV2 *t)
{
    ZvFio_ReleaseTemplate(t);
}

void ZvFio_ReleaseTemplate(IZvFileIOManager *, tagZVTEMPLATExV2 *t)
{
    ZvFio_ReleaseTemplate(t);
}
