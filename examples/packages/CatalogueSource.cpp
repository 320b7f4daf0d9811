#include "packages/CatalogueSource.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <streambuf>
#include <utility>

// NOLINTNEXTLINE(modernize-deprecated-headers): popen and pclose belong to POSIX.
#include <stdio.h>

namespace packages {

namespace {

constexpr const char* dpkgStatus = "/var/lib/dpkg/status";

// Reads what another program prints.
class PipeBuffer : public std::streambuf {
public:
    explicit PipeBuffer(const char* command) : pipe(popen(command, "r")) {}
    PipeBuffer(const PipeBuffer&) = delete;
    PipeBuffer& operator=(const PipeBuffer&) = delete;
    ~PipeBuffer() override {
        if (pipe != nullptr)
            pclose(pipe);
    }

protected:
    int_type underflow() override {
        const std::size_t count =
            pipe != nullptr ? std::fread(bytes.data(), 1, bytes.size(), pipe) : 0;
        setg(bytes.data(), bytes.data(), bytes.data() + count);
        return count != 0 ? traits_type::to_int_type(*gptr()) : traits_type::eof();
    }

private:
    std::FILE* pipe;  // owned; null when the program could not be started
    std::array<char, 1 << 16> bytes;
};

class PipeStream : public std::istream {
public:
    explicit PipeStream(const char* command) : std::istream(nullptr), buffer(command) {
        init(&buffer);
    }

private:
    PipeBuffer buffer;
};

CatalogueSource openFile(const std::string& fileName) {
    auto file = std::make_unique<std::ifstream>(fileName, std::ios::binary);
    if (!file->is_open())
        throw std::runtime_error("cannot read " + fileName + ": " + std::strerror(errno));
    if (std::filesystem::is_directory(fileName))
        throw std::runtime_error("cannot read " + fileName + ": it is a directory");
    return {fileName, std::move(file)};
}

}  // namespace

CatalogueSource openCatalogue(const std::string& fileName) {
    if (fileName == "-")
        return {"the standard input", std::make_unique<std::istream>(std::cin.rdbuf())};
    if (!fileName.empty())
        return openFile(fileName);

    auto available = std::make_unique<PipeStream>("apt-cache dumpavail 2>/dev/null");
    if (available->peek() != std::istream::traits_type::eof())
        return {"apt-cache dumpavail", std::move(available)};
    return openFile(dpkgStatus);
}

}  // namespace packages
