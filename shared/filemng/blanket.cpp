#include "filemng/blanket.h"
#include "filemng/zvmemtoken.h"

const IID IID_IZvOutOfProcObj = {0x4B0F6A3E, 0x2C1D, 0x4E8A, {0x9F, 0x57, 0x6D, 0x2E, 0x81, 0xB3, 0xC4, 0xA9}};

STDMETHODIMP CZvOutOfProcObj::IsOutOfProc(LONG *outOfProc)
{
    if (!outOfProc)
        return E_POINTER;
    // read as a signed one-bit field
    *outOfProc = (flags_ & 1) ? -1 : 0;
    return S_OK;
}

CZvOutOfProcObj *ZvBlanket_From(IUnknown *object)
{
    IZvOutOfProcObj *p = nullptr;
    if (!object || FAILED(object->QueryInterface(IID_IZvOutOfProcObj, (void **)&p)) || !p)
        return nullptr;
    p->Release(); // borrowed: the caller holds the object
    return static_cast<CZvOutOfProcObj *>(p);
}

static HRESULT WrapNew(const IID &iid, void **pp, IUnknown *parent, IUnknown *owner, DWORD flags);
static bool InFamily(const IID &iid);

namespace {

// What every blanket shares: the reference count, the parent, the owner and
// the holder that gives each thread its pointer to the inner object.
// Identity: IUnknown and, where the interface derives from one, the base
// interface (Base) belong to the parent blanket when there is one.
template <class Itf, const IID *Iid, const IID *Base>
class CZvBlanketT : public Itf, public CZvOutOfProcObj, public ZvGlobalObject {
public:
    CZvBlanketT(IUnknown *inner, IUnknown *parent, IUnknown *owner, DWORD flags)
        : CZvOutOfProcObj(flags), parent_(parent), owner_(owner), holder_(*Iid, inner, true)
    {
    }
    // the creating thread's pointer lives until the blanket goes
    ~CZvBlanketT() override { holder_.Detach(); }

    STDMETHODIMP QueryInterface(REFIID iid, void **ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        const IID *base = identityBase();
        if (base && parent_ && (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, *base)))
            return parent_->QueryInterface(iid, ppv);
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, *Iid)) {
            *ppv = static_cast<Itf *>(this);
            AddRef();
            return S_OK;
        }
        if (IsEqualIID(iid, IID_IZvOutOfProcObj)) {
            *ppv = static_cast<IZvOutOfProcObj *>(this);
            AddRef();
            return S_OK;
        }
        HRESULT hr = inner()->QueryInterface(iid, ppv);
        if (FAILED(hr))
            return hr;
        if (!*ppv)
            return E_OUTOFMEMORY;
        if (!InFamily(iid))
            return S_OK; // raw, valid on this thread only
        return WrapNew(iid, ppv, static_cast<Itf *>(this), static_cast<Itf *>(this), flags_);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return (ULONG)InterlockedIncrement(&ref_); }
    STDMETHODIMP_(ULONG) Release() override
    {
        LONG ref = InterlockedDecrement(&ref_);
        if (ref == 0)
            delete this;
        return (ULONG)ref;
    }
    IUnknown *BlanketOwner() const override { return owner_; }
    DWORD ThreadEntries() const override { return holder_.EntryCount(); }

protected:
    static const IID *identityBase() { return Base; }
    Itf *inner() { return static_cast<Itf *>(holder_.GetThreadInterface()); }
    IUnknown *self() { return static_cast<Itf *>(this); }
    // Method-level wrap: the inner call's failure as it is, else the wrap's result.
    template <class Out> HRESULT wrapped(HRESULT hr, const IID &iid, Out **out, IUnknown *owner)
    {
        if (FAILED(hr))
            return hr;
        return ZvBlanket_Wrap(&iid, (void **)out, nullptr, owner, flags_);
    }

    volatile LONG ref_ = 1;
    IUnknown *parent_;
    IUnknown *owner_;
    CZvThreadInterfaceHolder holder_;
};

// Sample and frame buffers: the caller's token is swapped for one the other
// process can map; the bytes come back when the shadow goes, also after a
// failed call.
#define ZVB_TOKEN_FORWARD(call, token)                                                    \
    _zvmemorytoken local = token;                                                         \
    COutOfProcessMemoryToken shared(local, ZVMEMTOKEN_WRITE, (flags_ & 1) ? -1 : 0);      \
    _zvmemorytoken wire;                                                                  \
    if (FAILED(shared.GetMemoryToken(wire)))                                              \
        return E_FAIL;                                                                    \
    return call;

