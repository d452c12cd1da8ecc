// The shared body of the test plug-ins. Each DLL describes itself with a
// TkModule (its counter row, its classes, whether listing fails) and links
// this code; its .def file decides what it exports.
#pragma once
#include "zvplugin_sdk.h"
#include "testkit.h"

struct TkClass {
    const GUID *clsid;
    bool reader;                 // a reader class, else a renderer class
    const wchar_t *name;         // display name
    const wchar_t *shortName;
    const wchar_t *extensions;   // ";"-separated patterns
    const char *magic;           // first bytes of the reader's files
    bool needsPreload;           // refuses to read without tk_preloaded.dll
};

// The one fault of a deliberately broken reader (tk_broken.cpp), for the
// validator's own tests.
enum TkFault {
    TK_FAULT_NONE,
    TK_FAULT_CRASH_ON_FOREIGN,   // IdentifyFile crashes on a file that isn't its own
    TK_FAULT_LEAK_HANDLE,        // each open leaks an event handle
    TK_FAULT_WRONG_COUNT,        // says it has one frame more than it reads
    TK_FAULT_DEADLOCK,           // a second read in flight at once never returns
};

struct TkModule {
    TestkitDll row;
    const TkClass *classes;
    int classCount;
    bool listingFails;
    const wchar_t *pluginName;
    TkFault fault;
};

// Defined by each DLL.
extern const TkModule g_tkModule;

// Counts one event of this DLL in the shared counters.
void TkCount(TestkitCounter what);
