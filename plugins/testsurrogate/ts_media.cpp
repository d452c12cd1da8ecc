// The surrogate test plug-in. Built once per variant (TS_VARIANT), so that
// each DLL has its own class ids.
#include "zvplugin_com.h"
#include "tokentarget.h"
#include "tsurrogate.h"
#include <new>
#include <string.h>
#include <wchar.h>

namespace {

using zvsdk::Hand;

// Writes the token's bytes in place, wherever they live: a caller's shared
// buffer through the stream's kept view, any other token mapped for the call.
template <class Fill> HRESULT FillToken(zvsdk::KeptView &kept, const _zvmemorytoken &token, DWORD size, Fill fill)
{
    if (size > token.cbData)
        return ZVERR_BUFFER_TOO_SMALL;
    TokenTarget target(kept, token, ZVMEMTOKEN_WRITE);
    if (!target.get())
        return E_FAIL;
    fill(target.get(), size);
    return S_OK;
}

class TsReadClass;
HRESULT NewReadClass(REFIID iid, void **out);
HRESULT NewRenderClass(REFIID iid, void **out);

// ---------------------------------------------------------------- streams

// Reads are not clipped to the length: a read far out still fills the token.
class TsAudio : public zvsdk::AudioStream {
public:
    explicit TsAudio(IZvReadFile *file) : AudioStream(file, 0, TS_AUDIO_FRAMES, 4) {}
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format) override
    {
        if (!format)
            return E_POINTER;
        zvsdk::StartFormat(format, ZVFILESTREAMTYPE_AUDIO, TS_AUDIO_FRAMES);
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
        return ReadFrames(position, sampleCount, buffer, samplesRead);
    }
    HRESULT ReadFrames(LONGLONG position, DWORD frames, const _zvmemorytoken &buffer, DWORD *read) override
    {
        HRESULT hr = FillToken(kept_, buffer, frames * 4, [position](BYTE *p, DWORD size) {
            short *s = (short *)p;
            DWORD n = size / 4;
            short v = (short)(2 * position);
            for (DWORD i = 0; i < n; ++i, v = (short)(v + 2)) {
                s[2 * i] = v;
                s[2 * i + 1] = (short)(v + 1);
            }
        });
        if (SUCCEEDED(hr))
            *read = frames;
        return hr;
    }

private:
    zvsdk::KeptView kept_;
};