#define ZVB_PLAIN(name, params, args) \
    STDMETHODIMP name params override { return inner()->name args; }

// The class objects' local answers: the id word, the manager hand-over.
#define ZVB_CLASS_LOCALS                                                                  \
    STDMETHODIMP SetClassId(DWORD id) override                                            \
    {                                                                                     \
        id_ = id;                                                                         \
        return S_OK;                                                                      \
    }                                                                                     \
    STDMETHODIMP GetClassId(DWORD *id) override                                           \
    {                                                                                     \
        if (!id)                                                                          \
            return E_POINTER;                                                             \
        *id = id_;                                                                        \
        return S_OK;                                                                      \
    }                                                                                     \
    /* the plug-in has the manager of its own process */                                 \
    STDMETHODIMP SetManager(IZvFileIOManager *) override { return S_OK; }                 \
    STDMETHODIMP GetManager(IZvFileIOManager **manager) override                          \
    {                                                                                     \
        if (!manager)                                                                     \
            return E_POINTER;                                                             \
        *manager = nullptr;                                                               \
        if (!owner_)                                                                      \
            return E_NOINTERFACE;                                                         \
        return owner_->QueryInterface(IID_IZvFileIOManager, (void **)manager);            \
    }                                                                                     \
    ZVB_PLAIN(GetClassGuid, (GUID * classGuid), (classGuid))                              \
    ZVB_PLAIN(GetStreamTypes, (DWORD * streamMask), (streamMask))                         \
    ZVB_PLAIN(GetClassFlags, (DWORD * flags), (flags))                                    \
    ZVB_PLAIN(GetInfoText, (const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts), (ids, count, texts)) \
    ZVB_PLAIN(GetInfoValue, (DWORD infoId, BYTE * buffer, DWORD size), (infoId, buffer, size)) \
    ZVB_PLAIN(GetPluginStatus, (HRESULT * status, BSTR * message), (status, message))

class CZvReadFileClassBlanket : public CZvBlanketT<IZvReadFileClass, &IID_IZvReadFileClass, nullptr> {
public:
    using CZvBlanketT::CZvBlanketT;
    ZVB_CLASS_LOCALS
    STDMETHODIMP GetRenderClass(IZvRenderFileClass **renderClass) override
    {
        if (!renderClass)
            return E_POINTER;
        return wrapped(inner()->GetRenderClass(renderClass), IID_IZvRenderFileClass, renderClass, owner_);
    }
    ZVB_PLAIN(IdentifyFile, (const ZVFIO_IDENTIFYINFO *info), (info))
    ZVB_PLAIN(IdentifyStream, (IStream * stream, DWORD flags), (stream, flags))
    STDMETHODIMP OpenFile(IZvReadFile **file, UINT64 fileHandle, DWORD processId, LPCWSTR name,
                          BOOL normalOpen) override
    {
        if (!file)
            return E_POINTER;
        return wrapped(inner()->OpenFile(file, fileHandle, processId, name, normalOpen), IID_IZvReadFile, file,
                       self());
    }
    ZVB_PLAIN(OpenStreamFile, (IZvReadFile * *file, IStream *stream, LPCWSTR name, DWORD flags),
              (file, stream, name, flags))
    ZVB_PLAIN(GetMetaTypes, (DWORD * typesOfMetadata), (typesOfMetadata))

private:
    DWORD id_ = 0;
};

