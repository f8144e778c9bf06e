#pragma once
// Symbol visibility of the library: it is built with hidden visibility, and only what a camera
// pipeline calls is marked for export.

#if defined(_WIN32)
#define RYX_SYNCHELPER_EXPORT
#else
#define RYX_SYNCHELPER_EXPORT __attribute__((visibility("default")))
#endif
