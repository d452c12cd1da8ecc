// The surrogate test plug-in. Built once per variant (TS_VARIANT), so that
// each DLL has its own class ids.
#include "zvplugin_com.h"
#include "filemng/zvmemtoken.h"
#include "tsurrogate.h"
#include <new>
#include <string.h>
#include <wchar.h>

namespace {

using zvsdk::Hand;
template <class Itf, const IID *Iid, const IID *Also = nullptr> using TsCom = zvsdk::Com<Itf, Iid, Also>;

// Writes the token's bytes in place, wherever they live.
template <class Fill> HRESULT FillToken(const _zvmemorytoken &token, DWORD size, Fill fill)
{
    if (size > token.cbData)
        return ZVERR_BUFFER_TOO_SMALL;
    CMappingOfZvMemoryToken map(token, ZVMEMTOKEN_WRITE);
    void *p = nullptr;
    if (FAILED(map.GetPointer(&p)) || !p)
        return E_FAIL;
    fill((BYTE *)p, size);
    return S_OK;
}

class TsReadClass;
HRESULT NewReadClass(REFIID iid, void **out);
HRESULT NewRenderClass(REFIID iid, void **out);

// ---------------------------------------------------------------- streams

template <class Itf, const IID *Iid>
class TsStream : public zvsdk::ReadStream<Itf, Iid> {
public:
    TsStream(IZvReadFile *file, LONG index)
        : zvsdk::ReadStream<Itf, Iid>(file, index, index ? ZVFILESTREAMTYPE_VIDEO : ZVFILESTREAMTYPE_AUDIO)
    {
    }
    HRESULT STDMETHODCALLTYPE GetStreamLength(LONGLONG *length) override
    {
        if (!length)
            return E_POINTER;
        *length = TS_AUDIO_FRAMES;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetReadOptions(DWORD) override { return S_OK; }
};

class TsAudio : public TsStream<IZvReadAudioStream, &IID_IZvReadAudioStream> {
public:
    explicit TsAudio(IZvReadFile *file) : TsStream(file, 0) {}
    HRESULT STDMETHODCALLTYPE GetSampleCount(LONGLONG *samples) override { return GetStreamLength(samples); }
    HRESULT STDMETHODCALLTYPE SetOutputFormat(const _ZVFILESTREAMFORMATINFOv2 *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format) override
    {
        if (!format)
            return E_POINTER;
        memset(format, 0, sizeof *format);
        format->cbSize = sizeof *format;
        format->dwStreamType = ZVFILESTREAMTYPE_AUDIO;
        format->llLength = TS_AUDIO_FRAMES;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetStoredFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format) override
    {
        return GetStreamFormatInfo(format);
    }
    HRESULT STDMETHODCALLTYPE GetReadPosition(LONGLONG *sample) override
    {
        if (!sample)
            return E_POINTER;
        *sample = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ReadSamples(DWORD positionLow, LONG positionHigh, _zvmemorytoken buffer,
                                          DWORD sampleCount, DWORD *samplesRead) override
    {
        if (!samplesRead)
            return E_POINTER;
        *samplesRead = 0;
        LONGLONG position = ((LONGLONG)positionHigh << 32) | positionLow;
        if (position < 0 || (ULONGLONG)sampleCount * 4 > 0xFFFFFFFFull)
            return E_INVALIDARG;
        HRESULT hr = FillToken(buffer, sampleCount * 4, [position](BYTE *p, DWORD size) {
            short *s = (short *)p;
            DWORD frames = size / 4;
            short v = (short)(2 * position);
            for (DWORD i = 0; i < frames; ++i, v = (short)(v + 2)) {
                s[2 * i] = v;
                s[2 * i + 1] = (short)(v + 1);
            }
        });
        if (SUCCEEDED(hr))
            *samplesRead = sampleCount;
        return hr;
    }
    HRESULT STDMETHODCALLTYPE GetBlockAlign(DWORD *bytes) override
    {
        if (!bytes)
            return E_POINTER;
        *bytes = 4;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Prefetch(LONGLONG, DWORD) override { return S_OK; }
};

class TsVideo : public TsStream<IZvReadVideoStream, &IID_IZvReadVideoStream> {
public:
    explicit TsVideo(IZvReadFile *file) : TsStream(file, 1) {}
    HRESULT STDMETHODCALLTYPE GetFrameCount(LONGLONG *frames) override { return GetStreamLength(frames); }
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format) override
    {
        if (!format)
            return E_POINTER;
        memset(format, 0, sizeof *format);
        format->cbSize = sizeof *format;
        format->dwStreamType = ZVFILESTREAMTYPE_VIDEO;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetFrameRate(DOUBLE *fps) override
    {
        if (!fps)
            return E_POINTER;
        *fps = 25.0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetKeyFrameInterval(DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetOutputFormat(LONG, LONG, DWORD, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetFrameBufferSize(LONG, LONG, DWORD, DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ReadFrame(DWORD frameLow, LONG, DWORD, _zvmemorytoken buffer, LONG,
                                        DWORD) override
    {
        return FillToken(buffer, buffer.cbData, [frameLow](BYTE *p, DWORD size) {
            BYTE v = (BYTE)(frameLow * 7);
            for (DWORD k = 0; k < size; ++k)
                p[k] = (BYTE)(v + k);
        });
    }
    // waits frameLow milliseconds: a call that is under way for a while
    HRESULT STDMETHODCALLTYPE GetFrameFlags(DWORD frameLow, LONG, DWORD *flags) override
    {
        Sleep(frameLow);
        if (flags)
            *flags = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE PrefetchFrames(DWORD, LONG, DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SetPlaybackRate(DOUBLE) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Flush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetDecoderFlags(DWORD *) override { return E_NOTIMPL; }
};

// Metadata: every kind empty.
class TsMeta : public TsCom<IZvReadMeta, &IID_IZvReadMeta> {
public:
    HRESULT STDMETHODCALLTYPE GetMarkerStream(IStream **) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSecondSummaryStream(IStream **) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetThirdMetaStream(IStream **) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMetaStream(DWORD, IStream **) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSummaryStream(IStream **s) override
    {
        if (!s)
            return E_POINTER;
        return CreateStreamOnHGlobal(NULL, TRUE, s);
    }
};

// ---------------------------------------------------------------- file

class TsFile : public zvsdk::ReadFileObject {
public:
    explicit TsFile(IZvReadFileClass *cls) : ReadFileObject(cls, NULL) {}
    HRESULT STDMETHODCALLTYPE GetFileInfo(BYTE *buffer, DWORD size, DWORD infoId) override
    {
        if (!buffer || size < 4)
            return E_INVALIDARG;
        if ((infoId & 0xFFFF0000) == TS_INFO_METRIC)
            return Metric((LONG)(infoId & 0xFFFF), buffer);
        if (infoId != TS_INFO_PROCESSID)
            return E_NOTIMPL;
        DWORD pid = GetCurrentProcessId();
        memcpy(buffer, &pid, 4);
        return S_OK;
    }
    HRESULT Metric(LONG id, BYTE *buffer)
    {
        IZvFileIOManager *manager = nullptr;
        HRESULT hr = owner_->GetManager(&manager);
        if (FAILED(hr) || !manager)
            return FAILED(hr) ? hr : E_UNEXPECTED;
        LONG value = 0;
        hr = manager->GetMetric(id, &value);
        if (SUCCEEDED(hr))
            hr = manager->SetMetric(id + 1, value + 1);
        manager->Release();
        memcpy(buffer, &value, 4);
        return hr;
    }
    // a sibling, with an informative success
    HRESULT STDMETHODCALLTYPE GetSiblingFile(IZvReadFile **sibling) override
    {
        if (!sibling)
            return E_POINTER;
        HRESULT hr = Hand(new (std::nothrow) TsFile(owner_), IID_IZvReadFile, (void **)sibling);
        return SUCCEEDED(hr) ? S_FALSE : hr;
    }
    HRESULT STDMETHODCALLTYPE GetFileName(BSTR *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetLength(LONGLONG *length) override
    {
        if (!length)
            return E_POINTER;
        *length = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetStreamCount(LONG *count) override
    {
        if (!count)
            return E_POINTER;
        *count = 2;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetDefaultStream(DWORD, LONG *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *, LONG, DWORD) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetStreamType(LONG, ZVFILESTREAMTYPE *, DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStreamName(LONG, BSTR *) override { return E_NOTIMPL; }
    // stream 2 succeeds without a stream
    HRESULT STDMETHODCALLTYPE OpenStream(IZvReadStream **stream, LONG index, DWORD, DWORD, DWORD) override
    {
        if (!stream)
            return E_POINTER;
        *stream = nullptr;
        if (index == 0)
            return Hand(new (std::nothrow) TsAudio(this), IID_IZvReadStream, (void **)stream);
        if (index == 1)
            return Hand(new (std::nothrow) TsVideo(this), IID_IZvReadStream, (void **)stream);
        return index == 2 ? S_OK : E_INVALIDARG;
    }
    HRESULT STDMETHODCALLTYPE GetStreamLength(LONG, LONGLONG *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMeta(IZvReadMeta **meta) override
    {
        if (!meta)
            return E_POINTER;
        return Hand(new (std::nothrow) TsMeta, IID_IZvReadMeta, (void **)meta);
    }
    HRESULT STDMETHODCALLTYPE Close() override { return S_OK; }
};

// ---------------------------------------------------------------- classes

template <class Itf, const IID *Iid>
class TsClass : public zvsdk::ClassObject<Itf, Iid> {
public:
    HRESULT STDMETHODCALLTYPE GetStreamTypes(DWORD *mask) override
    {
        if (!mask)
            return E_POINTER;
        *mask = ZVFIO_STREAMMASK_AUDIO | ZVFIO_STREAMMASK_VIDEO;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetClassFlags(DWORD *flags) override
    {
        if (!flags)
            return E_POINTER;
        *flags = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetInfoText(const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts) override
    {
        if (count < 0 || (count && (!ids || !texts)))
            return E_INVALIDARG;
        for (LONG i = 0; i < count; ++i)
            texts[i] = SysAllocString(ids[i] == ZVFIO_INFOTEXT_PLUGINNAME ? L"Surrogate test plug-in" : L"*.tsm");
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetPluginStatus(HRESULT *status, BSTR *message) override
    {
        if (!status)
            return E_POINTER;
        *status = S_OK;
        if (message)
            *message = NULL;
        return S_OK;
    }
};

class TsReadClass : public TsClass<IZvReadFileClass, &IID_IZvReadFileClass>, public IPersist {
public:
    // IPersist is outside the plug-in family: a blanket hands it out raw
    void *extra(REFIID iid) override { return IsEqualIID(iid, IID_IPersist) ? static_cast<IPersist *>(this) : nullptr; }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **out) override { return TsClass::QueryInterface(iid, out); }
    ULONG STDMETHODCALLTYPE AddRef() override { return TsClass::AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return TsClass::Release(); }
    HRESULT STDMETHODCALLTYPE GetClassID(CLSID *id) override
    {
        if (!id)
            return E_POINTER;
        *id = TsReaderClass(TS_VARIANT);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetClassGuid(GUID *id) override { return GetClassID(id); }
    HRESULT STDMETHODCALLTYPE GetRenderClass(IZvRenderFileClass **cls) override
    {
        if (!cls)
            return E_POINTER;
        return NewRenderClass(IID_IZvRenderFileClass, (void **)cls);
    }
    HRESULT STDMETHODCALLTYPE IdentifyFile(const ZVFIO_IDENTIFYINFO *info) override
    {
        if (!info)
            return E_POINTER;
        return info->pChunk && info->cbChunk >= 4 && !memcmp(info->pChunk, "TSM1", 4) ? S_OK : ZVERR_UNSUPPORTED_FORMAT;
    }
    HRESULT STDMETHODCALLTYPE IdentifyStream(IStream *, DWORD) override { return E_NOTIMPL; }
    // opens anything; a name of "fail" fails
    HRESULT STDMETHODCALLTYPE OpenFile(IZvReadFile **file, UINT64, DWORD, LPCWSTR name, BOOL) override
    {
        if (!file)
            return E_POINTER;
        *file = nullptr;
        if (name && !wcscmp(name, L"fail"))
            return ZVERR_UNSUPPORTED_FORMAT;
        return Hand(new (std::nothrow) TsFile(this), IID_IZvReadFile, (void **)file);
    }
    HRESULT STDMETHODCALLTYPE OpenStreamFile(IZvReadFile **, IStream *, LPCWSTR, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMetaTypes(DWORD *) override { return E_NOTIMPL; }
};

class TsRenderFile : public TsCom<IZvRenderFile, &IID_IZvRenderFile> {
public:
    explicit TsRenderFile(IZvRenderFileClass *cls) : cls_(cls) { cls_->AddRef(); }
    ~TsRenderFile() { cls_->Release(); }
    HRESULT STDMETHODCALLTYPE GetClass(IZvRenderFileClass **cls) override
    {
        if (!cls)
            return E_POINTER;
        *cls = cls_;
        cls_->AddRef();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetFileName(BSTR *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStreamCount(LONG *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(LONG, _ZVFILESTREAMFORMATINFOv2 *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetFileInfoText(DWORD, LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetFileInfo(DWORD, const BYTE *, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetMeta(DWORD, IStream *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE BeginWrite(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE WriteSamples(LONG, _zvmemorytoken, DWORD, DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WriteFrame(LONG, DWORD, _zvmemorytoken, LONG, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WriteText(LONG, LONGLONG, DWORD, LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetProgress(DWORD *p) override
    {
        if (!p)
            return E_POINTER;
        *p = 1000;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EndWrite(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Abort() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Close() override { return S_OK; }

private:
    IZvRenderFileClass *cls_;
};

class TsRenderClass : public TsClass<IZvRenderFileClass, &IID_IZvRenderFileClass> {
public:
    HRESULT STDMETHODCALLTYPE GetClassGuid(GUID *id) override
    {
        if (!id)
            return E_POINTER;
        *id = TsRendererClass(TS_VARIANT);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetReadClass(IZvReadFileClass **cls) override
    {
        if (!cls)
            return E_POINTER;
        return NewReadClass(IID_IZvReadFileClass, (void **)cls);
    }
    // a null path fails, with nothing handed out
    HRESULT STDMETHODCALLTYPE CreateFile(IZvRenderFile **file, LPCWSTR path, PCZVTEMPLATE, DWORD, DWORD) override
    {
        if (!file)
            return E_POINTER;
        *file = nullptr;
        if (!path || !*path)
            return E_INVALIDARG;
        return Hand(new (std::nothrow) TsRenderFile(this), IID_IZvRenderFile, (void **)file);
    }
    HRESULT STDMETHODCALLTYPE GetTemplateCount(LONG *count) override
    {
        if (!count)
            return E_POINTER;
        *count = TS_PRESETS;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTemplate(PZVTEMPLATE *templ, LONG index) override
    {
        if (!templ)
            return E_POINTER;
        *templ = nullptr;
        if (index < 0 || index >= TS_PRESETS)
            return E_INVALIDARG;
        const DWORD capacity = 32;
        tagZVTEMPLATExV2 *t = ZvSdk_AllocTemplate(ZVTEMPLATE_HEADER_SIZE + 2 * capacity);
        if (!t)
            return E_OUTOFMEMORY;
        t->dwPresetId = (DWORD)index + 1;
        t->rendererClass = TsRendererClass(TS_VARIANT);
        t->dwTextCapacity = capacity;
        wchar_t *text = (wchar_t *)((BYTE *)t + ZVTEMPLATE_HEADER_SIZE);
        _snwprintf(text, capacity - 2, L"Preset %ld", (long)index + 1);
        *templ = t;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE FindTemplate(REFGUID, PZVTEMPLATE *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CheckTemplate(PCZVTEMPLATE) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE TransformTemplate(PZVTEMPLATE *, PCZVTEMPLATE, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE MakeEditTemplate(PZVTEMPLATE *, PCZVTEMPLATE, PCZVTEMPLATE, DWORD) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetTemplateInfo(PCZVTEMPLATE, BYTE *, DWORD, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTemplateInfoText(PCZVTEMPLATE, WCHAR *, DWORD, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetEditPageCounts(LONG *, LONG *, DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CreateEditPage(DWORD, IUnknown **) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE PrepareEdit(ZVFIO_EDITPREPARE *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EndEdit(HRESULT) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetDefaultTemplateIndex(LONG *) override { return E_NOTIMPL; }
};

HRESULT NewReadClass(REFIID iid, void **out)
{
    return Hand(new (std::nothrow) TsReadClass, iid, out);
}

HRESULT NewRenderClass(REFIID iid, void **out)
{
    return Hand(new (std::nothrow) TsRenderClass, iid, out);
}

// ---------------------------------------------------------------- listing, factory

class TsListing : public TsCom<IZvUnsharedFIOPluginInfo, &IID_IZvUnsharedFIOPluginInfo> {
public:
    HRESULT STDMETHODCALLTYPE GetClassCount(LONG *count) override
    {
        if (!count)
            return E_POINTER;
        *count = 2;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetPluginClassInfo(LONG index, ZVFIO_PLUGINCLASSINFO *info) override
    {
        if (!info)
            return E_POINTER;
        if (index < 0 || index > 1)
            return E_INVALIDARG;
        memset(info, 0, sizeof *info);
        info->classId = index ? TsRendererClass(TS_VARIANT) : TsReaderClass(TS_VARIANT);
        _snwprintf(info->name, 259, L"Surrogate test %s %d", index ? L"renderer" : L"reader", TS_VARIANT);
        info->dwAccess = index ? ZVFIO_ACCESS_RENDERER : ZVFIO_ACCESS_READER;
        info->dwStreamType = ZVFIO_STREAMMASK_AUDIO | ZVFIO_STREAMMASK_VIDEO;
        info->dwVersionMajor = 1;
        return S_OK;
    }
};

// Kind 0 the listing, 1 the reader class, 2 the renderer class.
HRESULT CreateTsObject(const void *context, REFIID iid, void **out)
{
    int kind = (int)(INT_PTR)context;
    if (kind == 0)
        return Hand(new (std::nothrow) TsListing, iid, out);
    return kind == 1 ? NewReadClass(iid, out) : NewRenderClass(iid, out);
}

} // namespace

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void **out)
{
    if (!out)
        return E_POINTER;
    *out = nullptr;
    int kind = IsEqualCLSID(clsid, CLSID_ZvPluginInfo)               ? 0
               : IsEqualCLSID(clsid, TsReaderClass(TS_VARIANT))     ? 1
               : IsEqualCLSID(clsid, TsRendererClass(TS_VARIANT))   ? 2
                                                                    : -1;
    if (kind < 0)
        return CLASS_E_CLASSNOTAVAILABLE;
    return zvsdk::ServeFactory(CreateTsObject, (const void *)(INT_PTR)kind, iid, out);
}

extern "C" HRESULT WINAPI DllCanUnloadNow(void)
{
    return zvsdk::CanUnloadNow();
}

// The token code is compiled into this DLL; its blocks come from here
// instead of the host's kernel.
#include "zvmemory.h"
ZVAPI void *ZvMem_Alloc(size_t size)
{
    return (void *)GlobalAlloc(GPTR, size);
}
ZVAPI void ZvMem_Free(void *block)
{
    if (block)
        GlobalFree((HGLOBAL)block);
}
