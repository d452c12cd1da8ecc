/*
 * COM plumbing every C++ plug-in needs, header only: an object with its
 * reference count, the class object's id word and manager hand-over, a
 * class factory, DllCanUnloadNow's count, and adopting a caller's handle.
 *
 *     class MyStream : public zvsdk::Com<IZvReadAudioStream, &IID_IZvReadAudioStream,
 *                                        &IID_IZvReadStream> { ... };
 *     class MyClass : public zvsdk::ClassObject<IZvReadFileClass, &IID_IZvReadFileClass> { ... };
 *     class MyRenderer : public zvsdk::RenderClassObject { ... };
 *
 *     ZVSDK_ENTRY_POINTS(kTable, CreateMyClass)   // DllGetClassObject, DllCanUnloadNow
 */
#pragma once
#include "zvplugin_sdk.h"
#include <new>
#include <string.h>
#include <wchar.h>

namespace zvsdk {

// Objects of this DLL alive, plus server locks.
inline LONG &LiveObjects()
{
    static LONG count;
    return count;
}

inline HRESULT CanUnloadNow()
{
    return InterlockedCompareExchange(&LiveObjects(), 0, 0) == 0 ? S_OK : S_FALSE;
}

// What a getter answers: E_POINTER for no place to put the value, else the
// value and S_OK.
template <class T, class V>
inline HRESULT Answer(T *out, const V &value)
{
    if (!out)
        return E_POINTER;
    *out = (T)value;
    return S_OK;
}

// A stream description cleared and started: its size, kind and length.
inline void StartFormat(_ZVFILESTREAMFORMATINFOv2 *format, ZVFILESTREAMTYPE type, LONGLONG length)
{
    memset(format, 0, sizeof *format);
    format->cbSize = sizeof *format;
    format->dwStreamType = type;
    format->llLength = length;
}

// One object with one interface: IUnknown, Iid and Also (a base interface)
// answer with the same pointer; extra() may hand out further interfaces of
// the object, already cast.
template <class Itf, const IID *Iid, const IID *Also = nullptr>
class Com : public Itf {
public:
    Com() { InterlockedIncrement(&LiveObjects()); }
    virtual ~Com() { InterlockedDecrement(&LiveObjects()); }
    Com(const Com &) = delete;
    Com &operator=(const Com &) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **out) override
    {
        if (!out)
            return E_POINTER;
        const IID *also = Also;
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, *Iid) || (also && IsEqualIID(iid, *also))) {
            *out = static_cast<Itf *>(this);
            this->AddRef();
            return S_OK;
        }
        *out = extra(iid);
        if (*out) {
            this->AddRef();
            return S_OK;
        }
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return (ULONG)InterlockedIncrement(&ref_); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        LONG r = InterlockedDecrement(&ref_);
        if (r == 0)
            delete this;
        return (ULONG)r;
    }

protected:
    virtual void *extra(REFIID) { return nullptr; }

private:
    LONG ref_ = 1;
};

// Hands a new object (reference count 1) out as `iid`, or drops it.
template <class T>
HRESULT Hand(T *object, REFIID iid, void **out)
{
    if (!object)
        return E_OUTOFMEMORY;
    HRESULT hr = object->QueryInterface(iid, out);
    object->Release();
    return hr;
}

