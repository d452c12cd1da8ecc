// What tests know about the test plug-ins: their DLL names, class ids, file
// extensions and the trivial file format their readers accept.
//
// Test file format: 4 magic bytes of the reader ("TKD1", "TKR1", "TKP1"),
// then optionally a 32-bit count of sample frames. The readers deliver one
// audio stream of 16-bit stereo at 48000 Hz whose frame i, channel c holds
// the value (short)(2 * i + c). A reader answers "not mine" (0x8004E016)
// to anything else.
#pragma once
#include <windows.h>
#include "testkit_counters.h"

// {00446EFD-8E1A-4DE3-B2AD-7F12D9C0C2AB}: tk_dual.dll, reader of *.tkd
static const GUID CLSID_TkDualReader =
    {0x00446efd, 0x8e1a, 0x4de3, {0xb2, 0xad, 0x7f, 0x12, 0xd9, 0xc0, 0xc2, 0xab}};
// {99C4B10E-2343-4A36-8ED2-FCC254C7FAC7}: tk_dual.dll, renderer of *.tkd
static const GUID CLSID_TkDualRenderer =
    {0x99c4b10e, 0x2343, 0x4a36, {0x8e, 0xd2, 0xfc, 0xc2, 0x54, 0xc7, 0xfa, 0xc7}};
// {8C721E29-855D-4B2F-902F-3B057D5A1343}: tk_reader.dll, reader of *.tkr, merit 5
static const GUID CLSID_TkReader =
    {0x8c721e29, 0x855d, 0x4b2f, {0x90, 0x2f, 0x3b, 0x05, 0x7d, 0x5a, 0x13, 0x43}};
// {25E0F8EB-716C-4753-B687-4C514FC18B27}: tk_badlist.dll, a reader that can't be listed
static const GUID CLSID_TkBadListReader =
    {0x25e0f8eb, 0x716c, 0x4753, {0xb6, 0x87, 0x4c, 0x51, 0x4f, 0xc1, 0x8b, 0x27}};
// {E26EEA9B-833A-4D01-BC69-CAE88CEBB8D7}: tk_noentry.dll, never reachable
static const GUID CLSID_TkNoEntryReader =
    {0xe26eea9b, 0x833a, 0x4d01, {0xbc, 0x69, 0xca, 0xe8, 0x8c, 0xeb, 0xb8, 0xd7}};
// {C61BBEF9-A816-4794-B57F-391FC6ED25BA}: tk_preload.dll, reader of *.tkp
static const GUID CLSID_TkPreloadReader =
    {0xc61bbef9, 0xa816, 0x4794, {0xb5, 0x7f, 0x39, 0x1f, 0xc6, 0xed, 0x25, 0xba}};

#define TK_MAGIC_DUAL    "TKD1"
#define TK_MAGIC_READER  "TKR1"
#define TK_MAGIC_PRELOAD "TKP1"

#define TK_SAMPLE_RATE 48000
#define TK_CHANNELS    2

// Merit of tk_reader's class, as its configuration file gives it.
#define TK_READER_MERIT 5

// Presets of the tk_dual renderer (GetTemplateCount).
#define TK_RENDERER_PRESETS 2