class CZvRenderFileClassBlanket : public CZvBlanketT<IZvRenderFileClass, &IID_IZvRenderFileClass, nullptr> {
public:
    using CZvBlanketT::CZvBlanketT;
    ZVB_CLASS_LOCALS
    STDMETHODIMP GetReadClass(IZvReadFileClass **readClass) override
    {
        if (!readClass)
            return E_POINTER;
        return wrapped(inner()->GetReadClass(readClass), IID_IZvReadFileClass, readClass, owner_);
    }
    STDMETHODIMP CreateFile(IZvRenderFile **file, LPCWSTR path, PCZVTEMPLATE templ, DWORD streamMask,
                            DWORD flags) override
    {
        if (!file)
            return E_POINTER;
        return wrapped(inner()->CreateFile(file, path, templ, streamMask, flags), IID_IZvRenderFile, file, self());
    }
    ZVB_PLAIN(GetTemplateCount, (LONG * count), (count))
    ZVB_PLAIN(GetTemplate, (PZVTEMPLATE * templ, LONG index), (templ, index))
    ZVB_PLAIN(FindTemplate, (REFGUID templateId, PZVTEMPLATE *templ), (templateId, templ))
    ZVB_PLAIN(CheckTemplate, (PCZVTEMPLATE templ), (templ))
    ZVB_PLAIN(TransformTemplate, (PZVTEMPLATE * result, PCZVTEMPLATE source, DWORD mode), (result, source, mode))
    ZVB_PLAIN(MakeEditTemplate, (PZVTEMPLATE * result, PCZVTEMPLATE source, PCZVTEMPLATE further, DWORD mode),
              (result, source, further, mode))
    ZVB_PLAIN(GetTemplateInfo, (PCZVTEMPLATE templ, BYTE *buffer, DWORD size, DWORD infoId),
              (templ, buffer, size, infoId))
    ZVB_PLAIN(GetTemplateInfoText, (PCZVTEMPLATE templ, WCHAR *text, DWORD capacity, DWORD infoId),
              (templ, text, capacity, infoId))
    ZVB_PLAIN(GetEditPageCounts, (LONG * audioPages, LONG *videoPages, DWORD *flags),
              (audioPages, videoPages, flags))
    ZVB_PLAIN(CreateEditPage, (DWORD pageId, IUnknown **page), (pageId, page))
    ZVB_PLAIN(PrepareEdit, (ZVFIO_EDITPREPARE * edit), (edit))
    ZVB_PLAIN(EndEdit, (HRESULT result), (result))
    ZVB_PLAIN(GetDefaultTemplateIndex, (LONG * index), (index))

private:
    DWORD id_ = 0;
};

