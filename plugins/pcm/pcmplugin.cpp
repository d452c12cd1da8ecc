// pcm.dll: reader of linear PCM in wave, Wave64 and AIFF/AIFC files. Three
// reader classes, one per container, under the class ids that the
// manager's signature table names for those file types, and a renderer
// class for each (pcmrender.cpp) listed behind them.
//
// The DLL is self-contained: the chunk layers, the wave format record and
// the memory token mapping are compiled into it, so it needs nothing of the
// host at load time and works the same in the application and in a
// surrogate process.
#include "zvplugin_com.h"
#include "pcmformat.h"
#include "pcmrender.h"
#include "filemng/zvmemtoken.h"
#include "zvplugin_view.h"
#include "media/zvmeta.h"
#include <new>
#include <optional>
#include <string.h>
#include <wchar.h>

namespace {

using zvsdk::Hand;

// {0A30C422-B91B-11D3-A484-00105A24AA37}
const GUID CLSID_PcmWaveReader = {0x0A30C422, 0xB91B, 0x11D3, {0xA4, 0x84, 0x00, 0x10, 0x5A, 0x24, 0xAA, 0x37}};
// {605F1174-83E4-4420-85A1-B5A4DC1EA028}
const GUID CLSID_PcmWave64Reader = {0x605F1174, 0x83E4, 0x4420, {0x85, 0xA1, 0xB5, 0xA4, 0xDC, 0x1E, 0xA0, 0x28}};
// {3CBBA9C2-75AD-11D3-A483-00105A24AA37}
const GUID CLSID_PcmAiffReader = {0x3CBBA9C2, 0x75AD, 0x11D3, {0xA4, 0x83, 0x00, 0x10, 0x5A, 0x24, 0xAA, 0x37}};

struct PcmClassInfo {
    const GUID *clsid;
    PcmContainer container;
    const wchar_t *name;
    const wchar_t *shortName;
    const wchar_t *extensions;
};

const PcmClassInfo kClasses[] = {
    {&CLSID_PcmWaveReader, PCM_WAVE, L"Wave (PCM)", L"Wave", L"*.wav;*.bwf"},
    {&CLSID_PcmWave64Reader, PCM_WAVE64, L"Wave64 (PCM)", L"Wave64", L"*.w64"},
    {&CLSID_PcmAiffReader, PCM_AIFF, L"AIFF (PCM)", L"AIFF", L"*.aif;*.aiff;*.aifc"},
};
const int kClassCount = (int)(sizeof kClasses / sizeof kClasses[0]);
const wchar_t kPluginName[] = L"PCM Audio Reader";

// Opens a name without its moniker tail (everything from the first "?").
HRESULT OpenByName(LPCWSTR name, HANDLE *out)
{
    *out = NULL;
    if (!name || !*name)
        return E_INVALIDARG;
    wchar_t path[520];
    size_t n = wcscspn(name, L"?");
    if (n >= sizeof path / sizeof path[0])
        return ZVERR_BUFFER_TOO_SMALL;
    wmemcpy(path, name, n);
    path[n] = 0;
    HANDLE h = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, NULL);
    if (h == INVALID_HANDLE_VALUE)
        return HRESULT_FROM_WIN32(GetLastError());
    *out = h;
    return S_OK;
}

bool ExtensionMatches(const wchar_t *path, const wchar_t *patterns)
{
    size_t len = wcscspn(path, L"?");
    const wchar_t *dot = nullptr;
    for (size_t i = 0; i < len; i++) {
        if (path[i] == L'.')
            dot = path + i;
        else if (path[i] == L'\\' || path[i] == L'/')
            dot = nullptr;
    }
    if (!dot)
        return false;
    size_t extLen = (size_t)(path + len - dot);
    for (const wchar_t *p = patterns; *p;) {
        size_t n = wcscspn(p, L";");
        if (n == extLen + 1 && p[0] == L'*' && _wcsnicmp(dot, p + 1, extLen) == 0)
            return true;
        p += n + (p[n] ? 1 : 0);
    }
    return false;
}

