// Signature tests over the first 64 KiB of a media file. The order of the
// table is part of the contract: several formats share prefixes (RIFF, ftyp,
// MPEG start codes), and the earlier row wins.
#include "media/quickid.h"
#include <malloc.h>
#include <string.h>
#include <wchar.h>

namespace {

struct Probe {
    const BYTE *data;
    DWORD size;
    const wchar_t *ext;   // lower case with its dot, or null
    HANDLE file;
};

typedef BOOL (*TestFn)(const Probe &p);

inline DWORD le16(const BYTE *b) { return b[0] | (b[1] << 8); }
inline DWORD le32(const BYTE *b) { return b[0] | (b[1] << 8) | (b[2] << 16) | ((DWORD)b[3] << 24); }
inline DWORD be16(const BYTE *b) { return (b[0] << 8) | b[1]; }
inline DWORD be32(const BYTE *b) { return ((DWORD)b[0] << 24) | (b[1] << 16) | (b[2] << 8) | b[3]; }
inline ULONGLONG be64(const BYTE *b) { return ((ULONGLONG)be32(b) << 32) | be32(b + 4); }

inline bool at(const Probe &p, DWORD offset, const void *bytes, DWORD n)
{
    return p.size >= n && offset <= p.size - n && memcmp(p.data + offset, bytes, n) == 0;
}
inline bool starts(const Probe &p, const char *text) { return at(p, 0, text, (DWORD)strlen(text)); }
inline bool extIs(const Probe &p, const wchar_t *e) { return p.ext && wcscmp(p.ext, e) == 0; }
// "extension X if any": no extension passes, another one fails
inline bool extAllows(const Probe &p, const wchar_t *e) { return !p.ext || wcscmp(p.ext, e) == 0; }

// --- MPEG audio frame headers -------------------------------------------------

struct MpegHeader {
    int version;   // 0 = 2.5, 2 = 2, 3 = 1 (1 reserved)
    int layer;     // 1..3
    int bitrateIndex, rateIndex, padding;
};

bool decodeMpegHeader(const BYTE *b, MpegHeader &h)
{
    if (b[0] != 0xFF || (b[1] & 0xE0) != 0xE0)
        return false;
    h.version = (b[1] >> 3) & 3;
    int layerBits = (b[1] >> 1) & 3;
    h.layer = layerBits ? 4 - layerBits : 0;
    h.bitrateIndex = b[2] >> 4;
    h.rateIndex = (b[2] >> 2) & 3;
    h.padding = (b[2] >> 1) & 1;
    return h.version != 1 && h.layer != 0 && h.bitrateIndex >= 1 && h.bitrateIndex <= 14 && h.rateIndex < 3;
}

// Length in bytes of the frame a valid header starts, for the two-frame check.
DWORD mpegFrameLength(const MpegHeader &h)
{
    static const int rates[4][3] = {{11025, 12000, 8000}, {0, 0, 0}, {22050, 24000, 16000}, {44100, 48000, 32000}};
    static const int kbpsV1[3][15] = {
        {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
        {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}};
    static const int kbpsV2[3][15] = {
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}};
    int rate = rates[h.version][h.rateIndex];
    int kbps = (h.version == 3 ? kbpsV1 : kbpsV2)[h.layer - 1][h.bitrateIndex];
    if (h.layer == 1)
        return (DWORD)((12 * kbps * 1000 / rate + h.padding) * 4);
    int factor = (h.layer == 3 && h.version != 3) ? 72 : 144;
    return (DWORD)(factor * kbps * 1000 / rate + h.padding);
}

// Size of an ID3v2 tag at the start, 0 when there is none.
DWORD id3Length(const Probe &p)
{
    if (p.size < 10 || !starts(p, "ID3"))
        return 0;
    const BYTE *b = p.data;
    if ((b[6] | b[7] | b[8] | b[9]) & 0x80)
        return 0;
    DWORD size = ((DWORD)b[6] << 21) | (b[7] << 14) | (b[8] << 7) | b[9];
    return 10 + size + ((b[5] & 0x10) ? 10 : 0);
}

// Walks the bytes for frame headers. wantLayer 3: success at the first layer-3
// header, failure at a layer-2 header met first. wantLayer 2: success at the
// first layer-2 header.
BOOL scanMpegFrames(const BYTE *data, DWORD size, int wantLayer)
{
    if (size < 2048)
        return FALSE;
    for (DWORD i = 0; i + 4 <= size; i++) {
        if (data[i] != 0xFF || (data[i + 1] & 0xE0) != 0xE0)
            continue;
        MpegHeader h;
        if (!decodeMpegHeader(data + i, h))
            continue;
        if (h.layer == wantLayer)
            return TRUE;
        if (wantLayer == 3 && h.layer == 2)
            return FALSE;
    }
    return FALSE;
}

// --- the tests, in table order ---------------------------------------------

bool ac3SyncFrame(const BYTE *src)
{
    BYTE b[8];
    if (src[0] == 0x77 && src[1] == 0x0B) {   // byte-swapped stream
        for (int i = 0; i < 8; i += 2) {
            b[i] = src[i + 1];
            b[i + 1] = src[i];
        }
    } else
        memcpy(b, src, 8);
    if (b[0] != 0x0B || b[1] != 0x77)
        return false;
    int fscod = b[4] >> 6, frmsizecod = b[4] & 0x3F, bsid = b[5] >> 3;
    if (bsid > 16)
        return false;
    if (bsid <= 10)
        return fscod != 3 && frmsizecod < 38;
    return true;   // enhanced AC-3 carries its size elsewhere
}

BOOL testAc3(const Probe &p)
{
    if (!extAllows(p, L".ac3") || p.size < 2)
        return FALSE;
    DWORD offset = 0;
    const BYTE *b = p.data;
    bool direct = (b[0] == 0x0B && b[1] == 0x77) || (b[0] == 0x77 && b[1] == 0x0B);
    if (!direct) {
        if (b[0] >= 64)
            return FALSE;
        offset = 16;
        if (b[1] >= 17)
            offset = b[1];
    }
    if (p.size < offset || p.size - offset < 40)
        return FALSE;
    return ac3SyncFrame(b + offset);
}

BOOL testGif(const Probe &p)
{
    return p.size >= 6 && starts(p, "GIF8") && (p.data[4] == '7' || p.data[4] == '9') && p.data[5] == 'a';
}
BOOL testTiff(const Probe &p) { return at(p, 0, "II*\0", 4) || at(p, 0, "MM\0*", 4); }
BOOL testJxr(const Probe &p) { return at(p, 0, "\x49\x49\xBC\x01", 4); }

BOOL testTarga(const Probe &p)
{
    if (p.size <= 17)
        return FALSE;
    const BYTE *b = p.data;
    int depth;
    switch (b[2]) {
    case 1: case 9:
        if (b[1] != 1)
            return FALSE;
        depth = b[7];
        break;
    case 2: case 3: case 10: case 11:
        depth = b[16];
        break;
    default:
        return FALSE;
    }
    if (depth != 8 && depth != 15 && depth != 16 && depth != 24 && depth != 32)
        return FALSE;
    return b[12] != 0 && b[14] != 0;
}

BOOL testAiff(const Probe &p) { return starts(p, "FORM") && (at(p, 8, "AIFF", 4) || at(p, 8, "AIFC", 4)); }

BOOL testAvi(const Probe &p)
{
    if (!starts(p, "RIFF") || !at(p, 8, "AVI ", 4))
        return FALSE;
    LONG size = (LONG)le32(p.data + 4);
    return size < 0 || size > 2048;
}

BOOL testBlockStream80(const Probe &p)
{
    if (p.size < 563)
        return FALSE;
    const BYTE *b = p.data;
    if (!(b[0] == 0x1F && b[1] == 0x07 && b[2] == 0x00 && (b[3] == 0x3F || b[3] == 0xBF)))
        return FALSE;
    if (!at(p, 80, "\x3F\x07\x00", 3) || !at(p, 160, "\x3F\x07\x01", 3))
        return FALSE;
    if ((b[240] >> 4) != 5 || !at(p, 241, "\x07\x00", 2) || !at(p, 321, "\x07\x01", 2) || !at(p, 401, "\x07\x02", 2))
        return FALSE;
    if ((b[480] >> 4) != 7 || !at(p, 481, "\x07\x00", 2))
        return FALSE;
    return (b[560] >> 4) == 9 && b[561] == 0x07 && b[562] == 0;
}

// An ftyp atom at the start with a valid size; brands are read from it.
bool ftypAtom(const Probe &p, DWORD &atomSize)
{
    if (p.size < 12 || !at(p, 4, "ftyp", 4))
        return false;
    atomSize = be32(p.data);
    return atomSize >= 12 && atomSize <= p.size;
}

bool compatibleBrand(const Probe &p, DWORD atomSize, const char *const *brands)
{
    for (DWORD o = 16; o + 4 <= atomSize; o += 4)
        for (const char *const *b = brands; *b; b++)
            if (memcmp(p.data + o, *b, 4) == 0)
                return true;
    return false;
}

BOOL testM4vH(const Probe &p)
{
    static const char *const brands[] = {"M4VH", "M4V ", nullptr};
    DWORD size;
    return ftypAtom(p, size) && compatibleBrand(p, size, brands);
}

BOOL testRed(const Probe &p) { return at(p, 4, "RED1", 4) || at(p, 4, "RED2", 4); }
BOOL testDls(const Probe &p) { return starts(p, "RIFF") && (at(p, 8, "DLS ", 4) || at(p, 8, "sfbk", 4)); }

// Transport stream whose program association table leads to a program map.
BOOL transportWithPrograms(const Probe &p, DWORD packet)
{
    DWORD lead = packet - 188;
    if (p.size < 4 * packet)
        return FALSE;
    WORD pmtPid = 0xFFFF;
    bool sawPmt = false;
    for (DWORD o = 0; o + packet <= p.size && !sawPmt; o += packet) {
        const BYTE *ts = p.data + o + lead;
        if (ts[0] != 0x47)
            return FALSE;
        WORD pid = ((ts[1] & 0x1F) << 8) | ts[2];
        bool unitStart = (ts[1] & 0x40) != 0;
        int adaptation = (ts[3] >> 4) & 3;
        DWORD payload = 4;
        if (adaptation == 2 || adaptation == 0)
            continue;
        if (adaptation == 3)
            payload += 1 + ts[4];
        if (!unitStart || payload >= 188)
            continue;
        payload += 1 + ts[payload];   // pointer field
        if (payload + 8 > 188)
            continue;
        const BYTE *sec = ts + payload;
        if (pid == 0 && sec[0] == 0x00) {
            DWORD sectionLength = ((sec[1] & 0x0F) << 8) | sec[2];
            for (DWORD e = 8; e + 4 <= 3 + sectionLength - 4 && payload + e + 4 <= 188; e += 4) {
                WORD program = (WORD)be16(sec + e);
                if (program != 0) {
                    pmtPid = ((sec[e + 2] & 0x1F) << 8) | sec[e + 3];
                    break;
                }
            }
        } else if (pid == pmtPid && sec[0] == 0x02)
            sawPmt = true;
    }
    return sawPmt;
}

BOOL testTsPrograms188(const Probe &p)
{
    return p.size > 4 && p.data[0] == 0x47 && transportWithPrograms(p, 188);
}
BOOL testTsPrograms192(const Probe &p)
{
    return p.size > 4 && p.data[4] == 0x47 && transportWithPrograms(p, 192);
}

BOOL testTsSync(const Probe &p)
{
    static const DWORD layouts[4][2] = {{0, 188}, {0, 192}, {4, 188}, {4, 192}};
    for (auto &l : layouts) {
        DWORD hits = 0;
        for (DWORD o = l[0]; o < p.size && hits < 3; o += l[1]) {
            if (p.data[o] != 0x47)
                break;
            hits++;
        }
        if (hits >= 3)
            return TRUE;
    }
    return FALSE;
}

// A sequence header followed by a sequence extension is MPEG-2 video.
bool sequenceExtensionFollows(const Probe &p)
{
    for (DWORD o = 4; o + 4 <= p.size && o < 4096; o++)
        if (p.data[o] == 0 && p.data[o + 1] == 0 && p.data[o + 2] == 1) {
            if (p.data[o + 3] == 0xB5)
                return true;
            if (p.data[o + 3] != 0xB2)   // user data may stand between
                return false;
        }
    return false;
}

BOOL testMpeg2(const Probe &p)
{
    if (at(p, 0, "\0\0\x01\xBA", 4) && p.size > 4 && (p.data[4] & 0xC0) == 0x40)
        return TRUE;
    if (p.size > 376 && p.data[0] == 0x47 && p.data[188] == 0x47 && p.data[376] == 0x47)
        return TRUE;
    return at(p, 0, "\0\0\x01\xB3", 4) && sequenceExtensionFollows(p);
}

BOOL testMpeg1(const Probe &p)
{
    if (at(p, 0, "\0\0\x01\xBA", 4) && p.size > 4 && p.data[4] < 64)
        return TRUE;
    return at(p, 0, "\0\0\x01\xB3", 4);
}

BOOL testFlac(const Probe &p)
{
    if (starts(p, "fLaC"))
        return TRUE;
    DWORD skip = id3Length(p);
    return skip && at(p, skip, "fLaC", 4);
}

// MPEG audio behind an ID3 tag: two frames in a row where the first one says.
BOOL testMpegAudioAfterId3(const Probe &p)
{
    DWORD o = id3Length(p);
    if (!o || o + 4 > p.size)
        return FALSE;
    // padding between the tag and the first frame is tolerated
    while (o + 4 <= p.size && p.data[o] == 0)
        o++;
    MpegHeader h, next;
    if (o + 4 > p.size || !decodeMpegHeader(p.data + o, h))
        return FALSE;
    DWORD len = mpegFrameLength(h);
    if (len < 4 || o + len + 4 > p.size)
        return FALSE;
    return decodeMpegHeader(p.data + o + len, next) && next.layer == h.layer && next.version == h.version;
}

BOOL testBmp(const Probe &p) { return starts(p, "BM"); }
BOOL testJpeg(const Probe &p) { return at(p, 0, "\xFF\xD8\xFF", 3); }
BOOL testSdpx(const Probe &p) { return starts(p, "SDPX"); }
BOOL testPng(const Probe &p) { return at(p, 0, "\x89PNG\r\n\x1A\n", 8); }
BOOL testExr(const Probe &p) { return at(p, 0, "\x76\x2F\x31\x01", 4); }
BOOL testPsd(const Probe &p) { return p.size >= 26 && starts(p, "8BPS"); }

BOOL testSwf(const Probe &p)
{
    if (p.size <= 8)
        return FALSE;
    bool compressed = starts(p, "FWC");
    (void)compressed;   // compressed movies are left to their readers
    return starts(p, "FWS");
}

BOOL testPalNtsc(const Probe &p)
{
    if (p.size < 9)
        return FALSE;
    if (starts(p, "PAL") || starts(p, "NTC"))
        return TRUE;
    return at(p, 0, "P\0A\0L\0", 6) || at(p, 0, "N\0T\0C\0", 6);
}

BOOL testZva(const Probe &p) { return starts(p, "RIFF") && at(p, 8, "ZVA ", 4); }

bool riffWave(const Probe &p) { return starts(p, "RIFF") && at(p, 8, "WAVE", 4); }
bool tag1971(const Probe &p) { return at(p, 12, "fmt ", 4) && p.size >= 22 && le16(p.data + 20) == 0x1971; }

BOOL testWaveScot(const Probe &p)
{
    if (p.size < 69 || !riffWave(p) || tag1971(p))
        return FALSE;
    return at(p, 60, "scot", 4);
}

BOOL testWave1971(const Probe &p) { return riffWave(p) && tag1971(p); }

// Walks the chunks of a RIFF form within the buffer looking for "fmt ".
bool hasFmtChunk(const Probe &p)
{
    DWORD o = 12;
    while (o + 8 <= p.size) {
        if (memcmp(p.data + o, "fmt ", 4) == 0)
            return true;
        DWORD size = le32(p.data + o + 4);
        if (size > p.size)
            return false;
        o += 8 + size + (size & 1);
    }
    return false;
}

BOOL testWave(const Probe &p) { return riffWave(p) && le32(p.data + 4) != 0 && hasFmtChunk(p); }
BOOL testCsw(const Probe &p) { return starts(p, "RIFF") && at(p, 8, "CSW ", 4) && le32(p.data + 4) != 0 && hasFmtChunk(p); }

BOOL testWave64(const Probe &p)
{
    static const BYTE riff[16] = {0x72, 0x69, 0x66, 0x66, 0x2E, 0x91, 0xCF, 0x11,
                                  0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00};
    static const BYTE wave[16] = {0x77, 0x61, 0x76, 0x65, 0xF3, 0xAC, 0xD3, 0x11,
                                  0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
    return p.size >= 40 && at(p, 0, riff, 16) && at(p, 24, wave, 16);
}

BOOL testTivo(const Probe &p) { return starts(p, "TiVo"); }

BOOL asfHeader(const Probe &p)
{
    static const BYTE guid[16] = {0x30, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                                  0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
    if (p.size < 30 || !at(p, 0, guid, 16))
        return FALSE;
    ULONGLONG size = (ULONGLONG)le32(p.data + 16) | ((ULONGLONG)le32(p.data + 20) << 32);
    return size < 0x3FFFFF;
}
BOOL testWma(const Probe &p) { return extIs(p, L".wma") && asfHeader(p); }
BOOL testWmv(const Probe &p) { return (extIs(p, L".wmv") || extIs(p, L".asf")) && asfHeader(p); }
BOOL testDvrMs(const Probe &p) { return (extIs(p, L".dvr-ms") || extIs(p, L".dvr")) && asfHeader(p); }

BOOL testEa3(const Probe &p)
{
    if (p.size < 14 || !starts(p, "ea3") || p.data[3] != 3 || p.data[4] != 0)
        return FALSE;
    const BYTE *b = p.data + 6;
    DWORD size = ((DWORD)(b[0] & 0x7F) << 21) | ((b[1] & 0x7F) << 14) | ((b[2] & 0x7F) << 7) | (b[3] & 0x7F);
    if ((ULONGLONG)size + 13 <= p.size)
        return at(p, size + 10, "EA3", 3);
    return TRUE;
}

BOOL testMsVoice(const Probe &p) { return starts(p, "MS_VOICE"); }
BOOL testAaf(const Probe &p) { return at(p, 8, "AAF", 3); }

BOOL test3gp(const Probe &p)
{
    DWORD size;
    if (!ftypAtom(p, size) || at(p, 8, "mp42", 4))
        return FALSE;
    for (DWORD o = 16; o + 4 <= size; o += 4)
        if (memcmp(p.data + o, "3gp", 3) == 0 || memcmp(p.data + o, "3g2", 3) == 0)
            return TRUE;
    return FALSE;
}

BOOL testAvc(const Probe &p) { return extIs(p, L".avc") || extIs(p, L".bsf"); }
BOOL testAac(const Probe &p) { return extIs(p, L".aac"); }

BOOL testMxf(const Probe &p)
{
    static const BYTE key[11] = {0x06, 0x0E, 0x2B, 0x34, 0x02, 0x05, 0x01, 0x01, 0x0D, 0x01, 0x02};
    DWORD limit = p.size < ZVFILEID_BUFFER_SIZE ? p.size : ZVFILEID_BUFFER_SIZE;
    if (limit > 10)
        for (DWORD o = 0; o < limit - 10; o++)
            if (p.data[o] == 0x06 && o + 11 <= p.size && memcmp(p.data + o, key, 11) == 0)
                return TRUE;
    return extIs(p, L".mxf");
}

BOOL testOgg(const Probe &p) { return starts(p, "OggS") && p.size >= 6 && p.data[4] == 0; }

BOOL testWordPair(const Probe &p)
{
    if (p.size < 4)
        return FALSE;
    static const DWORD kinds[] = {5, 12, 13, 14, 16, 17, 18, 19};
    DWORD first = le16(p.data), second = le16(p.data + 2);
    if (first != 0xFFFF && first != 1)
        return FALSE;
    for (DWORD k : kinds)
        if (second == k)
            return TRUE;
    return FALSE;
}

BOOL testSnd(const Probe &p) { return starts(p, ".snd"); }
BOOL testWord14341(const Probe &p) { return p.size >= 2 && le16(p.data) == 14341; }

BOOL testM4vFamily(const Probe &p)
{
    static const char *const brands[] = {"M4VH", "M4VP", "M4V ", nullptr};
    DWORD size;
    if (!ftypAtom(p, size))
        return FALSE;
    for (const char *const *b = brands; *b; b++)
        if (at(p, 8, *b, 4))
            return TRUE;
    return compatibleBrand(p, size, brands);
}

BOOL testQuickTime(const Probe &p)
{
    if (p.size < 16)
        return FALSE;
    const BYTE *b = p.data;
    if (at(p, 4, "mdat", 4) || at(p, 4, "wide", 4))
        return TRUE;
    if (at(p, 4, "pnot", 4))
        return b[12] == 0 && b[13] == 0;
    if (at(p, 4, "moov", 4))
        return at(p, 12, "mvhd", 4) || at(p, 12, "cmov", 4);
    if (at(p, 4, "ftyp", 4))
        return at(p, 8, "isom", 4) || at(p, 8, "qt  ", 4);
    if (at(p, 4, "free", 4))
        return at(p, 12, "mvhd", 4) || at(p, 12, "cmov", 4) || le32(b + 12) == 0;
    if (at(p, 4, "skip", 4)) {
        DWORD size = be32(b);
        if ((ULONGLONG)size > (ULONGLONG)p.size + 8)
            return TRUE;
        static const char *const next[] = {"mdat", "wide", "free", "skip", "pnot", "moov"};
        for (const char *n : next)
            if (at(p, size + 4, n, 4))
                return TRUE;
    }
    return FALSE;
}

BOOL testVox(const Probe &p) { return extIs(p, L".vox"); }
BOOL testRaw(const Probe &p) { return extIs(p, L".raw"); }
BOOL testRealMedia(const Probe &p) { return extIs(p, L".rm") || extIs(p, L".rmvb"); }
BOOL testMp3(const Probe &p) { return extAllows(p, L".mp3") && scanMpegFrames(p.data, p.size, 3); }
BOOL testMp2(const Probe &p) { return IsTypeMP2FindSyncByte(p.data, p.size, p.ext); }
BOOL testMatroska(const Probe &p) { return p.size >= 4 && p.data[0] == 0x1A && p.data[1] == 'E' && p.data[2] == 0xDF; }

const DWORD kMp4Entry = 0x1011;

struct Row {
    DWORD type;
    TestFn test;   // null: the MP4 inspection runs here
};

const Row kTable[] = {
    {0x9, testAc3},          {0x2004, testGif},         {0x2005, testTiff},
    {0x2009, testJxr},       {0x2006, testTarga},       {0xA, testAiff},
    {0x1000, testAvi},       {0x1013, testBlockStream80}, {0x15, testM4vH},
    {0x1017, testRed},       {0x19, testDls},           {0x101A, testTsPrograms188},
    {0x101B, testTsPrograms192}, {0x1014, testTsSync},  {0x1002, testMpeg2},
    {0x1001, testMpeg1},     {0x17, testFlac},          {0x4, testMpegAudioAfterId3},
    {0x2007, testBmp},       {0x2000, testJpeg},        {0x2008, testSdpx},
    {0x2001, testPng},       {0x2002, testExr},         {0x2003, testPsd},
    {0x100A, testSwf},       {0x100B, testPalNtsc},     {0xF, testZva},
    {0x7, testWaveScot},     {0x6, testWave1971},       {0x2, testWave},
    {0x12, testCsw},         {0x3, testWave64},         {0x1007, testTivo},
    {0x1005, testWma},       {0x1004, testWmv},         {0x1006, testDvrMs},
    {0x1003, asfHeader},     {0x11, testEa3},           {0x18, testMsVoice},
    {0x100F, testAaf},       {0x1012, test3gp},         {0x1015, testAvc},
    {0x16, testAac},         {kMp4Entry, nullptr},      {0x100D, testMxf},
    {0x8, testOgg},          {0xB, testWordPair},       {0xC, testSnd},
    {0xD, testWord14341},    {0x101E, testM4vFamily},   {0x1009, testQuickTime},
    {0xE, testVox},          {0x10, testRaw},           {0x1008, testRealMedia},
    {0x5, testMp3},          {0x14, testMp2},           {0x101C, testMatroska},
};
static_assert(sizeof(kTable) / sizeof(kTable[0]) == 57, "the signature table has 57 rows");

bool groupSelected(DWORD type, DWORD flags)
{
    DWORD groups = flags & (ZVFILEID_GROUP_AUDIO | ZVFILEID_GROUP_VIDEO | ZVFILEID_GROUP_IMAGE);
    if (!groups)
        return true;
    if (type >= 0x2000)
        return (groups & ZVFILEID_GROUP_IMAGE) != 0;
    if (type >= 0x1000)
        return (groups & ZVFILEID_GROUP_VIDEO) != 0;
    return (groups & ZVFILEID_GROUP_AUDIO) != 0;
}

// Lower-case extension with its dot, from the last path component.
void extensionOf(LPCWSTR path, wchar_t *ext, size_t cap)
{
    ext[0] = 0;
    if (!path)
        return;
    const wchar_t *name = path;
    for (const wchar_t *c = path; *c; c++)
        if (*c == L'\\' || *c == L'/' || *c == L':')
            name = c + 1;
    const wchar_t *dot = wcsrchr(name, L'.');
    if (!dot || wcslen(dot) >= cap)
        return;
    size_t i = 0;
    for (; dot[i]; i++)
        ext[i] = (wchar_t)towlower(dot[i]);
    ext[i] = 0;
}

HRESULT lastErrorResult()
{
    DWORD e = GetLastError();
    return e ? HRESULT_FROM_WIN32(e) : E_FAIL;
}

} // namespace

// ---------------------------------------------------------------------------
// MP4 inspection

namespace {

// Reads a range either from the file or from the caller's buffer.
struct AtomSource {
    HANDLE file;
    const BYTE *buffer;
    DWORD size;

    bool read(ULONGLONG offset, void *out, DWORD n) const
    {
        if (file != INVALID_HANDLE_VALUE && file) {
            LARGE_INTEGER pos;
            pos.QuadPart = (LONGLONG)offset;
            DWORD done = 0;
            return SetFilePointerEx(file, pos, NULL, FILE_BEGIN) && ReadFile(file, out, n, &done, NULL) && done == n;
        }
        if (offset > size || n > size - offset)
            return false;
        memcpy(out, buffer + offset, n);
        return true;
    }
    ULONGLONG length() const
    {
        if (file != INVALID_HANDLE_VALUE && file) {
            LARGE_INTEGER s;
            return GetFileSizeEx(file, &s) ? (ULONGLONG)s.QuadPart : 0;
        }
        return size;
    }
};

bool findAtomIn(const AtomSource &src, const char *name, ULONGLONG offset, ULONGLONG length,
                ULONGLONG *atomOffset, ULONGLONG *atomSize)
{
    if (length == 0)
        return false;
    ULONGLONG fileLength = src.length();
    bool first = true;
    while (length > 0) {
        BYTE head[8];
        if (!src.read(offset, head, 8))
            return false;
        ULONGLONG size = be32(head);
        if (size == 0) {
            if (fileLength <= offset)
                return false;
            size = fileLength - offset;
        } else if (size == 1) {
            BYTE big[8];
            if (!src.read(offset + 8, big, 8))
                return false;
            size = be64(big);
            if (size == 0) {
                if (fileLength <= offset)
                    return false;
                size = fileLength - offset;
            }
        }
        if (memcmp(head + 4, name, 4) == 0) {
            if (atomOffset)
                *atomOffset = offset;
            if (atomSize)
                *atomSize = size;
            return true;
        }
        if (first) {
            for (int i = 4; i < 8; i++)
                if (head[i] && (head[i] < 0x20 || head[i] > 0x7E))
                    return false;
            first = false;
        }
        if (size < 8 || size > length)
            return false;
        length -= size;
        offset += size;
    }
    return false;
}

// Header length of an atom (8, or 16 with a 64-bit size).
DWORD atomHeader(const AtomSource &src, ULONGLONG offset)
{
    BYTE head[4];
    return src.read(offset, head, 4) && be32(head) == 1 ? 16 : 8;
}

enum Mp4Notes {
    NOTE_BRAND = 1, NOTE_H264 = 2, NOTE_HEVC = 4, NOTE_MPEG2 = 8, NOTE_AV1 = 16,
    NOTE_JPEG = 32, NOTE_PCM = 64, NOTE_AAC = 128,
};

// Reads an MPEG-4 descriptor length (1 to 4 bytes of 7 bits).
bool descriptorLength(const BYTE *&p, const BYTE *end, DWORD &len)
{
    len = 0;
    for (int i = 0; i < 4; i++) {
        if (p >= end)
            return false;
        BYTE b = *p++;
        len = (len << 7) | (b & 0x7F);
        if (!(b & 0x80))
            return true;
    }
    return true;
}

// Object type and audio object type from an elementary stream descriptor
// found somewhere in a sample entry.
bool esdsInfo(const BYTE *entry, DWORD n, int &objectType, int &audioObjectType)
{
    objectType = audioObjectType = 0;
    for (DWORD o = 0; o + 4 <= n; o++) {
        if (memcmp(entry + o, "esds", 4) != 0)
            continue;
        const BYTE *p = entry + o + 8, *end = entry + n;   // name, version and flags
        if (p >= end || *p++ != 0x03)
            return false;
        DWORD len;
        if (!descriptorLength(p, end, len) || p + 3 > end)
            return false;
        BYTE flags = p[2];
        p += 3;
        if (flags & 0x80) p += 2;
        if (flags & 0x40) { if (p >= end) return false; p += 1 + *p; }
        if (flags & 0x20) p += 2;
        if (p >= end || *p++ != 0x04 || !descriptorLength(p, end, len) || p + 13 > end)
            return false;
        objectType = p[0];
        p += 13;
        if (p < end && *p++ == 0x05 && descriptorLength(p, end, len) && p < end) {
            audioObjectType = p[0] >> 3;
            if (audioObjectType == 31 && p + 1 < end)
                audioObjectType = 32 + (((p[0] & 7) << 3) | (p[1] >> 5));
        }
        return true;
    }
    return false;
}

void noteSampleEntries(const AtomSource &src, ULONGLONG stsd, ULONGLONG stsdSize, bool video, bool sound, DWORD &notes)
{
    DWORD head = atomHeader(src, stsd);
    BYTE counts[8];
    if (stsdSize < head + 8 || !src.read(stsd + head, counts, 8))
        return;
    DWORD entries = be32(counts + 4);
    ULONGLONG o = stsd + head + 8, end = stsd + stsdSize;
    for (DWORD i = 0; i < entries && i < 64 && o + 8 <= end; i++) {
        BYTE eh[8];
        if (!src.read(o, eh, 8))
            return;
        DWORD size = be32(eh);
        if (size < 8 || o + size > end)
            return;
        BYTE entry[512];
        DWORD n = size < sizeof(entry) ? size : (DWORD)sizeof(entry);
        if (!src.read(o, entry, n))
            return;
        const BYTE *t = eh + 4;
        int objectType, aot;
        if (video) {
            if (!memcmp(t, "avc1", 4) || !memcmp(t, "avc3", 4)) notes |= NOTE_H264;
            else if (!memcmp(t, "hvc1", 4) || !memcmp(t, "hev1", 4)) notes |= NOTE_HEVC;
            else if (!memcmp(t, "av01", 4)) notes |= NOTE_AV1;
            else if (!memcmp(t, "jpeg", 4)) notes |= NOTE_JPEG;
            else if (!memcmp(t, "mp4v", 4) && esdsInfo(entry, n, objectType, aot) && objectType >= 96 && objectType <= 101)
                notes |= NOTE_MPEG2;
        }
        if (sound) {
            static const char *const pcm[] = {"sowt", "twos", "lpcm", "raw ", "in24", "in32", "fl32", "fl64", "NONE"};
            for (const char *k : pcm)
                if (!memcmp(t, k, 4))
                    notes |= NOTE_PCM;
            if (!memcmp(t, "mp4a", 4) && esdsInfo(entry, n, objectType, aot) && objectType == 64 &&
                (aot == 2 || aot == 5 || aot == 29))
                notes |= NOTE_AAC;
        }
        o += size;
    }
}

void walkTracks(const AtomSource &src, DWORD &notes, int &soundTracks)
{
    ULONGLONG total = src.length(), moov, moovSize;
    if (!findAtomIn(src, "moov", 0, total, &moov, &moovSize))
        return;
    DWORD mh = atomHeader(src, moov);
    ULONGLONG o = moov + mh, end = moov + moovSize;
    for (int guard = 0; guard < 256 && o < end; guard++) {
        ULONGLONG trak, trakSize;
        if (!findAtomIn(src, "trak", o, end - o, &trak, &trakSize))
            return;
        ULONGLONG mdia, mdiaSize, hdlr, hdlrSize, minf, minfSize, stbl, stblSize, stsd, stsdSize;
        DWORD th = atomHeader(src, trak);
        if (trakSize > th && findAtomIn(src, "mdia", trak + th, trakSize - th, &mdia, &mdiaSize)) {
            DWORD dh = atomHeader(src, mdia);
            BYTE handler[4] = {0};
            if (findAtomIn(src, "hdlr", mdia + dh, mdiaSize - dh, &hdlr, &hdlrSize))
                src.read(hdlr + atomHeader(src, hdlr) + 8, handler, 4);
            bool video = !memcmp(handler, "vide", 4), sound = !memcmp(handler, "soun", 4);
            if (sound)
                soundTracks++;
            if ((video || sound) && findAtomIn(src, "minf", mdia + dh, mdiaSize - dh, &minf, &minfSize)) {
                DWORD nh = atomHeader(src, minf);
                if (findAtomIn(src, "stbl", minf + nh, minfSize - nh, &stbl, &stblSize)) {
                    DWORD bh = atomHeader(src, stbl);
                    if (findAtomIn(src, "stsd", stbl + bh, stblSize - bh, &stsd, &stsdSize))
                        noteSampleEntries(src, stsd, stsdSize, video, sound, notes);
                }
            }
        }
        if (trakSize == 0)
            return;
        o = trak + trakSize;
    }
}

bool knownContainer(const BYTE *name)
{
    static const char *const containers[] = {"moov", "trak", "mdia", "minf", "stbl", "udta", "edts",
                                             "dinf", "mvex", "moof", "traf", "mfra", "ftyp"};
    for (const char *c : containers)
        if (!memcmp(name, c, 4))
            return true;
    return false;
}

} // namespace

BOOL ZvFindAtom(HANDLE file, const char *name, ULONGLONG offset, ULONGLONG length,
                ULONGLONG *atomOffset, ULONGLONG *atomSize)
{
    if (!name || strlen(name) != 4 || file == INVALID_HANDLE_VALUE || !file)
        return FALSE;
    AtomSource src{file, nullptr, 0};
    return findAtomIn(src, name, offset, length, atomOffset, atomSize);
}

DWORD FindMP4FileType(HANDLE file, const BYTE *buffer, DWORD size)
{
    if (!buffer || size < 8)
        return ZVFILEID_UNKNOWN;
    DWORD first = be32(buffer);
    if (first < 8 || first > size || !knownContainer(buffer + 4))
        return ZVFILEID_UNKNOWN;
    DWORD notes = 0;
    if (!memcmp(buffer + 4, "ftyp", 4) && first >= 16) {
        static const char *const brands[] = {"M4VH", "M4VP", "M4V ", "mp42", "mp41", "M4A ", nullptr};
        bool match = false;
        for (const char *const *b = brands; *b && !match; b++)
            if (!memcmp(buffer + 8, *b, 4))
                match = true;
        for (DWORD o = 16; o + 4 <= first && !match; o += 4)
            for (const char *const *b = brands; *b && !match; b++)
                if (!memcmp(buffer + o, *b, 4))
                    match = true;
        if (!match)
            return ZVFILEID_UNKNOWN;
        notes |= NOTE_BRAND;
    }
    AtomSource src{file, buffer, size};
    int soundTracks = 0;
    walkTracks(src, notes, soundTracks);

    const DWORD videoNotes = NOTE_H264 | NOTE_HEVC | NOTE_MPEG2 | NOTE_AV1 | NOTE_JPEG;
    if (!(notes & videoNotes) && (notes & NOTE_AAC))
        return 0x16;
    if (notes & NOTE_H264) {
        if (notes & NOTE_PCM)
            return 0x1019;
        if ((notes & NOTE_AAC) || soundTracks == 0)
            return 0x1010;
    }
    if (notes & NOTE_HEVC) return 0x101D;
    if (notes & NOTE_MPEG2) return 0x1016;
    if (notes & NOTE_AV1) return 0x101F;
    if (notes & NOTE_JPEG) return 0x1020;
    return notes ? 0x1011 : ZVFILEID_UNKNOWN;
}

BOOL IsTypeMP2FindSyncByte(const BYTE *buffer, DWORD size, LPCWSTR extension)
{
    if (!buffer || (extension && wcscmp(extension, L".mp2") != 0))
        return FALSE;
    return scanMpegFrames(buffer, size, 2);
}

HRESULT ZvIsQuicklyIdentifiableMediaFileFormat(ZVFILEIDINFO *info, BOOL *identified)
{
    if (identified)
        *identified = FALSE;
    if (!info)
        return E_POINTER;
    info->identifiedType = ZVFILEID_NOTASKED;

    BYTE *buffer = (BYTE *)_aligned_malloc(ZVFILEID_BUFFER_SIZE, 32);
    if (!buffer)
        return E_OUTOFMEMORY;
    memset(buffer, 0, ZVFILEID_BUFFER_SIZE);

    HRESULT hr = S_OK;
    HANDLE file = info->file ? info->file : INVALID_HANDLE_VALUE;
    HANDLE opened = INVALID_HANDLE_VALUE;
    const BYTE *data = buffer;
    DWORD count = 0;

    if (file == INVALID_HANDLE_VALUE && info->path && !info->buffer && !info->stream) {
        opened = CreateFileW(info->path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING,
                             FILE_FLAG_SEQUENTIAL_SCAN, NULL);
        if (opened == INVALID_HANDLE_VALUE) {
            hr = lastErrorResult();
            _aligned_free(buffer);
            return hr;
        }
        file = opened;
    }

    if (info->buffer) {
        data = info->buffer;
        count = info->bufferSize;
    } else if (file != INVALID_HANDLE_VALUE) {
        LARGE_INTEGER zero = {};
        if (!SetFilePointerEx(file, zero, NULL, FILE_BEGIN) ||
            !ReadFile(file, buffer, ZVFILEID_BUFFER_SIZE, &count, NULL))
            hr = lastErrorResult();
    } else if (info->stream) {
        LARGE_INTEGER zero = {};
        ULARGE_INTEGER old;
        hr = info->stream->Seek(zero, STREAM_SEEK_CUR, &old);
        if (SUCCEEDED(hr)) {
            hr = info->stream->Seek(zero, STREAM_SEEK_SET, NULL);
            ULONG got = 0;
            if (SUCCEEDED(hr))
                hr = info->stream->Read(buffer, ZVFILEID_BUFFER_SIZE, &got);
            count = got;
            LARGE_INTEGER back;
            back.QuadPart = (LONGLONG)old.QuadPart;
            info->stream->Seek(back, STREAM_SEEK_SET, NULL);
            if (SUCCEEDED(hr))
                hr = S_OK;
        }
    } else {
        // nothing to look at
        _aligned_free(buffer);
        return S_OK;
    }

    if (SUCCEEDED(hr)) {
        wchar_t ext[32];
        extensionOf((info->flags & ZVFILEID_NOEXTENSION) ? nullptr : info->path, ext, 32);
        bool braw = wcscmp(ext, L".braw") == 0;
        Probe probe{data, count, ext[0] ? ext : nullptr, file};
        DWORD type = ZVFILEID_UNKNOWN;
        for (const Row &row : kTable) {
            if (!groupSelected(row.type, info->flags))
                continue;
            if (!row.test) {
                DWORD mp4 = FindMP4FileType(file, data, count);
                if (mp4 != ZVFILEID_UNKNOWN) {
                    type = mp4;
                    break;
                }
                continue;
            }
            if (row.test(probe)) {
                type = row.type;
                break;
            }
        }
        if (type == 0x1009 && braw)
            type = 0x1021;
        if (type == 0x7 && (info->flags & ZVFILEID_SCOTASWAVE))
            type = 0x2;
        info->identifiedType = type;
        if (identified)
            *identified = type > ZVFILEID_UNKNOWN;
    }

    if (opened != INVALID_HANDLE_VALUE)
        CloseHandle(opened);
    _aligned_free(buffer);
    return hr;
}

static BOOL identifyWith(ZVFILEIDINFO &info, ZVFILEID_IDENTIFIED_TYPE *type)
{
    BOOL found = FALSE;
    HRESULT hr = ZvIsQuicklyIdentifiableMediaFileFormat(&info, &found);
    if (type)
        *type = info.identifiedType;
    return SUCCEEDED(hr) && found;
}

BOOL ZvIsQuicklyIdentifiableMediaFileFormat(HANDLE file, DWORD flags, ZVFILEID_IDENTIFIED_TYPE *type)
{
    ZVFILEIDINFO info = {flags, file, nullptr, nullptr, 0, nullptr, 0};
    return identifyWith(info, type);
}

BOOL ZvIsQuicklyIdentifiableMediaFileFormat(LPCWSTR path, DWORD flags, ZVFILEID_IDENTIFIED_TYPE *type)
{
    ZVFILEIDINFO info = {flags, INVALID_HANDLE_VALUE, path, nullptr, 0, nullptr, 0};
    return identifyWith(info, type);
}

BOOL ZvIsQuicklyIdentifiableMediaFileFormat(HANDLE file, LPCWSTR path, DWORD flags, ZVFILEID_IDENTIFIED_TYPE *type)
{
    ZVFILEIDINFO info = {flags, file, path, nullptr, 0, nullptr, 0};
    return identifyWith(info, type);
}

BOOL ZvIsQuicklyIdentifiableMediaFileFormat(const BYTE *buffer, DWORD size, DWORD flags, ZVFILEID_IDENTIFIED_TYPE *type)
{
    ZVFILEIDINFO info = {flags, INVALID_HANDLE_VALUE, nullptr, buffer, size, nullptr, 0};
    if (!buffer) {
        if (type)
            *type = ZVFILEID_NOTASKED;
        return FALSE;
    }
    return identifyWith(info, type);
}

BOOL ZvIsQuicklyIdentifiableMediaFileFormat(IStream *stream, DWORD flags, ZVFILEID_IDENTIFIED_TYPE *type)
{
    ZVFILEIDINFO info = {flags, INVALID_HANDLE_VALUE, nullptr, nullptr, 0, stream, 0};
    return identifyWith(info, type);
}
