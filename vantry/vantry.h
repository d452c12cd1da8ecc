/*
 * Vantry.exe internals: the server module, the surrogate object and its class
 * factory. Objects are written as plain structs with explicit vtables, so
 * every source that includes this header sees the C form of the interfaces.
 */
#pragma once
#ifndef CINTERFACE
#define CINTERFACE
#endif
#ifndef CONST_VTABLE
#define CONST_VTABLE
#endif
#include <windows.h>
#include <objbase.h>
#include "zvsurrogate.h"
#include "vantrycmd.h"

/* The module: one per process, a global with static lifetime. */
struct vantry_objmap_entry
{
    const CLSID *clsid;
    HRESULT (*create_factory)(REFIID iid, void **out);
    void (*object_main)(BOOL starting);
    DWORD cookie;
};

struct vantry_module
{
    LONG lock_count;
    BYTE failed;                /* critical section could not be set up */
    DWORD main_thread;
    HANDLE shutdown_event;      /* the word Unlock signals; cleared by the monitor */
    DWORD shutdown_timeout;     /* ms, bounds the wait for the monitor on a failed resume */
    DWORD pause;                /* ms between revoking and tear-down */
    BYTE delay_shutdown;
    BYTE activity;
    BYTE com_initialized;
    DWORD process_cookie;       /* per-process class registration */

    CRITICAL_SECTION cs;        /* guards the object map and the GIT pointer */
    IGlobalInterfaceTable *git;
    HANDLE event_owned;         /* closed at the end, so a late Unlock never signals a stale handle */
    HANDLE client_process;      /* the launching client; its death ends the server */
    struct vantry_objmap_entry *objmap;
    unsigned objmap_count;
    BYTE per_user;              /* registration switches aimed at the current user */
};

extern struct vantry_module vantry_module;

void vantry_module_init(void);
void vantry_module_term(void);
LONG vantry_module_lock(void);
LONG vantry_module_unlock(void);
LONG vantry_module_get_lock_count(void);
HRESULT vantry_module_get_git(IGlobalInterfaceTable **git);

/* Handles a registration switch; the result is the exit code. */
HRESULT vantry_module_register(BOOL per_user);
HRESULT vantry_module_unregister(BOOL per_user);

/* Registers the class objects and the per-process class; S_OK means run the
   message loop, S_FALSE skip it, a failure ends the process. */
HRESULT vantry_module_pre_message_loop(void);
/* Revokes the class objects, pauses, revokes the per-process class. */
HRESULT vantry_module_post_message_loop(void);

/* CVantry32 */
HRESULT vantry32_create_factory(REFIID iid, void **out);
