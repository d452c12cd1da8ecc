// Values read out of a template, and basic audio templates.
#include "templates/zvtemplateinfo.h"
#include <string.h>
#include <vector>

namespace {

bool HasAudio(const tagZVTEMPLATExV2 *t)
{
    return *ZvTemplateAt<DWORD>(t, ZVT_OFS_AUDIO) != 0;
}

bool HasVideo(const tagZVTEMPLATExV2 *t)
{
    return *ZvTemplateAt<DWORD>(t, ZVT_OFS_VIDEO) != 0;
}

// The encoded format if the stream is encoded, else the decoded one.
const ZVWAVEFORMAT *AudioFormat(const tagZVTEMPLATExV2 *t)
{
    const ZVWAVEFORMAT *encoded = ZvTemplateAt<ZVWAVEFORMAT>(t, ZVT_OFS_AUDIO_ENCODED);
    // a zeroed record is "not encoded"
    if (encoded->sampleType != ZVSAMPLE_NONE || encoded->formatTag != 0)
        return encoded;
    return ZvTemplateAt<ZVWAVEFORMAT>(t, ZVT_OFS_AUDIO_FORMAT);
}

const BITMAPINFOHEADER *Frame(const tagZVTEMPLATExV2 *t)
{
    return ZvTemplateAt<BITMAPINFOHEADER>(t, ZVT_OFS_VIDEO_FRAME);
}

const BITMAPINFOHEADER *EncodedFrame(const tagZVTEMPLATExV2 *t)
{
    return ZvTemplateAt<BITMAPINFOHEADER>(t, ZVT_OFS_VIDEO_ENCODED);
}

double VideoDouble(const tagZVTEMPLATExV2 *t, DWORD at)
{
    double d;
    memcpy(&d, (const BYTE *)t + ZVT_OFS_VIDEO_EXT + at, sizeof d);
    return d;
}

template <typename T> HRESULT Put(void *buffer, DWORD size, T value)
{
    if (size < sizeof(T))
        return ZVERR_BUFFER_TOO_SMALL;
    memcpy(buffer, &value, sizeof value);
    return S_OK;
}

} // namespace

HRESULT ZvFio_GetTemplateInfo(const tagZVTEMPLATExV2 *t, DWORD streamMask, void *buffer, DWORD size, DWORD id)
{
    if (!t || !buffer || !size)
        return E_INVALIDARG;
    if (size < 4)
        return ZVERR_BUFFER_TOO_SMALL;
    memset(buffer, 0, size);
    bool audio = (streamMask & 1) && HasAudio(t);
    bool video = (streamMask & 2) && HasVideo(t);
    switch (id) {
    case ZVTI_FORMAT_TAG:
        return audio ? Put<WORD>(buffer, size, (WORD)AudioFormat(t)->FormatTag()) : S_FALSE;
    case ZVTI_VIDEO_COMPRESSION: {
        if (!video)
            return S_FALSE;
        DWORD c = EncodedFrame(t)->biCompression;
        return Put<DWORD>(buffer, size, c ? c : Frame(t)->biCompression);
    }
    case ZVTI_AUDIO_BITRATE: {
        if (!audio)
            return S_FALSE;
        bool unusable = (*ZvTemplateAt<DWORD>(t, ZVT_OFS_AUDIO_FLAGS) & ZVTEMPLATE_AUDIO_RATE_UNUSABLE) != 0;
        return Put<DWORD>(buffer, size, unusable ? 0 : AudioFormat(t)->avgBytesPerSec * 8);
    }
    case ZVTI_VIDEO_BITRATE: {
        if (!video)
            return S_FALSE;
        LONGLONG rate = *ZvTemplateAt<LONGLONG>(t, ZVT_OFS_VIDEO_RATE) * 8;
        if (!rate) {
            const BITMAPINFOHEADER *f = Frame(t), *e = EncodedFrame(t);
            double frameBytes = (e->biCompression && e->biSizeImage) ? e->biSizeImage : f->biSizeImage;
            double r = frameBytes * VideoDouble(t, 16) * 8;
            if (*ZvTemplateAt<BYTE>(t, ZVT_OFS_VIDEO_FLAGS) & 1)
                r = r * 5 / 4;
            rate = (LONGLONG)r;
        }
        return Put<LONGLONG>(buffer, size, rate);
    }
    case ZVTI_AUDIO_STREAMS:
        return Put<DWORD>(buffer, size, HasAudio(t) ? *ZvTemplateAt<DWORD>(t, ZVT_OFS_AUDIO_COUNT) : 0);
    case ZVTI_VIDEO_STREAMS:
        return Put<DWORD>(buffer, size, HasVideo(t) ? *ZvTemplateAt<DWORD>(t, ZVT_OFS_VIDEO_COUNT) : 0);
    case ZVTI_SAMPLE_RATE:
        return audio ? Put<DWORD>(buffer, size, AudioFormat(t)->samplesPerSec) : S_FALSE;
    case ZVTI_BITS:
        return audio ? Put<WORD>(buffer, size, (WORD)AudioFormat(t)->BitsPerSample()) : S_FALSE;
    case ZVTI_CHANNELS:
        return audio ? Put<WORD>(buffer, size, AudioFormat(t)->channels) : S_FALSE;
    case ZVTI_CHANNEL_MASK: {
        if (!audio)
            return S_FALSE;
        const ZVWAVEFORMAT *f = AudioFormat(t);
        return Put<DWORD>(buffer, size, f->channelMask ? f->channelMask : ZvAudio_DefaultChannelMask(f->channels));
    }
    case ZVTI_WIDTH:
        return video ? Put<DWORD>(buffer, size, (DWORD)Frame(t)->biWidth) : S_FALSE;
    case ZVTI_HEIGHT:
        return video ? Put<DWORD>(buffer, size, (DWORD)Frame(t)->biHeight) : S_FALSE;
    case ZVTI_FRAME_RATE:
        return video ? Put<double>(buffer, size, VideoDouble(t, 16)) : S_FALSE;
    case ZVTI_PIXEL_ASPECT:
        return video ? Put<double>(buffer, size, VideoDouble(t, 24)) : S_FALSE;
    case ZVTI_FRAME_SIZE: {
        if (!video)
            return S_FALSE;
        if (size < 8)
            return ZVERR_BUFFER_TOO_SMALL;
        DWORD wh[2] = {(DWORD)Frame(t)->biWidth, (DWORD)Frame(t)->biHeight};
        memcpy(buffer, wh, 8);
        return S_OK;
    }
    case ZVTI_VIDEO_EXTENSION:
        if (!video)
            return S_FALSE;
        if (size < 64)
            return ZVERR_BUFFER_TOO_SMALL;
        memcpy(buffer, (const BYTE *)t + ZVT_OFS_VIDEO_EXT, 64);
        return S_OK;
    case ZVTI_AUDIO_EXTENSION:
        if (!audio)
            return S_FALSE;
        if (size < 32)
            return ZVERR_BUFFER_TOO_SMALL;
        memcpy(buffer, (const BYTE *)t + ZVT_OFS_AUDIO_EXT, 32);
        return S_OK;
    case 24:
    case 25:
    case 27:
        return E_NOTIMPL;
    case 26:
        return S_OK;
    default:
        return S_FALSE;
    }
}

