// zvfio repair: looks at each wave or Wave64 file first, then mends the
// sizes of a file whose chunk headers stand, or rebuilds a destroyed header
// with the kernel's repair. The bytes it overwrites go to FILE.repair-undo
// first; a repaired file must read through the manager, else the repair is
// undone.
#include "zvfio.h"
#include "zverror.h"
#include "repair/repairplan.h"
#include <stdio.h>
#include <string.h>
#include <stdlib.h>

namespace zvfio {
namespace {

const wchar_t kUndoSuffix[] = L".repair-undo";

HRESULT Report(const std::wstring &path, HRESULT hr, const std::string &reason)
{
    Err("zvfio repair: %s: %s (0x%08lX)\n", Utf8(path).c_str(), reason.empty() ? ErrorText(hr).c_str() : reason.c_str(),
        (unsigned long)hr);
    return hr;
}

HRESULT OpenForRepair(const std::wstring &path, bool write, HANDLE *file)
{
    DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY))
        return Report(path, ZVERR_FILE_OPEN, "a folder, not a file");
    *file = CreateFileW(path.c_str(), GENERIC_READ | (write ? GENERIC_WRITE : 0), FILE_SHARE_READ, nullptr,
                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (*file == INVALID_HANDLE_VALUE)
        return Report(path, ZvErrorHandler_TranslateWin32Error(GetLastError()), "");
    return S_OK;
}

std::string Hex(const std::vector<BYTE> &bytes)
{
    std::string s;
    char b[4];
    for (size_t i = 0; i < bytes.size() && i < 24; i++) {
        snprintf(b, sizeof b, "%02x", bytes[i]);
        s += b;
    }
    return bytes.size() > 24 ? s + "..." : s;
}

void PrintPlan(const std::wstring &path, const RepairPlan &plan, bool json, bool done)
{
    const char *how = plan.action == RepairAction::Rebuild ? "header rebuilt" : "sizes mended";
    if (json) {
        Out("{\"file\": %s, \"repaired\": %s, \"action\": \"%s\", \"format\": %s, \"dataOffset\": %llu, "
            "\"dataBytes\": %llu, \"writes\": [",
            JsonString(Utf8(path)).c_str(), done ? "true" : "false", how, JsonString(FormatText(plan.format)).c_str(),
            plan.dataOffset, plan.dataSize);
        auto ranges = plan.Overwrites();
        for (size_t i = 0; i < ranges.size(); i++)
            Out("%s{\"offset\": %llu, \"bytes\": %llu}", i ? ", " : "", ranges[i].first, ranges[i].second);
        Out("]}\n");
        return;
    }
    Out("%s: %s%s as %s\n", Utf8(path).c_str(), done ? "" : "would be ", how, plan.wave64 ? "Wave64" : "wave");
    Out("  format: %s\n  audio: offset %llu, %llu bytes\n", FormatText(plan.format).c_str(), plan.dataOffset,
        plan.dataSize);
    if (plan.action == RepairAction::Rebuild)
        Out("  the kernel's repair writes the header: bytes 0 to %llu\n", plan.headerSize);
    for (const Patch &p : plan.patches)
        Out("  %s at %llu: %s\n", p.what.c_str(), p.offset, Hex(p.bytes).c_str());
    if (!plan.reason.empty())
        Out("  note: %s\n", plan.reason.c_str());
}

HRESULT Undo(const std::wstring &path)
{
    SavedBytes saved;
    const std::wstring undo = path + kUndoSuffix;
    HRESULT hr = ReadUndo(undo, &saved);
    if (FAILED(hr))
        return Report(undo, hr, hr == ZVERR_MALFORMED ? "not an undo file of zvfio repair" : "");
    HANDLE file;
    if (FAILED(hr = OpenForRepair(path, true, &file)))
        return hr;
    LARGE_INTEGER size = {};
    GetFileSizeEx(file, &size);
    if ((ULONGLONG)size.QuadPart != saved.length) {
        CloseHandle(file);
        return Report(path, ZVERR_MALFORMED, "its length changed since the repair; the undo does not apply");
    }
    hr = Restore(file, saved);
    CloseHandle(file);
    if (FAILED(hr))
        return Report(path, hr, "");
    DeleteFileW(undo.c_str());
    Out("%s: repair undone\n", Utf8(path).c_str());
    return S_OK;
}

HRESULT RepairOne(const std::wstring &path, const Args &args, const GivenFormat &given, ReadSession &session)
{
    const bool dryRun = args.has(L"--dry-run");
    HANDLE file;
    HRESULT hr = OpenForRepair(path, !dryRun, &file);
    if (FAILED(hr))
        return hr;
    RepairPlan plan = PlanRepair(file, given);
    if (plan.action == RepairAction::Refuse) {
        CloseHandle(file);
        return Report(path, plan.result, plan.reason + "; nothing written");
    }
    if (plan.action == RepairAction::Nothing) {
        CloseHandle(file);
        if (args.json)
            Out("{\"file\": %s, \"repaired\": false, \"writes\": []}\n", JsonString(Utf8(path)).c_str());
        else
            Out("%s: nothing to repair: the header fits the file\n", Utf8(path).c_str());
        return S_FALSE;
    }
    if (dryRun) {
        CloseHandle(file);
        PrintPlan(path, plan, args.json, false);
        if (!args.json)
            Out("  dry run: nothing written\n");
        return S_OK;
    }
    const std::wstring undo = args.has(L"--no-undo") ? std::wstring() : path + kUndoSuffix;
    if (!undo.empty() && GetFileAttributesW(undo.c_str()) != INVALID_FILE_ATTRIBUTES) {
        CloseHandle(file);
        return Report(undo, ZVERR_FILE_CREATE, "the undo file of an earlier repair is in the way: apply it with "
                                               "--undo, remove it, or give --no-undo; nothing written");
    }
    SavedBytes saved;
    hr = ApplyRepair(file, plan, undo, &saved);
    CloseHandle(file);
    if (FAILED(hr))
        return Report(path, hr, ErrorText(hr) + "; the file is as it was");
    // The repaired file must describe itself as planned and read whole.
    std::string failure;
    if (SUCCEEDED(OpenForRepair(path, false, &file))) {
        RepairPlan again = PlanRepair(file, GivenFormat());
        CloseHandle(file);
        if (again.action != RepairAction::Nothing)
            failure = "its header still does not fit after the repair";
    }
    LONGLONG frames = 0, expected = 0;
    HRESULT read = failure.empty() ? session.Read(path, &frames, &expected) : S_OK;
    if (failure.empty() && FAILED(read))
        failure = "the repaired file does not read: " + ErrorText(read);
    else if (failure.empty() && frames < (LONGLONG)(plan.dataSize / plan.format.nBlockAlign))
        failure = "the repaired file reads " + std::to_string(frames) + " of " +
                  std::to_string(plan.dataSize / plan.format.nBlockAlign) + " frames";
    if (!failure.empty()) {
        if (SUCCEEDED(OpenForRepair(path, true, &file))) {
            Restore(file, saved);
            CloseHandle(file);
        }
        if (!undo.empty())
            DeleteFileW(undo.c_str());
        return Report(path, FAILED(read) ? read : ZVERR_MALFORMED, failure + "; the repair was undone");
    }
    PrintPlan(path, plan, args.json, true);
    if (!args.json)
        Out("  reads %lld frames through the manager%s%s\n", (long long)frames, undo.empty() ? "" : "; undo: ",
            Utf8(undo).c_str());
    return S_OK;
}

bool Number(const Args &args, const wchar_t *name, DWORD low, DWORD high, DWORD *out)
{
    std::wstring v;
    if (!args.value(name, &v))
        return true;
    wchar_t *end = nullptr;
    unsigned long n = wcstoul(v.c_str(), &end, 10);
    if (v.empty() || *end || n < low || n > high)
        return false;
    *out = (DWORD)n;
    return true;
}

HRESULT Run(const Args &args)
{
    if (args.files.empty())
        return ZVFIO_E_USAGE;
    GivenFormat given;
    DWORD rate = 0, channels = 0, bits = 0;
    if (!Number(args, L"--rate", 1000, 768000, &rate) || !Number(args, L"--channels", 1, 64, &channels) ||
        !Number(args, L"--bits", 8, 64, &bits) || (bits % 8))
        return ZVFIO_E_USAGE;
    given.isFloat = args.has(L"--float");
    given.given = rate || channels || bits || given.isFloat;
    if (given.given && !(rate && channels && bits)) {
        Err("zvfio repair: a format needs --rate, --channels and --bits together\n");
        return ZVFIO_E_USAGE;
    }
    given.rate = rate;
    given.channels = (WORD)channels;
    given.bits = (WORD)bits;
    bool failed = false;
    ReadSession session;
    for (const std::wstring &path : args.files)
        failed |= FAILED(args.has(L"--undo") ? Undo(path) : RepairOne(path, args, given, session));
    return failed ? ZVFIO_E_REPORTED : S_OK;
}

} // namespace

