// pcm.dll: reader of linear PCM in wave, Wave64 and AIFF/AIFC files. Three
// reader classes, one per container, under the class ids that the
// manager's signature table names for those file types, and a renderer
// class for each (pcmrender.cpp) listed behind them.
//
// The DLL is self-contained: the chunk layers, the wave format record and
// the memory token mapping are compiled into it, so it needs nothing of the
// host at load time and works the same in the application and in a
// surrogate process.
#include "zvplugin_files.h"
#include "pcmformat.h"
#include "pcmrender.h"
#include "tokentarget.h"
#include "media/metainternal.h"
#include <new>
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

void FillFormat(const PcmLayout &l, ZVSAMPLETYPE type, bool stored, _ZVFILESTREAMFORMATINFOv2 *f)
{
    zvsdk::StartFormat(f, ZVFILESTREAMTYPE_AUDIO, (LONGLONG)l.frames);
    _zvwaveformat wf;
    wf.Init(l.rate, type, l.channels, l.channelMask);
    if (stored && l.extensible)
        wf.flags |= ZVWFX_FLAG_EXTENSIBLE;
    static_assert(sizeof wf <= sizeof f->format, "format fits the record");
    memcpy(f->format, &wf, sizeof wf);
}

HRESULT InfoTexts(const PcmClassInfo *cls, const ZVFIO_FILECLASS_INFO_TEXT *ids, LONG count, BSTR *texts)
{
    const zvsdk::ClassTexts t = {cls->shortName, cls->name, cls->extensions, kPluginName, L"1.0", nullptr};
    return zvsdk::AnswerInfoTexts(t, ids, count, texts);
}

// ------------------------------------------------------------------ file

class PcmReadFile : public zvsdk::SingleAudioFile {
public:
    PcmReadFile(IZvReadFileClass *owner, HANDLE file, const PcmLayout &layout, BSTR name)
        : SingleAudioFile(owner, name, (LONGLONG)layout.frames), file_(file), layout_(layout)
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
        return zvsdk::Answer(flags, 0);
    }
    HRESULT STDMETHODCALLTYPE GetSiblingCount(LONG *count) override
    {
        return zvsdk::Answer(count, 0);
    }
    HRESULT STDMETHODCALLTYPE GetMetaTypes(DWORD *types) override { return zvmeta::MetaTypesOf(this, types); }
    // The metadata chunks of the file, read once per call; the source keeps
    // its own copy, so it outlives the file.
    HRESULT STDMETHODCALLTYPE GetMeta(IZvReadMeta **meta) override
    {
        if (!meta)
            return E_POINTER;
        *meta = nullptr;
        EnterCriticalSection(&lock_);
        HRESULT hr = !file_ ? E_UNEXPECTED
                     : layout_.container == PCM_AIFF
                         ? ZvFMMeta_CreateSourceFromAiff(file_, meta)
                         : ZvFMMeta_CreateSourceFromFile(file_, layout_.container == PCM_WAVE64, meta);
        LeaveCriticalSection(&lock_);
        return hr;
    }
    HRESULT STDMETHODCALLTYPE GetLength(LONGLONG *length) override
    {
        return zvsdk::Answer(length, (LONGLONG)layout_.fileLength);
    }
    HRESULT STDMETHODCALLTYPE GetDefaultStream(DWORD streamType, LONG *stream) override
    {
        if (!stream)
            return E_POINTER;
        *stream = streamType == ZVFILESTREAMTYPE_AUDIO || streamType == 0 ? 0 : -1;
        return *stream == 0 ? S_OK : S_FALSE;
    }
    HRESULT FillFormat(_ZVFILESTREAMFORMATINFOv2 *format) override
    {
        ::FillFormat(layout_, PcmDecodedType(layout_), false, format);
        return S_OK;
    }
    zvsdk::AudioStream *NewStream() override;
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

class PcmAudioStream : public zvsdk::AudioStream {
public:
    explicit PcmAudioStream(PcmReadFile *file)
        : AudioStream(file, 0, (LONGLONG)file->layout().frames, file->layout().blockAlign)
    {
    }
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
    HRESULT ReadFrames(LONGLONG position, DWORD frames, const _zvmemorytoken &buffer, DWORD *read) override
    {
        TokenTarget target(view_, buffer, ZVMEMTOKEN_WRITE);
        return target.get() ? pcm().readFrames((ULONGLONG)position, frames, target.get(), read) : E_FAIL;
    }

private:
    PcmReadFile &pcm() const { return *static_cast<PcmReadFile *>(file_); }
    zvsdk::KeptView view_;
};

zvsdk::AudioStream *PcmReadFile::NewStream()
{
    return new (std::nothrow) PcmAudioStream(this);
}

// ----------------------------------------------------------------- class

class PcmReadClass : public zvsdk::PlainReadClass {
public:
    explicit PcmReadClass(const PcmClassInfo *cls) : cls_(cls) {}
    HRESULT STDMETHODCALLTYPE GetClassGuid(GUID *classGuid) override
    {
        return zvsdk::Answer(classGuid, *cls_->clsid);
    }
    HRESULT STDMETHODCALLTYPE GetStreamTypes(DWORD *mask) override
    {
        return zvsdk::Answer(mask, ZVFIO_STREAMMASK_AUDIO);
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
            return zvsdk::NameHasExtension(info->pszPath, cls_->extensions) ? S_OK : ZVERR_UNSUPPORTED_FORMAT;
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
    HRESULT OpenHandle(HANDLE file, BSTR name, IZvReadFile **out) override
    {
        PcmLayout layout;
        HRESULT hr = PcmParse(file, cls_->container, &layout);
        PcmReadFile *object = SUCCEEDED(hr) ? new (std::nothrow) PcmReadFile(this, file, layout, name) : nullptr;
        if (!object) {
            CloseHandle(file);
            SysFreeString(name);
            return FAILED(hr) ? hr : E_OUTOFMEMORY;
        }
        return Hand(object, IID_IZvReadFile, (void **)out);
    }

private:
    const PcmClassInfo *cls_;
};

// --------------------------------------------------------------- listing

// The readers, then their renderers in the same order.
const zvsdk::ClassTable &Table()
{
    static ZVFIO_PLUGINCLASSINFO rows[2 * kClassCount];
    static const zvsdk::ClassTable table = [] {
        for (int i = 0; i < 2 * kClassCount; i++) {
            const bool renderer = i >= kClassCount;
            const PcmClassInfo &cls = kClasses[i % kClassCount];
            rows[i].classId = renderer ? PcmRendererClsid(cls.container) : *cls.clsid;
            wcsncpy(rows[i].name, cls.name, 259);
            rows[i].dwAccess = renderer ? ZVFIO_ACCESS_RENDERER : ZVFIO_ACCESS_READER;
            rows[i].dwStreamType = ZVFIO_STREAMMASK_AUDIO;
            rows[i].dwVersionMajor = 1;
        }
        return zvsdk::ClassTable{rows, 2 * kClassCount};
    }();
    return table;
}

HRESULT CreatePcmObject(const void *row, REFIID iid, void **out)
{
    const LONG i = (LONG)((const ZVFIO_PLUGINCLASSINFO *)row - Table().classes);
    if (i < kClassCount)
        return Hand(new (std::nothrow) PcmReadClass(&kClasses[i]), iid, out);
    return PcmCreateRenderClass(kClasses[i - kClassCount].container, nullptr, iid, out);
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

ZVSDK_ENTRY_POINTS(Table(), CreatePcmObject)

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH)
        DisableThreadLibraryCalls(instance);
    return TRUE;
}
