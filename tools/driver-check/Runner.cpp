#include "Runner.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <mutex>
#include <thread>

#include <nlohmann/json.hpp>

#include "Shape.h"

namespace Kes::check {

namespace {

// The check under way, for the two ways in which a run ends in the middle.
std::string myCurrent;

void reportEnd() {
    if (!myCurrent.empty())
        std::cout << "FAILED " << myCurrent << ": the process ended in this check" << std::endl;
}

// Ends the process unless it is destroyed in time. A driver that waits for ever
// cannot be interrupted in any other way.
class Watchdog {
public:
    explicit Watchdog(int seconds) : thread([this, seconds] { watch(seconds); }) {}
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog() {
        {
            const std::lock_guard<std::mutex> guard(mutex);
            isDone = true;
        }
        changed.notify_one();
        thread.join();
    }

private:
    void watch(int seconds) {
        std::unique_lock<std::mutex> guard(mutex);
        if (changed.wait_for(guard, std::chrono::seconds(seconds), [this] { return isDone; }))
            return;
        std::cout << "FAILED " << myCurrent << ": it takes more than " << seconds
                  << " seconds; the run ends here" << std::endl;
        std::_Exit(1);
    }

    std::mutex mutex;
    std::condition_variable changed;
    bool isDone = false;
    std::thread thread;
};

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
    static const int registered = std::atexit(reportEnd);
    static_cast<void>(registered);
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
    const Watchdog watchdog(secondsLimit);
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
