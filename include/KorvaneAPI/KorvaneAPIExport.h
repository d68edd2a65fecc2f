// Marks what the library exports; everything else stays inside it.
#pragma once

#if defined(KORVANEAPI_BUILDING) || !defined(_WIN32)
#define KORVANEAPI_EXPORT __attribute__((visibility("default")))
#else
#define KORVANEAPI_EXPORT
#endif
