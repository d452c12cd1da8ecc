// Channel operations. Only the byte width of a sample matters for moving
// samples, so big-endian and integer forms share the loops; averaging reads
// values and rounds as the sample copy does.
#if defined(__i386__)
#pragma GCC target("sse2,fpmath=sse")
#endif
#include "audio/channelops.h"
#include "audio/samplecopy_impl.h"

namespace {

struct Layout {
    ZVSAMPLETYPE type;
    UINT width;      // bytes per sample
    UINT channels;
    size_t Frame() const { return (size_t)width * channels; }
};

HRESULT LayoutOf(ZVSAMPLETYPE type, UINT channels, Layout &out)
{
    if (zvsc::TypeIndex(type) < 0)
        return E_FAIL;
    out.type = type;
    out.width = ZvAudio_BytesFromSampleType(type);
    out.channels = channels;
    return S_OK;
}

HRESULT LayoutOf(const WAVEFORMATEX *fmt, Layout &out)
{
    if (!fmt)
        return E_POINTER;
    return LayoutOf(ZvAudio_GetSampleType(fmt), fmt->nChannels, out);
}

template <int W>
void StridedCopyW(uint8_t *d, size_t ds, const uint8_t *s, size_t ss, int frames)
{
    for (int i = 0; i < frames; i++, d += ds, s += ss)
        memcpy(d, s, W);
}

// One sample per frame from s (stride ss) to d (stride ds).
void StridedCopy(UINT width, void *d, size_t ds, const void *s, size_t ss, int frames)
{
    uint8_t *dp = (uint8_t *)d;
    const uint8_t *sp = (const uint8_t *)s;
    switch (width) {
    case 1: StridedCopyW<1>(dp, ds, sp, ss, frames); break;
    case 2: StridedCopyW<2>(dp, ds, sp, ss, frames); break;
    case 3: StridedCopyW<3>(dp, ds, sp, ss, frames); break;
    case 4: StridedCopyW<4>(dp, ds, sp, ss, frames); break;
    default: StridedCopyW<8>(dp, ds, sp, ss, frames); break;
    }
}

void StridedSilence(const Layout &l, void *d, size_t ds, int frames)
{
    uint8_t *p = (uint8_t *)d;
    const int value = l.type == ZVSAMPLE_U8 ? 128 : 0;
    for (int i = 0; i < frames; i++, p += ds)
        memset(p, value, l.width);
}

// Numeric access for averaging, by type.
double ReadValue(ZVSAMPLETYPE t, const uint8_t *p)
{
    using namespace zvsc;
    switch (t) {
    case 16: return ReadNum<16>(p);
    case 17: return ReadNum<17>(p);
    case 18: return ReadNum<18>(p);
    case 19: return ReadNum<19>(p);
    case 32: return ReadNum<32>(p);
    case 33: return ReadNum<33>(p);
    case 48: return ReadNum<48>(p);
    case 49: return ReadNum<49>(p);
    case 64: return ReadNum<64>(p);
    case 65: return ReadNum<65>(p);
    default: return ReadNum<66>(p);
    }
}

void WriteValue(ZVSAMPLETYPE t, uint8_t *p, double v)
{
    using namespace zvsc;
    switch (t) {
    case 16: WriteNum<16>(p, v); break;
    case 17: WriteNum<17>(p, v); break;
    case 18: WriteNum<18>(p, v); break;
    case 19: WriteNum<19>(p, v); break;
    case 32: WriteNum<32>(p, v); break;
    case 33: WriteNum<33>(p, v); break;
    case 48: WriteNum<48>(p, v); break;
    case 49: WriteNum<49>(p, v); break;
    case 64: WriteNum<64>(p, v); break;
    case 65: WriteNum<65>(p, v); break;
    default: WriteNum<66>(p, v); break;
    }
}

// Mean of the source channels first, first + step, ... of each frame.
void AverageChannels(const Layout &l, uint8_t *d, size_t ds, const uint8_t *s, UINT first, UINT step,
                     int frames)
{
    UINT n = 0;
    for (UINT c = first; c < l.channels; c += step)
        n++;
    const size_t frame = l.Frame();
    for (int i = 0; i < frames; i++, d += ds, s += frame) {
        double sum = 0;
        for (UINT c = first; c < l.channels; c += step)
            sum += ReadValue(l.type, s + (size_t)c * l.width);
        WriteValue(l.type, d, sum / n);
    }
}

HRESULT ChangeChannels(void *dest, const WAVEFORMATEX *df, const void *src, const WAVEFORMATEX *sf,
                       int frames, bool average)
{
    Layout dl, sl;
    HRESULT hr = LayoutOf(df, dl);
    if (SUCCEEDED(hr))
        hr = LayoutOf(sf, sl);
    if (FAILED(hr))
        return hr;
    if (dl.type != sl.type || !dl.channels || !sl.channels)
        return E_NOTIMPL;
    if (frames <= 0)
        return S_OK;
    if (!dest || !src)
        return E_POINTER;
    const UINT w = dl.width;
    uint8_t *d = (uint8_t *)dest;
    const uint8_t *s = (const uint8_t *)src;
    for (UINT j = 0; j < dl.channels; j++) {
        uint8_t *dj = d + (size_t)j * w;
        if (average && dl.channels < sl.channels) {
            AverageChannels(sl, dj, dl.Frame(), s, j, dl.channels, frames);
            continue;
        }
        UINT from;
        if (j < sl.channels)
            from = j;
        else if (average || sl.channels == 1)
            from = j % sl.channels;
        else {
            StridedSilence(dl, dj, dl.Frame(), frames);
            continue;
        }
        StridedCopy(w, dj, dl.Frame(), s + (size_t)from * w, sl.Frame(), frames);
    }
    return S_OK;
}

// Common checks: the layout, the channels that must exist, S_FALSE when
// there is nothing to do, then the buffers.
HRESULT Prepare(ZVSAMPLETYPE type, UINT channels, UINT needChannels, int frames, const void *a,
                const void *b, Layout &l)
{
    HRESULT hr = LayoutOf(type, channels, l);
    if (FAILED(hr))
        return hr;
    if (needChannels > channels)
        return E_INVALIDARG;
    if (frames <= 0)
        return S_FALSE;
    return a && b ? S_OK : E_POINTER;
}

HRESULT Prepare(const WAVEFORMATEX *fmt, const void *buffer, int frames, Layout &l, UINT needChannels = 0)
{
    if (!fmt)
        return E_POINTER;
    return Prepare(ZvAudio_GetSampleType(fmt), fmt->nChannels, needChannels, frames, buffer, buffer, l);
}

// The result of a function whose checks said there was nothing to do.
inline HRESULT Settled(HRESULT hr) { return hr == S_FALSE ? S_OK : hr; }

} // namespace

