// Project link: the record, its spel block, and its chunks in RIFF and
// Wave64 files, in memory and in a source's streams.
#include "media/projectlink.h"
#include "media/metainternal.h"
#include "zvplugin.h"
#include "kernel/zvmemory.h"
#include <string.h>
#include <wchar.h>

extern "C" const IID IID_IZvReadProjectLinkMetaEx = {
    0x13E407D5, 0x5FB5, 0x4626, {0xB6, 0xE4, 0x49, 0x66, 0x78, 0x88, 0xF5, 0xC0}};

namespace {

using zvmeta::Bytes;

struct LinkChunk {
    DWORD flag; // 0: the version
    DWORD id;
    GUID label;
};

// In write order; the version chunk last, so a write that stops half-way
// leaves no link.
const LinkChunk kChunks[] = {
    {ZVLINK_PROJECTPATH, ZVRIFF_ID('s', 'p', 'l', 'p'),
     {0x830AC81C, 0x4C96, 0x4F91, {0x99, 0x75, 0xC7, 0x07, 0xE1, 0x73, 0x6E, 0xC7}}},
    {ZVLINK_COMMANDLINE, ZVRIFF_ID('s', 'p', 'c', 'l'),
     {0xCBE52EDB, 0xC5D2, 0x44BC, {0xB5, 0xDC, 0xEF, 0x55, 0xE9, 0x46, 0xF0, 0x73}}},
    {ZVLINK_RENDERERGUID, ZVRIFF_ID('s', 'p', 'r', 'g'),
     {0x9F4A912F, 0x9D66, 0x426E, {0xA7, 0x81, 0xF9, 0xE7, 0xE0, 0x15, 0x24, 0xFE}}},
    {ZVLINK_TEMPLATENAME, ZVRIFF_ID('s', 'r', 't', 'n'),
     {0xB5EDD3A2, 0x0673, 0x4466, {0x84, 0x46, 0xCA, 0x87, 0xDD, 0x80, 0xA4, 0x87}}},
    {ZVLINK_TEMPLATEDATA, ZVRIFF_ID('s', 'r', 't', 'd'),
     {0x7834233F, 0x573A, 0x475E, {0x8F, 0x02, 0x56, 0x8D, 0x13, 0x1B, 0xE2, 0xDF}}},
    {ZVLINK_APPTEMPLATEDATA, ZVRIFF_ID('s', 'r', 'a', 't'),
     {0x29C90B65, 0xD288, 0x4F92, {0x81, 0x4F, 0x1C, 0x67, 0x59, 0x3A, 0x68, 0x60}}},
    {ZVLINK_CREATORAPPINFO, ZVRIFF_ID('s', 'p', 'c', 'a'),
     {0xFCD163D0, 0xD709, 0x4568, {0x91, 0x10, 0x83, 0x1D, 0x2C, 0x94, 0x55, 0xF2}}},
    {ZVLINK_CREATORWINDOWCLASS, ZVRIFF_ID('s', 'p', 'c', 'c'),
     {0x738F13D9, 0xB70F, 0x4309, {0x98, 0x8E, 0x48, 0x42, 0x53, 0x26, 0xF6, 0x69}}},
    {ZVLINK_PROJECTDATA, ZVRIFF_ID('s', 'p', 'e', 'm'),
     {0x6D0BE4ED, 0xC296, 0x4596, {0x93, 0x43, 0x25, 0xEC, 0x04, 0x37, 0x54, 0xED}}},
    {0, ZVRIFF_ID('s', 'p', 'l', 'v'), {0xE4E76B7B, 0x339F, 0x4820, {0x8A, 0xA9, 0x69, 0x15, 0xA7, 0x22, 0x02, 0x4E}}},
};
const DWORD kSpel = ZVRIFF_ID('s', 'p', 'e', 'l');

// The size rule of each chunk on loading.
bool SizeFits(DWORD flag, ULONGLONG size)
{
    switch (flag) {
    case ZVLINK_PROJECTPATH: return size > 2;
    case ZVLINK_COMMANDLINE: return size >= 2;
    case ZVLINK_RENDERERGUID: return size == 16;
    default: return size != 0;
    }
}

// Loads from whatever finds a chunk's body; find gives ZVERR_NOT_FOUND for
// a missing chunk.
template <class Find> HRESULT LoadWith(Find find, CZvLinkProjectInfo *info, BOOL *found)
{
    if (!info || !found)
        return E_INVALIDARG;
    *found = FALSE;
    info->Init();
    const LinkChunk &v = kChunks[sizeof kChunks / sizeof kChunks[0] - 1];
    Bytes body;
    HRESULT hr = find(v, &body);
    if (hr == ZVERR_NOT_FOUND || (SUCCEEDED(hr) && body.size() != 4))
        return ZVERR_MALFORMED;
    if (FAILED(hr))
        return hr;
    DWORD version = zvmeta::Le32(body.data());
    if ((version >> 24) > 1)
        return ZVERR_LINK_VERSION;
    info->SetVersion(version);
    for (const LinkChunk &c : kChunks) {
        if (!c.flag || (c.flag == ZVLINK_APPTEMPLATEDATA && !(info->GetFlags() & ZVLINK_TEMPLATEDATA)))
            continue;
        hr = find(c, &body);
        if (hr == ZVERR_NOT_FOUND || (SUCCEEDED(hr) && !SizeFits(c.flag, body.size())))
            continue;
        if (FAILED(hr)) {
            info->FreeMemory();
            return hr;
        }
        if (c.flag == ZVLINK_RENDERERGUID) {
            GUID g;
            memcpy(&g, body.data(), 16);
            info->SetRendererGuid(g);
            continue;
        }
        void *p = info->AllocField(c.flag, (DWORD)body.size());
        if (!p) {
            info->FreeMemory();
            return E_OUTOFMEMORY;
        }
        memcpy(p, body.data(), body.size());
        info->MarkSet(c.flag);
    }
    *found = TRUE;
    return S_OK;
}

HRESULT LoadFile(HANDLE file, bool w64, CZvLinkProjectInfo *info, BOOL *found)
{
    if (!info || !found)
        return E_INVALIDARG;
    *found = FALSE;
    zvmeta::ChunkIndex index;
    HRESULT hr = zvmeta::IndexFile(file, w64, &index);
    if (FAILED(hr))
        return hr;
    return LoadWith(
        [&](const LinkChunk &c, Bytes *body) -> HRESULT {
            const zvmeta::Chunk *at = w64 ? index.find(c.label) : index.find(c.id);
            if (!at)
                return ZVERR_NOT_FOUND;
            if (at->size > 0x7FFFFFFF)
                return ZVERR_LINK_STREAM;
            return zvmeta::ReadBody(file, *at, body);
        },
        info, found);
}

bool WriteAt(HANDLE file, ULONGLONG at, const void *data, DWORD size)
{
    LARGE_INTEGER li;
    li.QuadPart = (LONGLONG)at;
    DWORD put = 0;
    return SetFilePointerEx(file, li, nullptr, FILE_BEGIN) && WriteFile(file, data, size, &put, nullptr) &&
           put == size;
}

// One chunk: over an old one that is large enough, else appended, the old
// one retired.
HRESULT WriteChunk(HANDLE file, bool w64, const LinkChunk &c, const void *data, DWORD size)
{
    zvmeta::ChunkIndex index;
    HRESULT hr = zvmeta::IndexFile(file, w64, &index);
    if (FAILED(hr))
        return hr;
    const zvmeta::Chunk *old = w64 ? index.find(c.label) : index.find(c.id);
    if (old && old->size >= size)
        return WriteAt(file, old->data, data, size) ? S_OK : ZVERR_FILE_WRITE;
    if (old) {
        if (w64)
            hr = zvmeta::RemoveChunk(file, index, *old);
        else
            hr = WriteAt(file, old->header, "JUNK", 4) ? S_OK : ZVERR_FILE_WRITE;
        if (FAILED(hr))
            return hr;
    }
    return w64 ? zvmeta::AppendW64Chunk(file, c.label, data, size) : zvmeta::AppendRiffChunk(file, c.id, data, size);
}

// The bytes of a chunk as the record has them; false when it has none.
bool FieldBytes(const CZvLinkProjectInfo *info, const LinkChunk &c, const void **data, DWORD *size, DWORD *version,
                GUID *guid)
{
    DWORD flags = info->GetFlags();
    if (!c.flag) {
        *version = info->GetVersion();
        *data = version, *size = 4;
        return true;
    }
    if (!(flags & c.flag) || (c.flag == ZVLINK_APPTEMPLATEDATA && !(flags & ZVLINK_TEMPLATEDATA)))
        return false;
    if (c.flag == ZVLINK_RENDERERGUID) {
        *guid = info->GetRendererGuid();
        *data = guid, *size = 16;
        return true;
    }
    *data = info->Block(c.flag)->data, *size = info->Block(c.flag)->size;
    return true;
}

HRESULT WriteFileInfo(HANDLE file, bool w64, const CZvLinkProjectInfo *info)
{
    if (!info)
        return E_INVALIDARG;
    HRESULT hr = info->Validate();
    if (FAILED(hr))
        return hr;
    static const DWORD kDeleteOrder[] = {9, 6, 7, 0, 1, 8, 2, 3, 4, 5};
    for (DWORD i : kDeleteOrder) {
        zvmeta::ChunkIndex index;
        if (FAILED(hr = zvmeta::IndexFile(file, w64, &index)))
            return hr;
        const zvmeta::Chunk *old = w64 ? index.find(kChunks[i].label) : index.find(kChunks[i].id);
        if (old && FAILED(hr = zvmeta::RemoveChunk(file, index, *old)))
            return hr;
    }
    for (const LinkChunk &c : kChunks) {
        const void *data;
        DWORD size, version;
        GUID guid;
        if (FieldBytes(info, c, &data, &size, &version, &guid) && FAILED(hr = WriteChunk(file, w64, c, data, size)))
            return hr;
    }
    return S_OK;
}

} // namespace

