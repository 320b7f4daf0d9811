#include "core/Platform.h"

#include <dlfcn.h>

#include <atomic>
#include <ctime>

namespace Kes::platform {

void* loadLibrary(const char* fileName) {
    return dlopen(fileName, RTLD_NOW | RTLD_LOCAL);
}

void* findSymbol(void* library, const char* name) {
    return dlsym(library, name);
}

void releaseLibrary(void* library) {
    dlclose(library);
}

// A number of our own: the system's may be given again to a later thread, which
// would then pass for the owner of another one's model.
std::uint32_t currentThreadId() {
    static std::atomic<std::uint32_t> last{0};
    thread_local const std::uint32_t mine = ++last;
    return mine;
}

LocalTime localTime() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    localtime_r(&now, &parts);
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
            parts.tm_hour,        parts.tm_min,     parts.tm_sec};
}

}  // namespace Kes::platform
