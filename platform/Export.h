#pragma once

// PM_PLATFORM_API marks what the shared library PmPlatform exports; everything else in it is hidden.
#if defined(_WIN32)
#if defined(PmPlatform_EXPORTS)
#define PM_PLATFORM_API __declspec(dllexport)
#else
#define PM_PLATFORM_API __declspec(dllimport)
#endif
#else
#define PM_PLATFORM_API __attribute__((visibility("default")))
#endif
