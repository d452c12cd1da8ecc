// tk_noentry.dll: a valid DLL whose exports lack DllGetClassObject (see its
// .def file), so no class of it can ever be reached.
#include "tk_common.h"

static const TkClass kClasses[] = {
    {&CLSID_TkNoEntryReader, true, L"Testkit Unreachable Reader", L"TkNoEntry", L"*.tkn", "TKN1", false},
};
extern const TkModule g_tkModule = {TK_DLL_NOENTRY, kClasses, 1, false, L"Testkit Unreachable", TK_FAULT_NONE};
