// The server module: lock count over the server process count, the object
// map, class object registration, the shutdown event and its monitor thread.
#include "vantry.h"
#include <tlhelp32.h>

static struct vantry_objmap_entry vantry_objmap[] = {
    { &CLSID_Vantry32, vantry32_create_factory, NULL, 0 },
};

struct vantry_module vantry_module;

void vantry_module_init(void)
{
    struct vantry_module *m = &vantry_module;
    m->main_thread = GetCurrentThreadId();
    m->shutdown_timeout = 5000;
    m->pause = 1000;
    m->delay_shutdown = TRUE;
    m->objmap = vantry_objmap;
    m->objmap_count = sizeof(vantry_objmap) / sizeof(vantry_objmap[0]);
    if (!InitializeCriticalSectionAndSpinCount(&m->cs, 0))
        m->failed = TRUE;
}

void vantry_module_term(void)
{
    struct vantry_module *m = &vantry_module;
    for (unsigned i = 0; i < m->objmap_count; i++)
        if (m->objmap[i].object_main)
            m->objmap[i].object_main(FALSE);
    if (m->event_owned) {
        CloseHandle(m->event_owned);
        m->event_owned = NULL;
    }
    if (m->client_process) {
        CloseHandle(m->client_process);
        m->client_process = NULL;
    }
    if (!m->failed)
        DeleteCriticalSection(&m->cs);
}

LONG vantry_module_lock(void)
{
    LONG count = (LONG)CoAddRefServerProcess();
    InterlockedExchange(&vantry_module.lock_count, count);
    return count;
}

LONG vantry_module_unlock(void)
{
    struct vantry_module *m = &vantry_module;
    LONG count = (LONG)CoReleaseServerProcess();
    InterlockedExchange(&m->lock_count, count);
    if (count != 0)
        return count;
    if (m->delay_shutdown) {
        m->activity = TRUE;
        HANDLE event = m->shutdown_event;
        if (event)
            SetEvent(event);
    } else {
        PostThreadMessageW(m->main_thread, WM_QUIT, 0, 0);
    }
    return 0;
}

LONG vantry_module_get_lock_count(void)
{
    return vantry_module.lock_count;
}

HRESULT vantry_module_get_git(IGlobalInterfaceTable **git)
{
    struct vantry_module *m = &vantry_module;
    if (!git)
        return E_POINTER;
    *git = NULL;
    HRESULT hr = S_OK;
    EnterCriticalSection(&m->cs);
    if (!m->git)
        hr = CoCreateInstance(CLSID_StdGlobalInterfaceTable, NULL, CLSCTX_INPROC_SERVER,
                              IID_IGlobalInterfaceTable, (void **)&m->git);
    if (m->git) {
        IGlobalInterfaceTable_AddRef(m->git);
        *git = m->git;
    }
    LeaveCriticalSection(&m->cs);
    return hr;
}

// The process carries no registry script: there is nothing to write, and the
// client never asks COM to start the server.
HRESULT vantry_module_register(BOOL per_user)
{
    vantry_module.per_user = (BYTE)per_user;
    return S_OK;
}

HRESULT vantry_module_unregister(BOOL per_user)
{
    vantry_module.per_user = (BYTE)per_user;
    return S_OK;
}

static HRESULT register_class_objects(void)
{
    struct vantry_module *m = &vantry_module;
    HRESULT hr = S_FALSE;
    EnterCriticalSection(&m->cs);
    for (unsigned i = 0; i < m->objmap_count; i++) {
        struct vantry_objmap_entry *e = &m->objmap[i];
        IUnknown *factory = NULL;
        hr = e->create_factory(IID_IUnknown, (void **)&factory);
        if (SUCCEEDED(hr)) {
            hr = CoRegisterClassObject(*e->clsid, factory, CLSCTX_LOCAL_SERVER,
                                       REGCLS_MULTIPLEUSE | REGCLS_SUSPENDED, &e->cookie);
            IUnknown_Release(factory);
        }
        if (FAILED(hr))
            break;
    }
    LeaveCriticalSection(&m->cs);
    return hr;
}

