// A digest that those who choose the data cannot steer.
//
// The fields of an object are users' data. A mix that everybody can compute lets
// them find two values that look the same to the library, and the change from
// one to the other would not be noticed. Here every word passes a round of
// additions, rotations and exclusive ors over four lanes that begin with a key
// which each process draws for itself and never tells: without the key, two
// different sequences of words agree in one case of 2^64, whatever they are.

#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>

namespace Kes {

class KeyedDigest {
public:
    struct Key {
        std::uint64_t first;
        std::uint64_t second;

        /// From the system's random source.
        static Key draw() {
            std::random_device source;
            const auto word = [&source] { return std::uint64_t{source()} << 32 | source(); };
            const std::uint64_t first = word();
            return {first, word()};
        }
    };

    explicit KeyedDigest(const Key& key)
        : a(key.first ^ 0x9E3779B97F4A7C15U),
          b(key.second ^ 0xC2B2AE3D27D4EB4FU),
          c(key.first ^ 0x165667B19E3779F9U),
          d(key.second ^ 0x27D4EB2F165667C5U) {}

    void add(std::uint64_t word) {
        d ^= word;
        mix();
        a ^= word;
    }

    /// The size goes first, so no two sequences of values give the same words.
    void addBytes(const char* bytes, std::size_t size) {
        add(size);
        std::uint64_t word = 0;
        for (; size >= sizeof word; bytes += sizeof word, size -= sizeof word) {
            std::memcpy(&word, bytes, sizeof word);
            add(word);
        }
        if (size == 0)
            return;
        word = 0;
        std::memcpy(&word, bytes, size);
        add(word);
    }

    /// The digest of all that was added; nothing can be added after it.
    std::uint64_t finish() {
        c ^= 0xFF;
        for (int i = 0; i < 3; ++i)
            mix();
        return a ^ b ^ c ^ d;
    }

private:
    // Each lane reaches every other one within two rounds.
    void mix() {
        a += b;
        c += d;
        b = std::rotl(b, 13) ^ a;
        d = std::rotl(d, 16) ^ c;
        a = std::rotl(a, 32) + d;
        c += b;
        d = std::rotl(d, 21) ^ a;
        b = std::rotl(b, 17) ^ c;
        c = std::rotl(c, 32);
    }

    std::uint64_t a;
    std::uint64_t b;
    std::uint64_t c;
    std::uint64_t d;
};

}  // namespace Kes
