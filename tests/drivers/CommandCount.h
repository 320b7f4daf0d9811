// What clients ask of a MariaDB server.

#pragma once

#include <array>
#include <cstddef>
#include <mutex>
#include <string>

namespace Kes::testing {

/// Counts the commands of clients by their kind. A packet has its size, a number
/// that counts from 0 with each command, and the command itself at first.
class CommandCount {
public:
    void hear(const char* bytes, std::size_t size) {
        const std::lock_guard guard(mutex);
        heard.append(bytes, size);
        while (takePacket())
            continue;
    }

    void restart() {
        const std::lock_guard guard(mutex);
        counts.fill(0);
    }

    long texts() { return of(0x03); }
    long prepared() { return of(0x16); }
    long executed() { return of(0x17); }
    long executedForMany() { return of(0xFA); }

private:
    bool takePacket() {
        constexpr std::size_t header = 4;
        if (heard.size() < header)
            return false;
        const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(heard[at]); };
        const std::size_t size =
            byte(0) + (std::size_t{byte(1)} << 8) + (std::size_t{byte(2)} << 16);
        if (heard.size() < header + size)
            return false;
        if (byte(3) == 0 && size != 0)
            ++counts[byte(header)];
        heard.erase(0, header + size);
        return true;
    }

    long of(unsigned char command) {
        const std::lock_guard guard(mutex);
        return counts[command];
    }

    std::mutex mutex;
    std::string heard;
    std::array<long, 256> counts{};
};

/// Takes from a server's greeting that it knows the command for many rows.
inline void hideCommandForMany(std::string& bytes) {
    constexpr std::size_t version = 5;      // behind the header and the protocol's number
    constexpr std::size_t extensions = 28;  // behind the version
    constexpr int command = 4;
    const std::size_t end = bytes.find('\0', version);
    if (bytes.size() > version && bytes[3] == 0 && bytes[4] == 10 &&
        bytes.size() > end + extensions)
        bytes[end + extensions] = static_cast<char>(bytes[end + extensions] & ~command);
}

}  // namespace Kes::testing
