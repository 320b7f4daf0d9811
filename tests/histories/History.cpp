#include "tests/histories/History.h"

#include <sstream>
#include <stdexcept>

namespace Kes::testing {

std::string Transaction::text() const {
    std::ostringstream line;
    line << process << ' ' << static_cast<int>(outcome) << ' ' << isSelection << ' ' << begun << ' '
         << ended << ' ' << reads.size();
    for (const ListRead& read : reads) {
        line << ' ' << read.list << ' ' << read.seen.size();
        for (const long value : read.seen)
            line << ' ' << value;
    }
    line << ' ' << appends.size();
    for (const Append& append : appends)
        line << ' ' << append.list << ' ' << append.value;
    return line.str();
}

Transaction Transaction::parse(const std::string& line) {
    std::istringstream stream(line);
    Transaction read;
    int outcome = 0;
    std::size_t count = 0;
    stream >> read.process >> outcome >> read.isSelection >> read.begun >> read.ended >> count;
    read.outcome = static_cast<Outcome>(outcome);
    for (; count > 0 && stream; --count) {
        ListRead each{};
        std::size_t size = 0;
        stream >> each.list >> size;
        for (long value = 0; size > 0 && stream >> value; --size)
            each.seen.push_back(value);
        read.reads.push_back(each);
    }
    stream >> count;
    for (; count > 0 && stream; --count) {
        Append each{};
        stream >> each.list >> each.value;
        read.appends.push_back(each);
    }
    if (!stream)
        throw std::runtime_error("no transaction: " + line);
    return read;
}

}  // namespace Kes::testing
