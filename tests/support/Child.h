// Processes that a test starts, and kills when it likes.

#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>

#include <kes/Exception.h>

namespace Kes::testing {

/// Does its work in a process of its own, which ends well when that returns
/// true. It is killed at the latest when the object goes.
class Child {
public:
    /// Tells the test something.
    using Report = std::function<void(const std::string&)>;

    explicit Child(const std::function<bool(const Report&)>& work) {
        int ends[2];
        if (pipe(ends) != 0 || (id = fork()) < 0)
            throw std::runtime_error("no further process");
        hearing = ends[0];
        if (id != 0) {
            close(ends[1]);
            return;
        }
        bool done = false;
        try {
            done = work([&](const std::string& text) {
                if (write(ends[1], text.data(), text.size()) < 0)
                    _exit(2);
            });
        } catch (const Exception& raised) {
            std::fprintf(stderr, "child: %s\n", static_cast<const char*>(raised.getMessage()));
            _exit(3);
        } catch (...) {
            _exit(3);
        }
        _exit(done ? 0 : 1);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        kill();
        close(hearing);
    }

    void kill() {
        if (id == 0)
            return;
        ::kill(id, SIGKILL);
        waitpid(id, nullptr, 0);
        id = 0;
    }

    /// All that it has told when it has ended.
    std::string says() {
        std::string all;
        char part[1024];
        for (ssize_t size = 1; size > 0;) {
            size = read(hearing, part, sizeof part);
            if (size > 0)
                all.append(part, static_cast<std::size_t>(size));
        }
        return all;
    }

    /// Waits for its end.
    bool succeeds() {
        int status = 0;
        const bool hasEnded = waitpid(id, &status, 0) == id;
        id = 0;
        return hasEnded && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

private:
    pid_t id = 0;
    int hearing = -1;
};

}  // namespace Kes::testing
