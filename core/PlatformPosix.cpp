#include "core/Platform.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <filesystem>

namespace Kes::platform {

namespace {

// Of the thread that got its number last.
std::atomic<std::uint32_t> myLastThread{0};

// Written in a new process, before it has a second thread.
std::uint32_t myLastBeforeFork = 0;
std::uint32_t myForks = 0;

// The only thread that a fork leaves gets a number of its own: nobody in the
// child is the thread that a model of the parent belongs to.
void enterChild() {
    myLastBeforeFork = myLastThread;
    myThreadId = 0;
    ++myForks;
}

[[maybe_unused]] const int myRegistration = pthread_atfork(nullptr, nullptr, enterChild);

std::string findOwnFolder() {
    Dl_info info{};
    std::error_code ignored;
    if (dladdr(&myForks, &info) == 0 || info.dli_fname == nullptr)
        return "";
    return std::filesystem::absolute(info.dli_fname, ignored).parent_path().string();
}

// Asked for at once: a path may be relative to the folder that the program
// started in.
const std::string& myOwnFolder = *new std::string(findOwnFolder());

}  // namespace

constinit thread_local std::uint32_t myThreadId = 0;

void* loadLibrary(const char* fileName, std::string& reason) {
    void* library = dlopen(fileName, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        reason = dlerror();
    return library;
}

const std::string& ownFolder() {
    return myOwnFolder;
}

void* findSymbol(void* library, const char* name) {
    return dlsym(library, name);
}

void releaseLibrary(void* library) {
    dlclose(library);
}

// A number of our own: the system's may be given again to a later thread, which
// would then pass for the owner of another one's model.
std::uint32_t takeThreadId() {
    return myThreadId = ++myLastThread;
}

bool isFromBeforeFork(std::uint32_t threadId) {
    return threadId <= myLastBeforeFork;
}

std::uint32_t forkCount() {
    return myForks;
}

bool claimOutput() {
    return ftrylockfile(stdout) == 0;
}

LocalTime localTime() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    tzset();  // localtime_r need not look whether TZ has changed
    localtime_r(&now, &parts);
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
            parts.tm_hour,        parts.tm_min,     parts.tm_sec};
}

}  // namespace Kes::platform
