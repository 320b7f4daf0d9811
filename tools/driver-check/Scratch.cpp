#include "Scratch.h"

#include <filesystem>
#include <memory>

#include <kes/DBDriver.h>
#include <kes/DBDriverManager.h>

#include "Shape.h"

namespace Kes::check {

namespace {

constexpr const char* Mark = "kes-driver-check";
constexpr unsigned long LargestFreshId = 100;

std::unique_ptr<DBDriver> openDriver(const Settings& settings, std::string& fault) {
    std::unique_ptr<DBDriver> driver(DBDriverManager::getDBDriver(settings.driver.c_str()));
    if (driver == nullptr) {
        fault = "there is no driver \"" + settings.driver + "\"";
        return nullptr;
    }
    if (!driver->open(settings.source.c_str(), settings.password.c_str(), settings.user.c_str(),
                      settings.options.c_str())) {
        fault = static_cast<const char*>(driver->getErrorMessage());
        return nullptr;
    }
    return driver;
}

std::string markUse(DBDriver& driver, int run) {
    driver.setVersion(Mark, run, "MODEL");
    return driver.commit() ? "" : static_cast<const char*>(driver.getErrorMessage());
}

// Each check looks at what it wrote with a second session.
std::string checkSecondSession(const Settings& settings, int run) {
    std::string fault;
    const std::unique_ptr<DBDriver> second = openDriver(settings, fault);
    if (second == nullptr)
        return fault;
    const int seen = second->getVersion(Mark, "MODEL");
    second->close();
    return seen == run ? ""
                       : "a second session does not see what the first one wrote; name a database "
                         "that is shared, such as a file instead of one in memory";
}

}  // namespace

std::string prepareScratch(Settings& settings, bool force) {
    std::error_code ignored;
    if (!force && std::filesystem::is_regular_file(settings.source, ignored) &&
        std::filesystem::file_size(settings.source, ignored) > 0)
        return "the file " + settings.source +
               " holds something already; name a new one, or give --force to use this one";
    std::string fault;
    const std::unique_ptr<DBDriver> driver = openDriver(settings, fault);
    if (driver == nullptr)
        return fault;
    const int earlier = driver->getVersion(Mark, "MODEL");
    const unsigned long id = driver->newObjectID();
    if (earlier > 0 && !force)
        return "the database was used by an earlier run; give an empty one, or --force to use it "
               "again";
    if (earlier <= 0 && id > LargestFreshId && !force)
        return "the database holds objects of another program; give an empty one, or --force to "
               "fill this one";
    const int run = earlier > 0 ? earlier + 1 : 1;
    fault = markUse(*driver, run);
    driver->close();
    if (run > 1 || id > LargestFreshId)
        settings.tag = "_" + std::to_string(run);
    return fault.empty() ? checkSecondSession(settings, run) : fault;
}

}  // namespace Kes::check
