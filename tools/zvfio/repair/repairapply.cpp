// Carrying out a repair plan: save what it overwrites, write, and put the
// saved bytes back when a write fails.
#include "repairplan.h"
#include "zvbase.h"
#include "zverror.h"
#include "media/waveheader.h"
#include <string.h>

namespace zvfio {
namespace {

const char kUndoMagic[8] = {'Z', 'V', 'U', 'N', 'D', 'O', '0', '1'};

bool WriteAt(HANDLE file, ULONGLONG offset, const void *data, DWORD size)
{
    OVERLAPPED o = {};
    o.Offset = (DWORD)offset;
    o.OffsetHigh = (DWORD)(offset >> 32);
    DWORD done = 0;
    return WriteFile(file, data, size, &done, &o) && done == size;
}

HRESULT LastError(HRESULT fallback)
{
    DWORD e = GetLastError();
    return e ? ZvErrorHandler_TranslateWin32Error(e) : fallback;
}

HRESULT WriteUndo(const std::wstring &path, const SavedBytes &saved)
{
    HANDLE f = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (f == INVALID_HANDLE_VALUE)
        return LastError(ZVERR_FILE_CREATE);
    std::vector<BYTE> out(kUndoMagic, kUndoMagic + 8);
    auto put = [&](const void *p, size_t n) { out.insert(out.end(), (const BYTE *)p, (const BYTE *)p + n); };
    DWORD count = (DWORD)saved.ranges.size();
    put(&saved.length, 8);
    put(&count, 4);
    for (const Patch &r : saved.ranges) {
        DWORD n = (DWORD)r.bytes.size();
        put(&r.offset, 8);
        put(&n, 4);
        put(r.bytes.data(), n);
    }
    bool ok = WriteAt(f, 0, out.data(), (DWORD)out.size()) && FlushFileBuffers(f);
    HRESULT hr = ok ? S_OK : LastError(ZVERR_FILE_WRITE);
    CloseHandle(f);
    if (!ok)
        DeleteFileW(path.c_str());
    return hr;
}

} // namespace

HRESULT Restore(HANDLE file, const SavedBytes &saved)
{
    for (const Patch &r : saved.ranges)
        if (!WriteAt(file, r.offset, r.bytes.data(), (DWORD)r.bytes.size()))
            return LastError(ZVERR_FILE_WRITE);
    return FlushFileBuffers(file) ? S_OK : LastError(ZVERR_FILE_WRITE);
}

HRESULT ReadUndo(const std::wstring &path, SavedBytes *saved)
{
    HANDLE f = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (f == INVALID_HANDLE_VALUE)
        return LastError(ZVERR_FILE_OPEN);
    LARGE_INTEGER size = {};
    GetFileSizeEx(f, &size);
    std::vector<BYTE> in(size.QuadPart < (16 << 20) ? (size_t)size.QuadPart : 0);
    bool ok = !in.empty() && ReadAt(f, 0, in.data(), (DWORD)in.size());
    CloseHandle(f);
    if (!ok || in.size() < 20 || memcmp(in.data(), kUndoMagic, 8) != 0)
        return ZVERR_MALFORMED;
    SavedBytes s;
    DWORD count = 0;
    memcpy(&s.length, &in[8], 8);
    memcpy(&count, &in[16], 4);
    size_t at = 20;
    for (DWORD i = 0; i < count; i++) {
        Patch r;
        DWORD n = 0;
        if (in.size() - at < 12)
            return ZVERR_MALFORMED;
        memcpy(&r.offset, &in[at], 8);
        memcpy(&n, &in[at + 8], 4);
        at += 12;
        if (in.size() - at < n)
            return ZVERR_MALFORMED;
        r.bytes.assign(in.begin() + at, in.begin() + at + n);
        at += n;
        s.ranges.push_back(r);
    }
    *saved = s;
    return S_OK;
}

HRESULT ApplyRepair(HANDLE file, const RepairPlan &plan, const std::wstring &undoPath, SavedBytes *saved)
{
    if (plan.action != RepairAction::Mend && plan.action != RepairAction::Rebuild)
        return E_INVALIDARG;
    saved->length = plan.length;
    saved->ranges.clear();
    for (const auto &range : plan.Overwrites()) {
        ULONGLONG n = range.first + range.second > plan.length ? plan.length - range.first : range.second;
        Patch r;
        r.offset = range.first;
        r.bytes.resize((size_t)n);
        if (n && !ReadAt(file, r.offset, r.bytes.data(), (DWORD)n))
            return LastError(ZVERR_FILE_READ);
        saved->ranges.push_back(r);
    }
    if (!undoPath.empty()) {
        HRESULT hr = WriteUndo(undoPath, *saved);
        if (FAILED(hr))
            return hr;
    }
    HRESULT hr = S_OK;
    if (plan.action == RepairAction::Rebuild)
        hr = plan.wave64 ? ZvFixTrashedW64(file, &plan.format, plan.headerSize)
                         : ZvFixTrashedWav(file, &plan.format, (DWORD)plan.headerSize);
    for (size_t i = 0; SUCCEEDED(hr) && i < plan.patches.size(); i++)
        if (!WriteAt(file, plan.patches[i].offset, plan.patches[i].bytes.data(), (DWORD)plan.patches[i].bytes.size()))
            hr = LastError(ZVERR_FILE_WRITE);
    if (SUCCEEDED(hr) && !FlushFileBuffers(file))
        hr = LastError(ZVERR_FILE_WRITE);
    if (FAILED(hr))
        Restore(file, *saved);
    return hr;
}

} // namespace zvfio
