// What the library needs of the operating system.

#pragma once

#include <cstdint>
#include <string>

namespace Kes::platform {

/// Loads a library, by a bare file name with the system's ordinary search; null
/// when it is not to be had, and `reason` is what the system says then.
void* loadLibrary(const char* fileName, std::string& reason);

/// Null when the library does not export the symbol.
void* findSymbol(void* library, const char* name);
void releaseLibrary(void* library);

/// The absolute path of the folder that this library lies in, as it was when the
/// library was loaded; empty where the system does not tell.
const std::string& ownFolder();

// 0 until the thread is asked for its number, and in the child of a fork again.
extern constinit thread_local std::uint32_t myThreadId;
std::uint32_t takeThreadId();

/// From 1 to 2^31 - 1, never the same for two threads of the process's life, nor
/// for a thread of it and one of the process that it was forked from.
inline std::uint32_t currentThreadId() {
    return myThreadId != 0 ? myThreadId : takeThreadId();
}

/// Whether the number is a thread's of a process that this one was forked from.
bool isFromBeforeFork(std::uint32_t threadId);

/// How many forks lie between the process that loaded the library and this one.
std::uint32_t forkCount();

/// Claims standard output for the calling thread; false when another holds it.
bool claimOutput();

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