bool zvmeta::IsLinkChunkId(DWORD id)
{
    for (const LinkChunk &c : kChunks)
        if (c.id == id)
            return true;
    return false;
}

void CZvLinkProjectInfo::Init()
{
    DWORD reserved = m_reserved;
    memset((void *)this, 0, sizeof *this);
    m_reserved = reserved;
}

void CZvLinkProjectInfo::FreeMemory()
{
    for (DWORD flag = 1; flag <= ZVLINK_CREATORWINDOWCLASS; flag <<= 1)
        if (flag != ZVLINK_RENDERERGUID)
            ZvMem_Free(Block(flag)->data);
    Init();
}

tagZVLINKBLOCK *CZvLinkProjectInfo::Block(DWORD flag) const
{
    CZvLinkProjectInfo *self = const_cast<CZvLinkProjectInfo *>(this);
    switch (flag) {
    case ZVLINK_PROJECTPATH: return &self->m_projectPath;
    case ZVLINK_COMMANDLINE: return &self->m_commandLine;
    case ZVLINK_TEMPLATENAME: return &self->m_templateName;
    case ZVLINK_TEMPLATEDATA: return &self->m_templateData;
    case ZVLINK_APPTEMPLATEDATA: return &self->m_appTemplateData;
    case ZVLINK_CREATORAPPINFO: return &self->m_creatorAppInfo;
    case ZVLINK_PROJECTDATA: return &self->m_projectData;
    default: return &self->m_creatorWindowClass;
    }
}

