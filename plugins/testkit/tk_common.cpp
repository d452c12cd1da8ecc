// Minimal reader and renderer classes of the test plug-ins, their listing
// object, class factory and DLL entry points.
#include "tk_common.h"
#include "zvplugin_files.h"
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
    zvsdk::StartFormat(f, ZVFILESTREAMTYPE_AUDIO, frames);
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
    const zvsdk::ClassTexts t = {cls->shortName, cls->name, cls->extensions, cls->name, nullptr,
                                 cls->reader ? nullptr : L""};
    return zvsdk::AnswerInfoTexts(t, ids, count, texts);
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
    HRESULT ReadFrames(LONGLONG position, DWORD n, const _zvmemorytoken &buffer, DWORD *read) override
    {
        InFlight flight;
        short *data = (short *)HeapAlloc(GetProcessHeap(), 0, (SIZE_T)n * 4 + 4);
        if (!data)
            return E_OUTOFMEMORY;
        for (DWORD i = 0; i < n; i++) {
            data[2 * i] = (short)(2 * (position + i));
            data[2 * i + 1] = (short)(2 * (position + i) + 1);
        }
        HRESULT hr = zvsdk::WriteToken(buffer, data, n * 4);
        HeapFree(GetProcessHeap(), 0, data);
        *read = SUCCEEDED(hr) ? n : 0;
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
        return zvsdk::Answer(length, size_);
    }

private:
    LONGLONG size_;
};

// What the reader and the renderer class objects share: the class record,
// the manager's id word and the manager.
template <class Base>
class TkClassObject : public Base {
public:
    explicit TkClassObject(const TkClass *cls) : cls_(cls) {}
    HRESULT STDMETHODCALLTYPE GetClassGuid(GUID *classGuid) override
    {
        return zvsdk::Answer(classGuid, *cls_->clsid);
    }
    HRESULT STDMETHODCALLTYPE GetStreamTypes(DWORD *streamMask) override
    {
        return zvsdk::Answer(streamMask, ZVFIO_STREAMMASK_AUDIO);
    }
    HRESULT STDMETHODCALLTYPE GetInfoText(const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count,
                                          BSTR *texts) override
    {
        return InfoTexts(cls_, ids, count, texts);
    }
    HRESULT STDMETHODCALLTYPE GetPluginStatus(HRESULT *status, BSTR *message) override
    {
        return zvsdk::ReadyStatus(status, message);
    }

protected:
    const TkClass *cls_;
};

class TkReadClass : public TkClassObject<zvsdk::ClassObject<IZvReadFileClass, &IID_IZvReadFileClass>> {
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

class TkRenderFile : public zvsdk::SingleAudioRenderFile {
public:
    TkRenderFile(IZvRenderFileClass *owner, HANDLE file, BSTR name) : SingleAudioRenderFile(owner, name), file_(file) {}
    ~TkRenderFile() override { Close(); }
    HRESULT FillFormat(_ZVFILESTREAMFORMATINFOv2 *format) override
    {
        FillAudioFormat(format, 0);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE BeginWrite(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE WriteSamples(LONG, _zvmemorytoken, DWORD, DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetProgress(DWORD *perMille) override
    {
        return zvsdk::Answer(perMille, 1000);
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
    HANDLE file_;
};

class TkRenderClass : public TkClassObject<zvsdk::RenderClassObject> {
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
    LONG PresetCount() override { return TK_RENDERER_PRESETS; }
    HRESULT MakePreset(LONG index, PZVTEMPLATE *templ) override
    {
        wchar_t name[32] = {};
        _snwprintf(name, 31, L"Testkit preset %ld", (long)index + 1);
        tagZVTEMPLATExV2 *t = zvsdk::NamedPreset(*cls_->clsid, (DWORD)index + 1, name);
        if (!t)
            return E_OUTOFMEMORY;
        t->templateId = *cls_->clsid;
        t->templateId.Data4[7] ^= (BYTE)(index + 1);
        DWORD blockSize = 200, streams = 1;
        memcpy(t->audio, &blockSize, 4);
        memcpy(t->audio + 4, &streams, 4);
        *templ = t;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE CheckTemplate(PCZVTEMPLATE templ) override
    {
        if (!templ)
            return E_INVALIDARG;
        return IsEqualGUID(templ->rendererClass, *cls_->clsid) ? S_OK : ZVERR_TEMPLATE_REFUSED;
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

// The listed rows of this DLL's classes, made once when it attaches.
const int kMaxClasses = 4;
ZVFIO_PLUGINCLASSINFO g_rows[kMaxClasses];
zvsdk::ClassTable g_table = {g_rows, 0};

void MakeRows()
{
    g_table.count = g_tkModule.classCount < kMaxClasses ? g_tkModule.classCount : kMaxClasses;
    for (LONG i = 0; i < g_table.count; i++) {
        const TkClass &cls = g_tkModule.classes[i];
        ZVFIO_PLUGINCLASSINFO &info = g_rows[i];
        info.classId = *cls.clsid;
        wcsncpy(info.name, cls.name, 259);
        info.dwAccess = cls.reader ? ZVFIO_ACCESS_READER : ZVFIO_ACCESS_RENDERER;
        info.dwStreamType = ZVFIO_STREAMMASK_AUDIO;
        info.dwVersionMajor = 1;
    }
}

// The class object of a listed row.
HRESULT CreateTkObject(const void *row, REFIID iid, void **out)
{
    const TkClass *cls = &g_tkModule.classes[(const ZVFIO_PLUGINCLASSINFO *)row - g_rows];
    if (cls->reader)
        return Hand(new (std::nothrow) TkReadClass(cls), iid, out);
    return Hand(new (std::nothrow) TkRenderClass(cls), iid, out);
}

} // namespace

// ---------------------------------------------------------------- exports

// The kit serves the objects; the counters and a failing listing are the
// test plug-ins' own.
extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void **out)
{
    if (!out)
        return E_POINTER;
    *out = nullptr;
    if (IsEqualCLSID(clsid, CLSID_ZvPluginInfo)) {
        TkCount(TK_LISTING);
        if (g_tkModule.listingFails)
            return CLASS_E_CLASSNOTAVAILABLE;
    }
    for (LONG i = 0; i < g_table.count; i++)
        if (IsEqualCLSID(clsid, g_rows[i].classId)) {
            TkCount(TK_CLASSOBJECT);
            break;
        }
    return zvsdk::ServeClassObject(clsid, iid, out, g_table, CreateTkObject);
}

extern "C" HRESULT WINAPI DllCanUnloadNow(void)
{
    return zvsdk::CanUnloadNow();
}

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(instance);
        MakeRows();
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
