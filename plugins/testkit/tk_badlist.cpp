// tk_badlist.dll: serves its reader class but refuses its listing object.
#include "tk_common.h"

static const TkClass kClasses[] = {
    {&CLSID_TkBadListReader, true, L"Testkit Unlisted Reader", L"TkBadList", L"*.tkb", "TKB1", false},
};
extern const TkModule g_tkModule = {TK_DLL_BADLIST, kClasses, 1, true, L"Testkit Unlisted", TK_FAULT_NONE};