void CZvLinkProjectInfo::FreeField(DWORD flag)
{
    tagZVLINKBLOCK *b = Block(flag);
    ZvMem_Free(b->data);
    b->data = nullptr, b->size = 0;
    m_flags &= ~flag;
}

void *CZvLinkProjectInfo::AllocField(DWORD flag, DWORD size)
{
    FreeField(flag);
    void *p = ZvMem_Alloc(size);
    if (p)
        Block(flag)->data = p, Block(flag)->size = size;
    return p;
}

HRESULT CZvLinkProjectInfo::SetBlock(DWORD flag, const void *data, DWORD size)
{
    if (!data)
        return E_INVALIDARG;
    void *p = ZvMem_Alloc(size);
    if (!p)
        return E_OUTOFMEMORY;
    memcpy(p, data, size);
    Block(flag)->data = p, Block(flag)->size = size;
    m_flags |= flag;
    return S_OK;
}

HRESULT CZvLinkProjectInfo::SetString(DWORD flag, const WCHAR *text)
{
    return text ? SetBlock(flag, text, (DWORD)(wcslen(text) + 1) * sizeof(WCHAR)) : E_INVALIDARG;
}

HRESULT CZvLinkProjectInfo::SetToBuffer(DWORD flag, void *buffer, DWORD size)
{
    FreeField(flag);
    Block(flag)->data = buffer, Block(flag)->size = size;
    return S_OK;
}

