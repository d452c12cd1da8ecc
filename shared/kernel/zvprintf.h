// The kernel's formatted text: a wide printf that follows the user's locale,
// named tokens, number texts and the number parsers of the settings files.
//
// Format language (ZvPrintF family):
//   "%..."  classic conversion; "$..." the same conversion in locale form
//           (thousands grouping and the locale's decimal separator)
//   "$$" "%%"             one "$" or "%"
//   "$(Name)"             the token's value; unknown names stay as written
//   "$(1234.5)"           a literal number shown with the locale separators
//   "$*" "$," "$:"        decimal, list and time separator
//   "$!:" "$!." "$!,"     timecode separators whole, non-drop, drop
//   "$&:" "$&."           measure-beat and beat-tick separators
//   d i u o x X           integers; "I64" or "ll" for 64 bits, "I" pointer-sized
//   f e E g G             floating point
//   s c                   wide text and character ("hs" "hc" narrow)
//   z                     fixed point integer: "$.1z" of 25 gives "2.5"
#pragma once
#include "zvbase.h"
#include <stdarg.h>

// --- printf family ---------------------------------------------------------
// Unbounded forms: the caller gives room. Return the characters written.
ZVAPI int ZvPrintF(wchar_t *buffer, const wchar_t *format, ...);
ZVAPI int ZvVPrintF(wchar_t *buffer, const wchar_t *format, va_list args);
// Bounded forms: 0, or ZVERR_BUFFER_TOO_SMALL when the text was cut (what
// fits is stored, always terminated). written (optional) receives the
// characters stored without the terminator.
ZVAPI HRESULT ZvCchPrintF(wchar_t *buffer, int cch, int *written, const wchar_t *format, ...);
ZVAPI HRESULT ZvNVPrintF(wchar_t *buffer, int cch, int *written, const wchar_t *format, va_list args);

// --- Tokens ----------------------------------------------------------------
// One process-wide table, names compared without case. The kernel start calls
// InitTokens and its end FreeTokens; the table is also made on first use.
ZVAPI BOOL ZvPrintF_InitTokens(void);
ZVAPI void ZvPrintF_FreeTokens(void);
// 1, or 0 on failure. Replaces a token of the same name.
ZVAPI BOOL ZvPrintF_AddToken(const wchar_t *name, const wchar_t *value);
// 1 if the token existed, else 0.
ZVAPI BOOL ZvPrintF_DeleteToken(const wchar_t *name);
// Copies the value (cut to cch); the value's length, or -1 when unknown.
ZVAPI int ZvPrintF_GetToken(const wchar_t *name, wchar_t *buffer, int cch);
// Rereads separators and grouping from the user's locale.
ZVAPI void ZvPrintF_RefreshLocale(void);

// "%1"-style message text through the platform's message formatter.
// Returns the characters stored, 0 on failure (buffer then empty).
ZVAPI int ZvComposeStr(wchar_t *buffer, int cch, const wchar_t *message, ...);

// --- Control texts -----------------------------------------------------------
// A format or text may be a string number below 0x10000 (the Id forms take
// only numbers). NoFlash forms leave a control alone whose text is equal.
ZVAPI BOOL ZvSetWindowTextF(HWND window, const wchar_t *format, ...);
ZVAPI BOOL ZvSetWindowTextNoF(HWND window, const wchar_t *text);
ZVAPI BOOL ZvSetWindowTextId(HWND window, UINT id, ...);
ZVAPI BOOL ZvSetDlgItemTextF(HWND dialog, int item, const wchar_t *format, ...);
ZVAPI BOOL ZvSetDlgItemTextNoF(HWND dialog, int item, const wchar_t *text);
ZVAPI BOOL ZvSetDlgItemTextId(HWND dialog, int item, UINT id, ...);
ZVAPI BOOL ZvSetDlgItemTextNoFlashF(HWND dialog, int item, const wchar_t *format, ...);
ZVAPI BOOL ZvSetDlgItemTextNoFlashNoF(HWND dialog, int item, const wchar_t *text);
// Formats into a multi-line edit control: line ends become "\r\n".
ZVAPI BOOL ZvMEditPrintF(HWND edit, const wchar_t *format, ...);

// --- Number texts ------------------------------------------------------------
// All take the text of a number ("-1234567.891") and return the characters
// stored; the result is cut to fit cch.
ZVAPI int ZvFormatNumber(const wchar_t *number, wchar_t *buffer, int cch);
ZVAPI int ZvFormatDecimalNumber(const wchar_t *number, wchar_t *buffer, int cch);
// decimals >= 0 rounds or pads the fraction to that many digits; -1 keeps it.
ZVAPI int ZvFormatGroupDecimalNumber(const wchar_t *number, wchar_t *buffer, int cch, int decimals);

