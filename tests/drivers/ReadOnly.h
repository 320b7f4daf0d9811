// Files and folders that cannot be written, by root neither.

#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

namespace Kes::testing {

/// Root writes what nobody may, so for root they are mounted for reading, where
/// this process alone sees it; anybody else loses the right.
class ReadOnly {
public:
    ReadOnly() : mounts(geteuid() == 0) {
        possible = !mounts || (::unshare(CLONE_NEWNS) == 0 &&
                               ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0);
    }
    ReadOnly(const ReadOnly&) = delete;
    ReadOnly& operator=(const ReadOnly&) = delete;
    ~ReadOnly() {
        for (; !mounted.empty(); mounted.pop_back())
            ::umount2(mounted.back().c_str(), MNT_DETACH);
        for (const std::string& path : closed)
            std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    }

    /// Whether this process can do it.
    bool isPossible() const { return possible; }

    /// Makes a file read-only, or a folder with all that is in it but the file
    /// that is named, which has to exist.
    void make(const std::string& path, const std::string& but = "") {
        if (!mounts)
            return close(path, but);
        const std::string kept = path + "-kept";
        if (!but.empty()) {
            std::filesystem::create_directory(kept);
            bind(path, kept);
        }
        bind(path, path);
        possible &=
            ::mount(nullptr, path.c_str(), nullptr, MS_REMOUNT | MS_RDONLY | MS_BIND, nullptr) == 0;
        if (!but.empty())
            bind(kept + "/" + but, path + "/" + but);
    }

private:
    void bind(const std::string& what, const std::string& where) {
        possible &= ::mount(what.c_str(), where.c_str(), nullptr, MS_BIND, nullptr) == 0;
        mounted.push_back(where);
    }

    void close(const std::string& path, const std::string& but) {
        using std::filesystem::perms;
        const perms reading = perms::owner_read | perms::owner_exec;
        if (std::filesystem::is_directory(path))
            for (const auto& each : std::filesystem::directory_iterator(path))
                if (each.path().filename() != but)
                    std::filesystem::permissions(each, perms::owner_read);
        std::filesystem::permissions(path, reading);
        closed.push_back(path);
    }

    bool mounts;
    bool possible = false;
    std::vector<std::string> mounted;
    std::vector<std::string> closed;
};

}  // namespace Kes::testing
