// Configured plug-ins that offer nothing, and why.
#pragma once
#include <string>
#include <vector>

struct tZVLIST;

namespace zvfio {

struct PluginFailure {
    std::wstring path;   // the DLL
    std::string state;   // its record state, or that it has no record
    std::string reason;  // missing DLL, not a DLL, no entry point, bad class list
};

// Why the DLL at `path` offers nothing, judged from the file alone.
std::string PluginFailureReason(const wchar_t *path);
// The DLLs of the manager's list that are unusable (a surrogate that didn't
// start is reported on its own) and the DLLs that a configuration beside
// this program names but that are missing.
std::vector<PluginFailure> ConfiguredPluginFailures(tZVLIST *list);

} // namespace zvfio
