// What an object costs in one transaction, by the number of objects.
//
// Kes only: the cost per object must not grow with the number.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <vector>

#include <kes/Kes.h>

namespace fs = std::filesystem;

namespace {

class Flat : public Kes::Instance {
public:
    explicit Flat(Kes::Class* c) : Instance(c) {}
    void handle(Kes::Handler* h) override {
        static const Kes::String numberField("number"), textField("text");
        Instance::handle(h);
        h->handleInt(numberField, number);
        h->handleString(textField, text, 20);
    }

    int number = 0;
    Kes::String text;
};

class FlatModel : public Kes::Model {
public:
    explicit FlatModel(const fs::path& file) : Model("flat", 4000000) {
        open("sqlite", file.c_str(), "", "", "");
    }

    Kes::Class* flats = nullptr;

protected:
    void declareModel() override {
        setVersion(1);
        flats = addClass("Flat", 1, [](Kes::Class* c) -> Instance* { return new Flat(c); });
    }

private:
    using Instance = Kes::Instance;
};

using Time = std::chrono::steady_clock;

double microseconds(Time::time_point since, int objects) {
    const std::chrono::duration<double, std::micro> spent = Time::now() - since;
    return spent.count() / objects;
}

struct Cost {
    double add, update, remove;  // per object, in microseconds
};

Cost run(const fs::path& file, int count) {
    for (const char* tail : {"", "-wal", "-shm"})
        fs::remove(file.string() + tail);
    FlatModel model(file);
    std::vector<Flat*> objects;
    Cost cost{};
    auto started = Time::now();
    model.startTransaction();
    for (int i = 0; i < count; ++i) {
        auto* flat = static_cast<Flat*>(model.flats->newInstance());
        flat->number = i;
        flat->text = "str1________________";
        objects.push_back(flat);
    }
    model.commit();
    cost.add = microseconds(started, count);

    started = Time::now();
    model.startTransaction();
    for (Flat* flat : objects) {
        flat->change();
        ++flat->number;
    }
    model.commit();
    cost.update = microseconds(started, count);

    started = Time::now();
    model.startTransaction();
    for (Flat* flat : objects)
        flat->remove();
    model.commit();
    cost.remove = microseconds(started, count);
    return cost;
}

double medianOf(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
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
    const fs::path file = fs::path(folder) / ("kes-flat-" + std::to_string(::getpid()) + ".db");
    try {
        std::printf("   objects   add   update   remove   (microseconds per object, medians of "
                    "%d)\n",
                    repeat);
        for (const int size : sizes) {
            std::vector<double> add, update, remove;
            for (int i = 0; i < repeat; ++i) {
                const Cost cost = run(file, size);
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
    for (const char* tail : {"", "-wal", "-shm"})
        fs::remove(file.string() + tail);
    return 0;
}