// GetClass of a file: its owner is the class blanket.
#define ZVB_FILE_GETCLASS(ClassItf)                                                       \
    STDMETHODIMP GetClass(ClassItf **cls) override                                        \
    {                                                                                     \
        if (!cls)                                                                         \
            return E_POINTER;                                                             \
        *cls = nullptr;                                                                   \
        if (!owner_)                                                                      \
            return E_NOINTERFACE;                                                         \
        return owner_->QueryInterface(IID_##ClassItf, (void **)cls);                      \
    }

class CZvReadFileBlanket : public CZvBlanketT<IZvReadFile, &IID_IZvReadFile, nullptr> {
public:
    using CZvBlanketT::CZvBlanketT;
    ZVB_FILE_GETCLASS(IZvReadFileClass)
    ZVB_PLAIN(GetFileInfoText, (WCHAR * text, DWORD capacity, DWORD infoId), (text, capacity, infoId))
    ZVB_PLAIN(GetStreamInfoText, (WCHAR * text, DWORD capacity, LONG stream, DWORD infoId),
              (text, capacity, stream, infoId))
    ZVB_PLAIN(GetFileInfo, (BYTE * buffer, DWORD size, DWORD infoId), (buffer, size, infoId))
    ZVB_PLAIN(GetStreamInfo, (BYTE * buffer, DWORD size, LONG stream, DWORD infoId), (buffer, size, stream, infoId))
    STDMETHODIMP GetSiblingFile(IZvReadFile **sibling) override
    {
        if (!sibling)
            return E_POINTER;
        // the sibling hangs off the same class blanket
        return wrapped(inner()->GetSiblingFile(sibling), IID_IZvReadFile, sibling, owner_);
    }
    ZVB_PLAIN(GetFileName, (BSTR * name), (name))
    ZVB_PLAIN(GetFileFlags, (DWORD * flags), (flags))
    ZVB_PLAIN(GetSiblingCount, (LONG * count), (count))
    ZVB_PLAIN(GetMetaTypes, (DWORD * typesOfMetadata), (typesOfMetadata))
    ZVB_PLAIN(Refresh, (DWORD flags), (flags))
    ZVB_PLAIN(GetLength, (LONGLONG * length), (length))
    ZVB_PLAIN(GetStreamCount, (LONG * count), (count))
    ZVB_PLAIN(GetDefaultStream, (DWORD streamType, LONG *stream), (streamType, stream))
    ZVB_PLAIN(GetStreamFormatInfo, (_ZVFILESTREAMFORMATINFOv2 * format, LONG stream, DWORD version),
              (format, stream, version))
    ZVB_PLAIN(GetStreamType, (LONG stream, ZVFILESTREAMTYPE *type, DWORD *value), (stream, type, value))
    ZVB_PLAIN(GetStreamName, (LONG stream, BSTR *name), (stream, name))
    STDMETHODIMP OpenStream(IZvReadStream **stream, LONG streamIndex, DWORD streamType, DWORD flags,
                            DWORD reserved) override
    {
        if (!stream)
            return E_POINTER;
        return wrapped(inner()->OpenStream(stream, streamIndex, streamType, flags, reserved), IID_IZvReadStream,
                       stream, self());
    }
    ZVB_PLAIN(GetStreamLength, (LONG stream, LONGLONG *length), (stream, length))
    STDMETHODIMP GetMeta(IZvReadMeta **meta) override
    {
        if (!meta)
            return E_POINTER;
        return wrapped(inner()->GetMeta(meta), IID_IZvReadMeta, meta, self());
    }
    ZVB_PLAIN(Close, (), ())
};

class CZvRenderFileBlanket : public CZvBlanketT<IZvRenderFile, &IID_IZvRenderFile, nullptr> {
public:
    using CZvBlanketT::CZvBlanketT;
    ZVB_FILE_GETCLASS(IZvRenderFileClass)
    ZVB_PLAIN(GetFileName, (BSTR * name), (name))
    ZVB_PLAIN(GetStreamCount, (LONG * count), (count))
    ZVB_PLAIN(GetStreamFormatInfo, (LONG stream, _ZVFILESTREAMFORMATINFOv2 *format), (stream, format))
    ZVB_PLAIN(SetFileInfoText, (DWORD infoId, LPCWSTR text), (infoId, text))
    ZVB_PLAIN(SetFileInfo, (DWORD infoId, const BYTE *data, DWORD size), (infoId, data, size))
    ZVB_PLAIN(SetMeta, (DWORD typeOfMetadata, IStream *stream), (typeOfMetadata, stream))
    ZVB_PLAIN(BeginWrite, (DWORD flags), (flags))
    ZVB_PLAIN(WriteSamples, (LONG stream, _zvmemorytoken buffer, DWORD sampleCount, DWORD *samplesWritten),
              (stream, buffer, sampleCount, samplesWritten))
    ZVB_PLAIN(WriteFrame, (LONG stream, DWORD pixelType, _zvmemorytoken buffer, LONG strideBytes, DWORD flags),
              (stream, pixelType, buffer, strideBytes, flags))
    ZVB_PLAIN(WriteText, (LONG stream, LONGLONG time, DWORD duration, LPCWSTR text), (stream, time, duration, text))
    ZVB_PLAIN(GetProgress, (DWORD * perMille), (perMille))
    ZVB_PLAIN(EndWrite, (DWORD flags), (flags))
    ZVB_PLAIN(Abort, (), ())
    ZVB_PLAIN(Close, (), ())
};

// The operations of IZvReadStream, shared by the stream and the three
// interfaces derived from it. GetClass walks two owners up: stream, file,
// class.
#define ZVB_STREAM_METHODS                                                                \
    STDMETHODIMP GetClass(IZvReadFileClass **readClass) override                          \
    {                                                                                     \
        if (!readClass)                                                                   \
            return E_POINTER;                                                             \
        *readClass = nullptr;                                                             \
        CZvOutOfProcObj *file = ZvBlanket_From(owner_);                                   \
        IUnknown *up = file ? file->BlanketOwner() : nullptr;                             \
        if (!up)                                                                          \
            return E_NOINTERFACE;                                                         \
        return up->QueryInterface(IID_IZvReadFileClass, (void **)readClass);              \
    }                                                                                     \
    ZVB_PLAIN(GetFile, (IZvReadFile * *file), (file))                                     \
    ZVB_PLAIN(GetStreamIndex, (LONG * stream), (stream))                                  \
    ZVB_PLAIN(GetType, (ZVFILESTREAMTYPE * type), (type))                                 \
    ZVB_PLAIN(GetStreamLength, (LONGLONG * length), (length))                             \
    ZVB_PLAIN(GetInfoText, (WCHAR * text, DWORD capacity, DWORD infoId), (text, capacity, infoId)) \
    ZVB_PLAIN(GetInfo, (BYTE * buffer, DWORD size, DWORD infoId), (buffer, size, infoId)) \
    ZVB_PLAIN(SetReadOptions, (DWORD flags), (flags))

class CZvReadStreamBlanket : public CZvBlanketT<IZvReadStream, &IID_IZvReadStream, nullptr> {
public:
    using CZvBlanketT::CZvBlanketT;
    ZVB_STREAM_METHODS
};

class CZvReadAudioStreamBlanket : public CZvBlanketT<IZvReadAudioStream, &IID_IZvReadAudioStream, &IID_IZvReadStream> {
public:
    using CZvBlanketT::CZvBlanketT;
    ZVB_STREAM_METHODS
    ZVB_PLAIN(GetSampleCount, (LONGLONG * samples), (samples))
    ZVB_PLAIN(SetOutputFormat, (const _ZVFILESTREAMFORMATINFOv2 *format), (format))
    ZVB_PLAIN(GetStreamFormatInfo, (_ZVFILESTREAMFORMATINFOv2 * format), (format))
    ZVB_PLAIN(GetStoredFormatInfo, (_ZVFILESTREAMFORMATINFOv2 * format), (format))
    ZVB_PLAIN(GetReadPosition, (LONGLONG * sample), (sample))
    STDMETHODIMP ReadSamples(DWORD positionLow, LONG positionHigh, _zvmemorytoken buffer, DWORD sampleCount,
                             DWORD *samplesRead) override
    {
        ZVB_TOKEN_FORWARD(inner()->ReadSamples(positionLow, positionHigh, wire, sampleCount, samplesRead), buffer)
    }
    ZVB_PLAIN(GetBlockAlign, (DWORD * bytesPerSample), (bytesPerSample))
    ZVB_PLAIN(Prefetch, (LONGLONG sample, DWORD sampleCount), (sample, sampleCount))
};

class CZvReadVideoStreamBlanket : public CZvBlanketT<IZvReadVideoStream, &IID_IZvReadVideoStream, &IID_IZvReadStream> {
public:
    using CZvBlanketT::CZvBlanketT;
    ZVB_STREAM_METHODS
    ZVB_PLAIN(GetFrameCount, (LONGLONG * frames), (frames))
    ZVB_PLAIN(GetStreamFormatInfo, (_ZVFILESTREAMFORMATINFOv2 * format), (format))
    ZVB_PLAIN(GetFrameRate, (DOUBLE * framesPerSecond), (framesPerSecond))
    ZVB_PLAIN(GetKeyFrameInterval, (DWORD * frames), (frames))
    ZVB_PLAIN(SetOutputFormat, (LONG width, LONG height, DWORD pixelType, DWORD flags),
              (width, height, pixelType, flags))
    ZVB_PLAIN(GetFrameBufferSize, (LONG width, LONG height, DWORD pixelType, DWORD *size),
              (width, height, pixelType, size))
    STDMETHODIMP ReadFrame(DWORD frameLow, LONG frameHigh, DWORD pixelType, _zvmemorytoken buffer, LONG stride,
                           DWORD flags) override
    {
        ZVB_TOKEN_FORWARD(inner()->ReadFrame(frameLow, frameHigh, pixelType, wire, stride, flags), buffer)
    }
    ZVB_PLAIN(GetFrameFlags, (DWORD frameLow, LONG frameHigh, DWORD *flags), (frameLow, frameHigh, flags))
    ZVB_PLAIN(PrefetchFrames, (DWORD frameLow, LONG frameHigh, DWORD count), (frameLow, frameHigh, count))
    ZVB_PLAIN(SetPlaybackRate, (DOUBLE rate), (rate))
    ZVB_PLAIN(Flush, (), ())
    ZVB_PLAIN(GetDecoderFlags, (DWORD * flags), (flags))
};

class CZvReadTextStreamBlanket : public CZvBlanketT<IZvReadTextStream, &IID_IZvReadTextStream, &IID_IZvReadStream> {
public:
    using CZvBlanketT::CZvBlanketT;
    ZVB_STREAM_METHODS
    ZVB_PLAIN(ReadText, (DWORD timeLow, LONG timeHigh, WCHAR *text, DWORD capacity, DWORD *length, DWORD *duration),
              (timeLow, timeHigh, text, capacity, length, duration))
};

class CZvReadMetaBlanket : public CZvBlanketT<IZvReadMeta, &IID_IZvReadMeta, nullptr> {
public:
    using CZvBlanketT::CZvBlanketT;
    ZVB_PLAIN(GetMarkerStream, (IStream * *stream), (stream))
    ZVB_PLAIN(GetSecondSummaryStream, (IStream * *stream), (stream))
    ZVB_PLAIN(GetThirdMetaStream, (IStream * *stream), (stream))
    ZVB_PLAIN(GetMetaStream, (DWORD typeOfMetadata, IStream **stream), (typeOfMetadata, stream))
    ZVB_PLAIN(GetSummaryStream, (IStream * *stream), (stream))
};

class CZvReadProjectLinkMetaBlanket
    : public CZvBlanketT<IZvReadProjectLinkMeta, &IID_IZvReadProjectLinkMeta, &IID_IZvReadMeta> {
public:
    using CZvBlanketT::CZvBlanketT;
    ZVB_PLAIN(GetProjectPathStream, (IStream * *stream), (stream))
    ZVB_PLAIN(GetCommandLineStream, (IStream * *stream), (stream))
    ZVB_PLAIN(GetRendererGuidStream, (IStream * *stream), (stream))
    ZVB_PLAIN(GetTemplateNameStream, (IStream * *stream), (stream))
    ZVB_PLAIN(GetTemplateDataStream, (IStream * *stream), (stream))
    ZVB_PLAIN(GetAppTemplateDataStream, (IStream * *stream), (stream))
    ZVB_PLAIN(GetProjectDataStream, (IStream * *stream), (stream))
    ZVB_PLAIN(GetCreatorAppInfoStream, (IStream * *stream), (stream))
    ZVB_PLAIN(GetCreatorWindowClassStream, (IStream * *stream), (stream))
};

// The family, in the order in which ids are compared.
enum BlanketKind {
    kReadFileClass, kRenderFileClass, kReadFile, kRenderFile, kReadStream, kReadAudioStream,
    kReadVideoStream, kReadMeta, kReadProjectLinkMeta, kReadTextStream, kNone
};

const IID *const kFamily[] = {
    &IID_IZvReadFileClass, &IID_IZvRenderFileClass, &IID_IZvReadFile, &IID_IZvRenderFile, &IID_IZvReadStream,
    &IID_IZvReadAudioStream, &IID_IZvReadVideoStream, &IID_IZvReadMeta, &IID_IZvReadProjectLinkMeta,
    &IID_IZvReadTextStream,
};

BlanketKind KindOf(const IID &iid)
{
    for (int i = 0; i < kNone; ++i)
        if (IsEqualIID(iid, *kFamily[i]))
            return (BlanketKind)i;
    return kNone;
}

} // namespace