int CZvLinkProjectInfo::GetString(DWORD flag, WCHAR *buffer, int capacity) const
{
    if (!buffer || capacity <= 0)
        return 0;
    buffer[0] = 0;
    const tagZVLINKBLOCK *b = Block(flag);
    if (!(m_flags & flag) || !b->data)
        return 0;
    int n = (int)(b->size / sizeof(WCHAR));
    const WCHAR *s = (const WCHAR *)b->data;
    int len = 0;
    while (len < n && s[len])
        len++;
    if (len >= capacity)
        len = capacity - 1;
    memcpy(buffer, s, (size_t)len * sizeof(WCHAR));
    buffer[len] = 0;
    return len;
}

HRESULT CZvLinkProjectInfo::WriteToStream(DWORD flag, IStream *stream) const
{
    if (!(m_flags & flag))
        return S_FALSE;
    if (!stream)
        return E_POINTER;
    ULONG put = 0;
    return stream->Write(Block(flag)->data, Block(flag)->size, &put);
}

HRESULT CZvLinkProjectInfo::SetProjectData(DWORD id, const void *data, DWORD size)
{
    if (!data || !size)
        return E_INVALIDARG;
    DWORD padded = (size + 1) & ~1u;
    if (!padded || padded >= 0xFFFFFFEBu || m_projectData.size > 0xFFFFFFEBu - padded)
        return E_UNEXPECTED;
    BYTE *block = (BYTE *)m_projectData.data;
    DWORD have = m_projectData.size;
    if (!block || have < 12) {
        static const BYTE empty[12] = {'L', 'I', 'S', 'T', 4, 0, 0, 0, 's', 'p', 'e', 'l'};
        block = (BYTE *)empty, have = 12;
    }
    DWORD ignored = 0;
    if (SUCCEEDED(GetProjectData(id, nullptr, &ignored)) && m_projectData.data)
        return ZVERR_DUPLICATE_ITEM;
    BYTE *grown = (BYTE *)ZvMem_Alloc(have + padded + 8);
    if (!grown)
        return E_OUTOFMEMORY;
    memcpy(grown, block, have);
    DWORD head[2] = {id, size};
    memcpy(grown + have, head, 8);
    memcpy(grown + have + 8, data, size);
    DWORD listSize = have + padded + 8 - 8;
    memcpy(grown + 4, &listSize, 4);
    ZvMem_Free(m_projectData.data);
    m_projectData.data = grown, m_projectData.size = have + padded + 8;
    m_flags |= ZVLINK_PROJECTDATA;
    return S_OK;
}

