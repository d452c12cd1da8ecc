// Records that cross the manager's creation and the surrogate link.
#pragma once
#include "zvbase.h"
#include <stddef.h>

#define ZVFIO_METRIC_COUNT 90

// The manager's metric table as it crosses to a surrogate: a mask and the
// values, taken by both sides as these two parts.
typedef struct _ZVFIO_INITIALIZATION_METRICS {
    BYTE mask[ZVFIO_METRIC_COUNT];
    BYTE pad[2];
    LONG values[ZVFIO_METRIC_COUNT];
} _ZVFIO_INITIALIZATION_METRICS;
static_assert(sizeof(_ZVFIO_INITIALIZATION_METRICS) == 452, "initialisation metrics are 452 bytes");

// What the application passes at creation.
typedef struct _ZVFIO_KEYED_INFO {
    DWORD dwKey;                    // the product's own word; not read here
    LONG cClassIds;                 // class filter
    const GUID *pClassIds;
    DWORD dwFilterFlags;
    const WCHAR *const *ppSkipNames; // DLL file names left out of discovery
    LONG cSkipNames;
    WCHAR szLogPath[MAX_PATH];
    _ZVFIO_INITIALIZATION_METRICS metrics;
} _ZVFIO_KEYED_INFO;
#if defined(_M_IX86) || defined(__i386__)
static_assert(offsetof(_ZVFIO_KEYED_INFO, szLogPath) == 24, "log path from the seventh word");
static_assert(offsetof(_ZVFIO_KEYED_INFO, metrics) == 0x220, "metrics at 0x220");
#endif

// creation flags
#define ZVFIO_CREATE_FULLLISTING  0x004u  // metric 0: no cache use, list everything
#define ZVFIO_CREATE_BESIDEPROGRAM 0x040u // data files beside the program
#define ZVFIO_CREATE_NOCACHE      0x080u  // no cache use and no cache written
#define ZVFIO_CREATE_MANAGERONLY  0x100u  // no listing, no plug-in list
#define ZVFIO_CREATE_NOVERSION    0x200u  // product folder without version
#define ZVFIO_CREATE_LOGGER       0x400u  // create a logger

// manager metric ids
#define ZVFIO_METRIC_FORCELISTING  0
#define ZVFIO_METRIC_IDENTIFYOPT   11
#define ZVFIO_METRIC_NOSLOWIDENT   27
#define ZVFIO_METRIC_LOADSPECIAL   76
#define ZVFIO_METRIC_LOGLOADING    78
#define ZVFIO_METRIC_IDENTLOGLEVEL 79
