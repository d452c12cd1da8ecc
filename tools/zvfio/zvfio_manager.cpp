// The commands that go through the file I/O manager: the plug-in list,
// identification, and opening a file with its reader. They share one
// manager made in this process (in-process readers; routed ones through
// their surrogates). Until the manager identifies and opens files, they say
// so (main() prints it) and fail with E_NOTIMPL.
#include "zvfio.h"

namespace zvfio {
namespace {

HRESULT NotYet(const char *) { return ZVFIO_E_NOTYET; }

HRESULT Plugins(const Args &) { return NotYet("plugins"); }

HRESULT Identify(const Args &args)
{
    if (args.files.empty())
        return ZVFIO_E_USAGE;
    return NotYet("identify");
}

HRESULT Info(const Args &args)
{
    if (args.files.size() != 1)
        return ZVFIO_E_USAGE;
    return NotYet("info");
}

HRESULT Read(const Args &args)
{
    if (args.files.size() != 1)
        return ZVFIO_E_USAGE;
    return NotYet("read");
}

} // namespace

const Command kPluginsCommand = {
    "plugins", "the plug-ins the manager finds (not available yet)",
    "usage: zvfio plugins [--load] [--json]\n"
    "\n"
    "Lists the reader and renderer classes of the plug-ins named by the\n"
    "*.Fio2007-Config files beside zvfio.exe: class id, name, path, surrogate\n"
    "group and merit.\n"
    "\n"
    "  --load   load every plug-in and report its status\n"
    "  --json   the list as JSON\n"
    "\n"
    "Not available yet: it waits for the file I/O manager.\n",
    Plugins,
};

const Command kIdentifyCommand = {
    "identify", "which reader takes each file (not available yet)",
    "usage: zvfio identify FILE...\n"
    "\n"
    "Names the reader class that the manager picks for each file.\n"
    "\n"
    "Not available yet: it waits for the file I/O manager.\n",
    Identify,
};

const Command kInfoCommand = {
    "info", "streams and formats of a file (not available yet)",
    "usage: zvfio info [--json] FILE\n"
    "\n"
    "Opens the file with its reader and prints its streams: type, length and\n"
    "format, decoded and as stored.\n"
    "\n"
    "Not available yet: it waits for the file I/O manager.\n",
    Info,
};

const Command kReadCommand = {
    "read", "reads all samples of a file (not available yet)",
    "usage: zvfio read [--raw=OUT] FILE\n"
    "\n"
    "Opens the file with its reader, reads every sample of its audio stream\n"
    "and reports the count and time taken; --raw=OUT writes the decoded\n"
    "samples to OUT.\n"
    "\n"
    "Not available yet: it waits for the file I/O manager.\n",
    Read,
};

} // namespace zvfio