HRESULT CZvLinkProjectInfo::GetProjectData(DWORD id, void *buffer, DWORD *size) const
{
    if (!size)
        return E_INVALIDARG;
    const BYTE *b = (const BYTE *)m_projectData.data;
    if (!b) {
        *size = 0;
        return ZVERR_NOT_FOUND;
    }
    if (m_projectData.size < 12 || memcmp(b, "LIST", 4) || zvmeta::Le32(b + 8) != kSpel)
        return E_UNEXPECTED;
    DWORD end = zvmeta::Le32(b + 4);
    end = end > m_projectData.size - 8 ? m_projectData.size : end + 8;
    for (DWORD at = 12; at + 8 <= end;) {
        DWORD cid = zvmeta::Le32(b + at), n = zvmeta::Le32(b + at + 4);
        if (n > end - at - 8)
            break;
        if (cid == id) {
            if (!buffer) {
                *size = n;
                return S_OK;
            }
            if (*size < n)
                return E_OUTOFMEMORY;
            memcpy(buffer, b + at + 8, n);
            *size = n;
            return S_OK;
        }
        at += 8 + n + (n & 1);
    }
    return ZVERR_NOT_FOUND;
}

HRESULT CZvLinkProjectInfo::ValidateProjectData() const
{
    return (m_flags & ZVLINK_PROJECTDATA) && m_projectData.data && m_projectData.size ? S_OK : ZVERR_LINK_INVALID;
}

HRESULT CZvLinkProjectInfo::ValidateProjectLink() const
{
    if ((m_flags & 3) != 3 || !m_projectPath.data || !m_projectPath.size || !m_commandLine.data ||
        !m_commandLine.size)
        return ZVERR_LINK_INVALID;
    static const DWORD kChecked[] = {0x8, 0x10, 0x20, 0x40, 0x100, 0x80};
    for (DWORD flag : kChecked)
        if ((m_flags & flag) && (!Block(flag)->data || !Block(flag)->size))
            return ZVERR_LINK_INVALID;
    bool strayName = (m_templateName.data || m_templateName.size) && !(m_flags & ZVLINK_TEMPLATENAME);
    bool strayData = (m_projectData.data || m_projectData.size) && !(m_flags & ZVLINK_PROJECTDATA);
    return strayName || strayData ? S_FALSE : S_OK;
}

HRESULT CZvLinkProjectInfo::Validate() const
{
    HRESULT hr = ValidateProjectLink();
    return FAILED(hr) ? ValidateProjectData() : hr;
}

HRESULT ProjectLinkRiff_LoadInfo(HANDLE file, CZvLinkProjectInfo *info, BOOL *found)
{
    return LoadFile(file, false, info, found);
}

HRESULT ProjectLinkRiff64_LoadInfo(HANDLE file, CZvLinkProjectInfo *info, BOOL *found)
{
    return LoadFile(file, true, info, found);
}

HRESULT ProjectLinkRiff_WriteInfo(HANDLE file, const CZvLinkProjectInfo *info)
{
    return WriteFileInfo(file, false, info);
}

HRESULT ProjectLinkRiff64_WriteInfo(HANDLE file, const CZvLinkProjectInfo *info)
{
    return WriteFileInfo(file, true, info);
}

