// Metadata stream: the metadata of one media item, as IZvReadMeta offers it,
// stored as chunks in a RIFF or Wave64 file or in a ".zvl" sidecar beside it,
// and read back into item lists.
#pragma once
#include "zvbase.h"
#include "kernel/zvlist.h"

struct IZvReadMeta;

// ZVFIO_TYPESOFMETADATA bits.
enum ZVFIO_TYPESOFMETADATA {
    ZVMETA_SUMMARY = 0x1,
    ZVMETA_SUMMARY2 = 0x2,
    ZVMETA_MARKERS = 0x4,
    ZVMETA_SCOTT = 0x10,
    ZVMETA_PLAYLIST = 0x20,
    ZVMETA_TRIGGERS = 0x40,
    ZVMETA_DISPLIST = 0x80,
    ZVMETA_SAMPLER = 0x100,
    ZVMETA_SAMPLER_AIFF = 0x200,
    ZVMETA_RAW = 0x400,
    ZVMETA_STRETCH = 0x4000,
    ZVMETA_BEATMARKERS = 0x8000,
    ZVMETA_DETECTEDBEATS = 0x10000,
    ZVMETA_KEYFRAMES = 0x20000,
    ZVMETA_PICTURES = 0x40000,
    ZVMETA_CDTRACKS = 0x100000,
    ZVMETA_BEATMAPINFO = 0x200000,
    ZVMETA_BEATMAPMARKERS = 0x400000,
    ZVMETA_BWF = 0x800000,
    ZVMETA_CDINFO = 0x2000000,
};

// Header of a generic stream, and the frame in front of every item (of a
// stream and of a list the readers fill).
#pragma pack(push, 1)
struct ZVMETA_STREAMHEADER {
    DWORD headerSize; // 28
    DWORD version;    // 100
    LONG count;
    GUID kind;
};
struct ZVMETA_ITEMFRAME {
    DWORD frameSize; // 28
    DWORD version;   // 100
    GUID kind;
    DWORD recordSize;
};
// Record of a marker item, in samples; the wide text (textSize bytes, with
// its terminator) follows. length < 0: a marker, else a region.
struct ZVMETA_MARKER {
    DWORD fixedSize; // 28
    DWORD name;
    LONGLONG position;
    LONGLONG length;
    DWORD textSize;
};
// Record of a marker of the direct stream (12-byte header, no frames): times
// in 100 ns units, the wide text follows.
struct ZVMETA_DIRECTMARKER {
    DWORD reserved;
    LONGLONG start;
    LONGLONG length;
    DWORD isRegion;
    DWORD textSize;
};
#pragma pack(pop)
static_assert(sizeof(ZVMETA_STREAMHEADER) == 28, "stream header is 28 bytes");
static_assert(sizeof(ZVMETA_ITEMFRAME) == 28, "item frame is 28 bytes");
static_assert(sizeof(ZVMETA_MARKER) == 28, "marker record is 28 bytes");
static_assert(sizeof(ZVMETA_DIRECTMARKER) == 28, "direct marker record is 28 bytes");

#define ZVMETA_VERSION 100

// Records of the other kinds: summary items are a chunk id and a wide text
// with its terminator; BWF and raw items a chunk id, a size and the chunk
// body; display items a format id and the data; sampler items the smpl body
// with 32-byte loops (id, type, start u64, length u64, fraction, play count);
// the counted kinds one fixed-size entry each; CD tracks one entry each (see
// ZvFMMeta_fillCDTracksFromFile); the others the chunk body.

// The stream GUID of a single bit, or null.
ZVAPI const GUID *ZvFMMeta_GuidOfKind(DWORD bit);
// The bit of a stream GUID, or 0.
ZVAPI DWORD ZvFMMeta_KindOfGuid(const GUID *guid);

// --- Writing (RIFF target; Wave64 in the 64 twins) ---
ZVAPI HRESULT ZvFMMeta_openAndWriteMetaStreamEx(const WCHAR *path, BOOL isNewFile, DWORD sampleRate,
                                                IZvReadMeta *meta, DWORD fileMask, DWORD sidecarMask);
