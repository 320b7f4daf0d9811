// kes-fault-check: lets every call of a driver fail, one after the other.

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/fault-check/KnownProblems.h"
#include "tools/fault-check/Run.h"

namespace {

using namespace Kes::faulty;

constexpr const char* Usage =
    R"(Usage: kes-fault-check [OPTION...] DRIVER SOURCE [USER] [OPTIONS]

Runs a script that touches every slot of the driver, with a fault at the first
call, at the second, and so on until the script ends without reaching the fault.
After each run memory has to be as the script left it and the database, opened
again, has to hold exactly what was reported as stored.

DRIVER is a driver's name; SOURCE, USER and OPTIONS are what Model::open takes.
In SOURCE and OPTIONS {folder} stands for an empty folder that is made for each
run and removed, {run} for the number of the run. With neither, all runs share
one database, and the names of their classes keep them apart.

  --password TEXT   what Model::open takes; without it the environment variable
                    KES_PASSWORD, which nobody reads in a list of processes
  --fault NAME      only fail, throw, delay or kill
  --repeat WHEN     only "once" or from then "on"
  --handler WHAT    only with an exception handler that "throws" or "returns"
  --at N            only the run with the fault at call N
  --step N          every N-th call only
  --clear COMMAND   a command of the shell that empties the database. It is run
                    before the first run and each 20 runs, for tables that stay
  --known FILE      problems that are known: lines FAULT SLOT: WORDS. They do not
                    count, but a line fails the check that is not needed any more
  --help            show this text

Each series of runs prints a line; what went wrong stands above it. Ends with
status 0 when nothing did, 1 when something did, and 2 when the faults could not
be tried: the driver or the database is not there, or an argument is wrong.
)";

struct Wishes {
    Target target;
    std::string fault;
    std::string repeat;
    std::string handler;
    unsigned long at = 0;
    unsigned long step = 1;
    std::string clear;
    KnownProblems known;

    // Whether every run is made that this fault has.
    bool areAll() const { return at == 0 && step == 1 && repeat.empty() && handler.empty(); }
};

// The folder of one run.
class Folder {
public:
    Folder() {
        std::string pattern = std::filesystem::temp_directory_path() / "kes-fault-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            std::cerr << "kes-fault-check: no temporary folder can be made\n";
            std::exit(2);
        }
        path = pattern;
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    std::string path;
};

class Checker {
public:
    explicit Checker(Wishes& itsWishes)
        : wishes(itsWishes),
          begin(std::chrono::system_clock::now()) {}

    // The status to end with.
    int run() {
        if (!prepare())
            return 2;
        for (const char* fault : {"fail", "throw", "delay", "kill"})
            if (wishes.fault.empty() || wishes.fault == fault)
                runFault(fault);
        std::cout << runs << " runs, " << bad << " failed";
        if (known != 0)
            std::cout << ", " << known << " for known reasons only";
        std::cout << '\n';
        if (runs == 0)
            throw std::invalid_argument(
                "no fault comes like that: delays and kills have a series "
                "each, whose handler throws");
        return bad == 0 ? 0 : 1;
    }

private:
    // A client that is started for each run would take longer than the run.
    void clearNowAndThen() const {
        constexpr unsigned long runsBetween = 20;
        if (wishes.clear.empty() || number % runsBetween != 0)
            return;
        if (std::system(wishes.clear.c_str()) != 0)
            throw std::runtime_error("\"" + wishes.clear + "\" failed");
    }

    // The names of all runs of this process differ from those of others.
    Target targetOf(const std::string& folder) {
        clearNowAndThen();
        Target target = wishes.target;
        ++number;
        target.source = replace(wishes.target.source, number, folder);
        target.options = replace(wishes.target.options, number, folder);
        if (target.source == wishes.target.source && target.options == wishes.target.options)
            target.suffix = "_" + std::to_string(begin.time_since_epoch().count() % 1000000007) +
                            "_" + std::to_string(number);
        return target;
    }

    bool prepare() {
        const Folder folder;
        std::set<std::string> slots;
        const Outcome outcome = runWithoutFault(targetOf(folder.path), states, slots);
        for (const std::string& words : outcome.problems)
            std::cout << "without a fault: " << words << '\n';
        if (!outcome.problems.empty())
            return false;
        bool complete = true;
        for (const char* slot : {"open",
                                 "close",
                                 "getVersion",
                                 "setVersion",
                                 "createClass",
                                 "beginClassUpdate",
                                 "endClassUpdate",
                                 "createView",
                                 "createAssociation",
                                 "getErrorMessage",
                                 "getStatus",
                                 "newObjectID",
                                 "commit",
                                 "rollback",
                                 "addLink",
                                 "insert",
                                 "update",
                                 "removeLink",
                                 "remove",
                                 "refresh",
                                 "lock",
                                 "defineSelection",
                                 "fetch",
                                 "traceSQLTo",
                                 "disableSQLTrace",
                                 "destroy",
                                 "cursor.next",
                                 "cursor.getInstance",
                                 "cursor.destroy"})
            if (!slots.contains(slot)) {
                std::cout << "the script does not reach " << slot << '\n';
                complete = false;
            }
        return complete;
    }

    void runFault(const char* fault) {
        for (const bool goesOn : {false, true})
            for (const bool after : {false, true})
                for (const auto handling : {Script::Throws, Script::Returns})
                    if (makesSense({fault, goesOn, after, handling}))
                        runSeries({fault, goesOn, after, handling});
        if (!wishes.areAll())
            return;
        for (const std::string& line : wishes.known.unseen(fault)) {
            std::cout << "known, but not seen any more: " << line << '\n';
            ++bad;
        }
    }

