// Channel operations on interleaved buffers of any linear sample type, with
// no conversion of the sample form. Results: 0 (S_OK); E_FAIL for a type
// that is not linear; E_POINTER for a null format or buffer; E_INVALIDARG
// for a channel outside the format; E_NOTIMPL where two formats have no
// mapping (different sample types, or no channels). Frames of 0 or below do
// nothing. Source and destination buffers must not overlap unless a function
// works in one buffer.
#pragma once
#include "audio/waveformat.h"

// Maps the source channel count to the destination's. Equal counts copy.
// Fewer channels: the first ones are kept. More channels: a mono source goes
// to every channel, otherwise the source channels come first and the rest
// are silent.
ZVAPI HRESULT ZvAudio_ChannelChange(void *dest, const WAVEFORMATEX *destFormat, const void *src,
                                    const WAVEFORMATEX *srcFormat, int frames);
// The same with averaging: destination channel j is the mean of the source
// channels c with c % destChannels == j (all of them for mono); with more
// destination channels, channel j repeats source channel j % srcChannels.
ZVAPI HRESULT ZvAudio_ChannelChangeAvg(void *dest, const WAVEFORMATEX *destFormat, const void *src,
                                       const WAVEFORMATEX *srcFormat, int frames);

// Interleaved to one buffer per channel (buffers[channel]).
ZVAPI HRESULT ZvAudio_CopyChannelToMultiMono(void *const *buffers, const WAVEFORMATEX *format,
                                             const void *src, int frames);
ZVAPI HRESULT ZvAudio_CopyChannelToMultiMono2(void *const *buffers, ZVSAMPLETYPE type, UINT channels,
                                              const void *src, int frames);

// One channel out of the interleave, or the pair channel, channel + 1 as an
// interleaved stereo buffer.
ZVAPI HRESULT ZvAudio_ExtractChannel(void *dest, UINT channel, const void *src,
                                     const WAVEFORMATEX *format, int frames);
ZVAPI HRESULT ZvAudio_ExtractChannelPair(void *dest, UINT firstChannel, const void *src,
                                         const WAVEFORMATEX *format, int frames);
// One mono buffer into a channel of the interleave.
ZVAPI HRESULT ZvAudio_InsertChannel(void *dest, ZVSAMPLETYPE type, UINT channel, UINT channels,
                                    const void *src, int frames);

// All channels folded to one of the source's type: the mean, rounded and
// clamped as the sample copy does. A mono source is copied.
ZVAPI HRESULT ZvAudio_MonoChannel(void *dest, const WAVEFORMATEX *srcFormat, const void *src, int frames);

// In one buffer.
ZVAPI HRESULT ZvAudio_CopyChannelToAll(void *buffer, const WAVEFORMATEX *format, UINT channel, int frames);
ZVAPI HRESULT ZvAudio_CopyChannelToChannel(void *buffer, const WAVEFORMATEX *format, UINT from, UINT to,
                                           int frames);
// Silence in one channel: 128 for 8-bit unsigned, 0 for the others.
ZVAPI HRESULT ZvAudio_MuteChannel(void *buffer, const WAVEFORMATEX *format, UINT channel, int frames);
ZVAPI HRESULT ZvAudio_FillSilenceChannel(void *buffer, const WAVEFORMATEX *format, UINT channel, int frames);
// Swaps the first two channels, in place or into dest.
ZVAPI HRESULT ZvAudio_SwapStereoChannels(void *buffer, const WAVEFORMATEX *format, int frames);
ZVAPI HRESULT ZvAudio_CopySwapStereoChannels(void *dest, const void *src, const WAVEFORMATEX *format, int frames);
// Every sample of every channel set to one sample value given in the
// buffer's own form.
ZVAPI HRESULT ZvAudio_FillWithSample(void *buffer, const WAVEFORMATEX *format, const void *sample, int frames);

#ifdef __cplusplus
ZVAPI_CXX HRESULT ZvAudio_ExtractChannel(void *dest, UINT channel, const void *src, ZVSAMPLETYPE type,
                                         UINT channels, int frames);
ZVAPI_CXX HRESULT ZvAudio_ExtractChannelPair(void *dest, UINT firstChannel, const void *src, ZVSAMPLETYPE type,
                                             UINT channels, int frames);
ZVAPI_CXX HRESULT ZvAudio_MuteChannel(void *buffer, ZVSAMPLETYPE type, UINT channels, UINT channel, int frames);
#endif
