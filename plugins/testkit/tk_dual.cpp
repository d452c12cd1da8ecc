// tk_dual.dll: a reader class and a renderer class in one DLL.
#include "tk_common.h"

static const TkClass kClasses[] = {
    {&CLSID_TkDualReader, true, L"Testkit Dual Reader", L"TkDual", L"*.tkd", TK_MAGIC_DUAL, false},
    {&CLSID_TkDualRenderer, false, L"Testkit Dual Renderer", L"TkDual", L"*.tkd", TK_MAGIC_DUAL, false},
};
extern const TkModule g_tkModule = {TK_DLL_DUAL, kClasses, 2, false, L"Testkit Dual", TK_FAULT_NONE};
