// Template records that plug-ins hand out, in process or through the proxy
// of a surrogate, are blocks of this process's run-time heap: the caller
// frees them with free(). Checked from the multithreaded apartment, and for
// the in-process class from a single-threaded one too.
#include "surrogate_world.h"
#include "templates/zvtemplate.h"
#include <malloc.h>
#include <stdlib.h>
#include <thread>

using namespace tsworld;

namespace {

// What free() needs: a live block of the run-time's heap, at least as large
// as the record says.
void ExpectRunTimeBlock(const tagZVTEMPLATExV2 *t, const char *where)
{
    ASSERT_TRUE(t) << where;
    EXPECT_TRUE(HeapValidate((HANDLE)_get_heap_handle(), 0, t)) << where;
    EXPECT_GE(_msize((void *)t), (size_t)t->dwSize) << where;
}

void FetchAndFree(IZvRenderFileClass *cls, const char *where)
{
    for (LONG i = 0; i < TS_PRESETS; i++) {
        PZVTEMPLATE t = nullptr;
        ASSERT_EQ(S_OK, cls->GetTemplate(&t, i)) << where;
        ExpectRunTimeBlock(t, where);
        // a copy made here and a record set over it take the same way
        tagZVTEMPLATExV2 *copy = ZvFio_CopyTemplate(t);
        ExpectRunTimeBlock(copy, where);
        EXPECT_EQ(S_OK, ZvFio_SetTemplate(&copy, t, 0));
        free(copy);
    }
}

} // namespace

TEST_F(SurrogateTest, TemplatesOfPluginsAreFreedByTheCaller)
{
    World w;
    ASSERT_EQ(S_OK, w.created);
    IZvRenderFileClass *local = w.renderer(TS_G0), *routed = w.renderer(TS_G3);
    ASSERT_TRUE(local && routed);
    FetchAndFree(local, "in process");
    FetchAndFree(routed, "routed");
    std::thread sta([&] {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        FetchAndFree(local, "in process, STA");
        CoUninitialize();
    });
    sta.join();
    local->Release();
    routed->Release();
}
