// The staff circuit: Kes with its SQLite driver beside a program that is
// written by hand over SQLite's C interface.
//
// Each measurement is a process of its own; the two programs take turns, so
// that a machine that slows down hits both. Only ratios of one run mean
// anything.

#include <sqlite3.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>

#include "bench/staff/Measure.h"

namespace fs = std::filesystem;

namespace {

using namespace bench;

const std::vector<std::string> AllSteps{"S1", "S2", "S3a", "S3b", "S4", "S5",
                                        "S6", "S7", "S8",  "S9i", "S9"};

// The better of the published ratios of the libraries that have both an
// identity map and a version check; measured on another machine.
const std::map<std::string, double> BestPeer{
    {"S1", 1.03}, {"S2", 1.93}, {"S3a", 1.76}, {"S3b", 0.27}, {"S4", 1.04}, {"S5", 1.84},
    {"S6", 2.57}, {"S7", 1.04}, {"S8", 1.09},  {"S9i", 2.51}, {"S9", 2.47}};
constexpr double BestPeerMemory = 1.73;

struct Settings {
    int persons = 100000;
    int repeat = 11;
    std::string steps = "all";
    std::string json;
    std::string folder;
    bool quiet = false;
};

// What a step needs in the database before it begins.
std::string baseOf(const std::string& step) {
    return step == "S1" ? "" : step == "S9" ? "vehicles" : "staff";
}

void copyDatabase(const fs::path& from, const fs::path& to) {
    for (const char* tail : {"", "-wal", "-shm"}) {
        fs::remove(to.string() + tail);
        if (fs::exists(from.string() + tail))
            fs::copy_file(from.string() + tail, to.string() + tail);
    }
}

class Circuit {
public:
    explicit Circuit(const Settings& wanted) : settings(wanted), data(wanted.persons) {
        folder = settings.folder.empty() ? fs::temp_directory_path() : fs::path(settings.folder);
        folder /= "kes-staff-" + std::to_string(::getpid());
        fs::create_directories(folder);
    }
    Circuit(const Circuit&) = delete;
    Circuit& operator=(const Circuit&) = delete;
    ~Circuit() {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    bool run();

private:
    void prepare(const std::string& program, const std::string& base);
    bool runStep(const std::string& step);
    void report(const std::string& step, const std::vector<Measurement>& kes,
                const std::vector<Measurement>& plain, bool agree);
    void writeJson(const std::string& step, const char* program,
                   const std::vector<Measurement>& measured, bool agree);

    Settings settings;
    StaffData data;
    fs::path folder;
    std::ofstream json;
};

void Circuit::prepare(const std::string& program, const std::string& base) {
    const fs::path file = folder / (program + "-" + base);
    if (fs::exists(file))
        return;
    if (base == "vehicles") {
        prepare(program, "staff");
        copyDatabase(folder / (program + "-staff"), file);
        measure(program, "S9i", file, data);
    } else {
        measure(program, "S1", file, data);
    }
}

bool Circuit::runStep(const std::string& step) {
    std::map<std::string, std::vector<Measurement>> all;
    bool agree = true;
    for (int round = 0; round < settings.repeat; ++round) {
        for (const char* program : {"kes", "plain"}) {
            const fs::path file = folder / (std::string(program) + "-run");
            copyDatabase(folder / "none", file);
            const std::string base = baseOf(step);
            if (!base.empty()) {
                prepare(program, base);
                copyDatabase(folder / (std::string(program) + "-" + base), file);
            }
            all[program].push_back(measure(program, step, file, data));
        }
        const Result& kes = all["kes"].back().result;
        const Result& plain = all["plain"].back().result;
        agree = agree && kes.count == plain.count && kes.sum == plain.sum && kes.count != 0;
    }
    report(step, all["kes"], all["plain"], agree);
    return agree;
}

std::vector<double> times(const std::vector<Measurement>& measured) {
    std::vector<double> list;
    list.reserve(measured.size());
    for (const Measurement& each : measured)
        list.push_back(each.milliseconds);
    return list;
}

double peakOf(const std::vector<Measurement>& measured) {
    std::vector<double> list;
    list.reserve(measured.size());
    for (const Measurement& each : measured)
        list.push_back(static_cast<double>(each.peakKiB));
    return spreadOf(list).median;
}

void Circuit::report(const std::string& step, const std::vector<Measurement>& kes,
                     const std::vector<Measurement>& plain, bool agree) {
    const Spread ours = spreadOf(times(kes));
    const Spread theirs = spreadOf(times(plain));
    const Result& result = kes.back().result;
    std::printf("%-4s %9.1f (%.1f-%.1f) %9.1f (%.1f-%.1f) %6.2f %6.2f %8llu %s%s\n", step.c_str(),
                ours.median, ours.lowerQuartile, ours.upperQuartile, theirs.median,
                theirs.lowerQuartile, theirs.upperQuartile, ours.median / theirs.median,
                BestPeer.at(step), static_cast<unsigned long long>(result.count),
                agree ? "ok" : "COUNTS OR SUMS DIFFER",
                ours.isNoisy() || theirs.isNoisy() ? " noisy" : "");
    if (step == "S2")
        std::printf("     %6.1f MiB %22.1f MiB %19.2f %6.2f  peak memory of S2\n",
                    peakOf(kes) / 1024, peakOf(plain) / 1024, peakOf(kes) / peakOf(plain),
                    BestPeerMemory);
    std::fflush(stdout);
    writeJson(step, "kes", kes, agree);
    writeJson(step, "plain", plain, agree);
}

void Circuit::writeJson(const std::string& step, const char* program,
                        const std::vector<Measurement>& measured, bool agree) {
    if (!json.is_open())
        return;
    char date[32];
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%SZ", &parts);
    for (const Measurement& each : measured)
        json << nlohmann::json{{"suite", "staff"},
                               {"operation", step},
                               {"size", settings.persons},
                               {"driver", "sqlite"},
                               {"program", program},
                               {"count", each.result.count},
                               {"sum", each.result.sum},
                               {"ok", agree},
                               {"ms", each.milliseconds},
                               {"user", each.userSeconds},
                               {"system", each.systemSeconds},
                               {"peakKiB", each.peakKiB},
                               {"durability", "wal, synchronous normal"},
                               {"database", sqlite3_libversion()},
                               {"compiler", __VERSION__},
                               {"date", date}}
                    .dump()
             << "\n";
}

bool Circuit::run() {
    if (!settings.json.empty())
        json.open(settings.json);
    std::printf("%d persons, %d measurements each, medians (middle half) in ms; SQLite %s\n",
                settings.persons, settings.repeat, sqlite3_libversion());
    std::printf("step             Kes                by hand         ratio  peer*    count\n");
    bool agree = true;
    for (const std::string& step : AllSteps)
        if (settings.steps == "all" ||
            ("," + settings.steps + ",").find("," + step + ",") != std::string::npos)
            agree = runStep(step) && agree;
    if (!settings.quiet)
        std::printf(
            "* the best library with an identity map and a version check, measured on\n"
            "  another machine against the same program by hand; below it is ahead\n");
    return agree;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Kes beside a program written by hand over SQLite's C interface");
    Settings settings;
    app.add_option("--persons", settings.persons, "Persons to store; a multiple of 100")
        ->check(CLI::Range(100, 10000000))
        ->capture_default_str();
    app.add_option("--repeat", settings.repeat, "Measurements of each step")
        ->check(CLI::Range(1, 101))
        ->capture_default_str();
    app.add_option("--steps", settings.steps, "Steps to run, separated by commas, or all")
        ->capture_default_str();
    app.add_option("--json", settings.json, "Write one line for each measurement to this file");
    app.add_option("--folder", settings.folder, "Where the databases are made");
    app.add_flag("--quiet", settings.quiet, "Leave the explanations out");
    CLI11_PARSE(app, argc, argv);
    try {
        return Circuit(settings).run() ? 0 : 1;
    } catch (const std::exception& failure) {
        std::cerr << "bench_staff: " << failure.what() << "\n";
        return 1;
    }
}
