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

// The check under way, for the two ways in which a run ends in the middle.
std::string myCurrent;

void reportEnd() {
    if (!myCurrent.empty())
        std::cout << "FAILED " << myCurrent << ": the process ended in this check" << std::endl;
}

// Little is allowed here; a name is found and written without memory being asked
// for.
void reportCrash(int) {
    for (const char* text : {"FAILED ", myCurrent.c_str(), ": the process crashed in this check\n"})
        if (write(STDOUT_FILENO, text, std::strlen(text)) < 0)
            break;
    std::_Exit(1);
}

void watchForTheEnd() {
    static const int registered = std::atexit(reportEnd);
    static_cast<void>(registered);
    for (const int crash : {SIGSEGV, SIGABRT, SIGFPE, SIGBUS, SIGILL})
        std::signal(crash, reportCrash);
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

void Runner::run(const Suite::Entry& entry) {
    watchForTheEnd();
    Check check(settings, refusals);
    const auto start = std::chrono::steady_clock::now();
    myCurrent = entry.name;
    runInTime(entry, check);
    myCurrent.clear();
    const std::chrono::duration<double, std::milli> spent =
        std::chrono::steady_clock::now() - start;
    results.push_back({entry.name, check.failures(), check.wasRefused(), spent.count()});
    if (check.failures().empty())
        std::cout << "ok     " << entry.name << (check.wasRefused() ? " (refused)" : "")
                  << std::endl;
    else
        std::cout << "FAILED " << entry.name << ": " << firstOf(check.failures()) << std::endl;
}

void Runner::runInTime(const Suite::Entry& entry, Check& check) {
    const Watchdog watchdog(secondsLimit, [&] {
        std::cout << "FAILED " << entry.name << ": it takes more than " << secondsLimit
                  << " seconds; the run ends here" << std::endl;
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
              << passed() << " ok, " << failed() << " FAILED" << std::endl;
}

bool Runner::writeJson(const std::string& file) const {
    nlohmann::ordered_json report;
    report["driver"] = settings.driver;
    report["passed"] = passed();
    report["failed"] = failed();
    report["refuses"] = refusals.seen();
    report["classesLeft"] = classesLeft();
    report["checks"] = nlohmann::ordered_json::array();
    for (const Result& each : results)
        report["checks"].push_back({{"name", each.name},
                                    {"ok", each.failures.empty()},
                                    {"refused", each.wasRefused},
                                    {"failures", each.failures},
                                    {"milliseconds", each.milliseconds}});
    std::ofstream out(file);
    // Messages may quote bytes that are no UTF-8.
    out << report.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    return static_cast<bool>(out.flush());
}

}  // namespace Kes::check
