#pragma once

// KORINIMAGE_IO_API marks what the file library exports; everything else is hidden.
#if defined(_WIN32)
#if defined(KORINIMAGE_IO_BUILDING)
#define KORINIMAGE_IO_API __declspec(dllexport)
#else
#define KORINIMAGE_IO_API __declspec(dllimport)
#endif
#else
#define KORINIMAGE_IO_API __attribute__((visibility("default")))
#endif
