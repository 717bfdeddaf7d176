#pragma once

// PM_FEED_API marks what the shared library PmFeed exports; everything else in it is hidden.
#if defined(_WIN32)
#if defined(PmFeed_EXPORTS)
#define PM_FEED_API __declspec(dllexport)
#else
#define PM_FEED_API __declspec(dllimport)
#endif
#else
#define PM_FEED_API __attribute__((visibility("default")))
#endif
