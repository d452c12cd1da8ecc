// tk_preloaded.dll: the preload module of tk_preload.dll. It has no class;
// it only counts that it was loaded.
#include "tk_common.h"

extern const TkModule g_tkModule = {TK_DLL_PRELOADED, nullptr, 0, false, L"Testkit Preload Module", TK_FAULT_NONE};
