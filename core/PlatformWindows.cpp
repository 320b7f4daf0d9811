#include "core/Platform.h"

#define NOMINMAX
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <atomic>
#include <ctime>

namespace Kes::platform {

void* loadLibrary(const char* fileName) {
    return LoadLibraryA(fileName);
}

void* findSymbol(void* library, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

void releaseLibrary(void* library) {
    FreeLibrary(static_cast<HMODULE>(library));
}

// A number of our own, as on the other systems: the system's is given again.
std::uint32_t currentThreadId() {
    static std::atomic<std::uint32_t> last{0};
    thread_local const std::uint32_t mine = ++last;
    return mine;
}

LocalTime localTime() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    localtime_s(&parts, &now);
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
            parts.tm_hour,        parts.tm_min,     parts.tm_sec};
}

}  // namespace Kes::platform