ZVAPI HRESULT ZvFMMeta_openAndWriteMetaStream(const WCHAR *path, BOOL isNewFile, BOOL useSidecar, DWORD sampleRate,
                                              IZvReadMeta *meta);
ZVAPI HRESULT ZvFMMeta_WriteMetaStream(const WCHAR *path, BOOL useSidecar, DWORD sampleRate, IZvReadMeta *meta);
ZVAPI HRESULT ZvFMMeta_WriteMetaStreamEx(const WCHAR *path, BOOL useSidecar, DWORD sampleRate, IZvReadMeta *meta,
                                         DWORD mask);
ZVAPI HRESULT ZvFMMeta_UpdateMetaStream2(const WCHAR *path, DWORD sampleRate, IZvReadMeta *meta, DWORD fileMask,
                                         DWORD sidecarMask);
ZVAPI HRESULT ZvFMMeta_UpdateMetaStream(const WCHAR *path, BOOL useSidecar, DWORD sampleRate, IZvReadMeta *meta);
ZVAPI HRESULT ZvFMMeta_UpdateMetaStreamEx(const WCHAR *path, BOOL useSidecar, DWORD sampleRate, IZvReadMeta *meta,
                                          DWORD mask);
ZVAPI HRESULT ZvFMMeta64_openAndWriteMetaStream(const WCHAR *path, BOOL isNewFile, DWORD sampleRate,
                                                IZvReadMeta *meta, DWORD fileMask, DWORD sidecarMask);
ZVAPI HRESULT ZvFMMeta64_UpdateMetaStream(const WCHAR *path, DWORD sampleRate, IZvReadMeta *meta, DWORD fileMask,
                                          DWORD sidecarMask);
// Writes the kinds of mask from meta into an open RIFF (or Wave64) file,
// appending at the end its stored size gives.
ZVAPI HRESULT ZvFMMeta_WriteMetaToFile(HANDLE file, BOOL isWave64, DWORD sampleRate, IZvReadMeta *meta, DWORD mask);

// --- Deleting ---
ZVAPI HRESULT ZvFMMeta_DeleteMetaChunks(const WCHAR *path);
ZVAPI HRESULT ZvFMMeta_DeleteMetaChunksEx(const WCHAR *path, DWORD mask, BOOL isWave64);
// The same on an open file. Chunks in front of the audio become JUNK in
// place; chunks behind it are cut out, so the audio never moves.
ZVAPI HRESULT ZvFMMeta_DeleteKindsFromFile(HANDLE file, DWORD mask, BOOL isWave64);
// Removes every chunk of this id (RIFF) the same way; a missing one is 0.
ZVAPI HRESULT ZvFMMeta_DeleteChunkId(HANDLE file, DWORD id);
ZVAPI HRESULT ZvFMMeta_LookForMarkers(const WCHAR *path);

// --- Sidecar ---
ZVAPI HRESULT ZvFMMeta_CreateMetaName(const WCHAR *path, WCHAR *out, DWORD capacity, BOOL append);
ZVAPI BOOL ZvFMMeta_IsMetaFile(const WCHAR *mediaPath, const WCHAR *sidecarPath);
ZVAPI HRESULT ZvFMMeta_AttachFileToExternList(HANDLE sidecar, const WCHAR *mediaPath);
ZVAPI HRESULT ZvFMMeta_ChangeAttachedFilename(const WCHAR *sidecarPath, const WCHAR *newMediaPath);
ZVAPI BOOL ZvFMMeta_IsFilePathToKSHVolume(const WCHAR *path);
// The sidecar of a media file under either name (the replaced one first);
// ZVERR_NOT_FOUND when neither names it.
ZVAPI HRESULT ZvFMMeta_FindMetaFile(const WCHAR *mediaPath, WCHAR *out, DWORD capacity);

