#include "drivers/common/RowBuffer.h"

#include <cstring>

#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

namespace {

// Bytes, of each cursor: what goes beyond lies in a file that the system mostly keeps in
// memory anyway. A guess: a program with a hundred cursors stays below a gigabyte.
constexpr std::size_t MemoryLimit = std::size_t{8} << 20;

// Bytes that are read back from the file at once.
constexpr std::size_t ReadAhead = std::size_t{1} << 20;

}  // namespace

void RowBuffer::put(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const char*>(data);
    packed.insert(packed.end(), bytes, bytes + size);
}

void RowBuffer::append(Row& row) {
    for (int i = 0; i < columns; ++i) {
        const Kind kind = row.kind(i);
        put(&kind, sizeof kind);
        if (kind == Integer) {
            const std::int64_t value = row.integer(i);
            put(&value, sizeof value);
        } else if (kind == Real) {
            const double value = row.real(i);
            put(&value, sizeof value);
        } else if (kind != Null) {
            std::size_t size = 0;
            const void* data = kind == Text ? row.text(i, size) : row.bytes(i, size);
            put(&size, sizeof size);
            if (size != 0)
                put(data, size);
            put("", 1);
        }
    }
    ++waiting;
    if (packed.size() > MemoryLimit)
        spill();
}

void RowBuffer::spill() {
    if (file == nullptr)
        file.reset(std::tmpfile());
    if (file == nullptr ||
        std::fwrite(packed.data(), 1, packed.size(), file.get()) != packed.size())
        throw SqlFailure("the rows of a selection under way do not fit into a temporary file");
    packed.clear();
}

// Brings more bytes behind those that are not read yet.
bool RowBuffer::readPacked() {
    if (file == nullptr)
        return false;
    packed.erase(packed.begin(), packed.begin() + static_cast<std::ptrdiff_t>(at));
    at = 0;
    const std::size_t before = packed.size();
    packed.resize(before + ReadAhead);
    const std::size_t got = std::fread(packed.data() + before, 1, ReadAhead, file.get());
    packed.resize(before + got);
    return got != 0;
}

void RowBuffer::take(void* data, std::size_t size) {
    while (packed.size() - at < size)
        if (!readPacked())
            throw SqlFailure("the temporary file of a selection under way cannot be read");
    std::memcpy(data, packed.data() + at, size);
    at += size;
}

bool RowBuffer::advance() {
    if (!reading) {
        reading = true;
        if (file != nullptr) {
            spill();
            std::rewind(file.get());
        }
    }
    if (waiting == 0)
        return false;
    --waiting;

    // What lies before is delivered; without a file it is dropped in one go.
    if (file == nullptr && at > MemoryLimit / 4) {
        packed.erase(packed.begin(), packed.begin() + static_cast<std::ptrdiff_t>(at));
        at = 0;
    }
    fields.assign(static_cast<std::size_t>(columns), Field());
    std::vector<std::string> held;
    for (Field& each : fields) {
        take(&each.kind, sizeof each.kind);
        if (each.kind == Integer) {
            take(&each.integer, sizeof each.integer);
        } else if (each.kind == Real) {
            take(&each.real, sizeof each.real);
        } else if (each.kind != Null) {
            take(&each.size, sizeof each.size);
            std::string& value = held.emplace_back(each.size + 1, '\0');
            take(value.data(), each.size + 1);
            each.integer = static_cast<std::int64_t>(held.size() - 1);
        }
    }
    values.swap(held);
    return true;
}

double RowBuffer::real(int column) {
    const Field& value = field(column);
    return value.kind == Integer ? static_cast<double>(value.integer) : value.real;
}

const char* RowBuffer::text(int column, std::size_t& size) {
    const Field& value = field(column);
    size = value.size;
    return value.kind == Text || value.kind == Bytes
               ? values[static_cast<std::size_t>(value.integer)].data()
               : "";
}

const void* RowBuffer::bytes(int column, std::size_t& size) {
    return text(column, size);
}

}  // namespace Kes::sql
