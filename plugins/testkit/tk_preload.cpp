// tk_preload.dll: a reader that needs tk_preloaded.dll in the process before
// it reads: without it, it answers 0x8004E047 (not initialised).
#include "tk_common.h"

static const TkClass kClasses[] = {
    {&CLSID_TkPreloadReader, true, L"Testkit Preload Reader", L"TkPreload", L"*.tkp", TK_MAGIC_PRELOAD, true},
};
extern const TkModule g_tkModule = {TK_DLL_PRELOAD, kClasses, 1, false, L"Testkit Preload", TK_FAULT_NONE};
