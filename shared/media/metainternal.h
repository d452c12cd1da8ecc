// Internal to the metadata stream: the table of kinds, a flat index of a
// file's top-level chunks, and the in-memory item store behind a source.
// Compiled into the library and into plug-ins that offer metadata, so it
// needs nothing but the system and the chunk layers.
#pragma once
#include "media/zvmeta.h"
#include "media/riff.h"
#include <objidl.h>
#include <string>
#include <vector>

struct IZvReadFile;

namespace zvmeta {

typedef std::vector<BYTE> Bytes;

enum Form {
    FORM_MARKERS,  // cue/adtl/zv01
    FORM_SUMMARY,  // LIST INFO
    FORM_BWF,      // bext, iXML
    FORM_SAMPLER,  // smpl
    FORM_RAW,      // any chunk
    FORM_COUNTED,  // u32 count, fixed entries; one item per entry
    FORM_SINGLE,   // the body is the one item (capped at entrySize when set)
    FORM_KEYFRAMES,// zv03 entries with their own sizes
    FORM_CDTRACKS, // zv04: i32 count, 64-byte entries each with two strings
    FORM_DISPLIST, // DISP chunks: format id and data
    FORM_PICTURES, // LIST pic: one picture block per entry; read, never written
    FORM_NONE,     // no chunk of its own
};

struct Kind {
    DWORD bit;
    GUID guid;
    DWORD riffId;   // 0 when no RIFF chunk
    DWORD altId;    // read in its place when present (zv02 for plst), else 0
    Form form;
    DWORD entrySize;
    int dedupe;     // 1: fields 0,2,3,4 of a playlist entry; 2: the first two fields
};

// Every kind with a stream; null past the end.
const Kind *KindAt(int index);
const Kind *KindOfBit(DWORD bit);
const Kind *KindOfGuid(const GUID &guid);

const GUID &BextLabel();
const GUID &IxmlLabel();

struct Chunk {
    DWORD id;        // RIFF id (0 in Wave64)
    DWORD listType;  // type of a LIST, else 0
    GUID label;      // Wave64 label
    ULONGLONG header;// offset of the chunk header
    ULONGLONG data;  // offset of the body
    ULONGLONG size;  // body bytes (without pad)
    ULONGLONG span;  // header, body and pad
};

struct ChunkIndex {
    bool wave64 = false;
    ULONGLONG end = 0;        // end of the container as its stored size gives
    ULONGLONG audioEnd = 0;   // end of the data chunk, 0 without one
    std::vector<Chunk> chunks;
    const Chunk *find(DWORD id, DWORD listType = 0) const;
    const Chunk *find(const GUID &label) const;
};

// Walks the top-level chunks, bounded by the stored size and the file's
// length. ZVERR_NO_RIFF_HEADER for a file of another form.
HRESULT IndexFile(HANDLE file, bool wave64, ChunkIndex *index);
// Reads a whole chunk body (at most limit bytes).
HRESULT ReadBody(HANDLE file, const Chunk &c, Bytes *out, ULONGLONG limit = 64u << 20);

// Appends one chunk at the stored end and only then grows the stored size,
// so a write that stops half-way leaves the file as it was.
HRESULT AppendRiffChunk(HANDLE file, DWORD id, const void *data, DWORD size);
HRESULT AppendW64Chunk(HANDLE file, const GUID &label, const void *data, DWORD size);
// Removes a chunk without moving the audio (see ZvFMMeta_DeleteKindsFromFile).
HRESULT RemoveChunk(HANDLE file, const ChunkIndex &index, const Chunk &c);

// Items of one file by kind, in the order of the file's chunks.
struct Store {
    struct Entry {
        DWORD bit;
        std::vector<Bytes> records;
    };
    std::vector<Entry> kinds;
    DWORD sampleRate = 0;
    // The project link's fields in the slot order of its source interface,
    // and the ZVLINK flags of those present (0: no link).
    std::vector<Bytes> link;
    DWORD linkFlags = 0;
    void add(DWORD bit, const void *record, DWORD size);
    const std::vector<Bytes> *of(DWORD bit) const;
    DWORD mask() const;
};

// Reads every kind of the file into the store. A kind whose chunk is damaged
// is left out; the result is the first such failure, or 0.
HRESULT ReadAll(HANDLE file, bool wave64, Store *store);
// One kind; ZVERR_NOT_FOUND when the file has none of it.
HRESULT ReadKind(HANDLE file, const ChunkIndex &index, const Kind &kind, DWORD sampleRate, Store *store);

// A COM source over a store: IZvReadMeta and IZvReadGenericMeta.
HRESULT CreateSource(Store *store, IZvReadMeta **meta);
// A source over what a reader of the whole file put in store: none for a
// file of another form or one that can't be read (the read's code), S_FALSE
// when a damaged kind was left out.
HRESULT SourceAfterRead(HRESULT read, Store *store, IZvReadMeta **meta);

// The records of a generic stream of the kind of bit, added to the store;
// ZVERR_MALFORMED for a stream of another kind or a broken frame.
HRESULT AddGenericStream(IStream *stream, DWORD bit, Store *store);

// The bits of mask that the source really has items for.
DWORD EffectiveMask(IZvReadMeta *meta, DWORD mask);
// A reader file's GetMetaTypes: the kinds its GetMeta source has items for
// (none when it offers no source).
HRESULT MetaTypesOf(IZvReadFile *file, DWORD *types);

// The smpl record of an AIFF file's INST chunk and the markers it names;
// ZVERR_NOT_FOUND without INST.
HRESULT ReadAiffSampler(HANDLE file, DWORD rate, Bytes *record);

// One entry of an AIFF MARK chunk; the name in the ANSI code page.
struct AiffMarker {
    WORD id;
    DWORD position;
    std::string name;
};
// MARK bodies: u16 count, then id, position and a name whose length byte and
// text fill an even count. ZVERR_MALFORMED for one that runs past its end.
HRESULT ParseAiffMarks(const Bytes &body, std::vector<AiffMarker> *out);
Bytes AiffMarkBody(const std::vector<AiffMarker> &markers);
// The reverse of ReadAiffSampler: the INST body of a smpl record, its
// sustain and release loops named by "beg loop" and "end loop" markers that
// are added to markers under ids none of them has yet. ZVERR_MALFORMED for a
// record too short for what its header counts.
HRESULT AiffSamplerChunks(const Bytes &record, std::vector<AiffMarker> *markers, Bytes *inst);

// Every kind an AIFF or AIFC file holds: markers (MARK entries that no loop
// of INST names), sampler information, the text chunks as summary items and
// the other chunks as raw ones. As ReadAll: a damaged kind is left out.
HRESULT ReadAiffAll(HANDLE file, Store *store);
// Appends the kinds of mask that store holds to an AIFF or AIFC file at the
// end its FORM size gives, each chunk whole before the size counts it.
// Markers and sampler loops share one MARK: writing one of them keeps what
// the file has of the other.
HRESULT WriteAiffMeta(HANDLE file, const Store &store, DWORD mask);
// Removes the kinds of mask from an AIFF or AIFC file (the text chunks for
// the summary; MARK and INST for markers and sampler information, writing
// back the one of them not in mask).
HRESULT DeleteAiffKinds(HANDLE file, DWORD mask);
// Removes the chunks of the given ids (RIFF byte order, as raw items carry
// them) from an AIFF or AIFC file; the file's own chunks are never touched.
HRESULT DeleteAiffRawIds(HANDLE file, const std::vector<DWORD> &riffOrderIds);
bool IsFormFile(HANDLE file);

// The TCOD summary record (id, wide text) of an ARDEO clip's time code;
// ZVERR_NOT_FOUND for a file that is no such clip or has none.
HRESULT ReadArdeoTimeCode(HANDLE file, Bytes *record);

// Appends record to a heap list behind an item frame of the kind of bit.
HRESULT AppendItem(tZVLIST *list, DWORD bit, const Bytes &record);

// The chunks of a project link, which are no raw chunks.
bool IsLinkChunkId(DWORD id);

// The sample rate in the file's format chunk, 0 without one.
DWORD RateOf(HANDLE file, const ChunkIndex &index);

inline DWORD Le32(const BYTE *p) { return p[0] | (p[1] << 8) | (p[2] << 16) | ((DWORD)p[3] << 24); }

} // namespace zvmeta
