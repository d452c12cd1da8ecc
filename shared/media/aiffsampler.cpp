// Sampler information of an AIFF file: the INST chunk and the MARK entries
// its loops name, turned into the record of a smpl item (36-byte header,
// then 32-byte loops: id, type, start u64, length u64, fraction, play count),
// and that record turned back into INST and MARK entries.
#include "media/metainternal.h"
#include "media/iff.h"
#include "media/chunkio.h"
#include <string.h>

namespace zvmeta {

HRESULT ReadAiffSampler(HANDLE file, DWORD rate, Bytes *record)
{
    if (!record)
        return E_POINTER;
    DWORD size = 0;
    HRESULT hr = iff_FindChunkFromStart(file, ZVIFF_ID('I', 'N', 'S', 'T'), &size);
    if (FAILED(hr))
        return hr;
    BYTE inst[20];
    DWORD got = 0;
    if (size < sizeof inst)
        return ZVERR_MALFORMED;
    if (!ReadFile(file, inst, sizeof inst, &got, nullptr) || got != sizeof inst)
        return ZVERR_FILE_READ;
    record->assign(36, 0);
    DWORD period = rate ? (DWORD)(1000000000.0 / rate + 0.5) : 0;
    DWORD unity = inst[0];
    memcpy(&(*record)[8], &period, 4);
    memcpy(&(*record)[12], &unity, 4);
    // Sustain loop, then release loop: play mode, begin and end marker ids.
    DWORD loops = 0;
    for (int which = 0; which < 2; which++) {
        const BYTE *l = inst + 8 + which * 6;
        WORD mode = zvmedia::LoadBE16(l);
        if (mode == 0)
            continue;
        tZVIFFMARKER begin, end;
        hr = iff_FindMarker(file, &begin, zvmedia::LoadBE16(l + 2));
        if (SUCCEEDED(hr))
            hr = iff_FindMarker(file, &end, zvmedia::LoadBE16(l + 4));
        if (hr == ZVERR_NOT_FOUND)
            continue; // a loop whose markers are gone is no loop
        if (FAILED(hr))
            return hr;
        DWORD id = loops, type = mode == 2 ? 1 : 0, zero = 0;
        ULONGLONG start = begin.position, length = end.position > begin.position ? end.position - begin.position : 0;
        BYTE loop[32];
        memcpy(loop, &id, 4);
        memcpy(loop + 4, &type, 4);
        memcpy(loop + 8, &start, 8);
        memcpy(loop + 16, &length, 8);
        memcpy(loop + 24, &zero, 4);
        memcpy(loop + 28, &zero, 4);
        record->insert(record->end(), loop, loop + 32);
        loops++;
    }
    memcpy(&(*record)[28], &loops, 4);
    return S_OK;
}

HRESULT ParseAiffMarks(const Bytes &body, std::vector<AiffMarker> *out)
{
    if (body.size() < 2)
        return ZVERR_MALFORMED;
    WORD count = zvmedia::LoadBE16(body.data());
    size_t at = 2;
    for (WORD i = 0; i < count; i++) {
        if (body.size() - at < 7)
            return ZVERR_MALFORMED;
        const BYTE *e = &body[at];
        BYTE length = e[6];
        if (body.size() - at - 7 < length)
            return ZVERR_MALFORMED;
        out->push_back(AiffMarker{zvmedia::LoadBE16(e), zvmedia::LoadBE32(e + 2), std::string((const char *)e + 7, length)});
        // length byte and name fill an even count
        at += 7 + length + ((length & 1) ? 0 : 1);
        if (at > body.size())
            at = body.size();
    }
    return S_OK;
}

Bytes AiffMarkBody(const std::vector<AiffMarker> &markers)
{
    Bytes b(2);
    zvmedia::StoreBE16(b.data(), (WORD)markers.size());
    for (const AiffMarker &m : markers) {
        BYTE e[7];
        size_t length = m.name.size() < 255 ? m.name.size() : 255;
        zvmedia::StoreBE16(e, m.id);
        zvmedia::StoreBE32(e + 2, m.position);
        e[6] = (BYTE)length;
        b.insert(b.end(), e, e + 7);
        b.insert(b.end(), m.name.begin(), m.name.begin() + length);
        if (!(length & 1))
            b.push_back(0);
    }
    return b;
}

namespace {

WORD FreeId(const std::vector<AiffMarker> &markers)
{
    for (WORD id = 1; id < 0x7FFF; id++) {
        bool used = false;
        for (const AiffMarker &m : markers)
            used = used || m.id == id;
        if (!used)
            return id;
    }
    return 0;
}

} // namespace

HRESULT AiffSamplerChunks(const Bytes &record, std::vector<AiffMarker> *markers, Bytes *inst)
{
    if (record.size() < 36)
        return ZVERR_MALFORMED;
    DWORD loops = Le32(&record[28]);
    if (loops > (record.size() - 36) / 32)
        return ZVERR_MALFORMED;
    // Base note, detune, note and velocity range, gain; then the two loops.
    inst->assign(20, 0);
    DWORD unity = Le32(&record[12]);
    (*inst)[0] = (BYTE)(unity < 128 ? unity : 60);
    (*inst)[3] = 127;
    (*inst)[4] = 1;
    (*inst)[5] = 127;
    int which = 0;
    for (DWORD i = 0; i < loops && which < 2; i++) {
        const BYTE *l = &record[36 + (size_t)i * 32];
        ULONGLONG start, length;
        memcpy(&start, l + 8, 8);
        memcpy(&length, l + 16, 8);
        // AIFF positions are 32 bits; a loop past them is left out.
        if (!length || start + length > 0xFFFFFFFFull)
            continue;
        WORD begin = FreeId(*markers);
        markers->push_back(AiffMarker{begin, (DWORD)start, "beg loop"});
        WORD end = FreeId(*markers);
        markers->push_back(AiffMarker{end, (DWORD)(start + length), "end loop"});
        if (!begin || !end)
            return ZVERR_SIZE_LIMIT;
        BYTE *o = &(*inst)[8 + which * 6];
        zvmedia::StoreBE16(o, Le32(l + 4) == 1 ? 2 : 1); // alternating: forward and backward
        zvmedia::StoreBE16(o + 2, begin);
        zvmedia::StoreBE16(o + 4, end);
        which++;
    }
    return S_OK;
}

} // namespace zvmeta