const Command kRepairCommand = {
    "repair", "mends the sizes or the destroyed header of wave and Wave64 files",
    "usage: zvfio repair [--dry-run] [--no-undo] [--json] [--rate N --channels N --bits N [--float]] FILE...\n"
    "       zvfio repair --undo FILE...\n"
    "\n"
    "Looks at each file first. A file whose header fits it is left alone\n"
    "(\"nothing to repair\"); a file that is not a wave or Wave64 file is\n"
    "refused and left alone. A file whose chunk headers stand gets its RIFF\n"
    "and data sizes from its length, every other chunk kept byte for byte and\n"
    "chunks behind the audio kept out of it. Only a destroyed header is\n"
    "rebuilt, with the kernel's repair, in front of the data chunk found by a\n"
    "scan, in the format the file still states or the one given. Audio bytes\n"
    "are never written. The bytes to be overwritten are saved first in\n"
    "FILE.repair-undo; the repaired file must then read through the manager,\n"
    "or the repair is undone. Exit code 1 when any file was refused or failed.\n"
    "\n"
    "  --dry-run      print what would be written, write nothing\n"
    "  --no-undo      write no FILE.repair-undo\n"
    "  --undo         put back the bytes saved in FILE.repair-undo\n"
    "  --rate N, --channels N, --bits N, --float\n"
    "                 the format, where the file states none readable\n"
    "  --force        accepted for older scripts; a file whose header fits\n"
    "                 still has nothing to repair\n"
    "  --json         one JSON object a file\n",
    "--dry-run --no-undo --undo --rate= --channels= --bits= --float --force --json",
    Run,
};

} // namespace zvfio
