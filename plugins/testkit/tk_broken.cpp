// tk_broken_*.dll: the reader of tk_reader.dll with one deliberate fault
// each (TK_BROKEN), or a class list that names one class twice. The
// validator's tests check that each fails exactly its own check.
#include "tk_common.h"

#if TK_BROKEN == 5
static const TkClass kClasses[] = {
    {&CLSID_TkReader, true, L"Testkit Reader", L"TkReader", L"*.tkr", TK_MAGIC_READER, false},
    {&CLSID_TkReader, true, L"Testkit Reader Again", L"TkReader2", L"*.tkr", TK_MAGIC_READER, false},
};
extern const TkModule g_tkModule = {TK_DLL_READER, kClasses, 2, false, L"Testkit Broken", TK_FAULT_NONE};
#else
static const TkClass kClasses[] = {
    {&CLSID_TkReader, true, L"Testkit Reader", L"TkReader", L"*.tkr", TK_MAGIC_READER, false},
};
extern const TkModule g_tkModule = {TK_DLL_READER, kClasses, 1, false, L"Testkit Broken", (TkFault)TK_BROKEN};
#endif
