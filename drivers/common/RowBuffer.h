// Rows that were kept aside.
//
// A cursor whose connection is about to write takes its remaining rows here, so
// that it delivers what it began with whatever becomes of the tables. Rows are
// packed; beyond a few megabytes they go to a temporary file, and memory stays
// bounded however many there are.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "drivers/common/Connection.h"

namespace Kes::sql {

class RowBuffer final : public Row {
public:
    explicit RowBuffer(int columnCount) : columns(columnCount) {}

    void append(Row& row);

    /// Makes the next row current; false at the end. After the first call no
    /// row is appended.
    bool advance();

    Kind kind(int column) override { return field(column).kind; }
    std::int64_t integer(int column) override { return field(column).integer; }
    double real(int column) override;
    const char* text(int column, std::size_t& size) override;
    const void* bytes(int column, std::size_t& size) override;

private:
    struct Field {
        Kind kind = Null;
        std::int64_t integer = 0;  // of texts and bytes: the position in `values`
        double real = 0;
        std::size_t size = 0;
    };
    struct CloseFile {
        void operator()(std::FILE* opened) const { std::fclose(opened); }
    };

    const Field& field(int column) const { return fields[static_cast<std::size_t>(column)]; }
    void spill();
    bool readPacked();
    void put(const void* data, std::size_t size);
    void take(void* data, std::size_t size);

    int columns;
    std::vector<char> packed;   // rows that wait
    std::size_t at = 0;         // the reading position in `packed`
    std::uint64_t waiting = 0;  // rows not delivered yet
    std::unique_ptr<std::FILE, CloseFile> file;
    bool reading = false;
    std::vector<Field> fields;        // of the current row
    std::vector<std::string> values;  // its texts and bytes
};

}  // namespace Kes::sql