ZVAPI HRESULT ZvAudio_ChannelChange(void *dest, const WAVEFORMATEX *df, const void *src,
                                    const WAVEFORMATEX *sf, int frames)
{
    return ChangeChannels(dest, df, src, sf, frames, false);
}

ZVAPI HRESULT ZvAudio_ChannelChangeAvg(void *dest, const WAVEFORMATEX *df, const void *src,
                                       const WAVEFORMATEX *sf, int frames)
{
    return ChangeChannels(dest, df, src, sf, frames, true);
}

ZVAPI HRESULT ZvAudio_CopyChannelToMultiMono2(void *const *buffers, ZVSAMPLETYPE type, UINT channels,
                                              const void *src, int frames)
{
    Layout l;
    HRESULT hr = Prepare(type, channels, 0, frames, buffers, src, l);
    if (hr != S_OK)
        return Settled(hr);
    for (UINT c = 0; c < channels; c++)
        if (!buffers[c])
            return E_POINTER;
    for (UINT c = 0; c < channels; c++)
        StridedCopy(l.width, buffers[c], l.width, (const uint8_t *)src + (size_t)c * l.width, l.Frame(), frames);
    return S_OK;
}

ZVAPI HRESULT ZvAudio_CopyChannelToMultiMono(void *const *buffers, const WAVEFORMATEX *format,
                                             const void *src, int frames)
{
    if (!format)
        return E_POINTER;
    return ZvAudio_CopyChannelToMultiMono2(buffers, ZvAudio_GetSampleType(format), format->nChannels, src, frames);
}

ZVAPI_CXX HRESULT ZvAudio_ExtractChannel(void *dest, UINT channel, const void *src, ZVSAMPLETYPE type,
                                         UINT channels, int frames)
{
    Layout l;
    HRESULT hr = Prepare(type, channels, channel + 1, frames, dest, src, l);
    if (hr != S_OK)
        return Settled(hr);
    StridedCopy(l.width, dest, l.width, (const uint8_t *)src + (size_t)channel * l.width, l.Frame(), frames);
    return S_OK;
}

ZVAPI HRESULT ZvAudio_ExtractChannel(void *dest, UINT channel, const void *src, const WAVEFORMATEX *format,
                                     int frames)
{
    if (!format)
        return E_POINTER;
    return ZvAudio_ExtractChannel(dest, channel, src, ZvAudio_GetSampleType(format), format->nChannels, frames);
}

ZVAPI_CXX HRESULT ZvAudio_ExtractChannelPair(void *dest, UINT first, const void *src, ZVSAMPLETYPE type,
                                             UINT channels, int frames)
{
    Layout l;
    HRESULT hr = Prepare(type, channels, first + 2, frames, dest, src, l);
    if (hr != S_OK)
        return Settled(hr);
    for (UINT k = 0; k < 2; k++)
        StridedCopy(l.width, (uint8_t *)dest + k * l.width, 2 * l.width,
                    (const uint8_t *)src + (size_t)(first + k) * l.width, l.Frame(), frames);
    return S_OK;
}

ZVAPI HRESULT ZvAudio_ExtractChannelPair(void *dest, UINT first, const void *src, const WAVEFORMATEX *format,
                                         int frames)
{
    if (!format)
        return E_POINTER;
    return ZvAudio_ExtractChannelPair(dest, first, src, ZvAudio_GetSampleType(format), format->nChannels, frames);
}