static HRESULT revoke_class_objects(void)
{
    struct vantry_module *m = &vantry_module;
    HRESULT hr = S_OK;
    EnterCriticalSection(&m->cs);
    for (unsigned i = 0; i < m->objmap_count; i++) {
        struct vantry_objmap_entry *e = &m->objmap[i];
        if (!e->cookie)
            continue;
        hr = CoRevokeClassObject(e->cookie);
        e->cookie = 0;
        if (FAILED(hr))
            break;
    }
    LeaveCriticalSection(&m->cs);
    return hr;
}

// The client that launched this process: its parent, if that process is
// still the one that existed when this one was created.
static HANDLE open_client_process(void)
{
    DWORD self = GetCurrentProcessId(), parent = 0;
    HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snap == INVALID_HANDLE_VALUE)
        return NULL;
    PROCESSENTRY32W pe;
    pe.dwSize = sizeof(pe);
    for (BOOL ok = Process32FirstW(snap, &pe); ok; ok = Process32NextW(snap, &pe))
        if (pe.th32ProcessID == self) {
            parent = pe.th32ParentProcessID;
            break;
        }
    CloseHandle(snap);
    if (!parent)
        return NULL;
    HANDLE process = OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, parent);
    if (!process)
        return NULL;
    // a reused process id belongs to a process younger than this one
    FILETIME parent_created, self_created, t1, t2, t3;
    if (GetProcessTimes(process, &parent_created, &t1, &t2, &t3) &&
        GetProcessTimes(GetCurrentProcess(), &self_created, &t1, &t2, &t3) &&
        CompareFileTime(&parent_created, &self_created) > 0) {
        CloseHandle(process);
        return NULL;
    }
    return process;
}

// Waits for the shutdown event, or for the death of the client, which would
// otherwise leave this process waiting for a release that never comes.
static DWORD WINAPI monitor_thread(void *arg)
{
    struct vantry_module *m = &vantry_module;
    HANDLE handles[2] = { (HANDLE)arg, m->client_process };
    WaitForMultipleObjects(handles[1] ? 2 : 1, handles, FALSE, INFINITE);
    InterlockedExchangePointer(&m->shutdown_event, NULL);
    PostThreadMessageW(m->main_thread, WM_QUIT, 0, 0);
    return 0;
}

static HRESULT register_process_class(void)
{
    struct vantry_module *m = &vantry_module;
    IUnknown *factory = NULL;
    HRESULT hr = vantry32_create_factory(IID_IUnknown, (void **)&factory);
    if (FAILED(hr))
        return hr;
    CLSID clsid;
    Vantry_ProcessClassId(GetCurrentProcessId(), &clsid);
    if (FAILED(CoRegisterClassObject(clsid, factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                                     &m->process_cookie)))
        m->process_cookie = 0;
    IUnknown_Release(factory);
    return hr;
}

HRESULT vantry_module_pre_message_loop(void)
{
    struct vantry_module *m = &vantry_module;
    HRESULT hr = register_class_objects();
    if (FAILED(hr))
        return hr;
    if (hr == S_FALSE) {
        m->delay_shutdown = FALSE;
    } else if (m->delay_shutdown) {
        HANDLE event = CreateEventW(NULL, FALSE, FALSE, NULL);
        HANDLE thread = NULL;
        if (event) {
            m->event_owned = event;
            m->shutdown_event = event;
            m->client_process = open_client_process();
            thread = CreateThread(NULL, 0, monitor_thread, event, 0, NULL);
        }
        if (!thread) {
            m->shutdown_event = NULL;
            revoke_class_objects();
            return E_FAIL;
        }
        hr = CoResumeClassObjects();
        if (FAILED(hr)) {
            SetEvent(event);
            WaitForSingleObject(thread, m->shutdown_timeout * 2);
            revoke_class_objects();
        }
        CloseHandle(thread);
        if (FAILED(hr))
            return hr;
    } else {
        hr = CoResumeClassObjects();
        if (FAILED(hr)) {
            revoke_class_objects();
            return hr;
        }
    }
    return register_process_class();
}

HRESULT vantry_module_post_message_loop(void)
{
    struct vantry_module *m = &vantry_module;
    HRESULT hr = revoke_class_objects();
    // the surrogate object's clean-up may still be running on a pool thread
    if (m->delay_shutdown)
        Sleep(m->pause);
    if (m->process_cookie) {
        CoRevokeClassObject(m->process_cookie);
        m->process_cookie = 0;
    }
    return hr;
}
