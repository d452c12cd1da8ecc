// Broadcast wave metadata: the bext and iXML chunks of a RIFF wave file at
// chunk level (update in place or by append, delete), and the format
// properties a coding history line needs.
#pragma once
#include "zvbase.h"

enum BWF_CHUNK_ENUM {
    BWF_CHUNK_BEXT = 0,
    BWF_CHUNK_IXML = 1,
};

// Chunk ids by BWF_CHUNK_ENUM.
ZVAPI DWORD bwf_ChunkId(int which);

// Rate, bits and channels from the fmt chunk; the position is not kept.
ZVAPI HRESULT ReadFilePropsFromFormatChunk(HANDLE file, DWORD *rate, DWORD *bits, DWORD *channels);

// Writes the body of chunk which (outside 0 to 1: E_INVALIDARG). An old
// chunk at least as large is overwritten in place and its tail zero-filled
// (written 0). Otherwise the new chunk is appended at the end the RIFF size
// gives and the RIFF size grows by written; a too small old chunk then becomes
// JUNK. The new chunk is complete and counted before the old one is retired,
// so a write that stops half-way leaves the old chunk readable.
ZVAPI HRESULT bwfriff_UpdateStreamChunk(int which, HANDLE file, const void *data, DWORD size, DWORD *written);
// which outside 0 to 1 returns 0; a missing chunk is no fault. The removed
// size is added to *removed.
ZVAPI HRESULT bwfriff_DeleteChunk(int which, HANDLE file, DWORD *removed);
ZVAPI HRESULT bwfriff_DeleteAllChunks(HANDLE file, DWORD *removed);

// Values of the two views, by index: 0 to 15 the bext fields, 16 to 79 the
// iXML nodes of GetTblIxmlInfo.
enum ZVMETA_BWFINFO_TYPE {
    ZVBWF_DESCRIPTION = 0, ZVBWF_ORIGINATOR, ZVBWF_ORIGINATOR_REFERENCE, ZVBWF_ORIGINATION_DATE,
    ZVBWF_ORIGINATION_TIME, ZVBWF_TIME_REFERENCE_LOW, ZVBWF_TIME_REFERENCE_HIGH, ZVBWF_VERSION, ZVBWF_UMID,
    ZVBWF_RESERVED, ZVBWF_CODING_HISTORY, ZVBWF_LOUDNESS_VALUE, ZVBWF_LOUDNESS_RANGE, ZVBWF_MAX_TRUE_PEAK,
    ZVBWF_MAX_MOMENTARY, ZVBWF_MAX_SHORT_TERM,
    ZVIXML_BWFXML = 16, ZVIXML_PROJECT = 18, ZVIXML_SCENE = 19, ZVIXML_TAKE = 20, ZVIXML_NOTE = 28,
    ZVIXML_BEXT_DESCRIPTION = 53, ZVIXML_BEXT_CODING_HISTORY = 63, ZVIXML_UNKNOWN = 80,
    ZVBWF_VALUE_COUNT = 81,
};

// One row of the iXML element table.
struct _tagIxml_Info {
    int index;
    const WCHAR *name;
    DWORD version;  // low word major, high word minor
    int parent;     // index of the parent row, -1 for none
    int kind;       // -2 container, -1 single value, 0 value under a container
};
// 66 rows, the last of index 80.
ZVAPI const _tagIxml_Info *GetTblIxmlInfo(int *count);
// Case-insensitive search of the element names.
ZVAPI BOOL IsKnownIxmlNodeGlobal(const WCHAR *name);

struct _tagZVBWF_Chunk {
    DWORD filled;
    int nodeLevel;
    WCHAR *values[ZVBWF_VALUE_COUNT]; // heap texts, null when unset
    WCHAR *codingHistory;
};

ZVAPI const _tagIxml_Info *GetIxmlInfoIndexForMetaIdxGlobal(const _tagZVBWF_Chunk *chunk, int index);
// Sets a value; a bext field and its iXML BEXT twin (0 to 10 and 53 to 63)
// are kept in step. A null or empty text clears both.
ZVAPI HRESULT ZvBWF_SetValue(_tagZVBWF_Chunk *chunk, int index, const WCHAR *text);
ZVAPI const WCHAR *ZvBWF_GetValue(const _tagZVBWF_Chunk *chunk, int index);
ZVAPI void ZvBWF_Clear(_tagZVBWF_Chunk *chunk);

// Parses an iXML block into the record: known elements to their slots,
// escapes removed. The parser's code for XML it cannot read, E_FAIL without
// a root.
ZVAPI HRESULT ExtractIxmlContent(const void *data, DWORD size, _tagZVBWF_Chunk *chunk);
// Reads bext (or BEXT) and iXML; found is 0 with neither, which is no fault.
ZVAPI HRESULT bwfriff_LoadInfo(HANDLE file, _tagZVBWF_Chunk *chunk, BOOL *found);

// Serialises the values of the index range: 0 to 15 give a bext body, 16 to
// 79 the iXML text (declaration, CR LF, the elements in table order, ANSI
// text as the reader takes it). With data null only measures; size is in/out
// (capacity in, bytes out). ZVERR_BUFFER_TOO_SMALL when data is short.
ZVAPI HRESULT BuildRawBwfIxmlChunkGlobal(const _tagZVBWF_Chunk *chunk, BYTE *data, DWORD *size, int first, int last,
                                         int level);
// Builds 16 to 79 and writes the iXML chunk (deletes it when there is
// nothing to write). Wave64 files are not handled yet (E_NOTIMPL).
ZVAPI HRESULT BuildAndWriteRawIxmlChunk(HANDLE file, const _tagZVBWF_Chunk *chunk, BOOL isWave64);
// Writes the bext chunk from fields 0 to 15.
ZVAPI HRESULT bwfriff_SaveBext(HANDLE file, const _tagZVBWF_Chunk *chunk);

// A row of the iXML value tables; each table ends with -1 and
// "Invalid IXML Value".
struct _tagIxml_Value {
    int value;
    const WCHAR *text;
};
ZVAPI const _tagIxml_Value *GetTblIxmlSpeedFPS(int *count);
ZVAPI const _tagIxml_Value *GetTblIxmlSpeedTimeCode(int *count);
ZVAPI const _tagIxml_Value *GetTblIxmlBools(int *count);
ZVAPI const _tagIxml_Value *GetTblIxmlSyncPtTypes(int *count);
ZVAPI const _tagIxml_Value *GetTblIxmlSyncPtFuncts(int *count);
ZVAPI const _tagIxml_Value *GetTblIxmlTrackFuncts(int *count);
// The number of a text in a value table (case-insensitive), -1 when absent.
// Time code flags also take the long spellings of drop and non-drop frame.
ZVAPI int ZvBWF_ValueOfText(const _tagIxml_Value *table, const WCHAR *text);
// The value table of an iXML index, or null for a free text.
ZVAPI const _tagIxml_Value *ZvBWF_ValueTableOf(int index);
