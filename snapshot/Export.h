#pragma once

// PM_SNAPSHOT_API marks what the shared library PmSnapshot exports; everything else in it is hidden.
#if defined(_WIN32)
#if defined(PmSnapshot_EXPORTS)
#define PM_SNAPSHOT_API __declspec(dllexport)
#else
#define PM_SNAPSHOT_API __declspec(dllimport)
#endif
#else
#define PM_SNAPSHOT_API __attribute__((visibility("default")))
#endif
