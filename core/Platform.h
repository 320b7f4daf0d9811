// What the library needs of the operating system.

#pragma once

#include <cstdint>

namespace Kes::platform {

/// Loads a library by file name with the system's ordinary search; null when
/// it is not to be had.
void* loadLibrary(const char* fileName);

/// Null when the library does not export the symbol.
void* findSymbol(void* library, const char* name);
void releaseLibrary(void* library);

/// Never 0, and never the same for two threads of the process's life.
std::uint32_t currentThreadId();

struct LocalTime {
    int year;   // e.g. 2004
    int month;  // 1 to 12
    int day;    // 1 to 31
    int hour;
    int minute;
    int second;
};

LocalTime localTime();

}  // namespace Kes::platform
