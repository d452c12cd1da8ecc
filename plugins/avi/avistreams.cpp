// The open AVI file and its streams: uncompressed frames as stored (RGB rows
// in the order the caller's stride asks for), PCM samples gathered across
// the interleaved chunks. Reads are positioned, so streams of one file don't
// disturb each other.
#include "avireader.h"
#include "zvplugin_files.h"
#include "tokentarget.h"
#include "audio/waveformat.h"
#include "filemng/zvmemtoken.h"
#include "video/dib.h"
#include "media/metainternal.h"
#include <algorithm>
#include <memory>
#include <new>
#include <string.h>

namespace {

using zvsdk::Hand;

const DWORD kVids = ZVFOURCC('v', 'i', 'd', 's'), kAuds = ZVFOURCC('a', 'u', 'd', 's');

struct FourCCRow {
    DWORD fourcc, canonical, pixelType;
};
const FourCCRow kLayouts[] = {
    {ZVFOURCC('U', 'Y', 'V', 'Y'), ZVFOURCC('U', 'Y', 'V', 'Y'), ZVPT_UYVY},
    {ZVFOURCC('Y', 'U', 'Y', '2'), ZVFOURCC('Y', 'U', 'Y', 'V'), ZVPT_YUYV},
    {ZVFOURCC('Y', 'U', 'Y', 'V'), ZVFOURCC('Y', 'U', 'Y', 'V'), ZVPT_YUYV},
    {ZVFOURCC('I', '4', '2', '0'), ZVFOURCC('I', '4', '2', '0'), ZVPT_I420},
    {ZVFOURCC('I', 'Y', 'U', 'V'), ZVFOURCC('I', '4', '2', '0'), ZVPT_I420},
    {ZVFOURCC('Y', 'V', '1', '2'), ZVFOURCC('Y', 'V', '1', '2'), ZVPT_YV12},
    {ZVFOURCC('N', 'V', '1', '2'), ZVFOURCC('N', 'V', '1', '2'), ZVPT_NV12},
    {ZVFOURCC('v', '2', '1', '0'), ZVFOURCC('v', '2', '1', '0'), ZVPT_V210},
    {ZVFOURCC('P', '0', '1', '0'), ZVFOURCC('P', '0', '1', '0'), ZVPT_P010},
};

// Bytes of one RGB row as stored, padded to 4.
DWORD RgbRowBytes(const BITMAPINFOHEADER &h)
{
    return (DWORD)(((ULONGLONG)h.biBitCount * (ULONGLONG)h.biWidth + 31) >> 3) & ~3u;
}

class AviReadFile;

// ------------------------------------------------------------ video

class AviVideoStream : public zvsdk::ReadStream<IZvReadVideoStream, &IID_IZvReadVideoStream> {
public:
    AviVideoStream(AviReadFile *file, LONG index, const AviStream &s);

