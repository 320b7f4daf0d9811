// One check under way, and the list of all checks.
//
// A check is a function that is handed a Check, does something with the driver
// under test and says what it expected. It ends early by throwing. What the
// library raises and the check does not expect fails it too.

#pragma once

#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <kes/Exception.h>

namespace Kes::check {

/// What to check, as the command line says.
struct Settings {
    std::string driver;
    std::string source;
    std::string password;
    std::string user;
    std::string options;
    long rows = 1000000;  ///< of the large cursors
    unsigned seed = 1;    ///< of everything that is made up at random

    /// Follows the names of classes and models; "" in an empty database.
    std::string tag;
};

/// What the driver refuses, by the names of properties.
///
/// Either declared beforehand, and then both keeping and refusing are checked
/// against the declaration; or found out by the first value that has the
/// property, and then all its other values have to be treated alike.
class Refusals {
public:
    void declare(const std::set<std::string>& properties);

    /// Notes what happened to a value with the property. Returns what is wrong
    /// with that, "" when nothing is.
    std::string note(const std::string& property, bool wasRefused);

    /// Seen as refused so far.
    std::vector<std::string> seen() const;

private:
    bool isDeclared = false;
    std::set<std::string> declared;
    std::map<std::string, bool> found;
};

/// Ends a check.
struct Abandoned : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Check {
public:
    Check(const Settings& given, Refusals& known) : settings(given), refusals(known) {}
    Check(const Check&) = delete;
    Check& operator=(const Check&) = delete;

    const Settings& config() const { return settings; }

    /// Notes a failure unless `holds`, and goes on.
    bool expect(bool holds, const std::string& what);

    /// As expect, with both values in the failure.
    template <class T>
    bool expectEqual(const T& wanted, const T& found, const std::string& what);

    /// Ends the check, as failed, unless `holds`.
    void require(bool holds, const std::string& what);

    /// Notes whether something with the property was refused; see Refusals.
    void noteProperty(const std::string& property, bool wasRefused);

    /// Adds a figure to the check's line and to the report.
    void note(const std::string& text) { noted = text; }

    bool wasRefused() const { return refused; }
    const std::string& notes() const { return noted; }
    const std::vector<std::string>& failures() const { return failed; }

private:
    const Settings& settings;
    Refusals& refusals;
    std::vector<std::string> failed;
    std::string noted;
    bool refused = false;
};

/// What the library raised; false when it raised nothing.
struct Raised {
    std::string code;
    std::string message;
    explicit operator bool() const { return !code.empty(); }
    bool names(const std::string& text) const { return message.find(text) != std::string::npos; }
};

template <class Work>
Raised raisedBy(Work work) {
    try {
        work();
    } catch (const Exception& raised) {
        return {raised.getCode(), raised.getMessage()};
    }
    return {};
}

class Suite {
public:
    using Body = std::function<void(Check&)>;
    struct Entry {
        std::string name;
        Body body;
    };

    /// Names are made of a topic and what is checked: "values.long.largest".
    void add(const std::string& name, Body body) { all.push_back({name, std::move(body)}); }

    const std::vector<Entry>& entries() const { return all; }

private:
    std::vector<Entry> all;
};

inline std::string textOf(const std::string& text) {
    return '"' + text + '"';
}
template <class T>
requires std::is_arithmetic_v<T> std::string textOf(T value) {
    return std::to_string(value);
}

template <class T>
bool Check::expectEqual(const T& wanted, const T& found, const std::string& what) {
    return expect(wanted == found,
                  what + ": expected " + textOf(wanted) + ", found " + textOf(found));
}

}  // namespace Kes::check
