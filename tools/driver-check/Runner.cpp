#include "Runner.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>

#include <nlohmann/json.hpp>

#include "Shape.h"
#include "Watchdog.h"

namespace Kes::check {

namespace {

// The check under way, and who runs it, for the ways in which a run ends in the
// middle.
std::string myCurrent;
Runner* myRunner = nullptr;
volatile std::sig_atomic_t myInterruption = 0;

void reportExit() {
    if (myCurrent.empty())
        return;
    myRunner->reportEnd("the process ended in this check");
    std::_Exit(1);  // whatever status it would have ended with
}

// Little is allowed here; a name is found and written without memory being asked
// for. The counts and the report may be lost: a process that crashed while it
// asked for memory waits for itself, and the alarm ends it.
void reportCrash(int) {
    for (const char* text : {"FAILED ", myCurrent.c_str(), ": the process crashed in this check\n"})
        if (write(STDOUT_FILENO, text, std::strlen(text)) < 0)
            break;
    for (const int crash : {SIGSEGV, SIGABRT, SIGFPE, SIGBUS, SIGILL, SIGALRM})
        std::signal(crash, [](int) { std::_Exit(1); });
    alarm(5);
    myRunner->reportEnd("");
    std::_Exit(1);
}

// Ends the run after the check under way; the second time at once.
void reportInterruption(int signal) {
    myInterruption = signal;
    std::signal(signal, SIG_DFL);
}

void watchForTheEnd() {
    std::atexit(reportExit);
    for (const int crash : {SIGSEGV, SIGABRT, SIGFPE, SIGBUS, SIGILL})
        std::signal(crash, reportCrash);
    for (const int interruption : {SIGINT, SIGTERM, SIGHUP})
        std::signal(interruption, reportInterruption);
}

std::string joined(const std::vector<std::string>& texts, const char* separator) {
    std::string whole;
    for (const std::string& text : texts)
        whole += (whole.empty() ? "" : separator) + text;
    return whole;
}

// Several failures of one check often repeat one another.
std::string firstOf(const std::vector<std::string>& failures) {
    constexpr std::size_t most = 3;
    if (failures.size() <= most)
        return joined(failures, "; ");
    return joined({failures.begin(), failures.begin() + most}, "; ") + "; and " +
           std::to_string(failures.size() - most) + " more";
}

}  // namespace

bool isSelected(const std::string& name, const std::string& pattern) {
    if (pattern.find('*') == std::string::npos)
        return name.find(pattern) != std::string::npos;
    std::size_t at = 0;
    for (std::size_t from = 0; from <= pattern.size();) {
        const std::size_t end = std::min(pattern.find('*', from), pattern.size());
        const std::string part = pattern.substr(from, end - from);
        const bool isLast = end == pattern.size();
        const std::size_t place = isLast && name.size() >= at + part.size()
                                      ? name.size() - part.size()
                                      : name.find(part, at);
        if (place == std::string::npos || (from == 0 && place != 0) ||
            name.compare(place, part.size(), part) != 0)
            return false;
        at = place + part.size();
        from = end + 1;
    }
    return true;
}

int Runner::run(const std::vector<Suite::Entry>& entries) {
    myRunner = this;
    wanted = entries.size();
    watchForTheEnd();
    for (const Suite::Entry& entry : entries)
        if (myInterruption == 0)
            runOne(entry);
    printSummary();
    if (!writeJson())
        return 2;
    if (myInterruption != 0)
        return 128 + myInterruption;
    return failed() == 0 ? 0 : 1;
}

void Runner::runOne(const Suite::Entry& entry) {
    Check check(settings, refusals);
    const auto start = std::chrono::steady_clock::now();
    myCurrent = entry.name;
    runInTime(entry, check);
    myCurrent.clear();
    const std::chrono::duration<double, std::milli> spent =
        std::chrono::steady_clock::now() - start;
    results.push_back(
        {entry.name, check.failures(), check.notes(), check.wasRefused(), spent.count()});
    if (!check.failures().empty()) {
        std::cout << "FAILED " << entry.name << ": " << firstOf(check.failures()) << std::endl;
        return;
    }
    std::cout << "ok     " << entry.name << (check.wasRefused() ? " (refused)" : "")
              << (check.notes().empty() ? "" : " (" + check.notes() + ")") << std::endl;
}

void Runner::reportEnd(const std::string& how) {
    if (!how.empty())
        std::cout << "FAILED " << myCurrent << ": " << how << std::endl;
    results.push_back(
        {myCurrent, {how.empty() ? "the process crashed in this check" : how}, "", false, 0});
    myCurrent.clear();
    printSummary();
    static_cast<void>(writeJson());
}

void Runner::runInTime(const Suite::Entry& entry, Check& check) {
    const Watchdog watchdog(secondsLimit, [&] {
        reportEnd("it takes more than " + std::to_string(secondsLimit) +
                  " seconds; the run ends here");
        std::_Exit(1);
    });
    try {
        entry.body(check);
    } catch (const Abandoned& abandoned) {
        check.expect(false, abandoned.what());
    } catch (const Exception& raised) {
        check.expect(false, "raised " + std::string(raised.getCode()) + " in " +
                                raised.getContext() + ": " + raised.getMessage());
    } catch (const std::exception& thrown) {
        check.expect(false, std::string("threw: ") + thrown.what());
    }
}

int Runner::failed() const {
    return static_cast<int>(std::count_if(
        results.begin(), results.end(), [](const Result& each) { return !each.failures.empty(); }));
}

void Runner::printSummary() const {
    const std::vector<std::string> refused = refusals.seen();
    std::cout << "refuses: " << (refused.empty() ? "nothing" : joined(refused, ",")) << '\n'
              << "leaves behind: the tables of " << classesLeft().size()
              << " classes, their version records and used object ids\n"
              << static_cast<int>(results.size()) - failed() << " ok, " << failed() << " FAILED";
    if (results.size() < wanted)
        std::cout << ", " << wanted - results.size() << " not run";
    std::cout << std::endl;
}

bool Runner::writeJson() const {
    if (json.empty())
        return true;
    nlohmann::ordered_json report;
    report["driver"] = settings.driver;
    report["passed"] = static_cast<int>(results.size()) - failed();
    report["failed"] = failed();
    report["notRun"] = wanted - results.size();
    report["refuses"] = refusals.seen();
    report["classesLeft"] = classesLeft();
    report["checks"] = nlohmann::ordered_json::array();
    for (const Result& each : results) {
        report["checks"].push_back({{"name", each.name},
                                    {"ok", each.failures.empty()},
                                    {"refused", each.wasRefused},
                                    {"failures", each.failures},
                                    {"milliseconds", each.milliseconds}});
        if (!each.notes.empty())
            report["checks"].back()["note"] = each.notes;
    }
    std::ofstream out(json);
    // Messages may quote bytes that are no UTF-8.
    out << report.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    if (out.flush())
        return true;
    std::cerr << "kes-driver-check: the file " << json << " cannot be written\n";
    return false;
}

}  // namespace Kes::check
