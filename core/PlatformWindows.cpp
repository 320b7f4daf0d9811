#include "core/Platform.h"

#define NOMINMAX
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <atomic>
#include <ctime>
#include <system_error>

namespace Kes::platform {

constinit thread_local std::uint32_t myThreadId = 0;

namespace {

std::string findOwnFolder() {
    HMODULE self = nullptr;
    char path[MAX_PATH];
    const DWORD how =
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    if (!GetModuleHandleExA(how, reinterpret_cast<const char*>(&findOwnFolder), &self))
        return "";
    const std::string file(path, GetModuleFileNameA(self, path, MAX_PATH));
    return file.substr(0, file.find_last_of("\\/"));
}

}  // namespace

void* loadLibrary(const char* fileName, std::string& reason) {
    void* library = LoadLibraryA(fileName);
    if (library == nullptr)
        reason = std::system_category().message(static_cast<int>(GetLastError()));
    return library;
}

const std::string& ownFolder() {
    static const std::string& folder = *new std::string(findOwnFolder());
    return folder;
}

void* findSymbol(void* library, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

void releaseLibrary(void* library) {
    FreeLibrary(static_cast<HMODULE>(library));
}

// A number of our own, as on the other systems: the system's is given again.
std::uint32_t takeThreadId() {
    static std::atomic<std::uint32_t> last{0};
    return myThreadId = ++last;
}

// Processes are not forked here.
bool isFromBeforeFork(std::uint32_t) {
    return false;
}

std::uint32_t forkCount() {
    return 0;
}

bool claimOutput() {
    return true;
}

LocalTime localTime() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    _tzset();
    localtime_s(&parts, &now);
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
            parts.tm_hour,        parts.tm_min,     parts.tm_sec};
}

}  // namespace Kes::platform