HRESULT ProjectLinkReadMeta_LoadInfo(IUnknown *meta, CZvLinkProjectInfo *info, BOOL *found)
{
    if (!meta || !info || !found)
        return E_INVALIDARG;
    *found = FALSE;
    IZvReadProjectLinkMeta *link = nullptr;
    if (FAILED(meta->QueryInterface(IID_IZvReadProjectLinkMetaEx, (void **)&link)) &&
        FAILED(meta->QueryInterface(IID_IZvReadProjectLinkMeta, (void **)&link)))
        return ZVERR_NOT_FOUND;
    info->Init();
    typedef HRESULT(STDMETHODCALLTYPE IZvReadProjectLinkMeta::*Getter)(IStream **);
    static const struct {
        Getter get;
        DWORD flag;
    } kSlots[] = {
        {&IZvReadProjectLinkMeta::GetProjectPathStream, ZVLINK_PROJECTPATH},
        {&IZvReadProjectLinkMeta::GetCommandLineStream, ZVLINK_COMMANDLINE},
        {&IZvReadProjectLinkMeta::GetRendererGuidStream, ZVLINK_RENDERERGUID},
        {&IZvReadProjectLinkMeta::GetTemplateNameStream, ZVLINK_TEMPLATENAME},
        {&IZvReadProjectLinkMeta::GetTemplateDataStream, ZVLINK_TEMPLATEDATA},
        {&IZvReadProjectLinkMeta::GetAppTemplateDataStream, ZVLINK_APPTEMPLATEDATA},
        {&IZvReadProjectLinkMeta::GetCreatorAppInfoStream, ZVLINK_CREATORAPPINFO},
        {&IZvReadProjectLinkMeta::GetCreatorWindowClassStream, ZVLINK_CREATORWINDOWCLASS},
        {&IZvReadProjectLinkMeta::GetProjectDataStream, ZVLINK_PROJECTDATA},
    };
    HRESULT hr = S_OK;
    for (const auto &slot : kSlots) {
        IStream *s = nullptr;
        hr = (link->*slot.get)(&s);
        if (hr == ZVERR_NOT_FOUND || (SUCCEEDED(hr) && !s)) {
            hr = S_OK;
            continue;
        }
        if (FAILED(hr))
            break;
        LARGE_INTEGER zero = {};
        ULARGE_INTEGER end = {};
        hr = s->Seek(zero, STREAM_SEEK_END, &end);
        if (SUCCEEDED(hr))
            hr = s->Seek(zero, STREAM_SEEK_SET, nullptr);
        if (SUCCEEDED(hr) && end.HighPart)
            hr = ZVERR_LINK_STREAM;
        DWORD size = end.LowPart;
        if (SUCCEEDED(hr) && slot.flag == ZVLINK_RENDERERGUID) {
            GUID g = {};
            ULONG got = 0;
            hr = s->Read(&g, 16, &got);
            if (SUCCEEDED(hr) && got == 16)
                info->SetRendererGuid(g);
            hr = S_OK;
        } else if (SUCCEEDED(hr)) {
            void *p = size ? info->AllocField(slot.flag, size) : nullptr;
            ULONG got = 0;
            if (size && !p)
                hr = E_OUTOFMEMORY;
            else if (size && (FAILED(s->Read(p, size, &got)) || got != size)) {
                info->FreeField(slot.flag);
                hr = ZVERR_LINK_STREAM;
            }
            if (SUCCEEDED(hr))
                info->MarkSet(slot.flag);
        }
        s->Release();
        if (FAILED(hr))
            break;
    }
    link->Release();
    if (FAILED(hr)) {
        info->FreeMemory();
        return hr;
    }
    *found = info->GetFlags() != 0;
    return S_OK;
}

HRESULT ProjectLink_SaveToStream(const CZvLinkProjectInfo *info, IStream *stream)
{
    if (!info || !stream)
        return E_INVALIDARG;
    for (const LinkChunk &c : kChunks) {
        const void *data;
        DWORD size, version;
        GUID guid;
        if (!FieldBytes(info, c, &data, &size, &version, &guid))
            continue;
        DWORD head[2] = {c.id, size};
        static const BYTE pad = 0;
        ULONG put = 0;
        HRESULT hr = stream->Write(head, 8, &put);
        if (SUCCEEDED(hr) && size)
            hr = stream->Write(data, size, &put);
        if (SUCCEEDED(hr) && (size & 1))
            hr = stream->Write(&pad, 1, &put);
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

HRESULT ProjectLink_LoadFromMemory(const void *data, DWORD size, CZvLinkProjectInfo *info, BOOL *found)
{
    if (!data && size)
        return E_INVALIDARG;
    const BYTE *b = (const BYTE *)data;
    return LoadWith(
        [&](const LinkChunk &c, Bytes *body) -> HRESULT {
            for (DWORD at = 0; at + 8 <= size;) {
                DWORD id = zvmeta::Le32(b + at), n = zvmeta::Le32(b + at + 4);
                if (n > size - at - 8)
                    return ZVERR_MALFORMED;
                if (id == c.id) {
                    body->assign(b + at + 8, b + at + 8 + n);
                    return S_OK;
                }
                at += 8 + n + (n & 1);
            }
            return ZVERR_NOT_FOUND;
        },
        info, found);
}
