// The repair of zvfio: looks at a wave or Wave64 file first and plans the
// few bytes a repair writes, so that the plan can be shown, its bytes saved
// for an undo, and the audio never touched. A file whose chunk headers are
// intact gets its sizes mended in place; only a file whose header is
// destroyed goes to the kernel's repair, with a format the file or the user
// states.
#pragma once
#include <windows.h>
#include <mmreg.h>
#include <string>
#include <vector>

namespace zvfio {

// The format the user gave (--rate, --channels, --bits, --float).
struct GivenFormat {
    bool given = false;
    DWORD rate = 0;
    WORD channels = 0, bits = 0;
    bool isFloat = false;
};

// Bytes a plan writes at an offset, with what they are.
struct Patch {
    ULONGLONG offset = 0;
    std::vector<BYTE> bytes;
    std::string what;
};

enum class RepairAction {
    Nothing,  // the header fits the file
    Mend,     // write the patches
    Rebuild,  // the kernel's repair with format and header size, then the patches
    Refuse,   // nothing may be written: reason and result say why
};

struct RepairPlan {
    RepairAction action = RepairAction::Refuse;
    HRESULT result = S_OK;       // for Refuse
    std::string reason;          // for Refuse, and notes for the others
    bool wave64 = false;
    ULONGLONG length = 0;        // the file's length; a repair keeps it
    WAVEFORMATEX format = {};    // the audio's format, plain record
    ULONGLONG dataOffset = 0;    // first byte of audio after the repair
    ULONGLONG dataSize = 0;      // bytes of audio after the repair
    ULONGLONG headerSize = 0;    // Rebuild: the kernel's header ends here
    std::vector<Patch> patches;  // Mend: all writes; Rebuild: writes after the kernel's
    // Every byte range the repair may write, for the undo.
    std::vector<std::pair<ULONGLONG, ULONGLONG>> Overwrites() const;
};

// Looks at the open file and plans its repair; writes nothing.
RepairPlan PlanRepair(HANDLE file, const GivenFormat &given);

// Carries the plan out. Before the first write, the bytes it overwrites are
// read into `saved` and, when undoPath is not empty, written to that file.
// On a failed write the saved bytes are put back.
struct SavedBytes {
    ULONGLONG length = 0;
    std::vector<Patch> ranges;
};
HRESULT ApplyRepair(HANDLE file, const RepairPlan &plan, const std::wstring &undoPath, SavedBytes *saved);
// Puts saved bytes back.
HRESULT Restore(HANDLE file, const SavedBytes &saved);
// Reads an undo file written by ApplyRepair.
HRESULT ReadUndo(const std::wstring &undoPath, SavedBytes *saved);

// Reads exactly size bytes at offset; the file position is not relied on.
bool ReadAt(HANDLE file, ULONGLONG offset, void *buffer, DWORD size);

// One line describing a plain format record.
std::string FormatText(const WAVEFORMATEX &format);

} // namespace zvfio
