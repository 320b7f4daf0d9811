// Runs an entry where no fuzzer is to be had: each seed as it is, and then seeds
// with a few bytes changed, removed, repeated or exchanged with another one's.
//
//   program CASES FOLDER
//
// What it makes up is the same in every run.

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "tests/fuzz/Input.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

std::vector<Bytes> readSeeds(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    std::vector<Bytes> seeds;
    for (const auto& file : files) {
        std::ifstream in(file, std::ios::binary);
        seeds.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    return seeds;
}

class Mutator {
public:
    explicit Mutator(const std::vector<Bytes>& itsSeeds) : seeds(itsSeeds) {}

    Bytes make() {
        Bytes bytes = seeds[below(seeds.size())];
        for (std::size_t i = 1 + below(6); i > 0; --i)
            change(bytes);
        return bytes;
    }

private:
    std::size_t below(std::size_t count) { return random() % count; }

    void change(Bytes& bytes) {
        const std::size_t at = below(bytes.size() + 1);
        const auto place = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        const std::size_t length = std::min(1 + below(8), bytes.size() - at);
        const auto end = place + static_cast<std::ptrdiff_t>(length);
        switch (below(5)) {
        case 0: bytes.insert(place, static_cast<std::uint8_t>(below(256))); break;
        case 1: bytes.erase(place, end); break;
        case 2:
            if (at < bytes.size())
                *place = static_cast<std::uint8_t>(below(256));
            break;
        case 3: {
            const Bytes copy(place, end);
            bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(below(bytes.size() + 1)),
                         copy.begin(), copy.end());
            break;
        }
        default: {
            const Bytes& other = seeds[below(seeds.size())];
            const auto from = static_cast<std::ptrdiff_t>(below(other.size() + 1));
            bytes.erase(place, bytes.end());
            bytes.insert(bytes.end(), other.begin() + from, other.end());
        }
        }
    }

    const std::vector<Bytes>& seeds;
    std::mt19937 random{20020105};
};

// The case under way, for the one that does not end well.
const Bytes* current = nullptr;

void showCase(int) {
    std::fprintf(stderr, "the case, for xxd -r -p: ");
    for (const std::uint8_t byte : *current)
        std::fprintf(stderr, "%02x", static_cast<unsigned>(byte));
    std::fprintf(stderr, "\n");
    std::_Exit(1);
}

void run(const Bytes& bytes) {
    current = &bytes;
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::fprintf(stderr, "usage: %s CASES FOLDER\n", arguments[0]);
        return 2;
    }
    const std::vector<Bytes> seeds = readSeeds(arguments[2]);
    if (seeds.empty()) {
        std::fprintf(stderr, "%s holds no seeds\n", arguments[2]);
        return 2;
    }
    for (const int signal : {SIGABRT, SIGSEGV, SIGFPE})
        std::signal(signal, showCase);
    for (const Bytes& seed : seeds)
        run(seed);
    Mutator mutator(seeds);
    const long cases = std::atol(arguments[1]);
    for (long i = 0; i < cases; ++i)
        run(mutator.make());
    std::printf("%ld cases\n", cases + static_cast<long>(seeds.size()));
}
