// The video side of zvfio: read --stream video takes every frame of the
// first video stream through the reader's ReadFrame into one buffer (shared
// memory unless --private-buffer), and writes it as stored or as top-down
// BGRA converted here; info describes video streams.
#include "zvfio_read.h"
#include "zvfio_manager.h"
#include "filemng/zvmemtoken.h"
#include "audio/formatnames.h"
#include "video/yuv.h"
#include <string.h>
#include <vector>

namespace zvfio {
namespace {

struct VideoFormat {
    BITMAPINFOHEADER h;
    double rate = 0;
    LONGLONG frames = 0;
    int pixelType = 0;
};

// The frame header of a video stream description; the frame rate sits in
// the extension where templates keep it.
bool VideoOf(const _ZVFILESTREAMFORMATINFOv2 &info, VideoFormat *v)
{
    if (info.dwStreamType != ZVFILESTREAMTYPE_VIDEO)
        return false;
    memcpy(&v->h, info.format, sizeof v->h);
    memcpy(&v->rate, info.extension + 16, sizeof v->rate);
    v->frames = info.llLength;
    v->pixelType = ZvGetPixelType(&v->h);
    return v->h.biWidth > 0 && v->h.biHeight != 0;
}

// Where the planes of a stored YUV frame of `bytes` lie: the system's layout
// when the size is its size, else the layout that rounds odd sizes up (as
// other tools write them) when the size is that one's.
HRESULT PlanesOf(const VideoFormat &v, BYTE *frame, DWORD bytes, const void *planes[3], int pitches[3])
{
    BITMAPINFOHEADER h = v.h;
    ZVYUVPLANES geo;
    const LONGLONG size = ZvYUVImageBytesAndOffsets(&h, &geo);
    if (size <= 0)
        return ZVERR_UNSUPPORTED_MEDIA;
    for (int i = 0; i < 3; ++i) {
        planes[i] = i < geo.count ? frame + geo.offset[i] : nullptr;
        pitches[i] = geo.pitch[i];
    }
    if (bytes == size)
        return S_OK;
    const LONGLONG w = h.biWidth, rows = h.biHeight < 0 ? -(LONGLONG)h.biHeight : h.biHeight;
    const LONGLONG cw = (w + 1) / 2, ch = (rows + 1) / 2, luma = w * rows;
    switch (v.pixelType) {
    case ZVPT_I420:
    case ZVPT_YV12:
        if (bytes != luma + 2 * cw * ch)
            break;
        planes[1] = frame + luma;
        planes[2] = frame + luma + cw * ch;
        pitches[1] = pitches[2] = (int)cw;
        return S_OK;
    case ZVPT_NV12:
        if (bytes != luma + 2 * cw * ch)
            break;
        pitches[1] = (int)(2 * cw);
        return S_OK;
    case ZVPT_UYVY:
    case ZVPT_YUYV:
        if (bytes != 4 * cw * rows)
            break;
        pitches[0] = (int)(4 * cw);
        return S_OK;
    default:
        break;
    }
    return bytes > size ? S_OK : ZVERR_MALFORMED;
}

struct StreamRef {
    IZvReadFile *file = nullptr;
    IZvReadVideoStream *video = nullptr;
    ~StreamRef()
    {
        if (video)
            video->Release();
        if (file) {
            file->Close();
            file->Release();
        }
    }
};

// The first video stream of an opened file and its format.
HRESULT OpenVideo(IZvReadFile *file, IZvReadVideoStream **video, VideoFormat *v)
{
    LONG streams = 0, index = -1;
    file->GetStreamCount(&streams);
    for (LONG i = 0; i < streams && index < 0; ++i) {
        ZVFILESTREAMTYPE type = ZVFILESTREAMTYPE_NONE;
        DWORD sub = 0;
        if (SUCCEEDED(file->GetStreamType(i, &type, &sub)) && type == ZVFILESTREAMTYPE_VIDEO)
            index = i;
    }
    if (index < 0) {
        Err("zvfio read: the file has no video stream\n");
        return ZVERR_NOT_FOUND;
    }
    IZvReadStream *s = nullptr;
    HRESULT hr = file->OpenStream(&s, index, ZVFILESTREAMTYPE_VIDEO, 0, 0);
    if (FAILED(hr))
        return hr;
    hr = s->QueryInterface(IID_IZvReadVideoStream, (void **)video);
    s->Release();
    if (FAILED(hr))
        return hr;
    _ZVFILESTREAMFORMATINFOv2 info;
    memset(&info, 0, sizeof info);
    info.cbSize = sizeof info;
    hr = (*video)->GetStreamFormatInfo(&info);
    if (SUCCEEDED(hr) && !VideoOf(info, v))
        hr = ZVERR_MALFORMED;
    if (SUCCEEDED(hr))
        (*video)->GetFrameCount(&v->frames);
    return hr;
}

int Selector(const std::wstring &matrix)
{
    return matrix == L"bt601" ? ZVYUV_BT601 : matrix == L"bt709" ? ZVYUV_BT709 : matrix == L"bt2020" ? ZVYUV_BT2020
           : matrix.empty() || matrix == L"auto" ? 0 : -1;
}

// One frame as top-down BGRA: RGB frames come top-down from the reader
// (a positive stride), YUV frames are converted from the stored layout.
HRESULT ToBgra(const VideoFormat &v, BYTE *frame, DWORD bytes, const ZVYUVSETTINGS &settings, BYTE *out)
{
    const int w = v.h.biWidth, rows = abs(v.h.biHeight);
    if (v.pixelType == ZVPT_BGR24 || v.pixelType == ZVPT_BGRA32) {
        const int from = v.pixelType == ZVPT_BGR24 ? 3 : 4, pitch = ((from * 8 * w + 31) >> 3) & ~3;
        for (int r = 0; r < rows; ++r)
            for (int x = 0; x < w; ++x) {
                const BYTE *p = frame + (size_t)r * pitch + (size_t)x * from;
                BYTE *q = out + ((size_t)r * w + x) * 4;
                q[0] = p[0], q[1] = p[1], q[2] = p[2], q[3] = from == 4 ? p[3] : 255;
            }
        return S_OK;
    }
    const void *planes[3];
    int pitches[3];
    HRESULT hr = PlanesOf(v, frame, bytes, planes, pitches);
    if (FAILED(hr))
        return hr;
    BITMAPINFOHEADER dst;
    hr = ZvDibInfo(nullptr, nullptr, &dst, ZVPT_BGRA32, w, -rows, nullptr, 0);
    return SUCCEEDED(hr) ? ZvYUV_YUVToRGB(&dst, out, 0, &v.h, planes, pitches, nullptr, &settings) : hr;
}

} // namespace

HRESULT ReadVideo(const Args &args)
{
    std::wstring rawPath, pixel = L"bgra", matrix;
    if (args.files.size() != 1 || (args.has(L"--raw") && !args.value(L"--raw", &rawPath)))
        return ZVFIO_E_USAGE;
    args.value(L"--pixel", &pixel);
    args.value(L"--matrix", &matrix);
    const bool native = pixel == L"native";
    ZVYUVSETTINGS settings = {};
    settings.selector = Selector(matrix);
    settings.limited = 1;
    if ((!native && pixel != L"bgra") || settings.selector < 0)
        return ZVFIO_E_USAGE;
    const std::wstring path = args.files[0];
    Manager mgr;
    HRESULT hr = mgr.Create();
    if (FAILED(hr))
        return hr;
    StreamRef f;
    VideoFormat v;
    hr = mgr->OpenReader(path.c_str(), &f.file, 0);
    if (SUCCEEDED(hr))
        hr = OpenVideo(f.file, &f.video, &v);
    if (FAILED(hr))
        return hr;
    const bool rgb = v.pixelType == ZVPT_BGR24 || v.pixelType == ZVPT_BGRA32;
    if (!native && !rgb && v.pixelType < ZVPT_UYVY)
        return ZVERR_UNSUPPORTED_MEDIA;
    DWORD frameBytes = 0;
    if (FAILED(f.video->GetFrameBufferSize(0, 0, 0, &frameBytes)) || frameBytes == 0)
        frameBytes = v.h.biSizeImage;
    const int w = v.h.biWidth, rows = abs(v.h.biHeight);
    const LONG rgbStride = rgb ? (((v.pixelType == ZVPT_BGR24 ? 24 : 32) * w + 31) >> 3) & ~3 : 0;
    if (frameBytes == 0 || frameBytes > (1u << 30))
        return ZVERR_MALFORMED;
    std::vector<BYTE> bgra;
    if (!native)
        bgra.resize((size_t)w * rows * 4);
    RawOutput out;
    if (!rawPath.empty() && FAILED(hr = out.Open(rawPath))) {
        Err("zvfio read: %s: %s (0x%08lX)\n", Utf8(rawPath).c_str(), ErrorText(hr).c_str(), (unsigned long)hr);
        return ZVFIO_E_REPORTED;
    }
    // Shared memory by default: a reader in a surrogate writes straight into it.
    const bool shared = !args.has(L"--private-buffer");
    _zvmemorytoken token;
    BYTE *buffer = nullptr;
    if (shared) {
        if (SUCCEEDED(ZvMemoryToken_CreateMapping(&token, frameBytes)))
            buffer = (BYTE *)(ULONG_PTR)token.qwBase + token.dwOffset;
    } else if ((buffer = (BYTE *)VirtualAlloc(nullptr, frameBytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE)))
        ZvMemoryToken_InitLocal(&token, buffer, frameBytes, ZVMEMTOKEN_KIND_LOCAL);
    if (!buffer)
        return E_OUTOFMEMORY;
    Progress progress(args, v.frames);
    // the frames alone are timed: a surrogate starts during the opening
    LARGE_INTEGER t0, t1, freq;
    QueryPerformanceFrequency(&freq);
    QueryPerformanceCounter(&t0);
    LONGLONG frame = 0;
    double bytes = 0;
    for (; frame < v.frames && SUCCEEDED(hr); ++frame) {
        // RGB rows top-down for BGRA; as stored otherwise
        hr = f.video->ReadFrame((DWORD)frame, (LONG)(frame >> 32), 0, token, native ? 0 : rgbStride, 0);
        if (hr == S_FALSE || FAILED(hr))
            break;
        const BYTE *data = buffer;
        DWORD size = frameBytes;
        if (!native) {
            hr = ToBgra(v, buffer, frameBytes, settings, bgra.data());
            data = bgra.data();
            size = (DWORD)bgra.size();
        }
        if (g_interrupted)
            hr = ZVERR_CANCELLED;
        DWORD written = 0;
        if (SUCCEEDED(hr) && out.handle != INVALID_HANDLE_VALUE &&
            (!WriteFile(out.handle, data, size, &written, nullptr) || written != size))
            hr = ZvErrorHandler_TranslateWin32Error(GetLastError());
        bytes += size;
        progress.Show(frame + 1);
    }
    progress.Done();
    QueryPerformanceCounter(&t1);
    if (shared)
        ZvMemoryToken_ReleaseMapping(&token);
    else
        VirtualFree(buffer, 0, MEM_RELEASE);
    if (hr == S_FALSE)
        hr = S_OK;   // the stream ended early; told below
    hr = SUCCEEDED(hr) ? out.Finish() : (out.Discard(), hr);
    if (hr == ZVERR_CANCELLED) {
        Err("zvfio read: %s: interrupted; no output kept\n", Utf8(path).c_str());
        return ZVFIO_E_REPORTED;
    }
    if (FAILED(hr))
        return hr;
    const double seconds = (double)(t1.QuadPart - t0.QuadPart) / (double)freq.QuadPart;
    void (*say)(const char *, ...) = out.toStdout ? Err : Out;
    say("%s: %lld frames of %dx%d, %.0f bytes, %.3f s, %.1f MB/s\n", Utf8(path).c_str(), (long long)frame, w, rows,
        bytes, seconds, seconds > 0 ? bytes / seconds / 1e6 : 0.0);
    if (frame < v.frames)
        say("  the stream ended %lld frames early\n", (long long)(v.frames - frame));
    return S_OK;
}

std::string DescribeVideo(const _ZVFILESTREAMFORMATINFOv2 &info, bool json)
{
    VideoFormat v;
    if (!VideoOf(info, &v))
        return std::string();
    const DWORD c = v.h.biCompression;
    char code[16] = "RGB";
    if (c != BI_RGB && c != BI_BITFIELDS)
        ZvVideo_FOURCCtoPrintString(c, code, sizeof code);
    wchar_t name[128] = L"";
    ZvVideo_GetCompressionTypeName(c, name, 128, FALSE);
    const double seconds = v.rate > 0 ? v.frames / v.rate : 0.0;
    char text[512];
    if (json)
        snprintf(text, sizeof text,
                 ", \"width\": %ld, \"height\": %ld, \"fps\": %.6f, \"fourcc\": %s, \"coding\": %s, \"bits\": %u, "
                 "\"frames\": %lld, \"seconds\": %.6f",
                 (long)v.h.biWidth, (long)abs(v.h.biHeight), v.rate, JsonString(code).c_str(),
                 JsonString(Utf8(name)).c_str(), (unsigned)v.h.biBitCount, (long long)v.frames, seconds);
    else
        snprintf(text, sizeof text, ", %ldx%ld, %.3f fps, '%s' %s, %u bits, %lld frames (%.3f s)", (long)v.h.biWidth,
                 (long)abs(v.h.biHeight), v.rate, code, Utf8(name).c_str(), (unsigned)v.h.biBitCount,
                 (long long)v.frames, seconds);
    return text;
}

} // namespace zvfio
