// Flat objects in a fresh database, for benchmarks that ask what one costs.

#pragma once

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#include <kes/Kes.h>

namespace bench {

namespace fs = std::filesystem;

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

    /// In one transaction.
    std::vector<Flat*> addAll(int count) {
        std::vector<Flat*> all;
        startTransaction();
        for (int i = 0; i < count; ++i) {
            auto* flat = static_cast<Flat*>(flats->newInstance());
            flat->number = i;
            flat->text = "str1________________";
            all.push_back(flat);
        }
        commit();
        return all;
    }

    void changeAll(const std::vector<Flat*>& all) {
        startTransaction();
        for (Flat* flat : all) {
            flat->change();
            ++flat->number;
        }
        commit();
    }

    void removeAll(const std::vector<Flat*>& all) {
        startTransaction();
        for (Flat* flat : all)
            flat->remove();
        commit();
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

inline double microseconds(Time::time_point since, int objects) {
    const std::chrono::duration<double, std::micro> spent = Time::now() - since;
    return spent.count() / objects;
}

inline double medianOf(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
}

/// A file for a database, removed in the end.
class DatabaseFile {
public:
    explicit DatabaseFile(const fs::path& folder)
        : file(folder / ("kes-flat-" + std::to_string(::getpid()) + ".db")) {
        remove();
    }
    DatabaseFile(const DatabaseFile&) = delete;
    DatabaseFile& operator=(const DatabaseFile&) = delete;
    ~DatabaseFile() { remove(); }

    const fs::path& path() const { return file; }

private:
    void remove() const {
        std::error_code ignored;
        for (const char* tail : {"", "-wal", "-shm"})
            fs::remove(file.string() + tail, ignored);
    }

    fs::path file;
};

}  // namespace bench
