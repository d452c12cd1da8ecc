// Renderers of pcm.dll, one class per container (wave, Wave64, AIFF/AIFC):
// linear PCM (8, 16, 24, 32 bits) and 32-bit float, one audio stream. The
// samples arrive in the template's decoded format; wave and Wave64 store
// them as they come, AIFF big-endian (pcmwrite.h). The sizes are fixed up on
// close, so a wave file left open by a crash is still one the repair
// functions can rebuild; metadata given to a renderer is written behind the
// audio then.
#include "pcmrender.h"
#include "pcmformat.h"
#include "pcmwrite.h"
#include "templates/zvtemplate.h"
#include "audio/waveformat.h"
#include "tokentarget.h"
#include "media/metainternal.h"
#include "media/projectlink.h"
#include <new>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

const GUID CLSID_PcmWaveRenderer = {0x7C1E5B2A, 0x3D4F, 0x4A8B, {0x9E, 0x21, 0x6F, 0x0B, 0x5C, 0x3D, 0x8A, 0x14}};
const GUID CLSID_PcmWave64Renderer = {0x7C1E5B2B, 0x3D4F, 0x4A8B, {0x9E, 0x21, 0x6F, 0x0B, 0x5C, 0x3D, 0x8A, 0x14}};
const GUID CLSID_PcmAiffRenderer = {0x7C1E5B2C, 0x3D4F, 0x4A8B, {0x9E, 0x21, 0x6F, 0x0B, 0x5C, 0x3D, 0x8A, 0x14}};

const GUID &PcmRendererClsid(PcmContainer container)
{
    switch (container) {
    case PCM_WAVE64: return CLSID_PcmWave64Renderer;
    case PCM_AIFF: return CLSID_PcmAiffRenderer;
    default: return CLSID_PcmWaveRenderer;
    }
}