    HRESULT STDMETHODCALLTYPE GetStreamLength(LONGLONG *length) override { return GetFrameCount(length); }
    HRESULT STDMETHODCALLTYPE SetReadOptions(DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetFrameCount(LONGLONG *frames) override
    {
        return zvsdk::Answer(frames, (LONGLONG)s_.chunks.size());
    }
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format) override;
    HRESULT STDMETHODCALLTYPE GetFrameRate(DOUBLE *rate) override
    {
        return zvsdk::Answer(rate, s_.scale ? (double)s_.rate / s_.scale : 0.0);
    }
    HRESULT STDMETHODCALLTYPE GetKeyFrameInterval(DWORD *frames) override
    {
        return zvsdk::Answer(frames, 1);
    }
    HRESULT STDMETHODCALLTYPE SetOutputFormat(LONG, LONG, DWORD, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetFrameBufferSize(LONG width, LONG height, DWORD pixelType, DWORD *size) override
    {
        if (!size)
            return E_POINTER;
        *size = 0;
        if ((pixelType && pixelType != pixelType_) || (width && width != s_.video.biWidth) ||
            (height && abs(height) != abs(s_.video.biHeight)))
            return ZVERR_UNSUPPORTED_MEDIA;
        *size = frameBytes_;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ReadFrame(DWORD frameLow, LONG frameHigh, DWORD pixelType, _zvmemorytoken buffer,
                                        LONG stride, DWORD flags) override;
    HRESULT STDMETHODCALLTYPE GetFrameFlags(DWORD frameLow, LONG frameHigh, DWORD *flags) override
    {
        if (!flags)
            return E_POINTER;
        *flags = 0;
        return frameOf(frameLow, frameHigh) < 0 ? E_INVALIDARG : S_OK;
    }
    HRESULT STDMETHODCALLTYPE PrefetchFrames(DWORD, LONG, DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SetPlaybackRate(DOUBLE) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Flush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetDecoderFlags(DWORD *flags) override
    {
        return zvsdk::Answer(flags, 0);
    }

private:
    AviReadFile &avi() const;
    LONGLONG frameOf(DWORD low, LONG high) const
    {
        LONGLONG f = (LONGLONG)(((ULONGLONG)(DWORD)high << 32) | low);
        return f >= 0 && f < (LONGLONG)s_.chunks.size() ? f : -1;
    }
    const AviStream &s_;
    DWORD pixelType_ = 0;
    DWORD frameBytes_ = 0;   // the largest frame chunk
};

// ------------------------------------------------------------ audio

class AviAudioStream : public zvsdk::AudioStream {
public:
    AviAudioStream(AviReadFile *file, LONG index, const AviStream &s);
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format) override;
    HRESULT ReadFrames(LONGLONG position, DWORD frames, const _zvmemorytoken &buffer, DWORD *read) override;

private:
    AviReadFile &avi() const;
    const AviStream &s_;
    std::vector<ULONGLONG> starts_;   // byte position of each chunk in the stream, and the end
};

// ------------------------------------------------------------- file

class AviReadFile : public zvsdk::ReadFileObject {
public:
    AviReadFile(IZvReadFileClass *owner, HANDLE file, const AviFile &avi, BSTR name)
        : ReadFileObject(owner, name), file_(file), avi_(avi)
    {
        InitializeCriticalSection(&lock_);
        for (size_t i = 0; i < avi_.streams.size(); ++i) {
            const AviStream &s = avi_.streams[i];
            DWORD canonical;
            if ((s.type == kVids && AviPixelType(s.video, &canonical)) || (s.type == kAuds && AviAudioUsable(s.audio)))
                shown_.push_back(i);
        }
    }
    ~AviReadFile()
    {
        Close();
        DeleteCriticalSection(&lock_);
    }

    // `size` bytes at `offset` of the file; ZVERR_FILE_READ when they can't
    // all be had (the file got shorter, or was closed).
    HRESULT readAt(ULONGLONG offset, void *data, DWORD size)
    {
        EnterCriticalSection(&lock_);
        bool ok = file_ && zvsdk::ReadExactAt(file_, offset, data, size);
        LeaveCriticalSection(&lock_);
        return ok ? S_OK : ZVERR_FILE_READ;
    }
    // the view of a caller's shared buffer, kept from call to call
    zvsdk::KeptView &keptView() { return view_; }
    const AviStream *stream(LONG index) const
    {
        return index >= 0 && index < (LONG)shown_.size() ? &avi_.streams[shown_[index]] : nullptr;
    }
    static ZVFILESTREAMTYPE typeOf(const AviStream &s)
    {
        return s.type == kVids ? ZVFILESTREAMTYPE_VIDEO : ZVFILESTREAMTYPE_AUDIO;
    }

    HRESULT STDMETHODCALLTYPE GetFileFlags(DWORD *flags) override { return Zero(flags); }
    HRESULT STDMETHODCALLTYPE GetSiblingCount(LONG *count) override { return Zero((DWORD *)count); }
    HRESULT STDMETHODCALLTYPE GetMetaTypes(DWORD *types) override { return zvmeta::MetaTypesOf(this, types); }
    // Its LIST INFO and, of an ARDEO clip, the time code; read once per
    // call into a source that outlives the file.
    HRESULT STDMETHODCALLTYPE GetMeta(IZvReadMeta **meta) override
    {
        if (!meta)
            return E_POINTER;
        *meta = nullptr;
        EnterCriticalSection(&lock_);
        HRESULT hr = file_ ? ZvFMMeta_CreateSourceFromAvi(file_, meta) : E_UNEXPECTED;
        LeaveCriticalSection(&lock_);
        return hr;
    }
    HRESULT STDMETHODCALLTYPE GetLength(LONGLONG *length) override
    {
        return zvsdk::Answer(length, (LONGLONG)avi_.fileLength);
    }
    HRESULT STDMETHODCALLTYPE GetStreamCount(LONG *count) override
    {
        return zvsdk::Answer(count, (LONG)shown_.size());
    }
    HRESULT STDMETHODCALLTYPE GetDefaultStream(DWORD streamType, LONG *index) override
    {
        if (!index)
            return E_POINTER;
        *index = -1;
        for (LONG i = 0; i < (LONG)shown_.size() && *index < 0; ++i)
            if (streamType == 0 || (DWORD)typeOf(*stream(i)) == streamType)
                *index = i;
        return *index >= 0 ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format, LONG index, DWORD) override
    {
        if (!format)
            return E_POINTER;
        IZvReadStream *s = nullptr;
        HRESULT hr = OpenStream(&s, index, 0, 0, 0);
        if (FAILED(hr))
            return hr;
        IZvReadVideoStream *v = nullptr;
        IZvReadAudioStream *a = nullptr;
        if (SUCCEEDED(s->QueryInterface(IID_IZvReadVideoStream, (void **)&v))) {
            hr = v->GetStreamFormatInfo(format);
            v->Release();
        } else if (SUCCEEDED(hr = s->QueryInterface(IID_IZvReadAudioStream, (void **)&a))) {
            hr = a->GetStreamFormatInfo(format);
            a->Release();
        }
        s->Release();
        return hr;
    }
    HRESULT STDMETHODCALLTYPE GetStreamType(LONG index, ZVFILESTREAMTYPE *type, DWORD *value) override
    {
        if (!type || !value)
            return E_POINTER;
        const AviStream *s = stream(index);
        if (!s)
            return E_INVALIDARG;
        *type = typeOf(*s);
        DWORD canonical;
        *value = s->type == kVids ? AviPixelType(s->video, &canonical) : (DWORD)ZvAudio_GetSampleType(&s->audio);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetStreamName(LONG, BSTR *name) override
    {
        if (!name)
            return E_POINTER;
        *name = NULL;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE OpenStream(IZvReadStream **out, LONG index, DWORD type, DWORD, DWORD) override
    {
        if (!out)
            return E_POINTER;
        *out = nullptr;
        const AviStream *s = stream(index);
        if (!s || (type != 0 && type != (DWORD)typeOf(*s)))
            return E_INVALIDARG;
        if (s->type == kVids)
            return Hand(new (std::nothrow) AviVideoStream(this, index, *s), IID_IZvReadStream, (void **)out);
        return Hand(new (std::nothrow) AviAudioStream(this, index, *s), IID_IZvReadStream, (void **)out);
    }
    HRESULT STDMETHODCALLTYPE GetStreamLength(LONG index, LONGLONG *length) override
    {
        if (!length)
            return E_POINTER;
        const AviStream *s = stream(index);
        if (!s)
            return E_INVALIDARG;
        *length = s->type == kVids ? (LONGLONG)s->chunks.size() : (LONGLONG)(s->bytes / s->audio.nBlockAlign);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Close() override
    {
        EnterCriticalSection(&lock_);
        if (file_)
            CloseHandle(file_);
        file_ = NULL;
        LeaveCriticalSection(&lock_);
        return S_OK;
    }

private:
    static HRESULT Zero(DWORD *out)
    {
        return zvsdk::Answer(out, 0);
    }
    HANDLE file_;
    const AviFile avi_;
    std::vector<size_t> shown_;   // the file's streams that this reader gives out
    CRITICAL_SECTION lock_;
    zvsdk::KeptView view_;
};

AviVideoStream::AviVideoStream(AviReadFile *file, LONG index, const AviStream &s)
    : ReadStream(file, index, ZVFILESTREAMTYPE_VIDEO), s_(s)
{
    DWORD canonical;
    pixelType_ = AviPixelType(s.video, &canonical);
    for (const AviChunk &c : s.chunks)
        frameBytes_ = std::max(frameBytes_, c.size);
}

AviReadFile &AviVideoStream::avi() const { return *static_cast<AviReadFile *>(file_); }

HRESULT STDMETHODCALLTYPE AviVideoStream::GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format)
{
    if (!format)
        return E_POINTER;
    zvsdk::StartFormat(format, ZVFILESTREAMTYPE_VIDEO, (LONGLONG)s_.chunks.size());
    AviVideoExtension ext = {};
    ext.pixelType = pixelType_;
    ext.storedFourCC = s_.video.biCompression;
    GetFrameRate(&ext.frameRate);
    ext.pixelAspect = 1.0;
    memcpy(format->extension, &ext, sizeof ext);
    BITMAPINFOHEADER h = s_.video;
    h.biSize = sizeof h;
    h.biPlanes = 1;
    AviPixelType(s_.video, &h.biCompression);
    h.biSizeImage = frameBytes_;
    h.biClrUsed = h.biClrImportant = 0;
    memcpy(format->format, &h, sizeof h);
    return S_OK;
}

// The frame as stored, or for RGB with a stride its rows top-down (stride
// above 0) or bottom-up (below 0), |stride| bytes apart. A dropped frame
// (an empty chunk) repeats the one before.
HRESULT STDMETHODCALLTYPE AviVideoStream::ReadFrame(DWORD frameLow, LONG frameHigh, DWORD pixelType,
                                                    _zvmemorytoken buffer, LONG stride, DWORD)
{
    LONGLONG frame = frameOf(frameLow, frameHigh);
    if (frame < 0)
        return (LONGLONG)(((ULONGLONG)(DWORD)frameHigh << 32) | frameLow) < 0 ? E_INVALIDARG : S_FALSE;
    if (pixelType && pixelType != pixelType_)
        return ZVERR_UNSUPPORTED_MEDIA;
    while (frame > 0 && s_.chunks[(size_t)frame].size == 0)
        --frame;
    const AviChunk &c = s_.chunks[(size_t)frame];
    const bool rgb = s_.video.biCompression == BI_RGB;
    const DWORD rows = (DWORD)abs(s_.video.biHeight), rowBytes = rgb ? RgbRowBytes(s_.video) : 0;
    const ULONGLONG pitch = stride < 0 ? (ULONGLONG)-(LONGLONG)stride : (ULONGLONG)stride;
    const bool placeRows = rgb && stride != 0;
    if (placeRows && (pitch < rowBytes || (ULONGLONG)c.size < (ULONGLONG)rowBytes * rows))
        return pitch < rowBytes ? E_INVALIDARG : ZVERR_MALFORMED;
    const ULONGLONG need = placeRows ? pitch * (rows - 1) + rowBytes : c.size;
    if (need > buffer.cbData)
        return ZVERR_BUFFER_TOO_SMALL;
    TokenTarget target(avi().keptView(), buffer, ZVMEMTOKEN_WRITE);
    BYTE *dest = target.get();
    if (!dest)
        return E_FAIL;
    HRESULT hr = S_OK;
    if (c.size == 0)
        memset(dest, 0, (size_t)need);   // nothing before it to repeat
    else if (!placeRows)
        hr = avi().readAt(c.offset, dest, c.size);
    else {
        std::unique_ptr<BYTE[]> image(new (std::nothrow) BYTE[(size_t)rowBytes * rows]);
        hr = image ? avi().readAt(c.offset, image.get(), rowBytes * rows) : E_OUTOFMEMORY;
        const bool storedBottomUp = s_.video.biHeight > 0, wantBottomUp = stride < 0;
        for (DWORD r = 0; SUCCEEDED(hr) && r < rows; ++r) {
            DWORD from = storedBottomUp == wantBottomUp ? r : rows - 1 - r;
            memcpy(dest + pitch * r, &image[(size_t)from * rowBytes], rowBytes);
        }
    }
    return hr;
}

// ------------------------------------------------------------- audio

AviAudioStream::AviAudioStream(AviReadFile *file, LONG index, const AviStream &s)
    : AudioStream(file, index, (LONGLONG)(s.bytes / s.audio.nBlockAlign), s.audio.nBlockAlign), s_(s)
{
    starts_.reserve(s.chunks.size() + 1);
    ULONGLONG at = 0;
    for (const AviChunk &c : s.chunks) {
        starts_.push_back(at);
        at += c.size;
    }
    starts_.push_back(at);
}

AviReadFile &AviAudioStream::avi() const { return *static_cast<AviReadFile *>(file_); }

HRESULT STDMETHODCALLTYPE AviAudioStream::GetStreamFormatInfo(_ZVFILESTREAMFORMATINFOv2 *format)
{
    if (!format)
        return E_POINTER;
    zvsdk::StartFormat(format, ZVFILESTREAMTYPE_AUDIO, frames_);
    _zvwaveformat wf;
    HRESULT hr = wf.Init(sizeof wf, &s_.audio);
    static_assert(sizeof wf <= sizeof format->format, "format fits the record");
    memcpy(format->format, &wf, sizeof wf);
    return hr;
}

// Sample frames from a position; a frame may straddle two chunks.
HRESULT AviAudioStream::ReadFrames(LONGLONG position, DWORD count, const _zvmemorytoken &buffer, DWORD *read)
{
    TokenTarget target(avi().keptView(), buffer, ZVMEMTOKEN_WRITE);
    BYTE *dest = target.get();
    if (!dest)
        return E_FAIL;
    ULONGLONG from = (ULONGLONG)position * align_, left = (ULONGLONG)count * align_;
    size_t k = (size_t)(std::upper_bound(starts_.begin(), starts_.end(), from) - starts_.begin()) - 1;
    HRESULT hr = S_OK;
    for (; left && SUCCEEDED(hr) && k < s_.chunks.size(); ++k) {
        ULONGLONG skip = from - starts_[k];
        DWORD n = (DWORD)std::min<ULONGLONG>(left, s_.chunks[k].size - skip);
        hr = avi().readAt(s_.chunks[k].offset + skip, dest, n);
        dest += n;
        from += n;
        left -= n;
    }
    if (FAILED(hr))
        return hr;
    *read = count;
    return S_OK;
}

} // namespace

DWORD AviPixelType(const BITMAPINFOHEADER &h, DWORD *canonical)
{
    *canonical = h.biCompression;
    if (h.biCompression == BI_RGB)
        return h.biBitCount == 24 ? ZVPT_BGR24 : h.biBitCount == 32 ? ZVPT_BGRA32 : 0;
    for (const FourCCRow &r : kLayouts)
        if (r.fourcc == h.biCompression) {
            *canonical = r.canonical;
            return r.pixelType;
        }
    return 0;
}

bool AviAudioUsable(const WAVEFORMATEX &w)
{
    const bool pcm = w.wFormatTag == WAVE_FORMAT_PCM && (w.wBitsPerSample == 8 || w.wBitsPerSample == 16 ||
                                                         w.wBitsPerSample == 24 || w.wBitsPerSample == 32);
    const bool flt = w.wFormatTag == WAVE_FORMAT_IEEE_FLOAT && (w.wBitsPerSample == 32 || w.wBitsPerSample == 64);
    return (pcm || flt) && w.nChannels > 0 && w.nSamplesPerSec > 0 &&
           w.nBlockAlign == w.nChannels * (w.wBitsPerSample / 8);
}

bool AviReadable(const AviFile &avi)
{
    bool any = false;
    for (const AviStream &s : avi.streams) {
        DWORD canonical;
        if (s.type == kVids && !AviPixelType(s.video, &canonical))
            return false;
        any = any || s.type == kVids || (s.type == kAuds && AviAudioUsable(s.audio));
    }
    return any;
}

HRESULT AviCreateReadFile(IZvReadFileClass *owner, HANDLE file, const AviFile &avi, BSTR name, IZvReadFile **out)
{
    AviReadFile *object = new (std::nothrow) AviReadFile(owner, file, avi, name);
    if (!object) {
        CloseHandle(file);
        SysFreeString(name);
        return E_OUTOFMEMORY;
    }
    return Hand(object, IID_IZvReadFile, (void **)out);
}