void FillFormat(const PcmLayout &l, ZVSAMPLETYPE type, bool stored, _ZVFILESTREAMFORMATINFOv2 *f)
{
    memset(f, 0, sizeof *f);
    f->cbSize = sizeof *f;
    f->dwStreamType = ZVFILESTREAMTYPE_AUDIO;
    f->llLength = (LONGLONG)l.frames;
    _zvwaveformat wf;
    wf.Init(l.rate, type, l.channels, l.channelMask);
    if (stored && l.extensible)
        wf.flags |= ZVWFX_FLAG_EXTENSIBLE;
    static_assert(sizeof wf <= sizeof f->format, "format fits the record");
    memcpy(f->format, &wf, sizeof wf);
}

HRESULT InfoTexts(const PcmClassInfo *cls, const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts)
{
    if (count < 0)
        return E_INVALIDARG;
    if (count > 0 && (!ids || !texts))
        return E_POINTER;
    for (LONG i = 0; i < count; i++)
        texts[i] = NULL;
    for (LONG i = 0; i < count; i++) {
        const wchar_t *text = nullptr;
        switch (ids[i]) {
        case ZVFIO_INFOTEXT_SHORTNAME: text = cls->shortName; break;
        case ZVFIO_INFOTEXT_READEXTENSIONS: text = cls->extensions; break;
        case ZVFIO_INFOTEXT_DESCRIPTION: text = cls->name; break;
        case ZVFIO_INFOTEXT_EXTENSIONS: text = cls->extensions; break;
        case ZVFIO_INFOTEXT_PLUGINNAME: text = kPluginName; break;
        case ZVFIO_INFOTEXT_VERSION: text = L"1.0"; break;
        default: break;
        }
        if (text && !(texts[i] = SysAllocString(text))) {
            for (LONG j = 0; j < i; j++) {
                SysFreeString(texts[j]);
                texts[j] = NULL;
            }
            return E_OUTOFMEMORY;
        }
    }
    return S_OK;
}

// ------------------------------------------------------------------ file

class PcmReadFile : public zvsdk::ReadFileObject {
public:
    PcmReadFile(IZvReadFileClass *owner, HANDLE file, const PcmLayout &layout, BSTR name)
        : ReadFileObject(owner, name), file_(file), layout_(layout)
    {
        InitializeCriticalSection(&lock_);
    }
    ~PcmReadFile()
    {
        Close();
        DeleteCriticalSection(&lock_);
    }
    const PcmLayout &layout() const { return layout_; }

    // Reads frames at a position into memory, decoded; positioned reads, so
    // streams of one file don't disturb each other.
    HRESULT readFrames(ULONGLONG first, DWORD count, BYTE *dest, DWORD *done)
    {
        *done = 0;
        if (first >= layout_.frames)
            return S_FALSE;
        ULONGLONG left = layout_.frames - first;
        if (count > left)
            count = (DWORD)left;
        const DWORD align = layout_.blockAlign;
        const DWORD perRead = (16u << 20) / align > 0 ? (16u << 20) / align : 1;
        EnterCriticalSection(&lock_);
        HRESULT hr = S_OK;
        while (*done < count) {
            if (!file_) {
                hr = E_UNEXPECTED;
                break;
            }
            DWORD n = count - *done < perRead ? count - *done : perRead;
            ULONGLONG at = layout_.dataOffset + (first + *done) * align;
            OVERLAPPED ov = {};
            ov.Offset = (DWORD)at;
            ov.OffsetHigh = (DWORD)(at >> 32);
            DWORD got = 0;
            BYTE *p = dest + (size_t)*done * align;
            if (!ReadFile(file_, p, n * align, &got, &ov) && GetLastError() != ERROR_HANDLE_EOF) {
                hr = ZVERR_FILE_READ;
                break;
            }
            DWORD whole = got / align;
            PcmDecode(layout_, p, whole);
            *done += whole;
            if (whole < n)
                break;   // the file got shorter since it was opened
        }
        LeaveCriticalSection(&lock_);
        if (*done == 0 && SUCCEEDED(hr))
            hr = ZVERR_FILE_READ;
        return *done ? S_OK : hr;
    }