class TsVideo : public zvsdk::ReadStream<IZvReadVideoStream, &IID_IZvReadVideoStream> {
public:
    explicit TsVideo(IZvReadFile *file) : ReadStream(file, 1, ZVFILESTREAMTYPE_VIDEO) {}
    HRESULT STDMETHODCALLTYPE GetStreamLength(LONGLONG *length) override
    {
        return zvsdk::Answer(length, TS_AUDIO_FRAMES);
    }
    HRESULT STDMETHODCALLTYPE SetReadOptions(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetFrameCount(LONGLONG *frames) override { return GetStreamLength(frames); }
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format) override
    {
        if (!format)
            return E_POINTER;
        zvsdk::StartFormat(format, ZVFILESTREAMTYPE_VIDEO, 0);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetFrameRate(DOUBLE *fps) override
    {
        return zvsdk::Answer(fps, 25.0);
    }
    HRESULT STDMETHODCALLTYPE GetKeyFrameInterval(DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetOutputFormat(LONG, LONG, DWORD, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetFrameBufferSize(LONG, LONG, DWORD, DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ReadFrame(DWORD frameLow, LONG, DWORD, _zvmemorytoken buffer, LONG,
                                        DWORD) override
    {
        return FillToken(kept_, buffer, buffer.cbData, [frameLow](BYTE *p, DWORD size) {
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

private:
    zvsdk::KeptView kept_;
};

// Metadata: every kind empty.
class TsMeta : public zvsdk::Com<IZvReadMeta, &IID_IZvReadMeta> {
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
        return zvsdk::Answer(length, 0);
    }
    HRESULT STDMETHODCALLTYPE GetStreamCount(LONG *count) override
    {
        return zvsdk::Answer(count, 2);
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

template <class Base>
class TsClass : public Base {
public:
    HRESULT STDMETHODCALLTYPE GetStreamTypes(DWORD *mask) override
    {
        return zvsdk::Answer(mask, ZVFIO_STREAMMASK_AUDIO | ZVFIO_STREAMMASK_VIDEO);
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
        return zvsdk::ReadyStatus(status, message);
    }
};

class TsReadClass : public TsClass<zvsdk::ClassObject<IZvReadFileClass, &IID_IZvReadFileClass>>, public IPersist {
public:
    // IPersist is outside the plug-in family: a blanket hands it out raw
    void *extra(REFIID iid) override { return IsEqualIID(iid, IID_IPersist) ? static_cast<IPersist *>(this) : nullptr; }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **out) override { return TsClass::QueryInterface(iid, out); }
    ULONG STDMETHODCALLTYPE AddRef() override { return TsClass::AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return TsClass::Release(); }
    HRESULT STDMETHODCALLTYPE GetClassID(CLSID *id) override
    {
        return zvsdk::Answer(id, TsReaderClass(TS_VARIANT));
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

class TsRenderFile : public zvsdk::RenderFileObject {
public:
    explicit TsRenderFile(IZvRenderFileClass *cls) : RenderFileObject(cls, NULL) {}
    HRESULT STDMETHODCALLTYPE GetStreamCount(LONG *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(LONG, _ZVFILESTREAMFORMATINFOv2 *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE BeginWrite(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE WriteSamples(LONG, _zvmemorytoken, DWORD, DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetProgress(DWORD *p) override
    {
        return zvsdk::Answer(p, 1000);
    }
    HRESULT STDMETHODCALLTYPE EndWrite(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Abort() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Close() override { return S_OK; }
};

class TsRenderClass : public TsClass<zvsdk::RenderClassObject> {
public:
    HRESULT STDMETHODCALLTYPE GetClassGuid(GUID *id) override
    {
        return zvsdk::Answer(id, TsRendererClass(TS_VARIANT));
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
    LONG PresetCount() override { return TS_PRESETS; }
    HRESULT MakePreset(LONG index, PZVTEMPLATE *templ) override
    {
        wchar_t name[32] = {};
        _snwprintf(name, 31, L"Preset %ld", (long)index + 1);
        *templ = zvsdk::NamedPreset(TsRendererClass(TS_VARIANT), (DWORD)index + 1, name);
        return *templ ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE CheckTemplate(PCZVTEMPLATE) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetTemplateInfo(PCZVTEMPLATE, BYTE *, DWORD, DWORD) override { return E_NOTIMPL; }
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

// The reader's row, then the renderer's.
const zvsdk::ClassTable &Table()
{
    static ZVFIO_PLUGINCLASSINFO rows[2];
    static const zvsdk::ClassTable table = [] {
        for (int i = 0; i < 2; i++) {
            rows[i].classId = i ? TsRendererClass(TS_VARIANT) : TsReaderClass(TS_VARIANT);
            _snwprintf(rows[i].name, 259, L"Surrogate test %s %d", i ? L"renderer" : L"reader", TS_VARIANT);
            rows[i].dwAccess = i ? ZVFIO_ACCESS_RENDERER : ZVFIO_ACCESS_READER;
            rows[i].dwStreamType = ZVFIO_STREAMMASK_AUDIO | ZVFIO_STREAMMASK_VIDEO;
            rows[i].dwVersionMajor = 1;
        }
        return zvsdk::ClassTable{rows, 2};
    }();
    return table;
}

HRESULT CreateTsObject(const void *row, REFIID iid, void **out)
{
    return row == &Table().classes[0] ? NewReadClass(iid, out) : NewRenderClass(iid, out);
}

} // namespace

ZVSDK_ENTRY_POINTS(Table(), CreateTsObject)

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