HRESULT ZvFio_InitBasicAudioTemplate(tagZVTEMPLATExV2 **record, const ZVWAVEFORMAT *format)
{
    if (!record || !format)
        return E_POINTER;
    tagZVTEMPLATExV2 *t = NULL;
    HRESULT hr = ZvFio_MakeTemplate(&t, ZVTEMPLATE_VERSION_V2, NULL, 0, 0, NULL, NULL);
    if (FAILED(hr))
        return hr;
    *ZvTemplateAt<DWORD>(t, ZVT_OFS_AUDIO) = ZVTEMPLATE_BLOCK_SIZE;
    *ZvTemplateAt<DWORD>(t, ZVT_OFS_AUDIO_COUNT) = 1;
    ZVWAVEFORMAT *decoded = ZvTemplateAt<ZVWAVEFORMAT>(t, ZVT_OFS_AUDIO_FORMAT);
    if (format->IsCompressed()) {
        UINT copy = format->cbSize < 96 ? format->cbSize : 96;
        memcpy(ZvTemplateAt<BYTE>(t, ZVT_OFS_AUDIO_ENCODED), format, copy);
        ZvTemplateAt<ZVWAVEFORMAT>(t, ZVT_OFS_AUDIO_ENCODED)->cbSize = copy;
        DWORD mask = format->channelMask;
        if (ZvFio_CountSetBits(mask) != format->channels)
            mask = 0;
        decoded->Init(format->samplesPerSec, ZVSAMPLE_S16, format->channels, mask);
    } else {
        UINT copy = format->cbSize < 40 ? format->cbSize : 40;
        memcpy(decoded, format, copy < ZVWFX_HEADER_SIZE ? ZVWFX_HEADER_SIZE : copy);
        decoded->cbSize = copy < ZVWFX_HEADER_SIZE ? ZVWFX_HEADER_SIZE : copy;
    }
    ZvFio_ReleaseTemplate(*record);
    *record = t;
    return S_OK;
}

