#include "tools/faulty/FaultPlan.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace Kes::faulty {

namespace {

constexpr const char* Prefix = "faulty.";

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

unsigned long readNumber(const std::string& key, const std::string& text) {
    unsigned long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        throw std::invalid_argument("the option \"" + key + "\" takes a whole number, not \"" +
                                    text + "\"");
    return value;
}

// The position of the text among the choices.
std::size_t readChoice(const std::string& key, const std::string& text,
                       std::initializer_list<const char*> choices) {
    std::string list;
    std::size_t position = 0;
    for (const char* choice : choices) {
        if (text == choice)
            return position;
        list += (position++ == 0 ? "" : ", ") + std::string(choice);
    }
    throw std::invalid_argument("the option \"" + key + "\" is one of " + list + ", not \"" + text +
                                "\"");
}

void enter(FaultSettings& settings, const std::string& key, const std::string& value) {
    if (key == "faulty.driver")
        settings.driver = value;
    else if (key == "faulty.fault")
        settings.kind = static_cast<FaultSettings::Kind>(
            readChoice(key, value, {"fail", "throw", "delay", "kill"}));
    else if (key == "faulty.slot")
        settings.slot = value;
    else if (key == "faulty.at")
        settings.at = readNumber(key, value);
    else if (key == "faulty.repeat")
        settings.goesOn = readChoice(key, value, {"once", "on"}) == 1;
    else if (key == "faulty.when")
        settings.after = readChoice(key, value, {"before", "after"}) == 1;
    else if (key == "faulty.delay")
        settings.delay = readNumber(key, value);
    else if (key == "faulty.run")
        settings.run = value;
    else if (key == "faulty.log")
        settings.log = value;
    else
        throw std::invalid_argument(
            "unknown option \"" + key +
            "\"; the options are faulty.driver, faulty.fault, faulty.slot, faulty.at, "
            "faulty.repeat, faulty.when, faulty.delay, faulty.run, faulty.log");
}

}  // namespace

FaultSettings FaultSettings::parse(const std::string& options) {
    FaultSettings settings;
    for (std::size_t at = 0; at <= options.size();) {
        const std::size_t end = std::min(options.find(';', at), options.size());
        const std::string pair = options.substr(at, end - at);
        at = end + 1;
        const std::size_t equals = std::min(pair.find('='), pair.size());
        const std::string key = trimmed(pair.substr(0, equals));
        if (!key.starts_with(Prefix)) {
            if (!trimmed(pair).empty())
                settings.realOptions += (settings.realOptions.empty() ? "" : ";") + pair;
            continue;
        }
        if (equals == pair.size())
            throw std::invalid_argument("the option \"" + key + "\" has no value; write " + key +
                                        "=VALUE");
        enter(settings, key, trimmed(pair.substr(equals + 1)));
    }
    if (settings.driver.empty())
        throw std::invalid_argument("no driver is named; write faulty.driver=NAME");
    return settings;
}

std::shared_ptr<FaultPlan> FaultPlan::find(const FaultSettings& wanted) {
    if (wanted.run.empty())
        return std::make_shared<FaultPlan>(wanted);
    static std::mutex guard;
    static std::map<std::string, std::shared_ptr<FaultPlan>> runs;
    const std::lock_guard hold(guard);
    std::shared_ptr<FaultPlan>& known = runs[wanted.run];
    if (known == nullptr)
        known = std::make_shared<FaultPlan>(wanted);
    return known;
}

bool FaultPlan::isDue(const std::string& slot, const std::string& details) {
    ++calls;
    bool due = false;
    if (settings.slot.empty() || settings.slot == slot) {
        ++matching;
        due = settings.at != 0 &&
              (matching == settings.at || (settings.goesOn && matching > settings.at));
    }
    note(slot, details, due);
    return due;
}

void FaultPlan::note(const std::string& slot, const std::string& details, bool due) const {
    if (settings.log.empty())
        return;
    // Opened for each line: the process may be about to end.
    std::ofstream file(settings.log, std::ios::app);
    file << calls << ' ' << slot << (details.empty() ? "" : " ") << details << (due ? " FAULT" : "")
         << '\n';
}

bool FaultPlan::strike(const std::string& slot, bool mayThrow) {
    switch (settings.kind) {
    case FaultSettings::Fail: return true;
    case FaultSettings::Throw:
        if (mayThrow)
            throw std::runtime_error(describe(slot));
        return true;
    case FaultSettings::Delay:
        std::this_thread::sleep_for(std::chrono::milliseconds(settings.delay));
        return false;
    case FaultSettings::Kill: break;
    }
#ifdef SIGKILL
    std::raise(SIGKILL);
#endif
    // No destructor runs and nothing is flushed, as if the process was killed.
    std::_Exit(137);
}

std::string FaultPlan::describe(const std::string& slot) const {
    return "faulty: call " + std::to_string(calls) + ", " + slot + ", was told to " +
           (settings.kind == FaultSettings::Throw ? "throw" : "fail");
}

}  // namespace Kes::faulty
