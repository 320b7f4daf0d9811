// A server of a test's own, which it may set up, fill and stop as it likes.

#pragma once

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

#include "tests/drivers/TemporaryFolder.h"

namespace Kes::testing {

class OwnServer {
public:
    /// `itsSettings` are assignments of variables that the server's script in
    /// KES_TEST_ENGINES knows. Starts nothing.
    explicit OwnServer(std::string itsName, std::string itsSettings = "")
        : name(std::move(itsName)),
          settings(std::move(itsSettings)) {}
    OwnServer(const OwnServer&) = delete;
    OwnServer& operator=(const OwnServer&) = delete;
    ~OwnServer() {
        if (std::system(command("remove").c_str()) != 0)
            std::fputs("a server of a test's own is still there\n", stderr);
    }

    /// Whether this process may mount file systems that nobody else sees.
    static bool mayMount() {
        return geteuid() == 0 &&
               std::system("unshare -m mount -t tmpfs none /mnt > /dev/null 2>&1") == 0;
    }

    void start() { run(command("start")); }
    void stop() { run(command("stop")); }

    /// Starts it where the folder `inside` of its own is a file system of that
    /// many megabytes, which only the server sees and which goes when it stops.
    void startOn(int megabytes, const std::string& inside) {
        const std::string place = folder.path(name + "/" + inside);
        std::filesystem::create_directories(place);
        ::chmod(folder.path("").c_str(), 0755);
        run("unshare -m sh -c \"mount -t tmpfs -o mode=777,size=" + std::to_string(megabytes) +
            "m none '" + place + "' && " + command("start") + "\"");
    }

    /// The folder that the script was told.
    std::string home() const { return folder.path(""); }

    /// Another verb of the script.
    void order(const std::string& verb) { run(command(verb)); }

    /// Sends the signal to each process that works in the server's data folder.
    void signal(int number) const {
        const std::string data = says("place") + "/data";
        std::error_code ignored;
        for (const auto& each : std::filesystem::directory_iterator("/proc", ignored)) {
            const int process = std::atoi(each.path().filename().c_str());
            if (process > 0 && std::filesystem::read_symlink(each.path() / "cwd", ignored) == data)
                ::kill(process, number);
        }
    }

    std::string path(const std::string& inside) const { return folder.path(name + "/" + inside); }

    /// The first line of a file that the script wrote.
    std::string says(const std::string& file) const {
        std::string line;
        std::getline(std::ifstream(path(file)), line);
        return line;
    }

private:
    std::string command(const std::string& verb) const {
        return "KES_ENGINE_LIFE=300 " + settings + " " KES_TEST_ENGINES "/" + name + ".sh " + verb +
               " '" + folder.path("") + "'";
    }

    static void run(const std::string& text) {
        if (std::system(text.c_str()) != 0)
            throw std::runtime_error("this failed: " + text);
    }

    TemporaryFolder folder;
    std::string name;
    std::string settings;
};

}  // namespace Kes::testing
