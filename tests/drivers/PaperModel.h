// Objects that may be large, for tests of sizes and of full disks.

#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include <kes/Kes.h>

namespace Kes::testing {

class Paper : public Instance {
public:
    explicit Paper(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleString("title", title, 100);
        h->handleString("body", body, 100);
        for (Blob& scan : scans)
            h->handleBlob(String("scan") + String(static_cast<int>(&scan - scans)), scan);
    }

    static constexpr int Scans = 11;

    String title;  // with an index
    String body;
    Blob scans[Scans];
};

class PaperModel : public Model {
public:
    explicit PaperModel(int schemaVersion = 1, bool withIndex = true)
        : Model("papers", 1000),
          wanted(schemaVersion),
          isIndexed(withIndex) {}

    Class* paperClass = nullptr;

    Paper* newPaper(const char* title = "") {
        auto* paper = static_cast<Paper*>(paperClass->newInstance());
        paper->title = title;
        return paper;
    }

protected:
    void declareModel() override {
        setVersion(wanted);
        paperClass = addClass("Paper", wanted, [](Class* c) -> Instance* { return new Paper(c); });
        if (isIndexed)
            paperClass->addIndex("title", false);
    }

private:
    int wanted;
    bool isIndexed;
};

/// Bytes of all values, in no order that a database could make smaller.
inline std::string noise(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint64_t state = 1;
    for (std::size_t at = 0; at + sizeof state <= size; at += sizeof state) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        std::memcpy(bytes.data() + at, &state, sizeof state);
    }
    return bytes;
}

inline Blob scanOf(int size) {
    return Blob(noise(static_cast<std::size_t>(size)).data(), size);
}

}  // namespace Kes::testing
