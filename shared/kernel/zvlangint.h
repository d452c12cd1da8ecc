// Helpers shared by the language files of the kernel; not exported.
#pragma once
#include "zvlang.h"

// The text of string `id` in the string block of `language`, not
// terminated: its length through *length, and whether a zero follows it in
// place through *terminated. Null when the string is missing or empty.
const wchar_t *zvlang_FindStringResource(HMODULE module, UINT id, LANGID language, int *length,
                                         bool *terminated);
// Removes a leading "^*" in place; returns the new length.
int zvlang_StripMarker(wchar_t *text, int length);
// The handle's module, the process module for a null handle.
HMODULE zvlang_Module(HZVLANG lang);
// The handle's language, else the user's interface language.
LCID zvlang_EffectiveLCID(HZVLANG lang);
// Replaces a decimal separator that begins like the thousands separator.
void zvlang_FixSeparators(ZVINTERNATIONALS &record);
