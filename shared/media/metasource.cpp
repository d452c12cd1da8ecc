// Metadata stream: a store of items offered through IZvReadMeta (the direct
// marker and summary streams) and IZvReadGenericMeta (one stream per kind).
// Streams are memory streams built on each request, so every caller gets its
// own position.
#include "media/metainternal.h"
#include "media/projectlink.h"
#include "zvplugin.h"
#include <new>
#include <string.h>

namespace zvmeta {

namespace {

HRESULT StreamOf(const Bytes &bytes, IStream **out)
{
    *out = nullptr;
    HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, bytes.size() ? bytes.size() : 1);
    if (!h)
        return E_OUTOFMEMORY;
    if (!bytes.empty()) {
        void *p = GlobalLock(h);
        memcpy(p, bytes.data(), bytes.size());
        GlobalUnlock(h);
    }
    HRESULT hr = CreateStreamOnHGlobal(h, TRUE, out);
    if (FAILED(hr)) {
        GlobalFree(h);
        return hr;
    }
    ULARGE_INTEGER size;
    size.QuadPart = bytes.size();
    return (*out)->SetSize(size);
}

void Put(Bytes *b, const void *p, size_t n)
{
    const BYTE *s = (const BYTE *)p;
    b->insert(b->end(), s, s + n);
}

// The project link flag of each slot of IZvReadProjectLinkMeta.
const DWORD kLinkSlots[9] = {ZVLINK_PROJECTPATH,     ZVLINK_COMMANDLINE,     ZVLINK_RENDERERGUID,
                             ZVLINK_TEMPLATENAME,    ZVLINK_TEMPLATEDATA,    ZVLINK_APPTEMPLATEDATA,
                             ZVLINK_PROJECTDATA,     ZVLINK_CREATORAPPINFO,  ZVLINK_CREATORWINDOWCLASS};

class Source final : public IZvReadMeta, public IZvReadGenericMeta, public IZvReadProjectLinkMeta {
public:
    explicit Source(Store *store)
    {
        store_.kinds.swap(store->kinds), store_.sampleRate = store->sampleRate;
        store_.link.swap(store->link), store_.linkFlags = store->linkFlags;
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **out) override
    {
        if (!out)
            return E_POINTER;
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IZvReadMeta))
            *out = static_cast<IZvReadMeta *>(this);
        else if (IsEqualIID(iid, IID_IZvReadGenericMeta))
            *out = static_cast<IZvReadGenericMeta *>(this);
        else if (store_.linkFlags &&
                 (IsEqualIID(iid, IID_IZvReadProjectLinkMeta) || IsEqualIID(iid, IID_IZvReadProjectLinkMetaEx)))
            *out = static_cast<IZvReadProjectLinkMeta *>(this);
        else {
            *out = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return (ULONG)InterlockedIncrement(&ref_); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        LONG r = InterlockedDecrement(&ref_);
        if (!r)
            delete this;
        return (ULONG)r;
    }

    // Direct markers: 100 ns units, regions flagged.
    HRESULT STDMETHODCALLTYPE GetMarkerStream(IStream **stream) override
    {
        if (!stream)
            return E_POINTER;
        Bytes b;
        const std::vector<Bytes> *items = DirectHead(ZVMETA_MARKERS, &b);
        double scale = store_.sampleRate ? 1e7 / store_.sampleRate : 0;
        for (size_t i = 0; items && i < items->size(); i++) {
            ZVMETA_MARKER m;
            memcpy(&m, (*items)[i].data(), sizeof m);
            ZVMETA_DIRECTMARKER d = {m.name, (LONGLONG)(m.position * scale + 0.5),
                                     m.length < 0 ? 0 : (LONGLONG)(m.length * scale + 0.5), m.length >= 0,
                                     m.textSize};
            Put(&b, &d, sizeof d);
            Put(&b, (*items)[i].data() + sizeof m, m.textSize);
        }
        return StreamOf(b, stream);
    }
    HRESULT STDMETHODCALLTYPE GetSecondSummaryStream(IStream **stream) override { return Empty(stream); }
    HRESULT STDMETHODCALLTYPE GetThirdMetaStream(IStream **stream) override { return Empty(stream); }
    HRESULT STDMETHODCALLTYPE GetMetaStream(DWORD bit, IStream **stream) override
    {
        if (!stream)
            return E_POINTER;
        const Kind *k = KindOfBit(bit);
        if (!k)
            return E_INVALIDARG;
        return Generic(*k, stream);
    }
    // Summary pairs: id, byte size of the wide text with its terminator, text.
    HRESULT STDMETHODCALLTYPE GetSummaryStream(IStream **stream) override
    {
        if (!stream)
            return E_POINTER;
        Bytes b;
        const std::vector<Bytes> *items = DirectHead(ZVMETA_SUMMARY, &b);
        for (size_t i = 0; items && i < items->size(); i++) {
            const Bytes &r = (*items)[i];
            DWORD textSize = (DWORD)r.size() - 4;
            Put(&b, r.data(), 4);
            Put(&b, &textSize, 4);
            Put(&b, r.data() + 4, textSize);
        }
        return StreamOf(b, stream);
    }

