#pragma once

// PM_CENTER_API marks what the shared library PmInstrumentCenter exports; everything else in it is hidden.
#if defined(_WIN32)
#if defined(PmInstrumentCenter_EXPORTS)
#define PM_CENTER_API __declspec(dllexport)
#else
#define PM_CENTER_API __declspec(dllimport)
#endif
#else
#define PM_CENTER_API __attribute__((visibility("default")))
#endif
