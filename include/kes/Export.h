// What the shared library shows to its users.
//
// Everything is hidden unless a declaration carries one of these words.

#pragma once

#if defined(KES_STATIC)
#define KES_EXPORT
#define KES_DRIVER_EXPORT
#elif defined(_WIN32)
// CMake defines kes_EXPORTS while it compiles the library's own sources.
#if defined(kes_EXPORTS)
#define KES_EXPORT __declspec(dllexport)
#else
#define KES_EXPORT __declspec(dllimport)
#endif
#define KES_DRIVER_EXPORT __declspec(dllexport)
#elif defined(__GNUC__)
#define KES_EXPORT __attribute__((visibility("default")))
// Marks the entry function that a driver library shows to Kes.
#define KES_DRIVER_EXPORT __attribute__((visibility("default")))
#else
#define KES_EXPORT
#define KES_DRIVER_EXPORT
#endif