HRESULT ZvFio_GenerateTemplate(tagZVTEMPLATExV2 **record, const _ZVFILESTREAMFORMATINFOv2 *formats,
                               const _ZVFILESTREAMFORMATINFOv2 *encoded, LONG count, DWORD extra, LPCWSTR name,
                               LPCWSTR notes)
{
    if (!record || (count > 0 && !formats))
        return E_POINTER;
    BYTE source[ZVTEMPLATE_MIN_SIZE] = {};
    tagZVTEMPLATExV2 *t = (tagZVTEMPLATExV2 *)source;
    t->dwSize = ZVTEMPLATE_MIN_SIZE;
    t->dwVersion = ZVTEMPLATE_VERSION_V2;
    DWORD mask = 0;
    static const BYTE kEmpty[96] = {};
    for (LONG i = 0; i < count; i++) {
        const _ZVFILESTREAMFORMATINFOv2 &f = formats[i];
        bool audio = f.dwStreamType == ZVFILESTREAMTYPE_AUDIO;
        if (!audio && f.dwStreamType != ZVFILESTREAMTYPE_VIDEO)
            continue;
        // block size, one stream, decoded format and extension; the encoded
        // format where the stream has one (96 bytes of audio, a frame header)
        const DWORD block = audio ? ZVT_OFS_AUDIO : ZVT_OFS_VIDEO;
        *ZvTemplateAt<DWORD>(t, block) = ZVTEMPLATE_BLOCK_SIZE;
        *ZvTemplateAt<DWORD>(t, block + 4) = 1;
        memcpy(ZvTemplateAt<BYTE>(t, audio ? ZVT_OFS_AUDIO_FORMAT : ZVT_OFS_VIDEO_FRAME), f.format, 40);
        memcpy(ZvTemplateAt<BYTE>(t, audio ? ZVT_OFS_AUDIO_EXT : ZVT_OFS_VIDEO_EXT), f.extension, audio ? 32 : 64);
        if (encoded && memcmp(encoded[i].format, kEmpty, sizeof kEmpty) != 0)
            memcpy(ZvTemplateAt<BYTE>(t, audio ? ZVT_OFS_AUDIO_ENCODED : ZVT_OFS_VIDEO_ENCODED), encoded[i].format,
                   audio ? 96 : 40);
        mask |= audio ? 1 : 2;
    }
    tagZVTEMPLATExV2 *made = NULL;
    HRESULT hr = ZvFio_MakeTemplate(&made, ZVTEMPLATE_VERSION_V2, t, mask, extra, name, notes);
    if (FAILED(hr))
        return hr;
    ZvFio_ReleaseTemplate(*record);
    *record = made;
    return S_OK;
}

extern "C" const IID IID_IZvReadVideoRenderStream = {0x68EFE083, 0x5F0C, 0x4415,
                                                     {0x93, 0x34, 0xF6, 0xCE, 0x84, 0x48, 0x78, 0x29}};

namespace {

// Decoded and stored format of one live stream; the stored record stays
// zero where the stream can't tell it.
HRESULT StreamFormats(IZvReadStream *stream, ZVFILESTREAMTYPE type, _ZVFILESTREAMFORMATINFOv2 *decoded,
                      _ZVFILESTREAMFORMATINFOv2 *stored)
{
    HRESULT hr = S_OK;
    if (type == ZVFILESTREAMTYPE_AUDIO) {
        IZvReadAudioStream *audio = NULL;
        hr = stream->QueryInterface(IID_IZvReadAudioStream, (void **)&audio);
        if (SUCCEEDED(hr)) {
            hr = audio->GetStreamFormatInfo(decoded);
            if (SUCCEEDED(hr) && FAILED(audio->GetStoredFormatInfo(stored)))
                memset(stored->format, 0, sizeof stored->format);
            audio->Release();
        }
    } else {
        IZvReadVideoStream *video = NULL;
        hr = stream->QueryInterface(IID_IZvReadVideoStream, (void **)&video);
        if (SUCCEEDED(hr)) {
            hr = video->GetStreamFormatInfo(decoded);
            video->Release();
        }
        IZvReadVideoRenderStream *render = NULL;
        if (SUCCEEDED(hr) && SUCCEEDED(stream->QueryInterface(IID_IZvReadVideoRenderStream, (void **)&render))) {
            if (FAILED(render->GetStoredFormatInfo(stored)))
                memset(stored->format, 0, sizeof stored->format);
            render->Release();
        }
    }
    // the format records say which kind they describe
    decoded->dwStreamType = stored->dwStreamType = type;
    return hr;
}

} // namespace

HRESULT ZvFio_GenerateTemplate(tagZVTEMPLATExV2 **record, IZvReadStream *const *streams, LONG count,
                               const ZVFILESTREAMTYPE *types, DWORD extra)
{
    if (!record || (count > 0 && (!streams || !types)))
        return E_POINTER;
    if (count < 0)
        return E_INVALIDARG;
    std::vector<_ZVFILESTREAMFORMATINFOv2> decoded(count), stored(count);
    for (LONG i = 0; i < count; i++) {
        decoded[i] = stored[i] = _ZVFILESTREAMFORMATINFOv2();
        decoded[i].cbSize = stored[i].cbSize = sizeof(_ZVFILESTREAMFORMATINFOv2);
        if (types[i] != ZVFILESTREAMTYPE_AUDIO && types[i] != ZVFILESTREAMTYPE_VIDEO)
            continue;
        if (!streams[i])
            return E_POINTER;
        HRESULT hr = StreamFormats(streams[i], types[i], &decoded[i], &stored[i]);
        if (FAILED(hr))
            return hr;
    }
    return ZvFio_GenerateTemplate(record, decoded.data(), stored.data(), count, extra, L"", L"");
}

DWORD ZvFio_CountSetBits(DWORD value)
{
    DWORD n = 0;
    for (; value; value &= value - 1)
        n++;
    return n;
}