ZVAPI HRESULT ZvAudio_InsertChannel(void *dest, ZVSAMPLETYPE type, UINT channel, UINT channels,
                                    const void *src, int frames)
{
    Layout l;
    HRESULT hr = Prepare(type, channels, channel + 1, frames, dest, src, l);
    if (hr != S_OK)
        return Settled(hr);
    StridedCopy(l.width, (uint8_t *)dest + (size_t)channel * l.width, l.Frame(), src, l.width, frames);
    return S_OK;
}

ZVAPI HRESULT ZvAudio_MonoChannel(void *dest, const WAVEFORMATEX *sf, const void *src, int frames)
{
    Layout l;
    HRESULT hr = LayoutOf(sf, l);
    if (FAILED(hr))
        return hr;
    if (!l.channels)
        return E_NOTIMPL;
    if (frames <= 0)
        return S_OK;
    if (!dest || !src)
        return E_POINTER;
    if (l.channels == 1) {
        ZvAudio_GetCopyFunction2(l.type, l.type)(dest, src, frames, 1.0f);
        return S_OK;
    }
    AverageChannels(l, (uint8_t *)dest, l.width, (const uint8_t *)src, 0, 1, frames);
    return S_OK;
}

ZVAPI HRESULT ZvAudio_CopyChannelToChannel(void *buffer, const WAVEFORMATEX *format, UINT from, UINT to,
                                           int frames)
{
    Layout l;
    HRESULT hr = Prepare(format, buffer, frames, l, (from > to ? from : to) + 1);
    if (hr != S_OK)
        return Settled(hr);
    if (from != to)
        StridedCopy(l.width, (uint8_t *)buffer + (size_t)to * l.width, l.Frame(),
                    (const uint8_t *)buffer + (size_t)from * l.width, l.Frame(), frames);
    return S_OK;
}

ZVAPI HRESULT ZvAudio_CopyChannelToAll(void *buffer, const WAVEFORMATEX *format, UINT channel, int frames)
{
    Layout l;
    HRESULT hr = Prepare(format, buffer, frames, l, channel + 1);
    if (hr != S_OK)
        return Settled(hr);
    for (UINT c = 0; c < l.channels; c++)
        if (c != channel)
            ZvAudio_CopyChannelToChannel(buffer, format, channel, c, frames);
    return S_OK;
}

ZVAPI_CXX HRESULT ZvAudio_MuteChannel(void *buffer, ZVSAMPLETYPE type, UINT channels, UINT channel, int frames)
{
    Layout l;
    HRESULT hr = Prepare(type, channels, channel + 1, frames, buffer, buffer, l);
    if (hr != S_OK)
        return Settled(hr);
    StridedSilence(l, (uint8_t *)buffer + (size_t)channel * l.width, l.Frame(), frames);
    return S_OK;
}

ZVAPI HRESULT ZvAudio_MuteChannel(void *buffer, const WAVEFORMATEX *format, UINT channel, int frames)
{
    if (!format)
        return E_POINTER;
    return ZvAudio_MuteChannel(buffer, ZvAudio_GetSampleType(format), format->nChannels, channel, frames);
}

ZVAPI HRESULT ZvAudio_FillSilenceChannel(void *buffer, const WAVEFORMATEX *format, UINT channel, int frames)
{
    return ZvAudio_MuteChannel(buffer, format, channel, frames);
}

ZVAPI HRESULT ZvAudio_CopySwapStereoChannels(void *dest, const void *src, const WAVEFORMATEX *format, int frames)
{
    Layout l;
    HRESULT hr = Prepare(format, src, frames, l, 2);
    if (hr != S_OK)
        return Settled(hr);
    if (!dest)
        return E_POINTER;
    const size_t frame = l.Frame(), w = l.width;
    uint8_t *d = (uint8_t *)dest;
    const uint8_t *s = (const uint8_t *)src;
    uint8_t tmp[8];
    for (int i = 0; i < frames; i++, d += frame, s += frame) {
        memcpy(tmp, s, w);
        if (d != s)
            memcpy(d + 2 * w, s + 2 * w, frame - 2 * w);
        memcpy(d, s + w, w);
        memcpy(d + w, tmp, w);
    }
    return S_OK;
}

ZVAPI HRESULT ZvAudio_SwapStereoChannels(void *buffer, const WAVEFORMATEX *format, int frames)
{
    return ZvAudio_CopySwapStereoChannels(buffer, buffer, format, frames);
}

ZVAPI HRESULT ZvAudio_FillWithSample(void *buffer, const WAVEFORMATEX *format, const void *sample, int frames)
{
    Layout l;
    HRESULT hr = Prepare(format, buffer, frames, l);
    if (hr != S_OK)
        return Settled(hr);
    if (!sample)
        return E_POINTER;
    uint8_t value[8];
    memcpy(value, sample, l.width);
    const size_t n = (size_t)frames * l.channels;
    uint8_t *p = (uint8_t *)buffer;
    for (size_t i = 0; i < n; i++, p += l.width)
        memcpy(p, value, l.width);
    return S_OK;
}