// What reader and renderer class objects keep for the manager: the id word
// it gives them and the manager itself.
template <class Itf, const IID *Iid, const IID *Also = nullptr>
class ClassObject : public Com<Itf, Iid, Also> {
public:
    ~ClassObject() override
    {
        if (manager_)
            manager_->Release();
    }
    HRESULT STDMETHODCALLTYPE SetClassId(DWORD id) override
    {
        id_ = id;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetClassId(DWORD *id) override
    {
        return Answer(id, id_);
    }
    HRESULT STDMETHODCALLTYPE SetManager(IZvFileIOManager *manager) override
    {
        if (manager)
            manager->AddRef();
        if (manager_)
            manager_->Release();
        manager_ = manager;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetManager(IZvFileIOManager **manager) override
    {
        if (!manager)
            return E_POINTER;
        *manager = manager_;
        if (!manager_)
            return E_FAIL;
        manager_->AddRef();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetClassFlags(DWORD *flags) override
    {
        return Answer(flags, 0);
    }
    HRESULT STDMETHODCALLTYPE GetInfoValue(DWORD, BYTE *, DWORD) override { return E_NOTIMPL; }

protected:
    DWORD id_ = 0;
    IZvFileIOManager *manager_ = nullptr;
};

// What a read stream answers from where it came from: its file and the
// file's class, its index and its type. Itf is a stream interface (it
// derives from IZvReadStream). The stream holds its file.
template <class Itf, const IID *Iid>
class ReadStream : public Com<Itf, Iid, &IID_IZvReadStream> {
public:
    ReadStream(IZvReadFile *file, LONG index, ZVFILESTREAMTYPE type) : file_(file), index_(index), type_(type)
    {
        file_->AddRef();
    }
    ~ReadStream() override { file_->Release(); }
    HRESULT STDMETHODCALLTYPE GetClass(IZvReadFileClass **readClass) override { return file_->GetClass(readClass); }
    HRESULT STDMETHODCALLTYPE GetFile(IZvReadFile **file) override
    {
        if (!file)
            return E_POINTER;
        *file = file_;
        file_->AddRef();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetStreamIndex(LONG *stream) override
    {
        return Answer(stream, index_);
    }
    HRESULT STDMETHODCALLTYPE GetType(ZVFILESTREAMTYPE *type) override
    {
        return Answer(type, type_);
    }
    HRESULT STDMETHODCALLTYPE GetInfoText(WCHAR *, DWORD, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetInfo(BYTE *, DWORD, DWORD) override { return E_NOTIMPL; }

protected:
    IZvReadFile *file_;
    const LONG index_;
    const ZVFILESTREAMTYPE type_;
};

// A file object's class (held) and its name (owned, may be null), as both
// read and render files answer them.
template <class Itf, const IID *Iid, class ClassItf>
class OwnedFile : public Com<Itf, Iid> {
public:
    OwnedFile(ClassItf *owner, BSTR name) : owner_(owner), name_(name) { owner_->AddRef(); }
    ~OwnedFile() override
    {
        owner_->Release();
        SysFreeString(name_);
    }
    HRESULT STDMETHODCALLTYPE GetClass(ClassItf **cls) override
    {
        if (!cls)
            return E_POINTER;
        *cls = owner_;
        owner_->AddRef();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetFileName(BSTR *name) override
    {
        if (!name)
            return E_POINTER;
        *name = name_ ? SysAllocString(name_) : NULL;
        return *name || !name_ ? S_OK : E_OUTOFMEMORY;
    }

protected:
    ClassItf *owner_;
    BSTR name_;
};

// What an open file answers without knowing its format: the class that
// opened it, its name, no info blocks, no siblings, no refresh. A reader
// overrides what its format offers.
class ReadFileObject : public OwnedFile<IZvReadFile, &IID_IZvReadFile, IZvReadFileClass> {
public:
    ReadFileObject(IZvReadFileClass *owner, BSTR name) : OwnedFile(owner, name) {}
    HRESULT STDMETHODCALLTYPE GetFileInfoText(WCHAR *, DWORD, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStreamInfoText(WCHAR *, DWORD, LONG, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetFileInfo(BYTE *, DWORD, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStreamInfo(BYTE *, DWORD, LONG, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSiblingFile(IZvReadFile **sibling) override
    {
        if (!sibling)
            return E_POINTER;
        *sibling = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetFileFlags(DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSiblingCount(LONG *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMetaTypes(DWORD *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Refresh(DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMeta(IZvReadMeta **meta) override
    {
        if (!meta)
            return E_POINTER;
        *meta = nullptr;
        return E_NOTIMPL;
    }
};

// An audio stream of a known length and block size: what it answers
// without knowing its format, and the checks every read starts with. A
// reader gives GetStreamFormatInfo and ReadFrames.
class AudioStream : public ReadStream<IZvReadAudioStream, &IID_IZvReadAudioStream> {
public:
    AudioStream(IZvReadFile *file, LONG index, LONGLONG frames, DWORD blockAlign)
        : ReadStream(file, index, ZVFILESTREAMTYPE_AUDIO), frames_(frames), align_(blockAlign)
    {
    }
    // Frames [position, position + frames), all inside the stream, into the
    // token; *read gets how many arrived.
    virtual HRESULT ReadFrames(LONGLONG position, DWORD frames, const _zvmemorytoken &buffer, DWORD *read) = 0;

    HRESULT STDMETHODCALLTYPE GetStreamLength(LONGLONG *length) override { return GetSampleCount(length); }
    HRESULT STDMETHODCALLTYPE SetReadOptions(DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSampleCount(LONGLONG *samples) override
    {
        return Answer(samples, frames_);
    }
    HRESULT STDMETHODCALLTYPE SetOutputFormat(const _ZVFILESTREAMFORMATINFOv2 *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStoredFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format) override
    {
        return GetStreamFormatInfo(format);
    }
    HRESULT STDMETHODCALLTYPE GetReadPosition(LONGLONG *sample) override
    {
        return Answer(sample, next_);
    }
    // Frames from a position clipped to the stream: S_OK with the count
    // read (none asked, none read), S_FALSE at or past the end.
    HRESULT STDMETHODCALLTYPE ReadSamples(DWORD positionLow, LONG positionHigh, _zvmemorytoken buffer,
                                          DWORD sampleCount, DWORD *samplesRead) override
    {
        if (!samplesRead)
            return E_POINTER;
        *samplesRead = 0;
        const LONGLONG position = (LONGLONG)(((ULONGLONG)(DWORD)positionHigh << 32) | positionLow);
        if (position < 0)
            return E_INVALIDARG;
        if (sampleCount == 0)
            return S_OK;
        if ((ULONGLONG)sampleCount * align_ > buffer.cbData)
            return ZVERR_BUFFER_TOO_SMALL;
        if (position >= frames_)
            return S_FALSE;
        DWORD done = 0;
        HRESULT hr = ReadFrames(position, (DWORD)(frames_ - position < sampleCount ? frames_ - position : sampleCount),
                                buffer, &done);
        if (FAILED(hr))
            return hr;
        *samplesRead = done;
        next_ = position + done;
        return hr;
    }
    HRESULT STDMETHODCALLTYPE GetBlockAlign(DWORD *bytesPerSample) override
    {
        return Answer(bytesPerSample, align_);
    }
    HRESULT STDMETHODCALLTYPE Prefetch(LONGLONG, DWORD) override { return S_OK; }

protected:
    const LONGLONG frames_;
    const DWORD align_;
    LONGLONG next_ = 0;
};

// An open file with one audio stream: the answers about its streams. A
// reader gives the stream's format and makes the stream.
class SingleAudioFile : public ReadFileObject {
public:
    SingleAudioFile(IZvReadFileClass *owner, BSTR name, LONGLONG frames) : ReadFileObject(owner, name), frames_(frames)
    {
    }
    virtual HRESULT FillFormat(_ZVFILESTREAMFORMATINFOv2 *format) = 0;
    virtual AudioStream *NewStream() = 0;
    HRESULT STDMETHODCALLTYPE GetStreamCount(LONG *count) override
    {
        return Answer(count, 1);
    }
    HRESULT STDMETHODCALLTYPE GetDefaultStream(DWORD, LONG *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format, LONG stream, DWORD) override
    {
        if (!format)
            return E_POINTER;
        return stream == 0 ? FillFormat(format) : E_INVALIDARG;
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
        if (name)
            *name = NULL;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE OpenStream(IZvReadStream **stream, LONG index, DWORD type, DWORD, DWORD) override
    {
        if (!stream)
            return E_POINTER;
        *stream = nullptr;
        if (index != 0 || (type != 0 && type != ZVFILESTREAMTYPE_AUDIO))
            return E_INVALIDARG;
        return Hand(NewStream(), IID_IZvReadStream, (void **)stream);
    }
    HRESULT STDMETHODCALLTYPE GetStreamLength(LONG stream, LONGLONG *length) override
    {
        if (!length)
            return E_POINTER;
        if (stream != 0)
            return E_INVALIDARG;
        *length = frames_;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Close() override { return S_OK; }

protected:
    const LONGLONG frames_;
};

// What a file being rendered answers without knowing its format: the class
// that created it, its name, and no file info, metadata, frames or text. A
// renderer overrides what its format takes.
class RenderFileObject : public OwnedFile<IZvRenderFile, &IID_IZvRenderFile, IZvRenderFileClass> {
public:
    RenderFileObject(IZvRenderFileClass *owner, BSTR name) : OwnedFile(owner, name) {}
    HRESULT STDMETHODCALLTYPE SetFileInfoText(DWORD, LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetFileInfo(DWORD, const BYTE *, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetMeta(DWORD, IStream *) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WriteFrame(LONG, DWORD, _zvmemorytoken, LONG, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WriteText(LONG, LONGLONG, DWORD, LPCWSTR) override { return E_NOTIMPL; }
};

// A file being rendered with one audio stream: the answers about its
// streams. A renderer gives the stream's format.
class SingleAudioRenderFile : public RenderFileObject {
public:
    SingleAudioRenderFile(IZvRenderFileClass *owner, BSTR name) : RenderFileObject(owner, name) {}
    virtual HRESULT FillFormat(_ZVFILESTREAMFORMATINFOv2 *format) = 0;
    HRESULT STDMETHODCALLTYPE GetStreamCount(LONG *count) override { return Answer(count, 1); }
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(LONG stream, _ZVFILESTREAMFORMATINFOv2 *format) override
    {
        if (!format)
            return E_POINTER;
        return stream == 0 ? FillFormat(format) : E_INVALIDARG;
    }
};

// GetPluginStatus of a class with nothing to report: S_OK and "ready".
inline HRESULT ReadyStatus(HRESULT *status, BSTR *message)
{
    if (!status)
        return E_POINTER;
    *status = S_OK;
    if (message && !(*message = SysAllocString(L"ready")))
        return E_OUTOFMEMORY;
    return S_OK;
}

// A preset without plug-in data: its id, its renderer and its name (up to
// 30 characters); null when out of memory.
inline PZVTEMPLATE NamedPreset(const GUID &renderer, DWORD presetId, const wchar_t *name)
{
    const DWORD capacity = 32;
    PZVTEMPLATE t = ZvSdk_AllocTemplate(ZVTEMPLATE_HEADER_SIZE + 2 * capacity);
    if (!t)
        return nullptr;
    t->dwPresetId = presetId;
    t->rendererClass = renderer;
    t->dwTextCapacity = capacity;
    wcsncpy((wchar_t *)((BYTE *)t + ZVTEMPLATE_HEADER_SIZE), name, capacity - 2);
    return t;
}

// What a renderer class answers when it has no template editor: a preset
// found by its id among its own, nothing to add to old templates, the
// record to edit copied as it is, no edit pages, and a ready status. A
// renderer overrides what it does differently.
class RenderClassObject : public ClassObject<IZvRenderFileClass, &IID_IZvRenderFileClass> {
public:
    // The renderer's built-in presets: how many, and the one at an index
    // already checked.
    virtual LONG PresetCount() = 0;
    virtual HRESULT MakePreset(LONG index, PZVTEMPLATE *templ) = 0;

    HRESULT STDMETHODCALLTYPE GetTemplateCount(LONG *count) override { return Answer(count, PresetCount()); }
    HRESULT STDMETHODCALLTYPE GetTemplate(PZVTEMPLATE *templ, LONG index) override
    {
        if (!templ)
            return E_POINTER;
        *templ = nullptr;
        if (index < 0 || index >= PresetCount())
            return E_INVALIDARG;
        return MakePreset(index, templ);
    }
    HRESULT STDMETHODCALLTYPE FindTemplate(REFGUID id, PZVTEMPLATE *templ) override
    {
        if (!templ)
            return E_POINTER;
        *templ = nullptr;
        LONG count = 0;
        HRESULT hr = GetTemplateCount(&count);
        for (LONG i = 0; SUCCEEDED(hr) && i < count; i++) {
            if (FAILED(hr = GetTemplate(templ, i)))
                return hr;
            if (IsEqualGUID((*templ)->templateId, id))
                return S_OK;
            free(*templ);
            *templ = nullptr;
        }
        return FAILED(hr) ? hr : ZVERR_NOT_FOUND;
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
        if (!(*result = (PZVTEMPLATE)malloc(source->dwSize)))
            return E_OUTOFMEMORY;
        memcpy(*result, source, source->dwSize);
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
        return Answer(index, 0);
    }
    HRESULT STDMETHODCALLTYPE GetPluginStatus(HRESULT *status, BSTR *message) override
    {
        return ReadyStatus(status, message);
    }
};

// A class factory that makes its objects through a function with a context
// (a class record, a kind number: whatever the DLL keys its classes by).
class Factory : public Com<IClassFactory, &IID_IClassFactory> {
public:
    typedef HRESULT (*Create)(const void *context, REFIID iid, void **out);
    Factory(Create create, const void *context) : create_(create), context_(context) {}
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown *outer, REFIID iid, void **out) override
    {
        if (!out)
            return E_POINTER;
        *out = nullptr;
        if (outer)
            return CLASS_E_NOAGGREGATION;
        return create_(context_, iid, out);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override
    {
        if (lock)
            InterlockedIncrement(&LiveObjects());
        else
            InterlockedDecrement(&LiveObjects());
        return S_OK;
    }

private:
    Create create_;
    const void *context_;
};

inline HRESULT ServeFactory(Factory::Create create, const void *context, REFIID iid, void **out)
{
    return Hand(new (std::nothrow) Factory(create, context), iid, out);
}

// The classes a DLL offers, as its listing object reports them.
struct ClassTable {
    const ZVFIO_PLUGINCLASSINFO *classes;
    LONG count;
};

// The listing object of a DLL whose classes a table describes.
class Listing : public Com<IZvUnsharedFIOPluginInfo, &IID_IZvUnsharedFIOPluginInfo> {
public:
    explicit Listing(const ClassTable &table) : table_(table) {}
    HRESULT STDMETHODCALLTYPE GetClassCount(LONG *count) override
    {
        return Answer(count, table_.count);
    }
    HRESULT STDMETHODCALLTYPE GetPluginClassInfo(LONG index, ZVFIO_PLUGINCLASSINFO *info) override
    {
        if (!info)
            return E_POINTER;
        if (index < 0 || index >= table_.count)
            return E_INVALIDARG;
        *info = table_.classes[index];
        return S_OK;
    }

private:
    const ClassTable table_;
};

inline HRESULT CreateListing(const void *table, REFIID iid, void **out)
{
    return Hand(new (std::nothrow) Listing(*(const ClassTable *)table), iid, out);
}

// DllGetClassObject of a DLL with a class table: the listing object under
// CLSID_ZvPluginInfo, each class's object through `create` with its table
// row as the context.
inline HRESULT ServeClassObject(REFCLSID clsid, REFIID iid, void **out, const ClassTable &table,
                                Factory::Create create)
{
    if (!out)
        return E_POINTER;
    *out = nullptr;
    if (IsEqualCLSID(clsid, CLSID_ZvPluginInfo))
        return ServeFactory(CreateListing, &table, iid, out);
    for (LONG i = 0; i < table.count; ++i)
        if (IsEqualCLSID(clsid, table.classes[i].classId))
            return ServeFactory(create, &table.classes[i], iid, out);
    return CLASS_E_CLASSNOTAVAILABLE;
}

// The DLL's two entry points when a class table lists its classes; `table`
// is an expression giving the ClassTable.
#define ZVSDK_ENTRY_POINTS(table, create)                                                      \
    extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void **out)        \
    {                                                                                          \
        return zvsdk::ServeClassObject(clsid, iid, out, table, create);                        \
    }                                                                                          \
    extern "C" HRESULT WINAPI DllCanUnloadNow(void)                                            \
    {                                                                                          \
        return zvsdk::CanUnloadNow();                                                          \
    }

// A file handle the caller passed (of its own process, `processId`; 0 means
// this one) as a handle of ours, which the plug-in closes. It is duplicated
// even in the caller's own process, so it may be kept beyond the call.
inline HRESULT AdoptHandle(UINT64 wire, DWORD processId, HANDLE *out)
{
    *out = NULL;
    HANDLE h = ZvSdk_WireToHandle(wire);
    if (h == INVALID_HANDLE_VALUE || h == NULL)
        return E_HANDLE;
    HANDLE source = GetCurrentProcess();
    bool foreign = processId != 0 && processId != GetCurrentProcessId();
    if (foreign) {
        source = OpenProcess(PROCESS_DUP_HANDLE, FALSE, processId);
        if (!source)
            return HRESULT_FROM_WIN32(GetLastError());
    }
    HRESULT hr = S_OK;
    if (!DuplicateHandle(source, h, GetCurrentProcess(), out, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
        hr = HRESULT_FROM_WIN32(GetLastError());
        *out = NULL;
    }
    if (foreign)
        CloseHandle(source);
    return hr;
}

// Bytes into the memory a token names: in this process, through a mapping
// of the owner, or into the owner's own memory.
inline HRESULT WriteToken(const _zvmemorytoken &t, const void *data, DWORD size)
{
    if (size > t.cbData)
        return ZVERR_BUFFER_TOO_SMALL;
    if (size == 0)
        return S_OK;
    if (t.dwProcessId == GetCurrentProcessId()) {
        memcpy((BYTE *)(ULONG_PTR)t.qwBase + t.dwOffset, data, size);
        return S_OK;
    }
    HRESULT hr = E_FAIL;
    if (t.dwKind == ZVMEMTOKEN_KIND_MAPPING) {
        HANDLE process = OpenProcess(PROCESS_DUP_HANDLE, FALSE, t.dwProcessId);
        HANDLE mapping = NULL;
        if (process && DuplicateHandle(process, ZvSdk_WireToHandle(t.hMapping), GetCurrentProcess(),
                                       &mapping, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
            BYTE *view = (BYTE *)MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, t.dwOffset + size);
            if (view) {
                memcpy(view + t.dwOffset, data, size);
                UnmapViewOfFile(view);
                hr = S_OK;
            }
            CloseHandle(mapping);
        }
        if (process)
            CloseHandle(process);
    } else if (t.dwKind == ZVMEMTOKEN_KIND_LOCAL) {
        HANDLE process = OpenProcess(PROCESS_VM_WRITE | PROCESS_VM_OPERATION, FALSE, t.dwProcessId);
        SIZE_T done = 0;
        if (process && WriteProcessMemory(process, (BYTE *)(ULONG_PTR)t.qwBase + t.dwOffset, data,
                                          size, &done) && done == size)
            hr = S_OK;
        if (process)
            CloseHandle(process);
    } else {
        hr = E_INVALIDARG;
    }
    return hr;
}

} // namespace zvsdk
