#include <kes/DBDriverManager.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <kes/DBDriver.h>
#include <kes/Exception.h>
#include <kes/Mutex.h>

#include "core/Platform.h"

namespace Kes {

namespace {

using EntryFunction = DBDriver* (*)();

// Where the calling thread's last search has looked, and what it found there.
thread_local std::string myFailure;

// Knows the driver libraries of the process.
class Loader {
public:
    Loader() = default;
    Loader(const Loader&) = delete;
    Loader& operator=(const Loader&) = delete;
    ~Loader() {
        const MutexGuard guard(mutex);
        for (void* library : libraries)
            platform::releaseLibrary(library);
    }

    DBDriver* getDriver(const String& name);
    void setLocation(const String& text) {
        const MutexGuard guard(mutex);
        location = text.unshared();
    }

    void allowPaths(bool allowed) {
        const MutexGuard guard(mutex);
        pathsAllowed = allowed;
    }

private:
    EntryFunction load(const String& name);
    void* find(const String& file);
    static void* tryFile(const std::string& file);
    static String getFileName(const String& name);

    Mutex mutex;
    std::map<std::string, EntryFunction> entries;  // by the name as it was asked for
    std::vector<void*> libraries;                  // in load order
    String location{"the place where you got Kes"};
    bool pathsAllowed = true;
};

DBDriver* Loader::getDriver(const String& name) {
    const MutexGuard guard(mutex);
    const auto known = entries.find(static_cast<const char*>(name));
    const EntryFunction entry = known != entries.end() ? known->second : load(name);
    if (entry == nullptr)
        return nullptr;
    myFailure.clear();
    return entry();
}

EntryFunction Loader::load(const String& name) {
    const String file = getFileName(name);
    void* library = find(file);
    if (library == nullptr)
        return nullptr;

    // Listed before anything else can fail, so that it is released in the end.
    libraries.push_back(library);
    const auto entry = reinterpret_cast<EntryFunction>(platform::findSymbol(library, "gdd"));
    if (entry == nullptr) {
        myFailure += "it exports no function gdd";
        Exception(Exception::ERROR, "LOADDRIV", "DBDriverManager::getDBDriver",
                  String("Dynamic library ") + file +
                      " is corrupt please download the newest from " + location)
            .handle();
        return nullptr;
    }
    const MutexGuard guard(mutex);
    entries[static_cast<const char*>(name)] = entry;
    return entry;
}

// Beside the library first, by its whole path: the system searches the folders
// that the caller of its loader names, and in a program with a sanitizer that is
// not this library. Then wherever the system looks.
void* Loader::find(const String& file) {
    const bool isPath = std::strpbrk(file, "/\\") != nullptr;
    if (isPath && !pathsAllowed) {
        myFailure = static_cast<const char*>(file);
        myFailure += " is a path, which the application does not allow";
        return nullptr;
    }
    myFailure.clear();
    void* library = nullptr;
    if (!isPath && !platform::ownFolder().empty())
        library = tryFile(platform::ownFolder() + "/kes/" + static_cast<const char*>(file));
    if (library == nullptr)
        library = tryFile(static_cast<const char*>(file));
    return library;
}

void* Loader::tryFile(const std::string& file) {
    std::string reason;
    void* library = platform::loadLibrary(file.c_str(), reason);
    if (library != nullptr) {
        myFailure = file + ": ";
        return library;
    }
    if (!myFailure.empty())
        myFailure += "; ";
    myFailure += file + ": " + reason;
    return nullptr;
}

String Loader::getFileName(const String& name) {
    if (name.afterLast(".").toLower() == "dll")
        return name;
    return name + ".dll";
}

Loader& theLoader() {
    static Loader loader;
    return loader;
}

// Made when the library is loaded, so that it outlives the application's
// static objects, which may own models.
[[maybe_unused]] const Loader& myLoaderAtStart = theLoader();

}  // namespace

DBDriver* DBDriverManager::getDBDriver(const String& name) {
    return theLoader().getDriver(name);
}

String DBDriverManager::getFailure() {
    return String(myFailure.c_str());
}

void DBDriverManager::setPathsAllowed(bool allowed) {
    theLoader().allowPaths(allowed);
}

void DBDriverManager::setDownloadLocation(const String& location) {
    theLoader().setLocation(location);
}

}  // namespace Kes