    HRESULT STDMETHODCALLTYPE GetFileFlags(DWORD *flags) override
    {
        if (!flags)
            return E_POINTER;
        *flags = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetSiblingCount(LONG *count) override
    {
        if (!count)
            return E_POINTER;
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetMetaTypes(DWORD *types) override
    {
        if (!types)
            return E_POINTER;
        *types = 0;
        IZvReadMeta *meta = nullptr;
        HRESULT hr = GetMeta(&meta);
        if (FAILED(hr))
            return hr == E_NOTIMPL ? S_OK : hr;
        IZvReadGenericMeta *generic = nullptr;
        if (SUCCEEDED(meta->QueryInterface(IID_IZvReadGenericMeta, (void **)&generic))) {
            IStream *s = nullptr;
            while (generic->Next(&s) == S_OK && s) {
                ZVMETA_STREAMHEADER head = {};
                ULONG got = 0;
                if (SUCCEEDED(s->Read(&head, sizeof head, &got)) && got == sizeof head && head.count > 0)
                    *types |= ZvFMMeta_KindOfGuid(&head.kind);
                s->Release();
            }
            generic->Release();
        }
        meta->Release();
        return S_OK;
    }
    // The metadata chunks of a wave or Wave64 file, read once per call; the
    // source keeps its own copy, so it outlives the file.
    HRESULT STDMETHODCALLTYPE GetMeta(IZvReadMeta **meta) override
    {
        if (!meta)
            return E_POINTER;
        *meta = nullptr;
        if (layout_.container == PCM_AIFF)
            return E_NOTIMPL;
        EnterCriticalSection(&lock_);
        HRESULT hr = file_ ? ZvFMMeta_CreateSourceFromFile(file_, layout_.container == PCM_WAVE64, meta) : E_UNEXPECTED;
        LeaveCriticalSection(&lock_);
        return hr;
    }
    HRESULT STDMETHODCALLTYPE GetLength(LONGLONG *length) override
    {
        if (!length)
            return E_POINTER;
        *length = (LONGLONG)layout_.fileLength;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetStreamCount(LONG *count) override
    {
        if (!count)
            return E_POINTER;
        *count = 1;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetDefaultStream(DWORD streamType, LONG *stream) override
    {
        if (!stream)
            return E_POINTER;
        *stream = streamType == ZVFILESTREAMTYPE_AUDIO || streamType == 0 ? 0 : -1;
        return *stream == 0 ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format, LONG stream,
                                                  DWORD) override
    {
        if (!format)
            return E_POINTER;
        if (stream != 0)
            return E_INVALIDARG;
        FillFormat(layout_, PcmDecodedType(layout_), false, format);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetStreamType(LONG stream, ZVFILESTREAMTYPE *type, DWORD *value) override
    {
        if (!type || !value)
            return E_POINTER;
        if (stream != 0)
            return E_INVALIDARG;
        *type = ZVFILESTREAMTYPE_AUDIO;
        *value = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetStreamName(LONG, BSTR *name) override
    {
        if (!name)
            return E_POINTER;
        *name = NULL;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE OpenStream(IZvReadStream **stream, LONG index, DWORD type, DWORD,
                                         DWORD) override;
    HRESULT STDMETHODCALLTYPE GetStreamLength(LONG stream, LONGLONG *length) override
    {
        if (!length)
            return E_POINTER;
        if (stream != 0)
            return E_INVALIDARG;
        *length = (LONGLONG)layout_.frames;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Close() override
    {
        EnterCriticalSection(&lock_);
        if (file_) {
            CloseHandle(file_);
            file_ = NULL;
        }
        LeaveCriticalSection(&lock_);
        return S_OK;
    }

private:
    HANDLE file_;
    PcmLayout layout_;
    CRITICAL_SECTION lock_;
};

// ---------------------------------------------------------------- stream

class PcmAudioStream : public zvsdk::ReadStream<IZvReadAudioStream, &IID_IZvReadAudioStream> {
public:
    explicit PcmAudioStream(PcmReadFile *file) : ReadStream(file, 0, ZVFILESTREAMTYPE_AUDIO) {}

    HRESULT STDMETHODCALLTYPE GetStreamLength(LONGLONG *length) override { return GetSampleCount(length); }
    HRESULT STDMETHODCALLTYPE SetReadOptions(DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSampleCount(LONGLONG *samples) override
    {
        if (!samples)
            return E_POINTER;
        *samples = (LONGLONG)pcm().layout().frames;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetOutputFormat(const _ZVFILESTREAMFORMATINFOv2 *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format) override
    {
        if (!format)
            return E_POINTER;
        FillFormat(pcm().layout(), PcmDecodedType(pcm().layout()), false, format);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetStoredFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format) override
    {
        if (!format)
            return E_POINTER;
        FillFormat(pcm().layout(), PcmStoredType(pcm().layout()), true, format);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetReadPosition(LONGLONG *sample) override
    {
        if (!sample)
            return E_POINTER;
        *sample = next_;
        return S_OK;
    }
    // Frames from a position into the caller's token: S_OK with the count
    // read, S_FALSE at or past the end.
    HRESULT STDMETHODCALLTYPE ReadSamples(DWORD positionLow, LONG positionHigh, _zvmemorytoken buffer,
                                          DWORD sampleCount, DWORD *samplesRead) override
    {
        if (!samplesRead)
            return E_POINTER;
        *samplesRead = 0;
        LONGLONG position = (LONGLONG)(((ULONGLONG)(DWORD)positionHigh << 32) | positionLow);
        if (position < 0)
            return E_INVALIDARG;
        if (sampleCount == 0)
            return S_OK;
        const PcmLayout &l = pcm().layout();
        if ((ULONGLONG)sampleCount * l.blockAlign > buffer.cbData)
            return ZVERR_BUFFER_TOO_SMALL;
        if ((ULONGLONG)position >= l.frames)
            return S_FALSE;
        // a caller's shared buffer through the stream's kept view, any other
        // token mapped for this call
        zvsdk::HeldView held(view_, buffer, FILE_MAP_WRITE);
        std::optional<CMappingOfZvMemoryToken> mapped;
        BYTE *dest = held.get() ? held.get() : (BYTE *)mapped.emplace(buffer, ZVMEMTOKEN_WRITE).Pointer();
        if (!dest)
            return E_FAIL;
        DWORD done = 0;
        HRESULT hr = pcm().readFrames((ULONGLONG)position, sampleCount, dest, &done);
        if (FAILED(hr))
            return hr;
        *samplesRead = done;
        next_ = position + done;
        return hr;
    }
    HRESULT STDMETHODCALLTYPE GetBlockAlign(DWORD *bytesPerSample) override
    {
        if (!bytesPerSample)
            return E_POINTER;
        *bytesPerSample = pcm().layout().blockAlign;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Prefetch(LONGLONG, DWORD) override { return S_OK; }

private:
    PcmReadFile &pcm() const { return *static_cast<PcmReadFile *>(file_); }
    LONGLONG next_ = 0;
    zvsdk::KeptView view_;
};

HRESULT STDMETHODCALLTYPE PcmReadFile::OpenStream(IZvReadStream **stream, LONG index, DWORD type, DWORD, DWORD)
{
    if (!stream)
        return E_POINTER;
    *stream = nullptr;
    if (index != 0)
        return E_INVALIDARG;
    if (type != 0 && type != ZVFILESTREAMTYPE_AUDIO)
        return E_INVALIDARG;
    return Hand(new (std::nothrow) PcmAudioStream(this), IID_IZvReadStream, (void **)stream);
}

// ----------------------------------------------------------------- class

class PcmReadClass : public zvsdk::ClassObject<IZvReadFileClass, &IID_IZvReadFileClass> {
public:
    explicit PcmReadClass(const PcmClassInfo *cls) : cls_(cls) {}
    HRESULT STDMETHODCALLTYPE GetClassGuid(GUID *classGuid) override
    {
        if (!classGuid)
            return E_POINTER;
        *classGuid = *cls_->clsid;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetStreamTypes(DWORD *mask) override
    {
        if (!mask)
            return E_POINTER;
        *mask = ZVFIO_STREAMMASK_AUDIO;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetClassFlags(DWORD *flags) override
    {
        if (!flags)
            return E_POINTER;
        *flags = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetRenderClass(IZvRenderFileClass **renderClass) override
    {
        if (!renderClass)
            return E_POINTER;
        *renderClass = nullptr;
        return PcmCreateRenderClass(cls_->container, manager_, IID_IZvRenderFileClass, (void **)renderClass);
    }
    HRESULT STDMETHODCALLTYPE GetInfoText(const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts) override
    {
        return InfoTexts(cls_, ids, count, texts);
    }

    // By the first bytes when there are enough, confirmed by the headers when
    // a file comes with them; by the extension when only a path does.
    HRESULT STDMETHODCALLTYPE IdentifyFile(const ZVFIO_IDENTIFYINFO *info) override
    {
        if (!info)
            return E_POINTER;
        if (info->cbSize < sizeof(ZVFIO_IDENTIFYINFO))
            return E_INVALIDARG;
        HANDLE given = ZvSdk_WireToHandle(info->hFile);
        bool haveFile = given != INVALID_HANDLE_VALUE && given != NULL;
        if (info->pChunk && info->cbChunk > 0) {
            if (!PcmSniff(info->pChunk, info->cbChunk, cls_->container))
                return ZVERR_UNSUPPORTED_FORMAT;
            if (!haveFile)
                return S_OK;
        } else if (!haveFile) {
            if (!info->pszPath)
                return E_INVALIDARG;
            return ExtensionMatches(info->pszPath, cls_->extensions) ? S_OK : ZVERR_UNSUPPORTED_FORMAT;
        }
        HANDLE file = NULL;
        HRESULT hr = zvsdk::AdoptHandle(info->hFile, info->dwProcessId, &file);
        if (FAILED(hr))
            return hr;
        BYTE head[40] = {};
        DWORD got = 0;
        OVERLAPPED at = {};
        if (!ReadFile(file, head, sizeof head, &got, &at))
            got = 0;
        PcmLayout layout;
        hr = PcmSniff(head, got, cls_->container) ? PcmParse(file, cls_->container, &layout)
                                                    : ZVERR_UNSUPPORTED_FORMAT;
        CloseHandle(file);
        return hr;
    }
    HRESULT STDMETHODCALLTYPE IdentifyStream(IStream *, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenFile(IZvReadFile **out, UINT64 fileHandle, DWORD processId, LPCWSTR name,
                                       BOOL) override
    {
        if (!out)
            return E_POINTER;
        *out = nullptr;
        HANDLE file = NULL;
        HANDLE given = ZvSdk_WireToHandle(fileHandle);
        HRESULT hr = given == INVALID_HANDLE_VALUE || given == NULL ? OpenByName(name, &file)
                                                                     : zvsdk::AdoptHandle(fileHandle, processId, &file);
        if (FAILED(hr))
            return hr;
        PcmLayout layout;
        hr = PcmParse(file, cls_->container, &layout);
        BSTR copy = NULL;
        if (SUCCEEDED(hr) && name && !(copy = SysAllocString(name)))
            hr = E_OUTOFMEMORY;
        if (FAILED(hr)) {
            CloseHandle(file);
            return hr;
        }
        PcmReadFile *object = new (std::nothrow) PcmReadFile(this, file, layout, copy);
        if (!object) {
            CloseHandle(file);
            SysFreeString(copy);
            return E_OUTOFMEMORY;
        }
        return Hand(object, IID_IZvReadFile, (void **)out);
    }
    HRESULT STDMETHODCALLTYPE OpenStreamFile(IZvReadFile **file, IStream *, LPCWSTR, DWORD) override
    {
        if (!file)
            return E_POINTER;
        *file = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetMetaTypes(DWORD *types) override
    {
        if (!types)
            return E_POINTER;
        *types = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetPluginStatus(HRESULT *status, BSTR *message) override
    {
        return zvsdk::ReadyStatus(status, message);
    }

private:
    const PcmClassInfo *cls_;
};

// --------------------------------------------------------------- listing

class PcmListing : public zvsdk::Com<IZvUnsharedFIOPluginInfo, &IID_IZvUnsharedFIOPluginInfo> {
public:
    HRESULT STDMETHODCALLTYPE GetClassCount(LONG *count) override
    {
        if (!count)
            return E_POINTER;
        *count = 2 * kClassCount;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetPluginClassInfo(LONG index, ZVFIO_PLUGINCLASSINFO *info) override
    {
        if (!info)
            return E_POINTER;
        if (index < 0 || index >= 2 * kClassCount)
            return E_INVALIDARG;
        memset(info, 0, sizeof *info);
        // the readers, then their renderers in the same order
        bool renderer = index >= kClassCount;
        const PcmClassInfo &cls = kClasses[index % kClassCount];
        info->classId = renderer ? PcmRendererClsid(cls.container) : *cls.clsid;
        wcsncpy(info->name, cls.name, 259);
        info->dwAccess = renderer ? ZVFIO_ACCESS_RENDERER : ZVFIO_ACCESS_READER;
        info->dwStreamType = ZVFIO_STREAMMASK_AUDIO;
        info->dwVersionMajor = 1;
        return S_OK;
    }
};

// The class object of a class record; the listing object for none.
HRESULT CreatePcmObject(const void *context, REFIID iid, void **out)
{
    const PcmClassInfo *cls = (const PcmClassInfo *)context;
    if (!cls)
        return Hand(new (std::nothrow) PcmListing, iid, out);
    return Hand(new (std::nothrow) PcmReadClass(cls), iid, out);
}

HRESULT CreateRenderObject(const void *context, REFIID iid, void **out)
{
    return PcmCreateRenderClass(((const PcmClassInfo *)context)->container, nullptr, iid, out);
}

const PcmClassInfo *ClassOf(PcmContainer container)
{
    for (const PcmClassInfo &c : kClasses)
        if (c.container == container)
            return &c;
    return &kClasses[0];
}

} // namespace

HRESULT PcmInfoTexts(PcmContainer container, const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts)
{
    return InfoTexts(ClassOf(container), ids, count, texts);
}

HRESULT PcmCreateReadClass(PcmContainer container, IZvFileIOManager *manager, REFIID iid, void **out)
{
    PcmReadClass *c = new (std::nothrow) PcmReadClass(ClassOf(container));
    if (c)
        c->SetManager(manager);
    return Hand(c, iid, out);
}

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void **out)
{
    if (!out)
        return E_POINTER;
    *out = nullptr;
    if (IsEqualCLSID(clsid, CLSID_ZvPluginInfo))
        return zvsdk::ServeFactory(CreatePcmObject, nullptr, iid, out);
    for (int i = 0; i < kClassCount; i++) {
        if (IsEqualCLSID(clsid, *kClasses[i].clsid))
            return zvsdk::ServeFactory(CreatePcmObject, &kClasses[i], iid, out);
        if (IsEqualCLSID(clsid, PcmRendererClsid(kClasses[i].container)))
            return zvsdk::ServeFactory(CreateRenderObject, &kClasses[i], iid, out);
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

extern "C" HRESULT WINAPI DllCanUnloadNow(void)
{
    return zvsdk::CanUnloadNow();
}

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH)
        DisableThreadLibraryCalls(instance);
    return TRUE;
}