    HRESULT STDMETHODCALLTYPE Reset() override
    {
        next_ = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Next(IStream **stream) override
    {
        if (!stream)
            return E_POINTER;
        *stream = nullptr;
        if (next_ >= store_.kinds.size())
            return S_FALSE;
        const Kind *k = KindOfBit(store_.kinds[next_++].bit);
        return k ? Generic(*k, stream) : E_UNEXPECTED;
    }

    // Project link fields; ZVERR_NOT_FOUND for one the link does not have.
    HRESULT STDMETHODCALLTYPE GetProjectPathStream(IStream **s) override { return LinkField(0, s); }
    HRESULT STDMETHODCALLTYPE GetCommandLineStream(IStream **s) override { return LinkField(1, s); }
    HRESULT STDMETHODCALLTYPE GetRendererGuidStream(IStream **s) override { return LinkField(2, s); }
    HRESULT STDMETHODCALLTYPE GetTemplateNameStream(IStream **s) override { return LinkField(3, s); }
    HRESULT STDMETHODCALLTYPE GetTemplateDataStream(IStream **s) override { return LinkField(4, s); }
    HRESULT STDMETHODCALLTYPE GetAppTemplateDataStream(IStream **s) override { return LinkField(5, s); }
    HRESULT STDMETHODCALLTYPE GetProjectDataStream(IStream **s) override { return LinkField(6, s); }
    HRESULT STDMETHODCALLTYPE GetCreatorAppInfoStream(IStream **s) override { return LinkField(7, s); }
    HRESULT STDMETHODCALLTYPE GetCreatorWindowClassStream(IStream **s) override { return LinkField(8, s); }

private:
    virtual ~Source() = default;

    HRESULT LinkField(int slot, IStream **stream)
    {
        if (!stream)
            return E_POINTER;
        *stream = nullptr;
        if (!(store_.linkFlags & kLinkSlots[slot]) || store_.link.size() != 9)
            return ZVERR_NOT_FOUND;
        return StreamOf(store_.link[slot], stream);
    }

    // The 12-byte header of a direct stream; the kind's items.
    const std::vector<Bytes> *DirectHead(DWORD bit, Bytes *b) const
    {
        const std::vector<Bytes> *items = store_.of(bit);
        DWORD head[3] = {12, ZVMETA_VERSION, items ? (DWORD)items->size() : 0};
        Put(b, head, sizeof head);
        return items;
    }
    HRESULT Empty(IStream **stream)
    {
        if (!stream)
            return E_POINTER;
        DWORD head[3] = {12, ZVMETA_VERSION, 0};
        return StreamOf(Bytes((BYTE *)head, (BYTE *)head + sizeof head), stream);
    }
    HRESULT Generic(const Kind &k, IStream **stream)
    {
        const std::vector<Bytes> *items = store_.of(k.bit);
        Bytes b;
        ZVMETA_STREAMHEADER head = {28, ZVMETA_VERSION, items ? (LONG)items->size() : 0, k.guid};
        Put(&b, &head, sizeof head);
        for (size_t i = 0; items && i < items->size(); i++) {
            ZVMETA_ITEMFRAME f = {28, ZVMETA_VERSION, k.guid, (DWORD)(*items)[i].size()};
            Put(&b, &f, sizeof f);
            Put(&b, (*items)[i].data(), (*items)[i].size());
        }
        return StreamOf(b, stream);
    }

    LONG ref_ = 1;
    size_t next_ = 0;
    Store store_;
};

} // namespace

HRESULT CreateSource(Store *store, IZvReadMeta **meta)
{
    if (!meta)
        return E_POINTER;
    *meta = new (std::nothrow) Source(store);
    return *meta ? S_OK : E_OUTOFMEMORY;
}

HRESULT SourceAfterRead(HRESULT read, Store *store, IZvReadMeta **meta)
{
    if (read == ZVERR_NO_RIFF_HEADER || read == ZVERR_FILE_READ)
        return read;
    HRESULT made = CreateSource(store, meta);
    return FAILED(made) ? made : FAILED(read) ? S_FALSE : S_OK;
}

} // namespace zvmeta

HRESULT ZvFMMeta_CreateSourceFromFile(HANDLE file, BOOL isWave64, IZvReadMeta **meta)
{
    if (!meta)
        return E_POINTER;
    *meta = nullptr;
    zvmeta::Store store;
    zvmeta::ChunkIndex index;
    HRESULT hr = zvmeta::IndexFile(file, isWave64 != FALSE, &index);
    if (FAILED(hr))
        return hr;
    // A damaged kind is left out and reported as S_FALSE; the rest is offered.
    hr = zvmeta::ReadAll(file, isWave64 != FALSE, &store);
    CZvLinkProjectInfo link;
    BOOL found = FALSE;
    if (SUCCEEDED(isWave64 ? ProjectLinkRiff64_LoadInfo(file, &link, &found) : ProjectLinkRiff_LoadInfo(file, &link, &found)) &&
        found) {
        store.link.resize(9);
        for (int i = 0; i < 9; i++) {
            if (!(link.GetFlags() & zvmeta::kLinkSlots[i]))
                continue;
            store.linkFlags |= zvmeta::kLinkSlots[i];
            if (zvmeta::kLinkSlots[i] == ZVLINK_RENDERERGUID) {
                GUID g = link.GetRendererGuid();
                store.link[i].assign((BYTE *)&g, (BYTE *)&g + 16);
            } else {
                const tagZVLINKBLOCK *b = link.Block(zvmeta::kLinkSlots[i]);
                store.link[i].assign((BYTE *)b->data, (BYTE *)b->data + b->size);
            }
        }
        // a version with nothing else still marks a link
        store.linkFlags |= 0x80000000u;
        link.FreeMemory();
    }
    HRESULT made = zvmeta::CreateSource(&store, meta);
    return FAILED(made) ? made : FAILED(hr) ? S_FALSE : S_OK;
}
