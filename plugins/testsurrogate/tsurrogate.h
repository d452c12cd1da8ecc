// What tests know about the surrogate test plug-ins: one DLL per variant,
// each with a reader class (an audio and a video stream) and a renderer
// class with built-in presets. Their configuration puts the variants in
// surrogate groups.
//
// Audio: 16-bit stereo, frame i channel c holds (short)(2 * i + c).
// Video: byte k of frame f holds (BYTE)(f * 7 + k).
#pragma once
#include <windows.h>

enum TsVariant { TS_G1A = 1, TS_G1B, TS_G2, TS_G3, TS_G0, TS_GM1, TS_VARIANTS = TS_GM1 };

// Reader class id of a variant; the renderer's is the next one.
inline GUID TsReaderClass(int variant)
{
    GUID g = {0x7A3C1E20u + (DWORD)variant * 2, 0x5B4D, 0x4F6E, {0x8A, 0x9B, 0x0C, 0x1D, 0x2E, 0x3F, 0x40, 0x51}};
    return g;
}
inline GUID TsRendererClass(int variant)
{
    GUID g = TsReaderClass(variant);
    g.Data1 += 1;
    return g;
}

// GetFileInfo ids of the test reader's file.
#define TS_INFO_PROCESSID 1   // the process the plug-in runs in (4 bytes)
// TS_INFO_METRIC | id: the metric `id` as the manager of the plug-in's own
// process reads it (4 bytes); that manager then sets metric id + 1 to it plus one.
#define TS_INFO_METRIC 0x10000
// GetFrameFlags of the video stream waits frameLow milliseconds first.

#define TS_AUDIO_FRAMES 0x40000000  // frames of every audio stream
#define TS_PRESETS 2
