// The value tables of the iXML elements that take one of a fixed set.
#include "bwf.h"

namespace {

#define END {-1, L"Invalid IXML Value"}
const _tagIxml_Value kFps[] = {{0, L"24000/1001"}, {1, L"24/1"}, {2, L"25/1"}, {3, L"30000/1001"}, {4, L"30/1"},
                               {5, L"50/1"}, {6, L"60000/1001"}, {7, L"60/1"}, END};
const _tagIxml_Value kTimeCode[] = {{0, L"NDF"}, {1, L"DF"}, END};
const _tagIxml_Value kBools[] = {{0, L"FALSE"}, {1, L"TRUE"}, END};
const _tagIxml_Value kSyncTypes[] = {{0, L"RELATIVE"}, {1, L"ABSOLUTE"}, END};
const _tagIxml_Value kSyncFuncts[] = {{0, L"PRE_RECORD_SAMPLECOUNT"}, {1, L"SLATE_GENERIC"}, {2, L"MARKER_GENERIC"},
                                      {3, L"MARKER_AUTOPLAY"}, {4, L"MARKER_AUTOPLAYSTOP"},
                                      {5, L"MARKER_AUTOPLAYLOOP"}, {6, L"GROUP_OFFSET"}, END};
const _tagIxml_Value kTrackFuncts[] = {
    {0, L"M-MID_SIDE"}, {1, L"S-MID_SIDE"}, {2, L"X-X_Y"}, {3, L"Y-X_Y"}, {4, L"L-MIX"}, {5, L"R-MIX"},
    {6, L"MIX"}, {7, L"LEFT"}, {8, L"RIGHT"}, {9, L"F-DMS"}, {10, L"8-DMS"}, {11, L"R-DMS"}, {12, L"L-LCR"},
    {13, L"C-LCR"}, {14, L"R-LCR"}, {15, L"L-LCRS"}, {16, L"C-LCRS"}, {17, L"R-LCRS"}, {18, L"S-LCRS"},
    {19, L"L-5.1"}, {20, L"C-5.1"}, {21, L"R-5.1"}, {22, L"Ls-5.1"}, {23, L"Rs-5.1"}, {24, L"LFE-5.1"},
    {25, L"L-7.1"}, {26, L"Lc-7.1"}, {27, L"C-7.1"}, {28, L"Rc-7.1"}, {29, L"R-7.1"}, {30, L"Ls-7.1"},
    {31, L"Rs-7.1"}, {32, L"LFE-7.1"}, {33, L"L-GENERIC"}, {34, L"Lc-GENERIC"}, {35, L"C-GENERIC"},
    {36, L"Rc-GENERIC"}, {37, L"R-GENERIC"}, {38, L"Ls-GENERIC"}, {39, L"Cs-GENERIC"}, {40, L"Rs-GENERIC"},
    {41, L"LFE-GENERIC"}, {42, L"W-SOUNDFIELD"}, {43, L"X-SOUNDFIELD"}, {44, L"Y-SOUNDFIELD"},
    {45, L"Z-SOUNDFIELD"}, {46, L"VIDEO"}, END};
#undef END
static_assert(sizeof kTrackFuncts / sizeof *kTrackFuncts == 48, "47 functions and the end row");

template <size_t N> const _tagIxml_Value *Table(const _tagIxml_Value (&t)[N], int *count)
{
    if (count)
        *count = (int)N;
    return t;
}

// Long spellings of the time code flag seen in the field.
const struct {
    const WCHAR *text;
    int value;
} kFlagAliases[] = {{L"Drop Frame", 1}, {L"DropFrame", 1}, {L"NonDropFrame", 0}, {L"Non-DropFrame", 0},
                    {L"Non Drop Frame", 0}, {L"Non-Drop Frame", 0}};

} // namespace

const _tagIxml_Value *GetTblIxmlSpeedFPS(int *count) { return Table(kFps, count); }
const _tagIxml_Value *GetTblIxmlSpeedTimeCode(int *count) { return Table(kTimeCode, count); }
const _tagIxml_Value *GetTblIxmlBools(int *count) { return Table(kBools, count); }
const _tagIxml_Value *GetTblIxmlSyncPtTypes(int *count) { return Table(kSyncTypes, count); }
const _tagIxml_Value *GetTblIxmlSyncPtFuncts(int *count) { return Table(kSyncFuncts, count); }
const _tagIxml_Value *GetTblIxmlTrackFuncts(int *count) { return Table(kTrackFuncts, count); }

int ZvBWF_ValueOfText(const _tagIxml_Value *table, const WCHAR *text)
{
    if (!table || !text)
        return -1;
    for (const _tagIxml_Value *r = table; r->value >= 0; r++)
        if (!lstrcmpiW(r->text, text))
            return r->value;
    if (table == kTimeCode)
        for (const auto &a : kFlagAliases)
            if (!lstrcmpiW(a.text, text))
                return a.value;
    return -1;
}

const _tagIxml_Value *ZvBWF_ValueTableOf(int index)
{
    switch (index) {
    case 22: case 23: case 24: case 25: return kBools; // CIRCLED, NO_GOOD, FALSE_START, WILD_TRACK
    case 35: return kTimeCode;                         // TIMECODE_FLAG
    case 36: return kFps;                              // TIMECODE_RATE
    case 70: return kTrackFuncts;                      // FUNCTION
    case 74: return kSyncTypes;                        // SYNC_POINT_TYPE
    case 75: return kSyncFuncts;                       // SYNC_POINT_FUNCTION
    default: return nullptr;
    }
}
