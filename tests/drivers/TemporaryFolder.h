// A folder that lives as long as a test.
//
// A process that is killed cannot remove its own, so the next one does: who holds
// a folder has locked it, and a lock ends with the process and those that it made.

#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace Kes::testing {

class TemporaryFolder {
public:
    TemporaryFolder() {
        [[maybe_unused]] static const bool isTidy = removeAbandoned();
        std::string pattern = std::filesystem::temp_directory_path() / "kes-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
        folder = pattern;
        lock = tryToLock(folder);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
        close(lock);
    }

    std::string path(const std::string& name) const { return folder / name; }

    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(path(name)) << text;
        return path(name);
    }

    /// Removes the folders of processes that did not come to it, an hour later.
    static bool removeAbandoned() {
        std::error_code ignored;
        for (const auto& each :
             std::filesystem::directory_iterator(std::filesystem::temp_directory_path(), ignored)) {
            if (!isAbandoned(each))
                continue;
            const int file = tryToLock(each.path());
            if (file == -1)
                continue;
            std::filesystem::remove_all(each.path(), ignored);
            close(file);
        }
        return true;
    }

private:
    // -1 when somebody else holds it.
    static int tryToLock(const std::filesystem::path& path) {
        const int file = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (file == -1 || flock(file, LOCK_EX | LOCK_NB) == 0)
            return file;
        close(file);
        return -1;
    }

    // One that was made just now may not be locked yet.
    static bool isAbandoned(const std::filesystem::directory_entry& each) {
        std::error_code ignored;
        const std::string name = each.path().filename();
        return name.size() == 10 && name.starts_with("kes-") && each.is_directory(ignored) &&
               std::filesystem::file_time_type::clock::now() - each.last_write_time(ignored) >
                   std::chrono::hours(1);
    }

    std::filesystem::path folder;
    int lock = -1;
};

}  // namespace Kes::testing
