#pragma once

// KORINIMAGE_API marks what the shared library exports; everything else is hidden.
#if defined(_WIN32)
#if defined(KORINIMAGE_BUILDING)
#define KORINIMAGE_API __declspec(dllexport)
#elif defined(KORINIMAGE_STATIC)
#define KORINIMAGE_API
#else
#define KORINIMAGE_API __declspec(dllimport)
#endif
#else
#define KORINIMAGE_API __attribute__((visibility("default")))
#endif
