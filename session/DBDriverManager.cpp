#include <kes/DBDriverManager.h>

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

private:
    EntryFunction load(const String& name);
    static String getFileName(const String& name);

    Mutex mutex;
    std::map<std::string, EntryFunction> entries;  // by the name as it was asked for
    std::vector<void*> libraries;                  // in load order
    String location{"the place where you got Kes"};
};

DBDriver* Loader::getDriver(const String& name) {
    const MutexGuard guard(mutex);
    const auto known = entries.find(static_cast<const char*>(name));
    const EntryFunction entry = known != entries.end() ? known->second : load(name);
    return entry != nullptr ? entry() : nullptr;
}

EntryFunction Loader::load(const String& name) {
    const String file = getFileName(name);
    void* library = platform::loadLibrary(file);
    if (library == nullptr)
        return nullptr;

    // Listed before anything else can fail, so that it is released in the end.
    libraries.push_back(library);
    const auto entry = reinterpret_cast<EntryFunction>(platform::findSymbol(library, "gdd"));
    if (entry == nullptr) {
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

void DBDriverManager::setDownloadLocation(const String& location) {
    theLoader().setLocation(location);
}

}  // namespace Kes