// --- Readers: append framed items to a heap list ---
ZVAPI HRESULT ZvFMMeta_fillCuesFromFileEx(HANDLE file, DWORD sampleRate, tZVLIST *markers, tZVLIST *regions);
ZVAPI HRESULT ZvFMMeta64_fillCuesFromFileEx(HANDLE file, DWORD sampleRate, tZVLIST *markers, tZVLIST *regions);
ZVAPI HRESULT ZvFMMeta_fillSummaryFromFileEx(HANDLE file, tZVLIST *list, tZVLIST *other);
ZVAPI HRESULT ZvFMMeta64_fillSummaryFromFileEx(HANDLE file, tZVLIST *list, tZVLIST *other);
ZVAPI HRESULT ZvFMMeta_fillKeyframeLocFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta64_fillKeyframeLocFromFile(HANDLE file, tZVLIST *list);
// zv04: one item per track, a 62-byte record (track, flags, start, length,
// pause, a text of 13 wide characters, the byte sizes of two strings), then
// the two strings.
ZVAPI HRESULT ZvFMMeta_fillCDTracksFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta64_fillCDTracksFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta_fillScottFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta64_fillScottFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta_fillPlaylistFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta64_fillPlaylistFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta_fillTriggerlistFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta64_fillTriggerlistFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta_fillStretchInfo2FromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta64_fillStretchInfo2FromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta_fillBeatMarkersFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta64_fillBeatMarkersFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta_fillDetectedBeatsFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta64_fillDetectedBeatsFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta_fillBeatmapInfoFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta64_fillBeatmapInfoFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta_fillBeatmapMarkersFromFile(HANDLE file, tZVLIST *list);
ZVAPI HRESULT ZvFMMeta64_fillBeatmapMarkersFromFile(HANDLE file, tZVLIST *list);
// Out data is a locked, zero-filled global block the caller frees.
ZVAPI HRESULT ZvFMMeta_fillSamplerinfoFromFileEx(HANDLE file, void **data, DWORD *size, BOOL fromAiff,
                                                 DWORD sampleRate);
ZVAPI HRESULT ZvFMMeta64_fillSamplerinfoFromFileEx(HANDLE file, void **data, DWORD *size, BOOL fromAiff,
                                                   DWORD sampleRate);
ZVAPI HRESULT ZvFMMeta_fillCDInfoFromFile(HANDLE file, void **data, DWORD *size, BOOL isWave64);
ZVAPI HRESULT ZvFMMeta_fillDisplistFromFile(HANDLE file, void **data, DWORD *size);
// An AVI whose movi list starts with a 00dc chunk.
ZVAPI BOOL ZvFMMeta_isARDEOavi(HANDLE file);
// Its LIST meta's "xml " entry: the time code of the clip's first frame as
// a summary item under the id TCOD, "hh:mm:ss:ff" (";" before the frames of
// a drop-frame code): the LtcChangeTable's value, moved back by its
// frameCount at tcFps. A value of no known form is given as it stands.
ZVAPI HRESULT ZvFMMeta_fillARDEOmetaFromFileEx(HANDLE file, tZVLIST *list, tZVLIST *other);
// The kinds of an AVI file (its LIST INFO and the like) as a source, with an
// ARDEO clip's time code among the summary fields as TCOD.
ZVAPI HRESULT ZvFMMeta_CreateSourceFromAvi(HANDLE file, IZvReadMeta **meta);
ZVAPI HRESULT ZvFMMeta64_fillDisplistFromFile(HANDLE file, void **data, DWORD *size);

// All kinds a file holds, as an IZvReadMeta source (also IZvReadGenericMeta)
// whose streams hold them; the file's format chunk gives the rate for the
// direct marker stream. A file with no metadata gives an empty source.
ZVAPI HRESULT ZvFMMeta_CreateSourceFromFile(HANDLE file, BOOL isWave64, IZvReadMeta **meta);
// The same for an AIFF or AIFC file: markers, sampler information, the
// NAME, AUTH, "(c) " and ANNO texts as the summary fields INAM, IART, ICOP
// and ICMT, and other chunks as raw ones. ZVERR_NO_RIFF_HEADER for a file of
// another form.
ZVAPI HRESULT ZvFMMeta_CreateSourceFromAiff(HANDLE file, IZvReadMeta **meta);
// Appends the kinds of mask from meta's generic streams to an AIFF or AIFC
// file: markers and sampler loops in one MARK, INST, the four text chunks,
// raw chunks. The FORM size grows after each chunk is whole.
ZVAPI HRESULT ZvFMMeta_WriteMetaToAiff(HANDLE file, IZvReadMeta *meta, DWORD mask);