// Decimal text, grouped when group is set. The forms without N assume room
// for 32 characters.
ZVAPI int ZvLongToText(LONG value, wchar_t *buffer, BOOL group);
ZVAPI int ZvLongToTextN(LONG value, wchar_t *buffer, int cch, BOOL group);
ZVAPI int ZvLongLongToText(LONGLONG value, wchar_t *buffer, BOOL group);
ZVAPI int ZvLongLongToTextN(LONGLONG value, wchar_t *buffer, int cch, BOOL group);
ZVAPI int ZvDWordToText(DWORD value, wchar_t *buffer, BOOL group);
ZVAPI int ZvDWordToTextN(DWORD value, wchar_t *buffer, int cch, BOOL group);
ZVAPI int ZvDWordLongToText(ULONGLONG value, wchar_t *buffer, BOOL group);
ZVAPI int ZvDWordLongToTextN(ULONGLONG value, wchar_t *buffer, int cch, BOOL group);
// Fixed point text with the locale's decimal separator; grouped when asked.
// The form without N assumes room for 64 characters plus the digits of value.
ZVAPI int ZvDoubleToText(wchar_t *buffer, double value, int decimals, BOOL group);
ZVAPI int ZvDoubleToTextN(wchar_t *buffer, int cch, double value, int decimals, BOOL group);

// --- Sizes -------------------------------------------------------------------
#define ZVFFS_LONGBYTES  0x0001   // "%1 bytes" rather than "%1 B" below 1 KB
// Binary steps of 1024: "%1 B", "%1 KB", ... "%1 EB". Characters stored.
ZVAPI int ZvFormatFileSize(ULONGLONG size, wchar_t *buffer, int cch, DWORD options);
// "512", "1.50KB", "2.00MB", "3.10GB" with steps of 1024, 1024000 and
// 1024000000. The WithSpace form puts a blank before the unit; form 2 also
// names bytes ("512 bytes", "1.50 KB"). Buffers of 32 characters.
ZVAPI int ZvGetByteSizeText(ULONGLONG size, wchar_t *buffer);
ZVAPI int ZvGetByteSizeText2(ULONGLONG size, wchar_t *buffer);
ZVAPI int ZvGetByteSizeTextWithSpace(ULONGLONG size, wchar_t *buffer);

// --- Number parsing tokens --------------------------------------------------
// Skip blanks, read a number, then step over blanks and one "," or ";" with
// the blanks behind it; end (optional) receives where reading stopped. Values
// beyond the type saturate. Ex forms: a text holding no number gives
// defaultValue; the result is clamped to minimum..maximum.
ZVAPI DWORD ZvTextToDWordToken(const wchar_t *text, const wchar_t **end);
ZVAPI LONG ZvTextToLongToken(const wchar_t *text, const wchar_t **end);
ZVAPI LONGLONG ZvTextToLongLongToken(const wchar_t *text, const wchar_t **end);
ZVAPI ULONGLONG ZvTextToDWordLongToken(const wchar_t *text, const wchar_t **end);
ZVAPI DWORD ZvHexToDWordToken(const wchar_t *text, const wchar_t **end);
ZVAPI ULONGLONG ZvHexToDWordLongToken(const wchar_t *text, const wchar_t **end);
ZVAPI double ZvTextToDoubleToken(const wchar_t *text, const wchar_t **end);
ZVAPI DWORD ZvTextToDWordTokenEx(const wchar_t *text, const wchar_t **end, DWORD minimum, DWORD maximum,
                                 DWORD defaultValue);
ZVAPI LONG ZvTextToLongTokenEx(const wchar_t *text, const wchar_t **end, LONG minimum, LONG maximum,
                               LONG defaultValue);
ZVAPI LONGLONG ZvTextToLongLongTokenEx(const wchar_t *text, const wchar_t **end, LONGLONG minimum,
                                       LONGLONG maximum, LONGLONG defaultValue);
ZVAPI ULONGLONG ZvTextToDWordLongTokenEx(const wchar_t *text, const wchar_t **end, ULONGLONG minimum,
                                         ULONGLONG maximum, ULONGLONG defaultValue);
ZVAPI DWORD ZvHexToDWordTokenEx(const wchar_t *text, const wchar_t **end, DWORD minimum, DWORD maximum,
                                DWORD defaultValue);
ZVAPI ULONGLONG ZvHexToDWordLongTokenEx(const wchar_t *text, const wchar_t **end, ULONGLONG minimum,
                                        ULONGLONG maximum, ULONGLONG defaultValue);
ZVAPI double ZvTextToDoubleTokenEx(const wchar_t *text, const wchar_t **end, double minimum, double maximum,
                                   double defaultValue);

// Colours of the settings files: "r,g,b" in decimal; reading also takes
// "#RRGGBB" and "0x00BBGGRR".
ZVAPI COLORREF ZvTextToColorref(const wchar_t *text);
ZVAPI COLORREF ZvTextToColorrefToken(const wchar_t *text, const wchar_t **end);
// Characters stored; room for 12 characters.
ZVAPI int ZvColorrefToText(COLORREF color, wchar_t *buffer);

// Four characters, the first from the low byte; unprintable bytes show as
// ".". buffer holds 5 characters. Returns buffer.
ZVAPI wchar_t *ZvFourCCToString(DWORD fourcc, wchar_t *buffer);
