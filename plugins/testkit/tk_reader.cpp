// tk_reader.dll: one reader class; its configuration gives it a merit.
#include "tk_common.h"

static const TkClass kClasses[] = {
    {&CLSID_TkReader, true, L"Testkit Reader", L"TkReader", L"*.tkr", TK_MAGIC_READER, false},
};
extern const TkModule g_tkModule = {TK_DLL_READER, kClasses, 1, false, L"Testkit Reader", TK_FAULT_NONE};
