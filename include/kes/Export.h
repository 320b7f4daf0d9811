// Which symbols the library shows to its users.

#pragma once

#if defined(_WIN32)
#if defined(KES_BUILDING)
#define KES_EXPORT __declspec(dllexport)
#else
#define KES_EXPORT __declspec(dllimport)
#endif
#else
#define KES_EXPORT __attribute__((visibility("default")))
#endif
