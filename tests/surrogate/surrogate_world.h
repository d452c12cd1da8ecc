// A manager whose plug-in list is the surrogate test plug-ins, with their
// groups, and a guard that no surrogate process outlives a test.
#pragma once
#include <gtest/gtest.h>
#include "testutil.h"
#include "childguard.h"
#include "fiohost.h"
#include "filemng/filemng.h"
#include "filemng/fiodiscovery.h"
#include "filemng/surrogatetable.h"
#include "filemng/blanket.h"
#include "filemng/zvmemtoken.h"
#include "zvproxy.h"
#include "zvsurrogate.h"
#include "../../plugins/testsurrogate/tsurrogate.h"
#include <vector>

namespace tsworld {

inline std::wstring PluginFolder()
{
    return zvtest::ExeDir() + L"tsurrogate";
}

// Holds the folder of the data files, made before the manager and removed
// after it.
struct WorldFolder {
    zvtest::TempDir dir_;
};

// The manager with the surrogate test plug-ins as its list.
class World : private WorldFolder, public zvtest::HostManager {
public:
    World() : HostManager(dir_.path(), kFlags)
    {
        created = listConfigured(PluginFolder(), kFlags);
        guard.adoptTable();
    }
    ~World() { release(); }
    void cleanUp() { release(); }
    IZvReadFileClass *reader(int variant) const
    {
        IZvReadFileClass *c = nullptr;
        ZVFIO_PLUGININFO *r = record(TsReaderClass(variant));
        EXPECT_TRUE(r) << "variant " << variant;
        if (r) {
            EXPECT_EQ(S_OK, mgr->getReader(r, &c)) << "variant " << variant;
        }
        return c;
    }
    IZvRenderFileClass *renderer(int variant) const
    {
        IZvRenderFileClass *c = nullptr;
        ZVFIO_PLUGININFO *r = record(TsRendererClass(variant));
        EXPECT_TRUE(r) << "variant " << variant;
        if (r) {
            EXPECT_EQ(S_OK, mgr->getRenderer(r, &c)) << "variant " << variant;
        }
        return c;
    }

    static const DWORD kFlags = ZVFIO_CREATE_MANAGERONLY | ZVFIO_CREATE_BESIDEPROGRAM | ZVFIO_CREATE_NOCACHE;
    zvtest::ChildGuard guard; // checked after ~World has cleaned up
};

// Opens a file of `cls` and the stream `index` of it.
inline IZvReadStream *OpenStream(IZvReadFileClass *cls, LONG index, IZvReadFile **fileOut)
{
    IZvReadFile *file = nullptr;
    *fileOut = nullptr;
    if (FAILED(cls->OpenFile(&file, ~(UINT64)0, 0, L"any.tsm", TRUE)) || !file)
        return nullptr;
    IZvReadStream *stream = nullptr;
    file->OpenStream(&stream, index, 0, 0, 0);
    *fileOut = file;
    return stream;
}

inline DWORD ObjectProcess(IZvReadFile *file)
{
    DWORD pid = 0;
    if (FAILED(file->GetFileInfo((BYTE *)&pid, 4, TS_INFO_PROCESSID)))
        return 0;
    return pid;
}

// The audio pattern of the test reader from frame `position` on.
inline std::vector<BYTE> AudioPattern(LONGLONG position, DWORD frames)
{
    std::vector<BYTE> v((size_t)frames * 4);
    short *s = (short *)v.data();
    for (DWORD i = 0; i < frames; ++i) {
        s[2 * i] = (short)(2 * (position + i));
        s[2 * i + 1] = (short)(2 * (position + i) + 1);
    }
    return v;
}

// A buffer of `size` bytes as a token of `kind`: 1 a mapping of this
// process, anything else a private buffer the blanket must shadow.
struct TokenBuffer {
    _zvmemorytoken token = {};
    std::vector<BYTE> local;
    TokenBuffer(DWORD size, DWORD kind)
    {
        if (kind == ZVMEMTOKEN_KIND_MAPPING) {
            ZvMemoryToken_CreateMapping(&token, size);
        } else {
            local.assign(size, 0xCD);
            ZvMemoryToken_InitLocal(&token, local.data(), size, kind);
        }
    }
    ~TokenBuffer()
    {
        if (local.empty())
            ZvMemoryToken_ReleaseMapping(&token);
    }
    BYTE *data() { return local.empty() ? (BYTE *)(ULONG_PTR)token.qwBase : local.data(); }
};

class SurrogateTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        CoInitializeEx(NULL, COINIT_MULTITHREADED);
        ZvProxy_Register();
    }
};

} // namespace tsworld
