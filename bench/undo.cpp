// What it costs to take a transaction back and to bring it back again, beside
// what it cost to commit it.
//
// Kes only: an undone object must cost about what a committed one does, and the
// cost must not grow with their number.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <vector>

#include "bench/Flat.h"

namespace bench {

namespace {

struct Cost {
    double commit, undo, redo;  // per object, in microseconds
};

// Every change added one to the number that an object began with.
void expectNumbers(const std::vector<Flat*>& objects, int added) {
    for (std::size_t i = 0; i < objects.size(); ++i)
        if (objects[i]->number != static_cast<int>(i) + added)
            throw std::runtime_error("an object is not as it should be");
}

Cost run(const fs::path& folder, int count) {
    const DatabaseFile file(folder);
    FlatModel model(file.path());
    const std::vector<Flat*> objects = model.addAll(count);
    Cost cost{};
    auto started = Time::now();
    model.changeAll(objects);
    cost.commit = microseconds(started, count);
    expectNumbers(objects, 1);

    started = Time::now();
    model.undo();
    cost.undo = microseconds(started, count);
    expectNumbers(objects, 0);

    started = Time::now();
    model.redo();
    cost.redo = microseconds(started, count);
    expectNumbers(objects, 1);
    return cost;
}

void measure(const fs::path& folder, int size, int repeat) {
    std::vector<double> commit, undo, redo;
    for (int i = 0; i < repeat; ++i) {
        const Cost cost = run(folder, size);
        commit.push_back(cost.commit);
        undo.push_back(cost.undo);
        redo.push_back(cost.redo);
    }
    const double committed = medianOf(commit), undone = medianOf(undo), redone = medianOf(redo);
    std::printf("%10d %8.2f %6.2f %6.2f %13.2f %13.2f\n", size, committed, undone, redone,
                undone / committed, redone / committed);
    std::fflush(stdout);
}

int runAll(int argc, char** argv) {
    CLI::App app("The cost of an undone object beside that of a committed one");
    std::vector<int> sizes{10000, 100000};
    int repeat = 5;
    std::string folder = fs::temp_directory_path();
    app.add_option("--sizes", sizes, "Updates in one transaction")->capture_default_str();
    app.add_option("--repeat", repeat, "Measurements of each size")
        ->check(CLI::Range(1, 101))
        ->capture_default_str();
    app.add_option("--folder", folder, "Where the databases are made")->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    try {
        std::printf(
            "   updates   commit   undo   redo   undo/commit   redo/commit   (microseconds "
            "per object, medians of %d)\n",
            repeat);
        for (const int size : sizes)
            measure(folder, size, repeat);
    } catch (Kes::Exception& raised) {
        std::cerr << "bench_undo: " << raised.asString() << "\n";
        return 1;
    } catch (const std::exception& failure) {
        std::cerr << "bench_undo: " << failure.what() << "\n";
        return 1;
    }
    return 0;
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    return bench::runAll(argc, argv);
}
