#include "tools/fault-check/Run.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace Kes::faulty {

namespace {

// What a process has reported.
struct Account {
    std::size_t begun = 0;
    std::size_t done = 0;
    bool finished = false;  // all steps were taken
    bool stopped = false;   // a step failed twice
    bool lost = false;
    std::string lastError;  // "error CODE WORDS" or "fatal CODE WORDS"
    std::vector<std::string> problems;

    void enter(const std::string& line) {
        if (line.starts_with("begin "))
            begun = std::stoul(line.substr(6));
        else if (line.starts_with("done "))
            done = std::stoul(line.substr(5));
        else if (line.starts_with("error ") || line.starts_with("fatal "))
            lastError = line;
        else if (line.starts_with("problem "))
            problems.push_back(line.substr(8));
        else if (line == "finished")
            finished = true;
        else if (line == "stopped")
            stopped = true;
        else if (line == "lost")
            lost = true;
    }
};

class LogFile {
public:
    LogFile()
        : path(std::filesystem::temp_directory_path() /
               ("kes-faults-" + std::to_string(getpid()) + ".log")) {
        clear();
    }
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    ~LogFile() { clear(); }

    void clear() const {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }

    // The slots that were called, and the first that a fault fell on.
    std::set<std::string> read(std::string& struck) const {
        std::set<std::string> slots;
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            const std::size_t begin = line.find(' ') + 1;
            const std::string slot = line.substr(begin, line.find(' ', begin) - begin);
            slots.insert(slot);
            if (struck.empty() && line.ends_with(" FAULT"))
                struck = slot;
        }
        return slots;
    }

    std::string path;
};

void runScript(const Target& target, const std::string& faults, Script::Handling handling,
               std::vector<State>& states, const Script::Reporter& report) {
    {
        Script script(target, faults, handling, states, report);
        const bool finished = script.run();
        report(script.hasLostHistory() ? "lost" : finished ? "finished" : "stopped");
    }
    if (Named::alive != 0)
        report("problem " + std::to_string(Named::alive) + " objects are never freed");
}

Account listen(int pipe) {
    Account account;
    std::string line;
    char buffer[4096];
    for (ssize_t size = 0; (size = read(pipe, buffer, sizeof buffer)) > 0;)
        for (const char* c = buffer; c != buffer + size; ++c) {
            if (*c != '\n') {
                line += *c;
                continue;
            }
            account.enter(line);
            line.clear();
        }
    return account;
}

// How the process should have ended.
std::string judgeEnd(const Series& series, bool reached, int status, const Account& account) {
    if (WIFSIGNALED(status)) {
        if (series.fault == "kill" && reached && WTERMSIG(status) == SIGKILL)
            return "";
        return "the process was ended by signal " + std::to_string(WTERMSIG(status));
    }
    const int code = WEXITSTATUS(status);
    if (code == 1 && series.handling == Script::Returns && account.lastError.starts_with("fatal "))
        return "";
    if (code != 0)
        return "the process ended with status " + std::to_string(code);
    if (account.finished || account.lost)
        return "";
    if (!account.stopped)
        return "the process ended in the middle";
    return series.goesOn ? "" : "fails again when it is tried once more: " + account.lastError;
}

std::string compareStored(const Target& target, int schema, const State& expected) {
    try {
        return compare(expected, readDatabase(target, schema), true);
    } catch (const Exception& raised) {
        return std::string(raised.getCode()) + " " + raised.getMessage();
    }
}

// The database has to hold what was reported; only a process that was killed
// may have done one step more.
std::string judgeDatabase(const Target& target, bool killed, const Account& account,
                          const std::vector<State>& states) {
    const std::size_t upgrade = Script::upgradeStep();
    const bool midway = account.begun == upgrade && account.done < upgrade;
    if (midway && killed)
        return compareStored(target, 2, states[upgrade]);
    std::string difference =
        compareStored(target, account.done >= upgrade ? 2 : 1, states[account.done]);
    if (!difference.empty() && killed && account.begun > account.done)
        difference = compareStored(target, account.begun >= upgrade ? 2 : 1, states[account.begun]);
    if (difference.empty() && midway)
        difference = compareStored(target, 2, states[upgrade]);
    return difference;
}

}  // namespace

std::string Series::describe() const {
    return fault + (goesOn ? " from then on" : " once") + (after ? ", after the call" : "") +
           (handling == Script::Returns ? ", the handler returns" : "");
}

std::string replace(const std::string& text, unsigned long run, const std::string& folder) {
    std::string result = text;
    const auto put = [&](const std::string& mark, const std::string& value) {
        for (std::size_t at = 0; (at = result.find(mark, at)) != std::string::npos;
             at += value.size())
            result.replace(at, mark.size(), value);
    };
    put("{run}", std::to_string(run));
    put("{folder}", folder);
    return result;
}

Outcome runWithFault(const Target& target, const Series& series, unsigned long at,
                     std::vector<State>& states) {
    const LogFile log;
    const std::string faults = "faulty.run=script;faulty.at=" + std::to_string(at) +
                               ";faulty.fault=" + series.fault +
                               ";faulty.repeat=" + (series.goesOn ? "on" : "once") +
                               ";faulty.when=" + (series.after ? "after" : "before") +
                               ";faulty.delay=1;faulty.log=" + log.path;
    int ends[2];
    Outcome outcome;
    if (pipe(ends) != 0)
        return {false, "", {"no pipe is to be had"}};
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        const int to = ends[1];
        runScript(target, faults, series.handling, states, [to](const std::string& words) {
            const std::string line = words + "\n";
            if (write(to, line.data(), line.size()) < 0)
                std::_Exit(3);
        });
        std::exit(0);
    }
    close(ends[1]);
    const Account account = listen(ends[0]);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);

    log.read(outcome.where);
    outcome.reached = !outcome.where.empty();
    outcome.problems = account.problems;
    const std::string end = judgeEnd(series, outcome.reached, status, account);
    if (!end.empty())
        outcome.problems.push_back(
            (account.begun > 0 ? std::string(Script::nameOf(account.begun)) + ": " : "") + end);
    const std::string difference = judgeDatabase(target, WIFSIGNALED(status), account, states);
    if (!difference.empty())
        outcome.problems.push_back("afterwards, in the database, " + difference);
    return outcome;
}

Outcome runWithoutFault(const Target& target, std::vector<State>& states,
                        std::set<std::string>& slots) {
    const LogFile log;
    Account account;
    runScript(target, "faulty.run=none;faulty.log=" + log.path, Script::Throws, states,
              [&](const std::string& line) { account.enter(line); });
    Outcome outcome;
    slots = log.read(outcome.where);
    outcome.problems = account.problems;
    if (!account.finished)
        outcome.problems.push_back("the script does not come to its end: " + account.lastError);
    const std::string difference = judgeDatabase(target, false, account, states);
    if (!difference.empty())
        outcome.problems.push_back("afterwards, in the database, " + difference);
    return outcome;
}

}  // namespace Kes::faulty
