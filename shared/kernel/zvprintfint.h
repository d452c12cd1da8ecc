// Shared between the printf engine and the number texts; not exported.
#pragma once
#include "zvbase.h"

struct ZvNumberLocale {
    wchar_t thousand[8];
    int thousandLen;
    wchar_t decimal[8];
    int decimalLen;
    unsigned char groups[10]; // group sizes from the right
    int groupCount;
    bool repeatLast;          // the last size repeats ("3;0")
};

// The user's number format, read once and on ZvPrintF_RefreshLocale.
const ZvNumberLocale &zvprintf_NumberLocale();

// Separator texts by the locale record's selectors: 24 decimal, 40 list,
// 60 time, 100/101/102 timecode whole/non-drop/drop, 120/121 measure-beat and
// beat-tick. Returns the characters stored (at most cch - 1).
int zvprintf_Separator(int selector, wchar_t *buffer, int cch);

// Regroups the text of a number: thousands grouping when group is set, the
// locale's decimal separator for "." when decimal is set, the fraction
// rounded or padded to decimals digits unless decimals is negative. Stores at
// most cch - 1 characters and a terminator; returns the characters the whole
// text needs (more than stored when it was cut).
int zvprintf_Regroup(const wchar_t *number, int length, wchar_t *buffer, int cch, bool group, bool decimal,
                     int decimals);
