// What an object costs in one transaction, by the number of objects.
//
// Kes only: the cost per object must not grow with the number.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <vector>

#include "bench/Flat.h"

namespace bench {

namespace {

struct Cost {
    double add, update, remove;  // per object, in microseconds
};

Cost run(const fs::path& folder, int count) {
    const DatabaseFile file(folder);
    FlatModel model(file.path());
    Cost cost{};
    auto started = Time::now();
    const std::vector<Flat*> objects = model.addAll(count);
    cost.add = microseconds(started, count);

    started = Time::now();
    model.changeAll(objects);
    cost.update = microseconds(started, count);

    started = Time::now();
    model.removeAll(objects);
    cost.remove = microseconds(started, count);
    return cost;
}

int runAll(int argc, char** argv) {
    CLI::App app("The cost of an object in one transaction, by their number");
    std::vector<int> sizes{10000, 100000, 1000000};
    int repeat = 5;
    std::string folder = fs::temp_directory_path();
    app.add_option("--sizes", sizes, "Objects in one transaction")->capture_default_str();
    app.add_option("--repeat", repeat, "Measurements of each size")
        ->check(CLI::Range(1, 101))
        ->capture_default_str();
    app.add_option("--folder", folder, "Where the databases are made")->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    try {
        std::printf(
            "   objects   add   update   remove   (microseconds per object, medians of "
            "%d)\n",
            repeat);
        for (const int size : sizes) {
            std::vector<double> add, update, remove;
            for (int i = 0; i < repeat; ++i) {
                const Cost cost = run(folder, size);
                add.push_back(cost.add);
                update.push_back(cost.update);
                remove.push_back(cost.remove);
            }
            std::printf("%10d %5.2f %8.2f %8.2f\n", size, medianOf(add), medianOf(update),
                        medianOf(remove));
            std::fflush(stdout);
        }
    } catch (Kes::Exception& raised) {
        std::cerr << "bench_transaction: " << raised.asString() << "\n";
        return 1;
    }
    return 0;
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    return bench::runAll(argc, argv);
}
