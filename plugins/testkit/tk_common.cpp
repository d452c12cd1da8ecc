// Minimal reader and renderer classes of the test plug-ins, their listing
// object, class factory and DLL entry points.
#include "tk_common.h"
#include "zvplugin_com.h"
#include <new>
#include <mmreg.h>
#include <string.h>
#include <wchar.h>

static HANDLE g_counterMapping;
static TestkitCounterBlock *g_counters;

void TkCount(TestkitCounter what)
{
    if (g_counters)
        InterlockedIncrement(&g_counters->rows[g_tkModule.row][what]);
}

namespace {

using zvsdk::Hand;
template <class Itf, const IID *Iid, const IID *Also = nullptr> using TkCom = zvsdk::Com<Itf, Iid, Also>;

const TkClass *FindClass(bool reader)
{
    for (int i = 0; i < g_tkModule.classCount; i++)
        if (g_tkModule.classes[i].reader == reader)
            return &g_tkModule.classes[i];
    return nullptr;
}

bool PreloadPresent()
{
    return GetModuleHandleW(L"tk_preloaded.dll") != NULL;
}

// A handle of another process made usable here; closes what it made.
class ForeignHandle {
public:
    ForeignHandle(UINT64 wire, DWORD processId)
    {
        HANDLE h = ZvSdk_WireToHandle(wire);
        if (h == INVALID_HANDLE_VALUE || h == NULL)
            return;
        if (processId == 0 || processId == GetCurrentProcessId()) {
            handle_ = h;
            return;
        }
        HANDLE process = OpenProcess(PROCESS_DUP_HANDLE, FALSE, processId);
        if (process) {
            if (DuplicateHandle(process, h, GetCurrentProcess(), &handle_, 0, FALSE,
                                DUPLICATE_SAME_ACCESS))
                owned_ = true;
            else
                handle_ = NULL;
            CloseHandle(process);
        }
    }
    ~ForeignHandle()
    {
        if (owned_)
            CloseHandle(handle_);
    }
    HANDLE get() const { return handle_; }
private:
    HANDLE handle_ = NULL;
    bool owned_ = false;
};

// Reads up to size bytes from offset 0 without disturbing more than needed.
DWORD ReadHead(HANDLE file, void *buffer, DWORD size)
{
    OVERLAPPED at = {};
    DWORD got = 0;
    if (!ReadFile(file, buffer, size, &got, &at))
        return 0;
    return got;
}

bool ExtensionMatches(const wchar_t *path, const wchar_t *patterns)
{
    const wchar_t *dot = wcsrchr(path, L'.');
    const wchar_t *slash = wcsrchr(path, L'\\');
    if (!dot || (slash && dot < slash))
        return false;
    for (const wchar_t *p = patterns; *p;) {
        const wchar_t *end = wcschr(p, L';');
        size_t len = end ? (size_t)(end - p) : wcslen(p);
        if (len > 1 && p[0] == L'*' && wcslen(dot) == len - 1 &&
            _wcsnicmp(dot, p + 1, len - 1) == 0)
            return true;
        p += len + (end ? 1 : 0);
    }
    return false;
}

void FillAudioFormat(_ZVFILESTREAMFORMATINFOv2 *f, LONGLONG frames)
{
    memset(f, 0, sizeof(*f));
    f->cbSize = sizeof(*f);
    f->dwStreamType = ZVFILESTREAMTYPE_AUDIO;
    f->llLength = frames;
    WAVEFORMATEX wf = {};
    wf.wFormatTag = WAVE_FORMAT_PCM;
    wf.nChannels = TK_CHANNELS;
    wf.nSamplesPerSec = TK_SAMPLE_RATE;
    wf.wBitsPerSample = 16;
    wf.nBlockAlign = TK_CHANNELS * 2;
    wf.nAvgBytesPerSec = TK_SAMPLE_RATE * TK_CHANNELS * 2;
    memcpy(f->format, &wf, sizeof(wf));
}

HRESULT InfoTexts(const TkClass *cls, const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts)
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
        case ZVFIO_INFOTEXT_READEXTENSIONS: text = cls->reader ? cls->extensions : L""; break;
        case ZVFIO_INFOTEXT_DESCRIPTION: text = cls->name; break;
        case ZVFIO_INFOTEXT_EXTENSIONS: text = cls->extensions; break;
        case ZVFIO_INFOTEXT_PLUGINNAME: text = cls->name; break;
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

HRESULT PluginStatus(HRESULT *status, BSTR *message)
{
    if (!status)
        return E_POINTER;
    *status = S_OK;
    if (message) {
        *message = SysAllocString(L"ready");
        if (!*message)
            return E_OUTOFMEMORY;
    }
    return S_OK;
}

class TkRenderClass;
class TkReadClass;
HRESULT NewCompanion(bool reader, IZvFileIOManager *manager, REFIID iid, void **out);

// ---------------------------------------------------------------- reader

class TkReadFile;

// TK_FAULT_DEADLOCK: a read that finds another one in flight waits forever.
class InFlight {
public:
    InFlight()
    {
        if (g_tkModule.fault != TK_FAULT_DEADLOCK)
            return;
        static volatile LONG busy;
        counter_ = &busy;
        if (InterlockedIncrement(counter_) > 1)
            Sleep(INFINITE);
        Sleep(2);
    }
    ~InFlight()
    {
        if (counter_)
            InterlockedDecrement(counter_);
    }

private:
    volatile LONG *counter_ = nullptr;
};

class TkAudioStream : public zvsdk::AudioStream {
public:
    TkAudioStream(IZvReadFile *file, LONGLONG frames) : AudioStream(file, 0, frames, TK_CHANNELS * 2) {}
    HRESULT STDMETHODCALLTYPE GetSampleCount(LONGLONG *samples) override
    {
        HRESULT hr = AudioStream::GetSampleCount(samples);
        if (SUCCEEDED(hr) && g_tkModule.fault == TK_FAULT_WRONG_COUNT)
            ++*samples;
        return hr;
    }
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format) override
    {
        if (!format)
            return E_POINTER;
        FillAudioFormat(format, frames_);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ReadSamples(DWORD positionLow, LONG positionHigh, _zvmemorytoken buffer,
                                          DWORD sampleCount, DWORD *samplesRead) override
    {
        LONGLONG position = 0;
        DWORD n = 0;
        HRESULT hr = clip(positionLow, positionHigh, buffer, sampleCount, samplesRead, &position, &n);
        if (hr != S_OK)
            return hr;
        InFlight flight;
        short *data = (short *)HeapAlloc(GetProcessHeap(), 0, (SIZE_T)n * 4 + 4);
        if (!data)
            return E_OUTOFMEMORY;
        for (DWORD i = 0; i < n; i++) {
            data[2 * i] = (short)(2 * (position + i));
            data[2 * i + 1] = (short)(2 * (position + i) + 1);
        }
        hr = zvsdk::WriteToken(buffer, data, n * 4);
        HeapFree(GetProcessHeap(), 0, data);
        if (SUCCEEDED(hr)) {
            *samplesRead = n;
            next_ = position + n;
        }
        return hr;
    }
};

class TkReadFile : public zvsdk::SingleAudioFile {
public:
    TkReadFile(IZvReadFileClass *owner, BSTR name, LONGLONG size, LONGLONG frames)
        : SingleAudioFile(owner, name, frames), size_(size)
    {
    }
    HRESULT FillFormat(_ZVFILESTREAMFORMATINFOv2 *format) override
    {
        FillAudioFormat(format, frames_);
        return S_OK;
    }
    zvsdk::AudioStream *NewStream() override { return new (std::nothrow) TkAudioStream(this, frames_); }
    HRESULT STDMETHODCALLTYPE GetLength(LONGLONG *length) override
    {
        if (!length)
            return E_POINTER;
        *length = size_;
        return S_OK;
    }

private:
    LONGLONG size_;
};

// What the reader and the renderer class objects share: the class record,
// the manager's id word and the manager.
template <class Itf, const IID *Iid>
class TkClassObject : public zvsdk::ClassObject<Itf, Iid> {
public:
    explicit TkClassObject(const TkClass *cls) : cls_(cls) {}
    HRESULT STDMETHODCALLTYPE GetClassGuid(GUID *classGuid) override
    {
        if (!classGuid)
            return E_POINTER;
        *classGuid = *cls_->clsid;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetStreamTypes(DWORD *streamMask) override
    {
        if (!streamMask)
            return E_POINTER;
        *streamMask = ZVFIO_STREAMMASK_AUDIO;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetInfoText(const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count,
                                          BSTR *texts) override
    {
        return InfoTexts(cls_, ids, count, texts);
    }
    HRESULT STDMETHODCALLTYPE GetPluginStatus(HRESULT *status, BSTR *message) override
    {
        return PluginStatus(status, message);
    }

protected:
    const TkClass *cls_;
};

class TkReadClass : public TkClassObject<IZvReadFileClass, &IID_IZvReadFileClass> {
public:
    explicit TkReadClass(const TkClass *cls) : TkClassObject(cls) {}
    HRESULT STDMETHODCALLTYPE GetRenderClass(IZvRenderFileClass **renderClass) override
    {
        if (!renderClass)
            return E_POINTER;
        *renderClass = nullptr;
        return NewCompanion(false, manager_, IID_IZvRenderFileClass, (void **)renderClass);
    }
    HRESULT STDMETHODCALLTYPE IdentifyFile(const ZVFIO_IDENTIFYINFO *info) override
    {
        TkCount(TK_IDENTIFY);
        if (!info)
            return E_POINTER;
        if (info->cbSize < sizeof(ZVFIO_IDENTIFYINFO))
            return E_INVALIDARG;
        size_t magicLength = strlen(cls_->magic);
        bool mine = false;
        if (info->pChunk && info->cbChunk >= magicLength) {
            mine = memcmp(info->pChunk, cls_->magic, magicLength) == 0;
        } else if (info->pChunk) {
            mine = false; // too short to carry the magic
        } else if (info->hFile != ~(UINT64)0 && info->hFile != 0) {
            ForeignHandle file(info->hFile, info->dwProcessId);
            char head[8] = {};
            if (!file.get())
                return E_HANDLE;
            mine = ReadHead(file.get(), head, (DWORD)magicLength) == magicLength &&
                   memcmp(head, cls_->magic, magicLength) == 0;
        } else if (info->pszPath) {
            mine = ExtensionMatches(info->pszPath, cls_->extensions);
        } else {
            return E_INVALIDARG;
        }
        if (!mine && g_tkModule.fault == TK_FAULT_CRASH_ON_FOREIGN)
            *(volatile int *)(ULONG_PTR)info->cbSize = 1;
        if (mine && cls_->needsPreload && !PreloadPresent())
            return ZVERR_PLUGIN_NOT_INITIALIZED;
        return mine ? S_OK : ZVERR_UNSUPPORTED_FORMAT;
    }
    HRESULT STDMETHODCALLTYPE IdentifyStream(IStream *, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenFile(IZvReadFile **file, UINT64 fileHandle, DWORD processId,
                                       LPCWSTR name, BOOL) override
    {
        if (!file)
            return E_POINTER;
        *file = nullptr;
        if (cls_->needsPreload && !PreloadPresent())
            return ZVERR_PLUGIN_NOT_INITIALIZED;
        HANDLE opened = INVALID_HANDLE_VALUE;
        ForeignHandle given(fileHandle, processId);
        HANDLE h = given.get();
        if (!h) {
            // no handle: open the name, without its moniker tail
            if (!name || !*name)
                return E_INVALIDARG;
            wchar_t path[MAX_PATH];
            size_t n = wcscspn(name, L"?");
            if (n >= MAX_PATH)
                return ZVERR_BUFFER_TOO_SMALL;
            wcsncpy(path, name, n);
            path[n] = 0;
            opened = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL,
                                 OPEN_EXISTING, 0, NULL);
            if (opened == INVALID_HANDLE_VALUE)
                return HRESULT_FROM_WIN32(GetLastError());
            h = opened;
        }
        unsigned char head[8] = {};
        size_t magicLength = strlen(cls_->magic);
        DWORD got = ReadHead(h, head, sizeof(head));
        LARGE_INTEGER size = {};
        GetFileSizeEx(h, &size);
        if (opened != INVALID_HANDLE_VALUE)
            CloseHandle(opened);
        if (got < magicLength || memcmp(head, cls_->magic, magicLength) != 0)
            return ZVERR_UNSUPPORTED_FORMAT;
        DWORD frames = 0;
        if (got >= 8)
            memcpy(&frames, head + 4, 4);
        BSTR copy = name ? SysAllocString(name) : NULL;
        if (name && !copy)
            return E_OUTOFMEMORY;
        TkCount(TK_OPEN);
        if (g_tkModule.fault == TK_FAULT_LEAK_HANDLE)
            CreateEventW(NULL, TRUE, FALSE, NULL);
        return Hand(new (std::nothrow) TkReadFile(this, copy, size.QuadPart, frames), IID_IZvReadFile,
                    (void **)file);
    }
    HRESULT STDMETHODCALLTYPE OpenStreamFile(IZvReadFile **, IStream *, LPCWSTR, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMetaTypes(DWORD *) override { return E_NOTIMPL; }

};

// ---------------------------------------------------------------- renderer

class TkRenderFile : public TkCom<IZvRenderFile, &IID_IZvRenderFile> {
public:
    TkRenderFile(IZvRenderFileClass *owner, HANDLE file, BSTR name) : owner_(owner), file_(file), name_(name)
    {
        owner_->AddRef();
    }
    ~TkRenderFile()
    {
        Close();
        owner_->Release();
        SysFreeString(name_);
    }
    HRESULT STDMETHODCALLTYPE GetClass(IZvRenderFileClass **renderClass) override
    {
        if (!renderClass)
            return E_POINTER;
        *renderClass = owner_;
        owner_->AddRef();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetFileName(BSTR *name) override
    {
        if (!name)
            return E_POINTER;
        *name = SysAllocString(name_);
        return *name ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE GetStreamCount(LONG *count) override
    {
        if (!count)
            return E_POINTER;
        *count = 1;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(LONG stream, _ZVFILESTREAMFORMATINFOv2 *format) override
    {
        if (!format)
            return E_POINTER;
        if (stream != 0)
            return E_INVALIDARG;
        FillAudioFormat(format, 0);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetFileInfoText(DWORD, LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetFileInfo(DWORD, const BYTE *, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetMeta(DWORD, IStream *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE BeginWrite(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE WriteSamples(LONG, _zvmemorytoken, DWORD, DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WriteFrame(LONG, DWORD, _zvmemorytoken, LONG, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WriteText(LONG, LONGLONG, DWORD, LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetProgress(DWORD *perMille) override
    {
        if (!perMille)
            return E_POINTER;
        *perMille = 1000;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EndWrite(DWORD) override { return Close(); }
    HRESULT STDMETHODCALLTYPE Abort() override { return Close(); }
    HRESULT STDMETHODCALLTYPE Close() override
    {
        if (file_ != INVALID_HANDLE_VALUE) {
            CloseHandle(file_);
            file_ = INVALID_HANDLE_VALUE;
        }
        return S_OK;
    }

private:
    IZvRenderFileClass *owner_;
    HANDLE file_;
    BSTR name_;
};

class TkRenderClass : public TkClassObject<IZvRenderFileClass, &IID_IZvRenderFileClass> {
public:
    explicit TkRenderClass(const TkClass *cls) : TkClassObject(cls) {}
    HRESULT STDMETHODCALLTYPE GetReadClass(IZvReadFileClass **readClass) override
    {
        if (!readClass)
            return E_POINTER;
        *readClass = nullptr;
        return NewCompanion(true, manager_, IID_IZvReadFileClass, (void **)readClass);
    }
    HRESULT STDMETHODCALLTYPE CreateFile(IZvRenderFile **file, LPCWSTR path, PCZVTEMPLATE, DWORD,
                                         DWORD) override
    {
        if (!file)
            return E_POINTER;
        *file = nullptr;
        if (!path || !*path)
            return E_INVALIDARG;
        HANDLE h = ::CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ, NULL, CREATE_ALWAYS, 0, NULL);
        if (h == INVALID_HANDLE_VALUE)
            return HRESULT_FROM_WIN32(GetLastError());
        unsigned char head[8] = {};
        memcpy(head, TK_MAGIC_DUAL, 4);
        DWORD put = 0;
        WriteFile(h, head, sizeof(head), &put, NULL);
        BSTR name = SysAllocString(path);
        if (!name) {
            CloseHandle(h);
            return E_OUTOFMEMORY;
        }
        return Hand(new (std::nothrow) TkRenderFile(this, h, name), IID_IZvRenderFile, (void **)file);
    }
    HRESULT STDMETHODCALLTYPE GetTemplateCount(LONG *count) override
    {
        if (!count)
            return E_POINTER;
        *count = TK_RENDERER_PRESETS;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTemplate(PZVTEMPLATE *templ, LONG index) override
    {
        if (!templ)
            return E_POINTER;
        *templ = nullptr;
        if (index < 0 || index >= TK_RENDERER_PRESETS)
            return E_INVALIDARG;
        const DWORD capacity = 32;
        tagZVTEMPLATExV2 *t = ZvSdk_AllocTemplate(ZVTEMPLATE_HEADER_SIZE + 2 * capacity);
        if (!t)
            return E_OUTOFMEMORY;
        t->dwPresetId = (DWORD)index + 1;
        t->rendererClass = *cls_->clsid;
        t->templateId = *cls_->clsid;
        t->templateId.Data4[7] ^= (BYTE)(index + 1);
        DWORD blockSize = 200, streams = 1;
        memcpy(t->audio, &blockSize, 4);
        memcpy(t->audio + 4, &streams, 4);
        t->dwTextCapacity = capacity;
        wchar_t *text = (wchar_t *)((BYTE *)t + ZVTEMPLATE_HEADER_SIZE);
        _snwprintf(text, capacity - 2, L"Testkit preset %ld", (long)index + 1);
        *templ = t;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE FindTemplate(REFGUID, PZVTEMPLATE *templ) override
    {
        if (!templ)
            return E_POINTER;
        *templ = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CheckTemplate(PCZVTEMPLATE templ) override
    {
        if (!templ)
            return E_INVALIDARG;
        return IsEqualGUID(templ->rendererClass, *cls_->clsid) ? S_OK : ZVERR_TEMPLATE_REFUSED;
    }
    HRESULT STDMETHODCALLTYPE TransformTemplate(PZVTEMPLATE *result, PCZVTEMPLATE, DWORD) override
    {
        if (!result)
            return E_POINTER;
        *result = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE MakeEditTemplate(PZVTEMPLATE *result, PCZVTEMPLATE source, PCZVTEMPLATE,
                                               DWORD) override
    {
        if (!result)
            return E_POINTER;
        *result = nullptr;
        if (!source || source->dwSize < ZVTEMPLATE_HEADER_SIZE)
            return E_INVALIDARG;
        tagZVTEMPLATExV2 *copy = (tagZVTEMPLATExV2 *)malloc(source->dwSize);
        if (!copy)
            return E_OUTOFMEMORY;
        memcpy(copy, source, source->dwSize);
        *result = copy;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTemplateInfo(PCZVTEMPLATE templ, BYTE *buffer, DWORD size,
                                              DWORD infoId) override
    {
        if (!templ || !buffer || size == 0)
            return E_INVALIDARG;
        if (size < 4)
            return ZVERR_BUFFER_TOO_SMALL;
        memset(buffer, 0, size);
        DWORD value;
        switch (infoId) {
        case 3: value = TK_SAMPLE_RATE * TK_CHANNELS * 16; break;          // audio bits per second
        case 0x17: value = IsEqualGUID(templ->rendererClass, *cls_->clsid); break; // usable here
        default: return S_FALSE;
        }
        memcpy(buffer, &value, 4);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTemplateInfoText(PCZVTEMPLATE, WCHAR *, DWORD, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetEditPageCounts(LONG *, LONG *, DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CreateEditPage(DWORD, IUnknown **page) override
    {
        if (!page)
            return E_POINTER;
        *page = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE PrepareEdit(ZVFIO_EDITPREPARE *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EndEdit(HRESULT) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetDefaultTemplateIndex(LONG *index) override
    {
        if (!index)
            return E_POINTER;
        *index = 0;
        return S_OK;
    }

};

// The other class of the same DLL, if it has one.
HRESULT NewCompanion(bool reader, IZvFileIOManager *manager, REFIID iid, void **out)
{
    const TkClass *cls = FindClass(reader);
    if (!cls)
        return E_NOINTERFACE;
    if (reader) {
        TkReadClass *c = new (std::nothrow) TkReadClass(cls);
        if (c)
            c->SetManager(manager);
        return Hand(c, iid, out);
    }
    TkRenderClass *c = new (std::nothrow) TkRenderClass(cls);
    if (c)
        c->SetManager(manager);
    return Hand(c, iid, out);
}

// ---------------------------------------------------------------- listing

class TkListing : public TkCom<IZvUnsharedFIOPluginInfo, &IID_IZvUnsharedFIOPluginInfo> {
public:
    HRESULT STDMETHODCALLTYPE GetClassCount(LONG *count) override
    {
        if (!count)
            return E_POINTER;
        *count = g_tkModule.classCount;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetPluginClassInfo(LONG index, ZVFIO_PLUGINCLASSINFO *info) override
    {
        if (!info)
            return E_POINTER;
        if (index < 0 || index >= g_tkModule.classCount)
            return E_INVALIDARG;
        const TkClass &cls = g_tkModule.classes[index];
        memset(info, 0, sizeof(*info));
        info->classId = *cls.clsid;
        wcsncpy(info->name, cls.name, 259);
        info->dwAccess = cls.reader ? ZVFIO_ACCESS_READER : ZVFIO_ACCESS_RENDERER;
        info->dwStreamType = ZVFIO_STREAMMASK_AUDIO;
        info->dwVersionMajor = 1;
        return S_OK;
    }
};

// ---------------------------------------------------------------- factory

// The class object of a class record; the listing object for none.
HRESULT CreateTkObject(const void *context, REFIID iid, void **out)
{
    const TkClass *cls = (const TkClass *)context;
    if (!cls)
        return Hand(new (std::nothrow) TkListing, iid, out);
    if (cls->reader)
        return Hand(new (std::nothrow) TkReadClass(cls), iid, out);
    return Hand(new (std::nothrow) TkRenderClass(cls), iid, out);
}

} // namespace

// ---------------------------------------------------------------- exports

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void **out)
{
    if (!out)
        return E_POINTER;
    *out = nullptr;
    if (IsEqualCLSID(clsid, CLSID_ZvPluginInfo)) {
        TkCount(TK_LISTING);
        if (g_tkModule.listingFails)
            return CLASS_E_CLASSNOTAVAILABLE;
        return zvsdk::ServeFactory(CreateTkObject, nullptr, iid, out);
    }
    for (int i = 0; i < g_tkModule.classCount; i++) {
        if (IsEqualCLSID(clsid, *g_tkModule.classes[i].clsid)) {
            TkCount(TK_CLASSOBJECT);
            return zvsdk::ServeFactory(CreateTkObject, &g_tkModule.classes[i], iid, out);
        }
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

extern "C" HRESULT WINAPI DllCanUnloadNow(void)
{
    return zvsdk::CanUnloadNow();
}

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(instance);
        g_counters = TestkitOpenCounters(&g_counterMapping);
        TkCount(TK_ATTACH);
        if (g_counters)
            InterlockedExchange(&g_counters->rows[g_tkModule.row][TK_LAST_PID], (LONG)GetCurrentProcessId());
        if (g_tkModule.row != TK_DLL_PRELOADED && PreloadPresent())
            TkCount(TK_PRELOAD_SEEN);
    } else if (reason == DLL_PROCESS_DETACH) {
        TkCount(TK_DETACH);
        TestkitCloseCounters(g_counters, g_counterMapping);
        g_counters = NULL;
        g_counterMapping = NULL;
    }
    return TRUE;
}
