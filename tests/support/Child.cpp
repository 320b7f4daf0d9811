#include "tests/support/Child.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include <kes/Exception.h>

namespace Kes::testing {

namespace {

[[noreturn]] void runIn(int pipe, const std::function<bool(const Child::Report&)>& body) {
    const auto report = [pipe](const std::string& words) {
        const std::string line = words + "\n";
        if (write(pipe, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
            std::_Exit(3);
    };
    int status = 1;
    try {
        status = body(report) ? 0 : 1;
    } catch (const Exception& raised) {
        report(std::string("error ") + raised.getCode() + ": " + raised.getMessage());
    } catch (const std::exception& thrown) {
        report(std::string("error ") + thrown.what());
    }
    std::_Exit(status);
}

}  // namespace

void Child::start(const std::function<bool(const Report&)>& body) {
    int ends[2];
    if (::pipe(ends) != 0)
        throw std::runtime_error("no pipe is to be had");
    std::fflush(nullptr);
    process = fork();
    if (process == 0) {
        close(ends[0]);
        runIn(ends[1], body);
    }
    close(ends[1]);
    pipe = ends[0];
    if (process < 0)
        throw std::runtime_error("no process is to be had");
}

Child::~Child() {
    kill();
}

// Hears what is reported next. False when the process has ended or nothing came
// in time.
bool Child::hear(Time most) {
    pollfd waiting{pipe, POLLIN, 0};
    const timespec limit{most.count() / 1000000, most.count() % 1000000 * 1000};
    if (pipe < 0 || ppoll(&waiting, 1, &limit, nullptr) <= 0)
        return false;
    char buffer[4096];
    const ssize_t size = read(pipe, buffer, sizeof buffer);
    for (ssize_t i = 0; i < size; ++i) {
        if (buffer[i] != '\n') {
            partial += buffer[i];
            continue;
        }
        lines.push_back(partial);
        partial.clear();
    }
    if (size > 0)
        return true;
    reap();
    return false;
}

bool Child::awaitLines(const std::string& firstWord, std::size_t count, Time most) {
    const auto enough = [&] {
        return static_cast<std::size_t>(
                   std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
                       return firstWordOf(line) == firstWord;
                   })) >= count;
    };
    const auto end = std::chrono::steady_clock::now() + most;
    while (!enough()) {
        const auto left = end - std::chrono::steady_clock::now();
        if (left.count() <= 0 || !hear(std::chrono::duration_cast<Time>(left)))
            return enough();
    }
    return true;
}

void Child::listen(Time time) {
    const auto end = std::chrono::steady_clock::now() + time;
    for (auto left = end - std::chrono::steady_clock::now(); left.count() > 0 && pipe >= 0;
         left = end - std::chrono::steady_clock::now())
        hear(std::chrono::duration_cast<Time>(left));
}

void Child::kill() {
    if (pipe < 0)
        return;
    ::kill(process, SIGKILL);
    while (hear(std::chrono::seconds(10)))
        continue;
    reap();
}

int Child::awaitEnd(Time most) {
    listen(most);
    kill();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string Child::says(Time most) {
    awaitEnd(most);
    std::string all;
    for (const std::string& line : lines)
        all += (all.empty() ? "" : "\n") + line;
    return all;
}

void Child::reap() {
    if (pipe < 0)
        return;
    close(pipe);
    pipe = -1;
    waitpid(process, &status, 0);
}

std::string Child::last(const std::string& firstWord) const {
    for (auto line = lines.rbegin(); line != lines.rend(); ++line)
        if (firstWordOf(*line) == firstWord)
            return line->substr(std::min(line->size(), firstWord.size() + 1));
    return "";
}

std::string firstWordOf(const std::string& line) {
    return line.substr(0, line.find(' '));
}

std::vector<unsigned long> numbersIn(const std::string& text) {
    std::istringstream stream(text);
    std::vector<unsigned long> numbers;
    for (unsigned long number = 0; stream >> number;)
        numbers.push_back(number);
    return numbers;
}

}  // namespace Kes::testing
