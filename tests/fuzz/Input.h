// The bytes that a fuzzer has made up, taken apart.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace Kes::fuzz {

/// Hands out the bytes of a case; zeros and empty texts when there are no more.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : rest(reinterpret_cast<const char*>(data), size) {}

    bool isEmpty() const { return rest.empty(); }

    /// From 0 to `count` - 1.
    unsigned choice(unsigned count) { return number<std::uint8_t>() % count; }

    template <class T>
    T number() {
        T value{};
        const std::string_view bytes = take(sizeof value);
        std::memcpy(&value, bytes.data(), bytes.size());
        return value;
    }

    /// Up to the separator, or all that is left.
    std::string text(char separator = '\n') {
        const std::size_t end = rest.find(separator);
        const std::string found(rest.substr(0, end));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        return found;
    }

private:
    std::string_view take(std::size_t size) {
        const std::string_view bytes = rest.substr(0, size);
        rest.remove_prefix(bytes.size());
        return bytes;
    }

    std::string_view rest;
};

/// Ends the case, and with it the fuzzer, when something does not hold.
inline void demand(bool holds, const std::string& what) {
    if (holds)
        return;
    std::fprintf(stderr, "%s\n", what.c_str());
    std::abort();
}

}  // namespace Kes::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