namespace {

using zvsdk::Hand;

struct Preset {
    DWORD rate;
    ZVSAMPLETYPE type;
    const wchar_t *name;
};
const Preset kPresets[] = {
    {44100, ZVSAMPLE_S16, L"44,100 Hz 16 Bit, Stereo"},
    {48000, ZVSAMPLE_S24, L"48,000 Hz 24 Bit, Stereo"},
    {96000, ZVSAMPLE_F32, L"96,000 Hz 32 Bit (float), Stereo"},
};
const LONG kPresetCount = (LONG)(sizeof kPresets / sizeof kPresets[0]);

// The decoded audio format of a template, if this renderer can write it.
HRESULT TemplateFormat(const tagZVTEMPLATExV2 *t, _zvwaveformat *out)
{
    if (!t)
        return E_POINTER;
    if (t->dwSize < ZVTEMPLATE_HEADER_SIZE || t->dwSize > ZVTEMPLATE_STREAM_MAX)
        return E_INVALIDARG;
    DWORD blockSize, streams;
    memcpy(&blockSize, t->audio, 4);
    memcpy(&streams, t->audio + 4, 4);
    if (blockSize != ZVTEMPLATE_BLOCK_SIZE || streams != 1)
        return ZVERR_TEMPLATE_REFUSED;
    memcpy(out, (const BYTE *)t + ZVT_OFS_AUDIO_FORMAT, sizeof *out);
    if (out->flags & ZVWFX_FLAG_COMPRESSED)
        return ZVERR_TEMPLATE_REFUSED;
    switch (out->sampleType) {
    case ZVSAMPLE_U8: case ZVSAMPLE_S16: case ZVSAMPLE_S24: case ZVSAMPLE_S32: case ZVSAMPLE_F32: break;
    default: return ZVERR_TEMPLATE_REFUSED;
    }
    // Nothing the reader of this plug-in would not open again.
    if (out->samplesPerSec == 0 || out->samplesPerSec > PCM_MAX_RATE || out->channels == 0 || out->channels > 32)
        return ZVERR_TEMPLATE_REFUSED;
    out->Init(out->samplesPerSec, out->sampleType, out->channels, out->channelMask);
    return S_OK;
}

class PcmRenderFile : public zvsdk::SingleAudioRenderFile {
public:
    PcmRenderFile(IZvRenderFileClass *owner, HANDLE file, BSTR name, const _zvwaveformat &format,
                  const PcmWriteLayout &layout)
        : SingleAudioRenderFile(owner, name), file_(file), format_(format), layout_(layout)
    {
    }
    ~PcmRenderFile() override
    {
        Close();
        free(scratch_);
        link_.FreeMemory();
    }
    // Metadata is kept until the file is closed and then written behind the
    // audio: a generic stream of one kind, or a project link's chunks (wave
    // and Wave64 only: AIFF has no chunks for a link).
    HRESULT STDMETHODCALLTYPE SetMeta(DWORD type, IStream *stream) override
    {
        if (!stream)
            return E_POINTER;
        if (!file_)
            return E_UNEXPECTED;
        if (type != ZVMETA_PROJECTLINK_STREAM)
            return zvmeta::AddGenericStream(stream, type, &meta_);
        if (layout_.container == PCM_AIFF)
            return E_NOTIMPL;
        STATSTG st = {};
        HRESULT hr = stream->Stat(&st, STATFLAG_NONAME);
        if (FAILED(hr))
            return hr;
        if (st.cbSize.QuadPart > (1u << 26))
            return ZVERR_LINK_STREAM;
        zvmeta::Bytes b((size_t)st.cbSize.QuadPart);
        LARGE_INTEGER zero = {};
        ULONG got = 0;
        stream->Seek(zero, STREAM_SEEK_SET, nullptr);
        if (!b.empty() && (FAILED(stream->Read(b.data(), (ULONG)b.size(), &got)) || got != b.size()))
            return ZVERR_FILE_READ;
        CZvLinkProjectInfo link;
        BOOL found = FALSE;
        hr = ProjectLink_LoadFromMemory(b.data(), (DWORD)b.size(), &link, &found);
        if (SUCCEEDED(hr) && FAILED(hr = link.Validate()))
            link.FreeMemory();
        if (FAILED(hr))
            return hr;
        link_.FreeMemory();
        link_ = link; // the record's blocks move over
        return S_OK;
    }
    HRESULT FillFormat(_ZVFILESTREAMFORMATINFOv2 *info) override
    {
        zvsdk::StartFormat(info, ZVFILESTREAMTYPE_AUDIO, (LONGLONG)(dataSize_ / format_.blockAlign));
        memcpy(info->format, &format_, sizeof format_);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE BeginWrite(DWORD) override { return file_ ? S_OK : E_UNEXPECTED; }
    // Whole frames from the token, appended behind the data written so far.
    HRESULT STDMETHODCALLTYPE WriteSamples(LONG stream, _zvmemorytoken buffer, DWORD sampleCount,
                                           DWORD *samplesWritten) override
    {
        if (!samplesWritten)
            return E_POINTER;
        *samplesWritten = 0;
        if (stream != 0)
            return E_INVALIDARG;
        if (!file_)
            return E_UNEXPECTED;
        if (sampleCount == 0)
            return S_OK;
        ULONGLONG bytes = (ULONGLONG)sampleCount * format_.blockAlign;
        if (bytes > buffer.cbData)
            return ZVERR_BUFFER_TOO_SMALL;
        if (dataSize_ + bytes > layout_.maxData)
            return ZVERR_SIZE_LIMIT;
        TokenTarget source(view_, buffer, ZVMEMTOKEN_READ);
        const BYTE *data = source.get();
        if (!data)
            return E_FAIL;
        HRESULT hr = PcmNeedsEncode(layout_) ? WriteEncoded(data, bytes) : WriteAll(data, bytes);
        if (FAILED(hr))
            return hr;
        dataSize_ += bytes;
        *samplesWritten = sampleCount;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetProgress(DWORD *perMille) override
    {
        return zvsdk::Answer(perMille, file_ ? 0 : 1000);
    }
    HRESULT STDMETHODCALLTYPE EndWrite(DWORD) override { return Close(); }
    // Leaves nothing behind: the half-written file is removed.
    HRESULT STDMETHODCALLTYPE Abort() override
    {
        if (!file_)
            return S_OK;
        CloseHandle(file_);
        file_ = NULL;
        DeleteFileW(name_);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Close() override
    {
        if (!file_)
            return S_OK;
        HRESULT hr = PcmFinishFile(file_, layout_, dataSize_);
        if (SUCCEEDED(hr))
            hr = WriteMeta();
        if (!CloseHandle(file_) && SUCCEEDED(hr))
            hr = ZVERR_FILE_WRITE;
        file_ = NULL;
        return hr;
    }

private:
    // In pieces of at most 1 GiB: one call per piece keeps the writes large.
    HRESULT WriteAll(const BYTE *data, ULONGLONG size)
    {
        while (size) {
            DWORD n = size > (1u << 30) ? 1u << 30 : (DWORD)size, put = 0;
            if (!WriteFile(file_, data, n, &put, NULL) || put != n)
                return ZVERR_FILE_WRITE;
            data += n;
            size -= n;
        }
        return S_OK;
    }
    // Through a scratch buffer of whole frames, turned into the stored form.
    HRESULT WriteEncoded(const BYTE *data, ULONGLONG size)
    {
        const DWORD frames = (1u << 20) / format_.blockAlign + 1, chunk = frames * format_.blockAlign;
        if (!scratch_ && !(scratch_ = (BYTE *)malloc(chunk)))
            return E_OUTOFMEMORY;
        while (size) {
            DWORD n = size > chunk ? chunk : (DWORD)size;
            memcpy(scratch_, data, n);
            PcmDecode(layout_.stored, scratch_, n / format_.blockAlign);
            HRESULT hr = WriteAll(scratch_, n);
            if (FAILED(hr))
                return hr;
            data += n;
            size -= n;
        }
        return S_OK;
    }

    HRESULT WriteMeta()
    {
        const bool w64 = layout_.container == PCM_WAVE64;
        HRESULT hr = S_OK;
        if (layout_.container == PCM_AIFF)
            return meta_.mask() ? zvmeta::WriteAiffMeta(file_, meta_, meta_.mask()) : S_OK;
        if (DWORD mask = meta_.mask()) {
            meta_.sampleRate = format_.samplesPerSec;
            IZvReadMeta *source = nullptr;
            hr = zvmeta::CreateSource(&meta_, &source);
            if (SUCCEEDED(hr)) {
                hr = ZvFMMeta_WriteMetaToFile(file_, w64, format_.samplesPerSec, source, mask);
                source->Release();
            }
        }
        if (SUCCEEDED(hr) && link_.GetFlags())
            hr = w64 ? ProjectLinkRiff64_WriteInfo(file_, &link_) : ProjectLinkRiff_WriteInfo(file_, &link_);
        return hr;
    }

    HANDLE file_;
    _zvwaveformat format_;
    const PcmWriteLayout layout_;
    ULONGLONG dataSize_ = 0;
    zvsdk::KeptView view_;   // of the caller's shared buffer
    BYTE *scratch_ = nullptr;
    zvmeta::Store meta_;
    CZvLinkProjectInfo link_;
};

// A name that asks for the AIFC form.
bool WantsAifc(LPCWSTR path)
{
    size_t n = wcslen(path);
    return n >= 5 && _wcsicmp(path + n - 5, L".aifc") == 0;
}

class PcmRenderClass : public zvsdk::RenderClassObject {
public:
    explicit PcmRenderClass(PcmContainer container) : container_(container) {}
    HRESULT STDMETHODCALLTYPE GetClassGuid(GUID *classGuid) override
    {
        return zvsdk::Answer(classGuid, PcmRendererClsid(container_));
    }
    HRESULT STDMETHODCALLTYPE GetStreamTypes(DWORD *mask) override
    {
        return zvsdk::Answer(mask, ZVFIO_STREAMMASK_AUDIO);
    }
    HRESULT STDMETHODCALLTYPE GetReadClass(IZvReadFileClass **readClass) override
    {
        if (!readClass)
            return E_POINTER;
        *readClass = nullptr;
        return PcmCreateReadClass(container_, manager_, IID_IZvReadFileClass, (void **)readClass);
    }
    HRESULT STDMETHODCALLTYPE GetInfoText(const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts) override
    {
        return PcmInfoTexts(container_, ids, count, texts);
    }
    HRESULT STDMETHODCALLTYPE CreateFile(IZvRenderFile **file, LPCWSTR path, PCZVTEMPLATE templ, DWORD streamMask,
                                         DWORD) override
    {
        if (!file)
            return E_POINTER;
        *file = nullptr;
        if (!path || !*path || !templ)
            return E_INVALIDARG;
        if (streamMask && !(streamMask & ZVFIO_STREAMMASK_AUDIO))
            return ZVERR_TEMPLATE_REFUSED;
        _zvwaveformat format;
        HRESULT hr = TemplateFormat(templ, &format);
        if (FAILED(hr))
            return hr;
        BSTR name = SysAllocString(path);
        if (!name)
            return E_OUTOFMEMORY;
        HANDLE h = ::CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, NULL, CREATE_ALWAYS,
                                 FILE_ATTRIBUTE_NORMAL, NULL);
        if (h == INVALID_HANDLE_VALUE) {
            hr = HRESULT_FROM_WIN32(GetLastError());
            SysFreeString(name);
            return hr;
        }
        PcmWriteLayout layout;
        hr = PcmWriteHeader(h, container_, format, WantsAifc(path), &layout);
        if (FAILED(hr)) {
            CloseHandle(h);
            DeleteFileW(path);
            SysFreeString(name);
            return hr;
        }
        return Hand(new (std::nothrow) PcmRenderFile(this, h, name, format, layout), IID_IZvRenderFile,
                    (void **)file);
    }
    LONG PresetCount() override { return kPresetCount; }
    HRESULT MakePreset(LONG index, PZVTEMPLATE *templ) override
    {
        const Preset &p = kPresets[index];
        BYTE scratch[ZVTEMPLATE_MIN_SIZE] = {};
        tagZVTEMPLATExV2 *source = (tagZVTEMPLATExV2 *)scratch;
        source->dwSize = ZVTEMPLATE_MIN_SIZE;
        source->dwVersion = ZVTEMPLATE_VERSION_V2;
        DWORD blockSize = ZVTEMPLATE_BLOCK_SIZE, streams = 1;
        memcpy(source->audio, &blockSize, 4);
        memcpy(source->audio + 4, &streams, 4);
        ZvTemplateAt<_zvwaveformat>(source, ZVT_OFS_AUDIO_FORMAT)->Init(p.rate, p.type, 2);
        tagZVTEMPLATExV2 *t = nullptr;
        HRESULT hr = ZvFio_MakeTemplate(&t, ZVTEMPLATE_VERSION_V2, source, ZVFIO_STREAMMASK_AUDIO, 0, p.name, L"");
        if (FAILED(hr))
            return hr;
        t->dwPresetId = (DWORD)index + 1;
        t->rendererClass = PcmRendererClsid(container_);
        // Fixed per preset: the class id with the preset number in the last byte.
        t->templateId = t->rendererClass;
        t->templateId.Data4[7] = (BYTE)(index + 1);
        *templ = t;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE CheckTemplate(PCZVTEMPLATE templ) override
    {
        _zvwaveformat format;
        HRESULT hr = TemplateFormat(templ, &format);
        return hr == E_POINTER ? E_INVALIDARG : hr;
    }
    // Audio bits per second (3) and whether this renderer writes the template (0x17).
    HRESULT STDMETHODCALLTYPE GetTemplateInfo(PCZVTEMPLATE templ, BYTE *buffer, DWORD size, DWORD infoId) override
    {
        if (!templ || !buffer || size == 0)
            return E_INVALIDARG;
        if (size < 4)
            return ZVERR_BUFFER_TOO_SMALL;
        _zvwaveformat format;
        HRESULT usable = TemplateFormat(templ, &format);
        DWORD value;
        switch (infoId) {
        case 3:
            if (FAILED(usable))
                return usable;
            value = format.samplesPerSec * format.blockAlign * 8;
            break;
        case 0x17: value = SUCCEEDED(usable); break;
        default: return S_FALSE;
        }
        memset(buffer, 0, size);
        memcpy(buffer, &value, 4);
        return S_OK;
    }

private:
    const PcmContainer container_;
};

} // namespace

HRESULT PcmCreateRenderClass(PcmContainer container, IZvFileIOManager *manager, REFIID iid, void **out)
{
    PcmRenderClass *c = new (std::nothrow) PcmRenderClass(container);
    if (c)
        c->SetManager(manager);
    return Hand(c, iid, out);
}
