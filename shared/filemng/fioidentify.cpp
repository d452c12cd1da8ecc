// File type identification: which reader class takes a file, from the
// cheapest test to the dearest. Each reader is asked at most once a run,
// since asking means loading it (and, for a routed one, sending the file
// handle to its surrogate).
#include "filemng/filemng.h"
#include "filemng/fioidentify.h"
#include "filemng/fioload.h"
#include "filemng/surrogatetable.h"
#include "media/quickid.h"
#include "zverror.h"
#include "zvpaths.h"
#include <malloc.h>
#include <wchar.h>
#include <vector>

// The reader list's quick-id candidates. Rows of one type id stand together.
static const ZvFioSignatureRow kSignatureTable[ZVFIO_SIGNATURE_ROWS] = {
    {0x1018, 0xE4257307}, {0x2, 0x0A30C422}, {0x1000, 0xEA9D287B}, {0x1002, 0xD8759EA0}, {0x1002, 0x372FDC19},
    {0x1001, 0x6ABF421F}, {0x1004, 0x0117AE4C}, {0x1004, 0xC1FE13C2}, {0x1005, 0xB70787EF}, {0x1005, 0x7758F348},
    {0x1006, 0xDA4B217F}, {0x1007, 0xDA4B217F}, {0x1003, 0x0117AE4C}, {0x1003, 0xB70787EF}, {0x1003, 0xC1FE13C2},
    {0x1003, 0x7758F348}, {0x1017, 0xBF99E5C4}, {0x1021, 0x6B418FED}, {0x4, 0xD40B9A2F}, {0x5, 0xD40B9A2F},
    {0x13, 0x6ABF421F}, {0x14, 0x6ABF421F}, {0x14, 0xD8759EA0}, {0x1010, 0x29651470}, {0x1010, 0x82F1F6BD},
    {0x1010, 0x997E5FF1}, {0x1010, 0xED823F27}, {0x1010, 0x3B0F152B}, {0x1010, 0xE6D45519}, {0x1010, 0x7BB3FE15},
    {0x1010, 0x0A248CED}, {0x1019, 0x82F1F6BD}, {0x1019, 0x997E5FF1}, {0x101D, 0x82F1F6BD}, {0x101D, 0x0DD21229},
    {0x101F, 0x82F1F6BD}, {0x101F, 0x16F3D640}, {0x15, 0x997E5FF1}, {0x15, 0x249F8688}, {0x15, 0xBA79BC6E},
    {0x15, 0x7BB3FE15}, {0x101E, 0x82F1F6BD}, {0x101E, 0x997E5FF1}, {0x101E, 0x7BB3FE15}, {0x16, 0x249F8688},
    {0x16, 0xBA79BC6E}, {0x16, 0x997E5FF1}, {0x16, 0xED823F27}, {0x16, 0x3B0F152B}, {0x16, 0x7BB3FE15},
    {0x1011, 0x249F8688}, {0x1011, 0xBA79BC6E}, {0x1011, 0x0DD21229}, {0x1011, 0xD8759EA0}, {0x1011, 0x82F1F6BD},
    {0x1011, 0x997E5FF1}, {0x1011, 0xED823F27}, {0x1011, 0x3B0F152B}, {0x1011, 0xE6D45519}, {0x1011, 0x7BB3FE15},
    {0x1011, 0xBE00A7E4}, {0x1011, 0x0A248CED}, {0x1012, 0x249F8688}, {0x1012, 0x997E5FF1}, {0x1012, 0xED823F27},
    {0x1012, 0x7BB3FE15}, {0x1012, 0xBE00A7E4}, {0x1009, 0x82F1F6BD}, {0x1009, 0x7BB3FE15}, {0x1009, 0x0A248CED},
    {0x1009, 0x249F8688}, {0x1009, 0xBA79BC6E}, {0x1009, 0x997E5FF1}, {0x1009, 0xED823F27}, {0x1009, 0x3B0F152B},
    {0x1009, 0xE6D45519}, {0x1009, 0x1BBDA61D}, {0x1020, 0x1BBDA61D}, {0x1013, 0x253F0437}, {0x1013, 0x7BB3FE15},
    {0x1013, 0x0A248CED}, {0x3, 0x605F1174}, {0x12, 0x0A30C422}, {0x6, 0x05D0C422}, {0x7, 0xD284C498},
    {0x7, 0x0A30C422}, {0x101A, 0x73712A77}, {0x101B, 0x71DF2675}, {0x1014, 0x71DF2675}, {0x1014, 0x29651470},
    {0x1014, 0x2CFE4279}, {0x1014, 0xB4270178}, {0x1014, 0x372FDC19}, {0x1016, 0xCAD52D44}, {0x8, 0x6C048BA1},
    {0x17, 0x2E4B5701}, {0xA, 0x3CBBA9C2}, {0xB, 0xBEADD1C3}, {0xC, 0xC1FD3D02}, {0xD, 0x97D2FCE3},
    {0xE, 0x97D2FCE6}, {0x11, 0xAED514F8}, {0x18, 0xFD257E1C}, {0x19, 0x898A75BC}, {0x19, 0x0B749CB3},
    {0x19, 0x897ED6BB}, {0x100A, 0x45AD2188}, {0x100B, 0x7AD3F28D}, {0x100D, 0x9C80BC9D}, {0x100D, 0x0D7D0951},
    {0x100D, 0x81515D90}, {0x100D, 0x0630ADDF}, {0x100D, 0x2D8D892F}, {0x100D, 0xC836E6D7}, {0x2009, 0xA94A3937},
    {0x2000, 0xA94A3937}, {0x2000, 0x3EBDD681}, {0x2008, 0xA94A3937}, {0x2001, 0xA94A3937}, {0x2001, 0x9EEB9CE0},
    {0x2002, 0xA94A3937}, {0x2002, 0xB78645A4}, {0x2003, 0xBB3DA7C0}, {0x2004, 0xCA2B0780}, {0x2004, 0xA94A3937},
    {0x2004, 0x7BB3FE15}, {0x2004, 0x0A248CED}, {0x2005, 0xA94A3937}, {0x2005, 0x7BB3FE15}, {0x2005, 0x0A248CED},
    {0x2006, 0x899D6EB4}, {0x2007, 0xA94A3937}, {0x2007, 0x899D6EB1}, {0xF, 0x3C10D90C}, {0x9, 0xD5404496},
    {0x9, 0x69C3D5CC}, {0x10, 0xBFD5DB7F}, {0x1015, 0xED823F27}, {0x1015, 0x3B0F152B}, {0x101C, 0x3D49893F},
};
static const GUID kSignatureClasses[70] = {
    {0xE4257307, 0xC128, 0x46E1, {0x99, 0x4B, 0xE9, 0x46, 0x45, 0x09, 0xA0, 0x76}},
    {0x0A30C422, 0xB91B, 0x11D3, {0xA4, 0x84, 0x00, 0x10, 0x5A, 0x24, 0xAA, 0x37}},
    {0xEA9D287B, 0xC85A, 0x11D3, {0xBB, 0x3A, 0x00, 0x50, 0xDA, 0x1A, 0x5B, 0x06}},
    {0xD8759EA0, 0x2320, 0x47AE, {0xBA, 0xFF, 0x67, 0x18, 0xF3, 0x80, 0xBE, 0xF3}},
    {0x372FDC19, 0x3E1A, 0x403B, {0xBC, 0x13, 0xBA, 0xAE, 0xDC, 0x31, 0x8C, 0x3A}},
    {0x6ABF421F, 0xE4A3, 0x462A, {0x91, 0xC8, 0xE6, 0xC4, 0x5F, 0x28, 0x9B, 0x46}},
    {0x0117AE4C, 0xAF7F, 0x43D3, {0xA8, 0xDB, 0xC5, 0x8A, 0x60, 0x98, 0x91, 0x8B}},
    {0xB70787EF, 0x314A, 0x4CD4, {0x80, 0x23, 0xC9, 0x8B, 0x5F, 0xC7, 0x6C, 0xE5}},
    {0xC1FE13C2, 0xF794, 0x44DB, {0x95, 0x99, 0x8D, 0xCC, 0x7D, 0x90, 0xFA, 0x03}},
    {0x7758F348, 0x13FE, 0x4970, {0xA9, 0x4A, 0x8C, 0x82, 0xBC, 0xFA, 0x5D, 0x65}},
    {0xDA4B217F, 0x7861, 0x4C20, {0x87, 0x02, 0x90, 0x21, 0x0E, 0x06, 0x52, 0x43}},
    {0xBF99E5C4, 0xF874, 0x494A, {0x9C, 0xC9, 0x80, 0x54, 0x32, 0x6F, 0x58, 0x2B}},
    {0x6B418FED, 0x4360, 0x406B, {0x8E, 0x07, 0x0B, 0x2C, 0x27, 0x64, 0xC9, 0x93}},
    {0xD40B9A2F, 0xF4FD, 0x4D5E, {0x85, 0xEE, 0x6D, 0x7B, 0x8E, 0x1D, 0x8C, 0x2B}},
    {0x29651470, 0x5E6D, 0x11DE, {0x8A, 0x39, 0x08, 0xA0, 0x20, 0x0C, 0x9A, 0x66}},
    {0x82F1F6BD, 0x8003, 0x4CE3, {0x8E, 0x83, 0x4C, 0xE6, 0xF5, 0xB9, 0xC8, 0x17}},
    {0x997E5FF1, 0x274E, 0x41CE, {0xBF, 0x44, 0x25, 0x6E, 0x5B, 0x79, 0x19, 0x54}},
    {0xED823F27, 0x3E2D, 0x48F0, {0xBF, 0xE6, 0x63, 0xA1, 0xA6, 0x91, 0xC3, 0x99}},
    {0x3B0F152B, 0x6354, 0x40B8, {0xA2, 0x77, 0x77, 0xFB, 0xEC, 0x13, 0x29, 0xDA}},
    {0xE6D45519, 0x793E, 0x462A, {0x81, 0xA5, 0xC9, 0xF4, 0x45, 0x8E, 0x8C, 0x0F}},
    {0x7BB3FE15, 0x954A, 0x4E75, {0xB5, 0xE1, 0x45, 0xEE, 0x98, 0xF7, 0x49, 0x90}},
    {0x0A248CED, 0xFBD8, 0x4503, {0x83, 0xC3, 0xA3, 0x7F, 0x9B, 0xF4, 0x68, 0x1A}},
    {0x0DD21229, 0xC538, 0x406D, {0x92, 0xEF, 0xB9, 0x22, 0x71, 0xF7, 0x2E, 0x95}},
    {0x16F3D640, 0x7F49, 0x4D56, {0xA3, 0x63, 0xB4, 0xF3, 0xAD, 0xB2, 0x25, 0x92}},
    {0x249F8688, 0xFB9A, 0x4FAE, {0x9E, 0xD5, 0x2E, 0xC6, 0x6D, 0x1D, 0xD3, 0x9C}},
    {0xBA79BC6E, 0x6DE0, 0x43D5, {0xAD, 0xC7, 0x86, 0xD5, 0x1B, 0x82, 0xFD, 0x1D}},
    {0xBE00A7E4, 0xA0F6, 0x11D4, {0xB2, 0x6A, 0x00, 0xA0, 0xD2, 0x18, 0x83, 0x87}},
    {0x1BBDA61D, 0xE9A9, 0x4A7F, {0xA3, 0x78, 0x13, 0x5B, 0xF0, 0xA3, 0xE9, 0x9A}},
    {0x253F0437, 0xEE13, 0x4D1E, {0xBD, 0xC8, 0x98, 0xB7, 0xFF, 0x9B, 0x96, 0x43}},
    {0x605F1174, 0x83E4, 0x4420, {0x85, 0xA1, 0xB5, 0xA4, 0xDC, 0x1E, 0xA0, 0x28}},
    {0x05D0C422, 0xB91B, 0x11D3, {0xA4, 0x84, 0x00, 0x10, 0x5A, 0x24, 0xAA, 0x37}},
    {0xD284C498, 0xFE95, 0x11D3, {0xBB, 0x48, 0x00, 0x50, 0xDA, 0x1A, 0x5B, 0x06}},
    {0x73712A77, 0x5C66, 0x4881, {0x8D, 0xD2, 0x94, 0xD4, 0x16, 0x1E, 0x81, 0x96}},
    {0x71DF2675, 0xB054, 0x4ACC, {0x81, 0x3A, 0x36, 0xF0, 0x10, 0x6D, 0x80, 0x6E}},
    {0x2CFE4279, 0xC170, 0x480C, {0xB5, 0x56, 0x2D, 0x8B, 0x4B, 0x8C, 0xCE, 0x77}},
    {0xB4270178, 0xD2B5, 0x4119, {0x8B, 0x8B, 0x9F, 0xED, 0x49, 0x0B, 0xBF, 0xBA}},
    {0xCAD52D44, 0x0062, 0x47D1, {0x87, 0xF0, 0x17, 0x75, 0xC3, 0xA5, 0x79, 0xF0}},
    {0x6C048BA1, 0x649C, 0x11D4, {0xAA, 0xF6, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x2E4B5701, 0xDF12, 0x421F, {0xAF, 0x9E, 0x57, 0x7E, 0x10, 0x7C, 0x1A, 0xFA}},
    {0x3CBBA9C2, 0x75AD, 0x11D3, {0xA4, 0x83, 0x00, 0x10, 0x5A, 0x24, 0xAA, 0x37}},
    {0xBEADD1C3, 0xCB7D, 0x11D4, {0xB2, 0x6A, 0x00, 0xA0, 0xD2, 0x18, 0x83, 0x87}},
    {0xC1FD3D02, 0xD1E2, 0x11D4, {0xB2, 0x6A, 0x00, 0xA0, 0xD2, 0x18, 0x83, 0x87}},
    {0x97D2FCE3, 0xD25F, 0x11D4, {0xB2, 0x6A, 0x00, 0xA0, 0xD2, 0x18, 0x83, 0x87}},
    {0x97D2FCE6, 0xD25F, 0x11D4, {0xB2, 0x6A, 0x00, 0xA0, 0xD2, 0x18, 0x83, 0x87}},
    {0xAED514F8, 0x09C1, 0x41D4, {0xA6, 0xB6, 0xCF, 0xFC, 0x51, 0x9C, 0x78, 0xE6}},
    {0xFD257E1C, 0x6A73, 0x4AC5, {0xAC, 0x42, 0x5A, 0x40, 0x27, 0x4C, 0x80, 0x34}},
    {0x898A75BC, 0x1856, 0x49E8, {0x91, 0xAA, 0x9B, 0x8C, 0xE6, 0x00, 0xAD, 0x78}},
    {0x0B749CB3, 0x5687, 0x40B5, {0xBC, 0xCA, 0xE5, 0xB4, 0xED, 0x9A, 0x84, 0x93}},
    {0x897ED6BB, 0x2007, 0x495A, {0xAD, 0xA0, 0x4E, 0x47, 0xDA, 0xEC, 0x31, 0xAA}},
    {0x45AD2188, 0xC037, 0x4D34, {0x98, 0x83, 0x14, 0xD8, 0xE1, 0xFD, 0xE0, 0x36}},
    {0x7AD3F28D, 0x846D, 0x4288, {0xBA, 0x98, 0xD1, 0x13, 0xA4, 0x70, 0x2F, 0xC4}},
    {0x9C80BC9D, 0xDE5C, 0x4093, {0xAD, 0x7E, 0x8D, 0xFD, 0x84, 0x11, 0x41, 0xCB}},
    {0x0D7D0951, 0x4B0C, 0x4816, {0x82, 0x17, 0xA0, 0x0E, 0xA7, 0xB3, 0xC0, 0x5F}},
    {0x81515D90, 0x43C4, 0x4175, {0xAF, 0x32, 0x6A, 0xC5, 0xF4, 0x98, 0x64, 0xA9}},
    {0x0630ADDF, 0x740A, 0x4373, {0x83, 0xDB, 0x73, 0x1A, 0xE1, 0x04, 0x0C, 0xCF}},
    {0x2D8D892F, 0x5505, 0x48C1, {0x9E, 0x9D, 0x62, 0x82, 0xF0, 0x13, 0xB3, 0x60}},
    {0xC836E6D7, 0x3CF0, 0x49A7, {0x9C, 0x64, 0x41, 0xFF, 0xA0, 0x5A, 0x88, 0x29}},
    {0xA94A3937, 0x5A24, 0x4CF3, {0xA2, 0x12, 0x1F, 0xB4, 0x24, 0x0C, 0xE3, 0x54}},
    {0x3EBDD681, 0xEEBB, 0x11D3, {0xA5, 0x70, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x9EEB9CE0, 0xF43D, 0x11D3, {0xA5, 0x70, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0xB78645A4, 0x4E74, 0x418F, {0x91, 0xBA, 0x26, 0x72, 0xAD, 0x27, 0x7E, 0x3C}},
    {0xBB3DA7C0, 0xF505, 0x11D3, {0xA0, 0xB7, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0xCA2B0780, 0xE954, 0x11D3, {0xA9, 0xA8, 0x00, 0xA0, 0x4B, 0x07, 0x03, 0x0C}},
    {0x899D6EB4, 0xB309, 0x11D3, {0x8A, 0xBB, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x899D6EB1, 0xB309, 0x11D3, {0x8A, 0xBB, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0x3C10D90C, 0x8504, 0x11D4, {0x8D, 0x24, 0x00, 0xAA, 0x00, 0x6B, 0xA2, 0xBA}},
    {0xD5404496, 0x6A66, 0x4337, {0xBA, 0x9C, 0xF2, 0xFD, 0xAD, 0xFD, 0xED, 0x61}},
    {0x69C3D5CC, 0x0173, 0x4857, {0xAD, 0x4E, 0xF4, 0x66, 0xA8, 0xAD, 0x34, 0x2C}},
    {0xBFD5DB7F, 0xE73B, 0x41F9, {0xAF, 0x05, 0x61, 0x7C, 0x1D, 0x2E, 0x4A, 0x09}},
    {0x3D49893F, 0x452C, 0x460A, {0xBF, 0xB6, 0x59, 0x95, 0x59, 0x76, 0x8B, 0xD1}},
};

const ZvFioSignatureRow *ZvFioSignatureTable() { return kSignatureTable; }

const GUID *ZvFioSignatureClass(DWORD data1)
{
    for (const GUID &g : kSignatureClasses)
        if (g.Data1 == data1)
            return &g;
    return NULL;
}

// Classes whose byte test is unreliable and that are asked by path instead
// when they say so; the second group only with metric 11.
static const GUID kSlowAlways[] = {
    {0x82F1F6BD, 0x8003, 0x4CE3, {0x8E, 0x83, 0x4C, 0xE6, 0xF5, 0xB9, 0xC8, 0x17}},
    {0x6B418FED, 0x4360, 0x406B, {0x8E, 0x07, 0x0B, 0x2C, 0x27, 0x64, 0xC9, 0x93}},
};
static const GUID kSlowOptional[] = {
    {0x0DD21229, 0xC538, 0x406D, {0x92, 0xEF, 0xB9, 0x22, 0x71, 0xF7, 0x2E, 0x95}},
    {0x71DF2675, 0xB054, 0x4ACC, {0x81, 0x3A, 0x36, 0xF0, 0x10, 0x6D, 0x80, 0x6E}},
    {0x3D49893F, 0x452C, 0x460A, {0xBF, 0xB6, 0x59, 0x95, 0x59, 0x76, 0x8B, 0xD1}},
    {0xD8759EA0, 0x2320, 0x47AE, {0xBA, 0xFF, 0x67, 0x18, 0xF3, 0x80, 0xBE, 0xF3}},
    {0x16F3D640, 0x7F49, 0x4D56, {0xA3, 0x63, 0xB4, 0xF3, 0xAD, 0xB2, 0x25, 0x92}},
    {0x1BBDA61D, 0xE9A9, 0x4A7F, {0xA3, 0x78, 0x13, 0x5B, 0xF0, 0xA3, 0xE9, 0x9A}},
    {0x4B807E7B, 0x7927, 0x4EEF, {0xB2, 0xCB, 0xF0, 0x73, 0x44, 0x65, 0x23, 0x99}},
    {0x0D7D0951, 0x4B0C, 0x4816, {0x82, 0x17, 0xA0, 0x0E, 0xA7, 0xB3, 0xC0, 0x5F}},
};

// A path-list class whose yes only counts while no reader said it wasn't ready.
static const GUID kWeakListReader = {0xBFD5DB7F, 0xE73B, 0x41F9, {0xAF, 0x05, 0x61, 0x7C, 0x1D, 0x2E, 0x4A, 0x09}};

static bool IsSlowCapable(const GUID &id, bool optional)
{
    for (const GUID &g : kSlowAlways)
        if (IsEqualGUID(g, id))
            return true;
    if (optional)
        for (const GUID &g : kSlowOptional)
            if (IsEqualGUID(g, id))
                return true;
    return false;
}

// Form types of the application's own RIFF files.
static const char kOwnRiffForms[5][5] = {"ZVXX", "VORD", "ZVSS", "ZVPL", "ZVPJ"};
static const GUID kW64Riff = {0x66666972, 0x912E, 0x11CF, {0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00}};
static const GUID kOwnW64Forms[5] = {
    {0x46C429EF, 0x904A, 0x11D2, {0x87, 0x22, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}},
    {0x4D60BD88, 0x7758, 0x11D4, {0x88, 0x3A, 0x00, 0xB0, 0xD0, 0x22, 0x3D, 0x2B}},
    {0x533C1BF6, 0xD635, 0x43F3, {0x8A, 0x90, 0x64, 0xB8, 0x87, 0x23, 0x1F, 0x7F}},
    {0xE13F6219, 0x907F, 0x4CED, {0xA7, 0x03, 0xEE, 0xEE, 0x86, 0x7A, 0x3E, 0x7C}},
    {0xB3153884, 0x08DA, 0x4485, {0xB2, 0x2A, 0x5B, 0x70, 0xA1, 0x32, 0x15, 0xFF}},
};

BOOL ZvFioIdentifyIsRejectedContainer(const BYTE *chunk, DWORD size)
{
    if (!chunk || size < 12)
        return FALSE;
    if (!memcmp(chunk, "RIFF", 4)) {
        DWORD riffSize;
        memcpy(&riffSize, chunk + 4, 4);
        if (riffSize == 0)
            return TRUE;
        for (const char *form : kOwnRiffForms)
            if (!memcmp(chunk + 8, form, 4))
                return TRUE;
    }
    if (!memcmp(chunk, "ZVPK", 4) || !memcmp(chunk, "MThd", 4))
        return TRUE;
    if (size > 40 && !memcmp(chunk, &kW64Riff, 16))
        for (const GUID &form : kOwnW64Forms)
            if (!memcmp(chunk + 24, &form, 16))
                return TRUE;
    return FALSE;
}

BYTE *ZvFioAllocChunk()
{
    BYTE *chunk = (BYTE *)_aligned_malloc(ZVFIO_CHUNK_SIZE, 32);
    if (chunk)
        memset(chunk, 0, ZVFIO_CHUNK_SIZE);
    return chunk;
}

void ZvFioFreeChunk(BYTE *chunk) { _aligned_free(chunk); }

static HRESULT LastWin32Error()
{
    DWORD e = GetLastError();
    return ZvErrorHandler_TranslateWin32Error(e ? e : ERROR_READ_FAULT);
}

// Reads the first chunk of an open file from offset 0.
static HRESULT ReadChunk(HANDLE file, BYTE *chunk, DWORD *size)
{
    *size = 0;
    if (SetFilePointer(file, 0, NULL, FILE_BEGIN) == INVALID_SET_FILE_POINTER && GetLastError() != NO_ERROR)
        return LastWin32Error();
    if (!ReadFile(file, chunk, ZVFIO_CHUNK_SIZE, size, NULL))
        return LastWin32Error();
    return S_OK;
}

HRESULT ZvFioGetInitialFileChunk(HANDLE *out, BYTE *chunk, const WCHAR *path, DWORD *size)
{
    *size = 0;
    *out = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING,
                       FILE_FLAG_SEQUENTIAL_SCAN, NULL);
    if (*out == INVALID_HANDLE_VALUE)
        return LastWin32Error();
    return ReadChunk(*out, chunk, size);
}

// --- asking a reader ----------------------------------------------------
// The byte test: a routed reader gets the file handle as valid in its own
// process.
static HRESULT IsTypeHelper(ZVFIO_PLUGININFO *record, IZvReadFileClass *cls, HANDLE file, const BYTE *chunk,
                            DWORD size, const WCHAR *path, DWORD flags)
{
    if (!record || !cls)
        return E_UNEXPECTED;
    ZVFIO_IDENTIFYINFO info;
    memset(&info, 0, sizeof info);
    info.cbSize = sizeof info;
    info.dwFlags = flags;
    info.hFile = (UINT64)(LONG_PTR)file;
    info.dwProcessId = GetCurrentProcessId();
    info.cbChunk = size;
    info.pChunk = (BYTE *)chunk;
    info.pszPath = (WCHAR *)path;
    if (file != INVALID_HANDLE_VALUE) {
        // a reader that can't get the file in its own process isn't asked
        HRESULT hr = ZvFioSurrogate_IdentifyHandle(record, file, &info.hFile, &info.dwProcessId);
        if (FAILED(hr))
            return hr;
    }
    return cls->IdentifyFile(&info);
}

// The test by path alone.
static HRESULT IsTypeSlow(IZvReadFileClass *cls, const WCHAR *path, DWORD flags)
{
    ZVFIO_IDENTIFYINFO info;
    memset(&info, 0, sizeof info);
    info.cbSize = sizeof info;
    info.dwFlags = flags;
    info.hFile = (UINT64)(LONG_PTR)INVALID_HANDLE_VALUE;
    info.dwProcessId = GetCurrentProcessId();
    info.pszPath = (WCHAR *)path;
    return cls->IdentifyFile(&info);
}

static void ClassName(IZvReadFileClass *cls, WCHAR *name, size_t capacity)
{
    name[0] = 0;
    ZVFIO_FILECLASS_INFO_TEXT id = ZVFIO_INFOTEXT_SHORTNAME;
    BSTR text = NULL;
    if (cls && SUCCEEDED(cls->GetInfoText(&id, 1, &text)) && text) {
        _snwprintf(name, capacity, L"%s", text);
        name[capacity - 1] = 0;
    }
    if (text)
        SysFreeString(text);
}

static ZVFIO_PLUGININFO *RecordAt(CZvFileIOManager *mgr, LONG index)
{
    return index < 0 ? NULL : (ZVFIO_PLUGININFO *)ZvList_GetItem(mgr->readerList(), index);
}

static ZVFIO_PLUGININFO *RecordOfClass(CZvFileIOManager *mgr, const GUID &id)
{
    tZVLIST *list = mgr->readerList();
    for (int pass = 0; pass < 2; ++pass)
        for (int i = 0; list && i < list->count; ++i) {
            ZVFIO_PLUGININFO *r = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
            if (pass == 0 ? IsEqualGUID(r->clsidReader, id) : ZvFioSameClass10(r->clsidReader, id))
                return r;
        }
    return NULL;
}

// The index the manager gave a class object.
static LONG IndexOfClass(IZvReadFileClass *cls)
{
    DWORD index = (DWORD)-1;
    if (!cls || FAILED(cls->GetClassId(&index)))
        return -1;
    return (LONG)index;
}

// What one identification run carries from stage to stage.
struct IdentifyRun {
    CZvFileIOManager *mgr;
    HANDLE file;
    const WCHAR *path;
    const BYTE *chunk;
    DWORD size;
    DWORD flags;
    LONG level;
    HRESULT result;
    LONG found;          // index of the reader that said yes
    WCHAR foundName[MAX_PATH];
    LONG remembered;     // first reader that said it wasn't ready, by stage rule
    HRESULT rememberedCode;
    LONG tried[4];       // first and second signature class, extension class, last used
    std::vector<char> asked; // by reader index: no reader is asked twice in a run

    bool wasAsked(LONG index) const { return index >= 0 && index < (LONG)asked.size() && asked[index]; }
    void markAsked(LONG index)
    {
        if (index >= 0 && index < (LONG)asked.size())
            asked[index] = 1;
    }
    void accept(IZvReadFileClass *cls, LONG index)
    {
        found = index;
        result = S_OK;
        ClassName(cls, foundName, MAX_PATH);
    }
};

// Asks one class with the byte test; S_OK ends the run.
static HRESULT AskByBytes(IdentifyRun &run, IZvReadFileClass *cls, LONG index)
{
    run.markAsked(index);
    HRESULT hr = IsTypeHelper(RecordAt(run.mgr, index), cls, run.file, run.chunk, run.size, run.path, run.flags);
    // only 0 means yes: S_FALSE is a reader's no
    if (hr == S_OK) {
        run.accept(cls, index);
        return S_OK;
    }
    if (hr == ZVERR_READER_UNINITIALISED) {
        run.remembered = index;
        run.rememberedCode = hr;
    }
    return S_FALSE;
}

static bool SignatureStage(IdentifyRun &run)
{
    ZVFILEIDINFO info;
    memset(&info, 0, sizeof info);
    info.file = run.file;
    info.path = run.path;
    info.buffer = run.chunk;
    info.bufferSize = run.size;
    BOOL identified = FALSE;
    if (FAILED(ZvIsQuicklyIdentifiableMediaFileFormat(&info, &identified)) || !identified)
        return false;
    const DWORD type = info.identifiedType;
    LONG optional = 0;
    run.mgr->GetMetric(ZVFIO_METRIC_IDENTIFYOPT, &optional);
    bool matched = false;
    int counted = 0;
    for (const ZvFioSignatureRow &row : kSignatureTable) {
        if (row.typeId != type) {
            if (matched)
                break;
            continue;
        }
        matched = true;
        const GUID *id = ZvFioSignatureClass(row.classData1);
        ZVFIO_PLUGININFO *record = id ? RecordOfClass(run.mgr, *id) : NULL;
        IZvReadFileClass *cls = NULL;
        if (!record || FAILED(run.mgr->getReader(record, &cls)) || !cls)
            continue;
        const LONG index = record->nReaderIndex;
        if (counted < 2)
            run.tried[counted] = index;
        ++counted;
        run.markAsked(index);
        DWORD classFlags = 0;
        cls->GetClassFlags(&classFlags);
        HRESULT answer;
        if ((classFlags & ZVFIO_CLASSFLAG_IDENTIFYBYPATH) && IsSlowCapable(record->clsidReader, optional != 0))
            answer = IsTypeSlow(cls, run.path, run.flags);
        else
            answer = IsTypeHelper(record, cls, run.file, run.chunk, run.size, run.path, run.flags);
        if (answer == S_OK && (type == 5 || type == 0x14) && IsTypeSlow(cls, run.path, run.flags) != S_OK)
            answer = ZVERR_FILE_OPEN;
        if (type == 0x100D)
            answer = IsTypeSlow(cls, run.path, run.flags);
        if (run.level == 2 && run.mgr->logger()) {
            WCHAR name[MAX_PATH];
            ClassName(cls, name, MAX_PATH);
            const WCHAR *status = ZvErrorHandler_GetHresultString(answer);
            run.mgr->log(__FILE__, __LINE__,
                         L" IdentifyFileType: qv4compound is bypassed:'%s', '%s' Plugin examined, status: %s",
                         record->szName, name, status ? status : L"");
        }
        if (answer == S_OK) {
            run.accept(cls, index);
            cls->Release();
            return true;
        }
        if (answer == ZVERR_READER_UNINITIALISED && counted == 1) {
            run.remembered = index;
            run.rememberedCode = answer;
        }
        cls->Release();
    }
    return false;
}

static bool ExtensionStage(IdentifyRun &run, const WCHAR *ext)
{
    if (!ext || !*ext)
        return false;
    if (*ext == L'.')
        ++ext;
    LONG position = -1;
    for (;;) {
        IZvReadFileClass *cls = NULL;
        HRESULT hr = run.mgr->FindNextReaderClassByExt(&cls, ext, &position);
        if (FAILED(hr) || !cls)
            return false;
        const LONG index = position;
        run.tried[2] = index;
        DWORD classFlags = 0;
        cls->GetClassFlags(&classFlags);
        bool ask = !(classFlags & ZVFIO_CLASSFLAG_IDENTIFYBYPATH) && !run.wasAsked(index);
        bool done = ask && AskByBytes(run, cls, index) == S_OK;
        cls->Release();
        if (done)
            return true;
        position = index + 1;
    }
}

static bool LastUsedStage(IdentifyRun &run)
{
    IZvReadFileClass *cls = NULL;
    if (FAILED(run.mgr->GetLastUsedReader(&cls)) || !cls)
        return false;
    const LONG index = IndexOfClass(cls);
    bool done = false;
    if (index != run.tried[0] && index != run.tried[1] && index != run.tried[2] && !run.wasAsked(index)) {
        run.tried[3] = index;
        done = AskByBytes(run, cls, index) == S_OK;
    }
    cls->Release();
    return done;
}

// Resets the manager's reader enumerator, as a walk of the list does.
static void ResetReaderEnum(CZvFileIOManager *mgr)
{
    IZvFileIOTypeEnum *e = NULL;
    if (SUCCEEDED(mgr->GetReaderEnum(&e)) && e) {
        e->Reset();
        e->Release();
    }
}

static bool ListStage(IdentifyRun &run)
{
    ResetReaderEnum(run.mgr);
    tZVLIST *list = run.mgr->readerList();
    for (int i = 0; list && i < list->count; ++i) {
        if (run.wasAsked(i))
            continue;
        ZVFIO_PLUGININFO *record = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        IZvReadFileClass *cls = NULL;
        if (FAILED(run.mgr->getReader(record, &cls)) || !cls)
            continue; // a class that doesn't load is stepped over
        bool done = AskByBytes(run, cls, i) == S_OK;
        cls->Release();
        if (done)
            return true;
    }
    return false;
}

static const WCHAR *ExtensionOf(const WCHAR *path)
{
    const WCHAR *name = path ? ZvGetFileNamePtrW(path) : NULL;
    const WCHAR *dot = name ? wcsrchr(name, L'.') : NULL;
    return dot ? dot + 1 : NULL;
}

STDMETHODIMP CZvFileIOManager::IdentifyFileType(UINT64 file, LPCWSTR path, LONG *readerIndex, DWORD flags)
{
    ZVFIO_SCOPE("CZvFileIOManager::IdentifyFileType");
    LONG level = 0;
    GetMetric(ZVFIO_METRIC_IDENTLOGLEVEL, &level);
    if (readerIndex)
        *readerIndex = -1;
    HANDLE h = (HANDLE)(LONG_PTR)file;
    if (h == INVALID_HANDLE_VALUE || h == NULL)
        return E_INVALIDARG;
    BYTE *chunk = ZvFioAllocChunk();
    if (!chunk)
        return E_OUTOFMEMORY;
    DWORD size = 0;
    HRESULT hr = ReadChunk(h, chunk, &size);
    if (FAILED(hr)) {
        ZvFioFreeChunk(chunk);
        return hr;
    }
    if (ZvFioIdentifyIsRejectedContainer(chunk, size)) {
        ZvFioFreeChunk(chunk);
        return ZVERR_OWN_CONTAINER;
    }
    ZvFioSurrogate_BeginIdentification();

    IdentifyRun run;
    run.mgr = this;
    run.foundName[0] = 0;
    tZVLIST *readers = readerList();
    run.asked.assign(readers ? (size_t)readers->count : 0, 0);
    run.file = h;
    run.path = path;
    run.chunk = chunk;
    run.size = size;
    run.flags = flags;
    run.level = level;
    run.result = ZVERR_UNSUPPORTED_FORMAT;
    run.found = -1;
    run.remembered = -1;
    run.rememberedCode = E_FAIL;
    for (LONG &t : run.tried)
        t = -1;

    const WCHAR *stage = NULL;
    if (SignatureStage(run))
        stage = L" IdentifyFileType: '%s' Plugin found from file signature for %s";
    else if (run.remembered == -1) {
        if (ExtensionStage(run, ExtensionOf(path)))
            stage = L" IdentifyFileType: '%s' Plugin found from file extension for %s";
        else if (LastUsedStage(run))
            stage = L" IdentifyFileType: '%s' Plugin found from last used reader for %s";
        else if (ListStage(run))
            stage = L" IdentifyFileType: '%s' Plugin found from going through the list for %s";
    }
    if (stage && level > 0)
        log(__FILE__, __LINE__, stage, run.foundName, path ? path : L"");
    ZvFioSurrogate_EndIdentification();
    ZvFioFreeChunk(chunk);

    hr = run.result;
    if (SUCCEEDED(hr)) {
        if (readerIndex)
            *readerIndex = run.found;
        if (run.remembered != -1)
            hr = ZVS_READER_AFTER_UNINITIALISED;
    } else if (run.remembered != -1) {
        if (readerIndex)
            *readerIndex = run.remembered;
        hr = run.rememberedCode;
    }
    if (FAILED(hr) && level > 0)
        log(__FILE__, __LINE__, L"No Plugin Found through IdentifyFileType Session");
    return hr;
}

STDMETHODIMP CZvFileIOManager::IdentifyFileTypeSlow(LPCWSTR path, LONG *readerIndex)
{
    ZVFIO_SCOPE("CZvFileIOManager::IdentifyFileTypeSlow");
    LONG level = 0;
    GetMetric(ZVFIO_METRIC_IDENTLOGLEVEL, &level);
    if (readerIndex)
        *readerIndex = -1;
    if (!path)
        return E_INVALIDARG;
    HRESULT result = ZVERR_UNSUPPORTED_FORMAT;
    LONG found = -1, remembered = -1, extIndex = -1, lastIndex = -1;
    HRESULT rememberedCode = E_FAIL;
    WCHAR name[MAX_PATH] = L"";
    const WCHAR *line = NULL;
    tZVLIST *readers = readerList();
    std::vector<char> asked(readers ? (size_t)readers->count : 0, 0);

    // one test by path; true when the class takes the file
    auto ask = [&](IZvReadFileClass *cls, LONG index, bool weak) {
        if (index >= 0 && index < (LONG)asked.size())
            asked[index] = 1;
        HRESULT hr = IsTypeSlow(cls, path, 0);
        if (hr == S_OK && !(weak && remembered != -1)) {
            found = index;
            result = S_OK;
            ClassName(cls, name, MAX_PATH);
            return true;
        }
        if (hr == ZVERR_READER_UNINITIALISED) {
            remembered = index;
            rememberedCode = hr;
        }
        return false;
    };

    const WCHAR *ext = wcsrchr(path, L'.');
    if (ext && ext[1]) {
        LONG position = -1;
        for (;;) {
            IZvReadFileClass *cls = NULL;
            if (FAILED(FindNextReaderClassByExt(&cls, ext + 1, &position)) || !cls)
                break;
            extIndex = position;
            bool done = !asked[position] && ask(cls, position, false);
            cls->Release();
            if (done) {
                line = L" IdentifyFileTypeSlow: '%s' Plugin found from file extension for %s";
                break;
            }
            ++position;
        }
    }
    if (!line) {
        IZvReadFileClass *cls = NULL;
        if (SUCCEEDED(GetLastUsedReader(&cls)) && cls) {
            LONG index = IndexOfClass(cls);
            if (index != extIndex && !(index >= 0 && index < (LONG)asked.size() && asked[index])) {
                lastIndex = index;
                if (ask(cls, index, false))
                    line = L"IdentifyFileTypeSlow:'%s' plugin found from the last used reader";
            }
            cls->Release();
        }
    }
    if (!line) {
        ResetReaderEnum(this);
        tZVLIST *list = readerList();
        for (int i = 0; list && i < list->count && !line; ++i) {
            if (i == extIndex || i == lastIndex || asked[i])
                continue;
            ZVFIO_PLUGININFO *record = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
            IZvReadFileClass *cls = NULL;
            if (FAILED(getReader(record, &cls)) || !cls)
                continue;
            if (ask(cls, i, IsEqualGUID(record->clsidReader, kWeakListReader)))
                line = L"IdentifyFileTypeSlow:'%s' plugin found from going through the list";
            cls->Release();
        }
    }
    if (line && level > 0)
        log(__FILE__, __LINE__, line, name, path);

    HRESULT hr = result;
    if (SUCCEEDED(hr)) {
        if (readerIndex)
            *readerIndex = found;
        if (remembered != -1)
            hr = ZVS_READER_AFTER_UNINITIALISED;
    } else if (remembered != -1) {
        if (readerIndex)
            *readerIndex = remembered;
        hr = rememberedCode;
    }
    if (FAILED(hr) && level > 0)
        log(__FILE__, __LINE__, L"No plugin(s) found though IdentifyFiletypeSlow Session");
    return hr;
}

HRESULT ZvFioHighestMeritReaderClass(CZvFileIOManager *mgr, IZvReadFileClass **out, const WCHAR *path)
{
    if (!out)
        return E_INVALIDARG;
    *out = NULL;
    if (!mgr || !path)
        return E_INVALIDARG;
    tZVLIST *list = mgr->readerList();
    DWORD best = 0;
    HANDLE file = INVALID_HANDLE_VALUE;
    BYTE *chunk = NULL;
    DWORD size = 0;
    bool opened = false;
    // a routed reader asked here gets its own duplicate, closed at the end
    ZvFioSurrogate_BeginIdentification();
    for (int i = 0; list && i < list->count; ++i) {
        ZVFIO_PLUGININFO *record = (ZVFIO_PLUGININFO *)ZvList_GetItem(list, i);
        if (!record || record->MeritValue <= best)
            continue;
        IZvReadFileClass *cls = NULL;
        if (FAILED(mgr->getReader(record, &cls)) || !cls)
            continue;
        if (!opened) {
            opened = true;
            chunk = ZvFioAllocChunk();
            if (!chunk || FAILED(ZvFioGetInitialFileChunk(&file, chunk, path, &size))) {
                cls->Release();
                break;
            }
        }
        if (IsTypeHelper(record, cls, file, chunk, size, path, 0) == S_OK) {
            best = record->MeritValue;
            if (*out)
                (*out)->Release();
            *out = cls;
        } else {
            cls->Release();
        }
    }
    ZvFioSurrogate_EndIdentification();
    if (file != INVALID_HANDLE_VALUE)
        CloseHandle(file);
    ZvFioFreeChunk(chunk);
    return *out ? S_OK : E_FAIL;
}