static bool InFamily(const IID &iid)
{
    return KindOf(iid) != kNone;
}

// Makes the blanket of `iid` around *pp (an interface of a family member,
// non-null) and hands the inner reference to it.
static HRESULT WrapNew(const IID &iid, void **pp, IUnknown *parent, IUnknown *owner, DWORD flags)
{
    IUnknown *in = (IUnknown *)*pp;
    IUnknown *made = nullptr;
    switch (KindOf(iid)) {
    case kReadFileClass: made = static_cast<IZvReadFileClass *>(new CZvReadFileClassBlanket(in, parent, owner, flags)); break;
    case kRenderFileClass: made = static_cast<IZvRenderFileClass *>(new CZvRenderFileClassBlanket(in, parent, owner, flags)); break;
    case kReadFile: made = static_cast<IZvReadFile *>(new CZvReadFileBlanket(in, parent, owner, flags)); break;
    case kRenderFile: made = static_cast<IZvRenderFile *>(new CZvRenderFileBlanket(in, parent, owner, flags)); break;
    case kReadStream: made = static_cast<IZvReadStream *>(new CZvReadStreamBlanket(in, parent, owner, flags)); break;
    case kReadAudioStream: made = static_cast<IZvReadAudioStream *>(new CZvReadAudioStreamBlanket(in, parent, owner, flags)); break;
    case kReadVideoStream: made = static_cast<IZvReadVideoStream *>(new CZvReadVideoStreamBlanket(in, parent, owner, flags)); break;
    case kReadMeta: made = static_cast<IZvReadMeta *>(new CZvReadMetaBlanket(in, parent, nullptr, flags)); break;
    case kReadProjectLinkMeta: made = static_cast<IZvReadProjectLinkMeta *>(new CZvReadProjectLinkMetaBlanket(in, parent, nullptr, flags)); break;
    case kReadTextStream: made = static_cast<IZvReadTextStream *>(new CZvReadTextStreamBlanket(in, parent, owner, flags)); break;
    case kNone: return S_OK;
    }
    *pp = made;
    // a blanket keeps the inner reference (the global interface table holds
    // another); without a blanket it goes now
    if (!made) {
        in->Release();
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

ZVAPI HRESULT ZvBlanket_Wrap(const IID *iid, void **pp, IUnknown *parent, IUnknown *owner, DWORD flags)
{
    if (!iid || !pp || !*pp)
        return E_OUTOFMEMORY;
    if (!InFamily(*iid))
        return S_OK;
    return WrapNew(*iid, pp, parent, owner, flags);
}
