// Rows that wait to be sent with one statement.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "drivers/common/Connection.h"

struct st_mysql_bind;

namespace Kes::sql {

/// A value bound to a parameter. Texts and bytes are borrowed.
struct MariadbValue {
    Row::Kind kind = Row::Null;
    std::int64_t integer = 0;
    double real = 0;
    const void* data = nullptr;
    std::size_t size = 0;

    /// Bytes that it takes in a packet, or a few less.
    std::size_t packed() const { return kind == Row::Null ? 1 : 9 + size; }

    /// Points the bind here.
    void bind(st_mysql_bind& target) const;
};

/// One array per parameter, as the protocol for many rows wants them.
class MariadbPosts {
public:
    std::size_t count() const { return tickets.size(); }
    std::size_t size() const { return packed; }

    /// False for a row whose values are not of the kinds of those before it.
    bool accepts(const std::vector<MariadbValue>& row) const;

    /// Copies the values.
    void add(const std::vector<MariadbValue>& row, std::size_t ticket, long least);
    void clear();

    /// Points the binds, one per parameter, to the arrays.
    void bind(std::vector<st_mysql_bind>& binds);

    /// One value of a row. Its text or bytes are borrowed from here.
    MariadbValue value(std::size_t position, std::size_t parameter) const;

    /// One of the rows, borrowed in the same way.
    std::vector<MariadbValue> row(std::size_t position) const;
    std::size_t ticket(std::size_t position) const { return tickets[position]; }

    /// The rows that a write has to touch at least, and all of them together.
    long least(std::size_t position) const { return leasts[position]; }
    long least() const { return leastRows; }

private:
    struct Column {
        Row::Kind kind = Row::Null;  // until a value is there
        std::vector<char> isNull;
        std::vector<std::int64_t> integers;
        std::vector<double> reals;
        std::string bytes;  // of all rows
        std::vector<std::size_t> offsets;
        std::vector<unsigned long> sizes;

        // Filled when it is bound.
        std::vector<char*> pointers;
        std::vector<char> indicators;
    };

    std::vector<Column> columns;
    std::vector<std::size_t> tickets;
    std::vector<long> leasts;
    std::size_t packed = 0;
    long leastRows = 0;
};

}  // namespace Kes::sql