    // What happens after a call matters where the process ends; a late answer
    // is like any other, so one series of late answers only will do.
    bool makesSense(const Series& series) const {
        const bool kills = series.fault == "kill";
        const bool delays = series.fault == "delay";
        if ((series.after && !kills) || (kills && (series.goesOn || series.handling != 0)) ||
            (delays && (!series.goesOn || series.handling != 0)))
            return false;
        return (wishes.repeat.empty() || (wishes.repeat == "on") == series.goesOn) &&
               (wishes.handler.empty() ||
                (wishes.handler == "returns") == (series.handling == Script::Returns));
    }

    void runSeries(const Series& series) {
        const int badBefore = bad;
        unsigned long at = wishes.at != 0 ? wishes.at : 1;
        const auto start = std::chrono::steady_clock::now();
        bool isReached = runOne(series, at);
        for (; isReached && wishes.at == 0 && series.fault != "delay";
             isReached = runOne(series, at))
            at += wishes.step;
        const bool isBeyond = wishes.at != 0 && !isReached;
        const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
        std::cout << (bad == badBefore ? "ok      " : "FAILED  ") << series.describe()
                  << (isBeyond ? ": the script ends before call " : ": up to call ") << at << ", "
                  << spent.count() << " s" << std::endl;
    }

    // False when the script ended without reaching the fault.
    bool runOne(const Series& series, unsigned long at) {
        const Folder folder;
        const Outcome outcome = runWithFault(targetOf(folder.path), series, at, states);
        ++runs;
        bool isBad = false;
        for (const std::string& words : outcome.problems) {
            if (wishes.known.contains(series.fault, outcome.where, words))
                continue;
            isBad = true;
            std::cout << series.describe() << ", at call " << at << " (" << outcome.where
                      << "): " << words << '\n';
        }
        bad += isBad ? 1 : 0;
        known += !isBad && !outcome.problems.empty() ? 1 : 0;
        return outcome.reached;
    }

    Wishes& wishes;
    const std::chrono::system_clock::time_point begin;
    std::vector<State> states;
    unsigned long number = 0;
    int runs = 0;
    int bad = 0;
    int known = 0;
};

unsigned long numberOf(const std::string& option, const std::string& text) {
    const bool isNumber = text.find_first_not_of("0123456789") == std::string::npos &&
                          !text.empty() && text.size() < 19;
    const unsigned long number = isNumber ? std::stoul(text) : 0;
    if (number == 0)
        throw std::invalid_argument(option + " takes a number from 1, not \"" + text + "\"");
    return number;
}

std::string oneOf(const std::string& option, const std::string& word,
                  const std::set<std::string>& words) {
    if (words.contains(word))
        return word;
    std::string list;
    for (const std::string& each : words)
        list += (list.empty() ? "" : ", ") + each;
    throw std::invalid_argument(option + " takes one of " + list + ", not \"" + word + "\"");
}

void takeOption(Wishes& wishes, const std::string& name, const char* value) {
    if (name == "--password")
        wishes.target.password = value;
    else if (name == "--fault")
        wishes.fault = oneOf(name, value, {"fail", "throw", "delay", "kill"});
    else if (name == "--repeat")
        wishes.repeat = oneOf(name, value, {"once", "on"});
    else if (name == "--handler")
        wishes.handler = oneOf(name, value, {"throws", "returns"});
    else if (name == "--clear")
        wishes.clear = value;
    else if (name == "--known")
        wishes.known.read(value);
    else if (name == "--at")
        wishes.at = numberOf(name, value);
    else if (name == "--step")
        wishes.step = numberOf(name, value);
    else
        throw std::invalid_argument("there is no option " + name);
}

// Options may stand before, between and after the others.
void takeArguments(Wishes& wishes, int count, char** values) {
    std::vector<std::string> others;
    for (int at = 1; at < count;) {
        const std::string word = values[at++];
        if (!word.starts_with("--"))
            others.push_back(word);
        else if (at == count)
            throw std::invalid_argument(word + " needs a value");
        else
            takeOption(wishes, word, values[at++]);
    }
    if (others.size() < 2 || others.size() > 4)
        throw std::invalid_argument("name a driver and a source, and perhaps a user and options");
    others.resize(4);
    wishes.target.driver = others[0];
    wishes.target.source = others[1];
    wishes.target.user = others[2];
    wishes.target.options = others[3];
}

}  // namespace

int main(int count, char** values) {
    Wishes wishes;
    for (int at = 1; at < count; ++at)
        if (std::strcmp(values[at], "--help") == 0 || std::strcmp(values[at], "-h") == 0) {
            std::cout << Usage;
            return 0;
        }
    try {
        if (const char* password = std::getenv("KES_PASSWORD"))
            wishes.target.password = password;
        takeArguments(wishes, count, values);
        return Checker(wishes).run();
    } catch (const std::invalid_argument& wrong) {
        std::cerr << "kes-fault-check: " << wrong.what() << "; --help tells more\n";
        return 2;
    } catch (const Kes::Exception& raised) {
        std::cerr << "kes-fault-check: " << raised.getMessage() << '\n';
        return 2;
    } catch (const std::exception& failure) {
        std::cerr << "kes-fault-check: " << failure.what() << '\n';
        return 2;
    }
}
