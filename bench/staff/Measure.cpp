#include "bench/staff/Measure.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>

#include <kes/Exception.h>

namespace bench {

namespace {

using Time = std::chrono::steady_clock;

constexpr unsigned LongestStep = 600;  // seconds

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

Measurement runHere(const std::string& program, const std::string& step, const std::string& file,
                    const StaffData& data) {
    Measurement measured;
    Time::time_point started;
    rusage before{};
    Clock clock;
    clock.start = [&] {
        getrusage(RUSAGE_SELF, &before);
        started = Time::now();
    };
    clock.stop = [&] {
        const std::chrono::duration<double, std::milli> spent = Time::now() - started;
        rusage after{};
        getrusage(RUSAGE_SELF, &after);
        measured.milliseconds = spent.count();
        measured.userSeconds = secondsOf(after.ru_utime) - secondsOf(before.ru_utime);
        measured.systemSeconds = secondsOf(after.ru_stime) - secondsOf(before.ru_stime);
        measured.peakKiB = after.ru_maxrss;
    };
    measured.result = (program == "kes" ? runKes : runPlain)(step, file, data, clock);
    return measured;
}

[[noreturn]] void runAndReport(int pipe, const std::string& program, const std::string& step,
                               const std::string& file, const StaffData& data) {
    alarm(LongestStep);
    int status = EXIT_FAILURE;
    try {
        const Measurement measured = runHere(program, step, file, data);
        if (write(pipe, &measured, sizeof measured) == static_cast<ssize_t>(sizeof measured))
            status = EXIT_SUCCESS;
    } catch (Kes::Exception& raised) {
        std::cerr << raised.asString() << "\n";
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << "\n";
    }
    _exit(status);
}

}  // namespace

Measurement measure(const std::string& program, const std::string& step, const std::string& file,
                    const StaffData& data) {
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("no process");
    if (child == 0) {
        close(ends[0]);
        runAndReport(ends[1], program, step, file, data);
    }
    close(ends[1]);
    Measurement measured;
    const bool isWhole =
        read(ends[0], &measured, sizeof measured) == static_cast<ssize_t>(sizeof measured);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!isWhole || status != 0)
        throw std::runtime_error("the step " + step + " of the program " + program + " failed");
    return measured;
}

Spread spreadOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto at = [&](double part) {
        const double place = part * static_cast<double>(values.size() - 1);
        const auto low = static_cast<std::size_t>(place);
        const std::size_t high = std::min(low + 1, values.size() - 1);
        const double rest = place - static_cast<double>(low);
        return values[low] * (1 - rest) + values[high] * rest;
    };
    return {at(0.5), values.front(), values.back(), at(0.25), at(0.75)};
}

}  // namespace bench
