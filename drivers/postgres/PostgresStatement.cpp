#include "drivers/postgres/PostgresStatement.h"

#include <libpq-fe.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "drivers/postgres/PostgresConnection.h"

namespace Kes::sql {

namespace {

// The server's numbers for its types.
enum Type : unsigned {
    TypeUnknown = 0,
    TypeBool = 16,
    TypeBytes = 17,
    TypeName = 19,
    TypeInt8 = 20,
    TypeInt2 = 21,
    TypeInt4 = 23,
    TypeText = 25,
    TypeOid = 26,
    TypeFloat4 = 700,
    TypeFloat8 = 701,
    TypeBpchar = 1042,
    TypeInt8Array = 1016,
    TypeVarchar = 1043
};

// Of a list, before its elements: five numbers of the protocol.
constexpr std::size_t ListHeader = 20;  // bytes

// Rows of a cursor that one round trip brings. Most queries end within the first batch;
// of those that do not, the third one is as large as batches get. They are bounded by
// rows and by bytes, for a batch is in memory as a whole.
constexpr int FirstBatch = 128;
constexpr int LargestBatch = 8192;
constexpr int Growth = 8;
constexpr std::size_t BatchSize = std::size_t{1} << 20;  // bytes, about

// The server counts its parameters; ? in names and constants is none.
std::string numberParameters(const std::string& text, std::size_t& count) {
    std::string native;
    count = 0;
    char quote = '\0';
    for (const char c : text) {
        if (quote != '\0')
            quote = c == quote ? '\0' : quote;
        else if (c == '"' || c == '\'')
            quote = c;
        if (c == '?' && quote == '\0')
            native += "$" + std::to_string(++count);
        else
            native += c;
    }
    return native;
}

std::uint64_t readBits(const char* at, int size) {
    std::uint64_t bits = 0;
    for (int i = 0; i < size; ++i)
        bits = bits << 8 | static_cast<unsigned char>(at[i]);
    return bits;
}

void appendBits(std::string& bytes, std::uint64_t bits, int size) {
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8)
        bytes += static_cast<char>(bits >> shift & 0xFF);
}

// As a constant is written.
std::string shownList(const char* bytes, std::size_t size) {
    std::string shown = "'{";
    for (std::size_t at = ListHeader + 4; at + 8 <= size; at += 12)
        shown += (shown.size() > 2 ? "," : "") +
                 std::to_string(static_cast<std::int64_t>(readBits(bytes + at, 8)));
    return shown + "}'::bigint[]";
}

}  // namespace

PostgresStatement::PostgresStatement(PostgresConnection& itsConnection, const std::string& itsText)
    : owner(&itsConnection),
      text_(itsText) {
    std::size_t count = 0;
    nativeText = numberParameters(itsText, count);
    values.types.resize(count);
    values.values.resize(count);
    values.sizes.resize(count);
    numbers.resize(count);
}

PostgresStatement::~PostgresStatement() {
    for (const std::shared_ptr<Prepared>& each : variants)
        owner->drop(each);
}

const char* PostgresStatement::place(int parameter, unsigned type, const char* value,
                                     std::size_t size) {
    const auto at = static_cast<std::size_t>(parameter);
    values.types.at(at) = type;
    values.values[at] = value;
    values.sizes[at] = static_cast<int>(size);
    return value;
}

void PostgresStatement::putNumber(int parameter, unsigned type, std::uint64_t bits) {
    std::array<char, 8>& number = numbers.at(static_cast<std::size_t>(parameter));
    for (std::size_t i = number.size(); i > 0; --i, bits >>= 8)
        number[i - 1] = static_cast<char>(bits & 0xFF);
    place(parameter, type, number.data(), number.size());
}

void PostgresStatement::bindNull(int parameter) {
    place(parameter, TypeUnknown, nullptr, 0);
}

void PostgresStatement::bind(int parameter, std::int64_t value) {
    putNumber(parameter, TypeInt8, static_cast<std::uint64_t>(value));
}

void PostgresStatement::bind(int parameter, double value) {
    putNumber(parameter, TypeFloat8, std::bit_cast<std::uint64_t>(value));
}

void PostgresStatement::bindText(int parameter, const char* text, std::size_t size) {
    place(parameter, TypeText, text, size);
}

void PostgresStatement::bindBytes(int parameter, const void* bytes, std::size_t size) {
    place(parameter, TypeBytes, size != 0 ? static_cast<const char*>(bytes) : "", size);
}

// One dimension, none of them NULL, the type of the elements, how many there are,
// the number of the first; then each with its size.
void PostgresStatement::bindList(int parameter, const std::vector<std::int64_t>& listed) {
    std::string& bytes = lists[parameter];
    bytes.clear();
    for (const std::uint64_t word : {std::uint64_t{1}, std::uint64_t{0}, std::uint64_t{TypeInt8},
                                     std::uint64_t{listed.size()}, std::uint64_t{1}})
        appendBits(bytes, word, 4);
    for (const std::int64_t number : listed) {
        appendBits(bytes, 8, 4);
        appendBits(bytes, static_cast<std::uint64_t>(number), 8);
    }
    place(parameter, TypeInt8Array, bytes.data(), bytes.size());
}

// Values that are NULL say nothing of their type. Only references and blobs can
// be NULL, so a type that the server had to find out is one of these two, and
// the form in which both are sent fits.
std::shared_ptr<Prepared> PostgresStatement::preparedFor(const std::vector<unsigned>& types) {
    const auto fits = [](unsigned made, unsigned bound) {
        return made == bound || bound == TypeUnknown ||
               (made == TypeUnknown && (bound == TypeInt8 || bound == TypeBytes));
    };
    for (const std::shared_ptr<Prepared>& each : variants)
        if (std::equal(types.begin(), types.end(), each->types.begin(), fits))
            return each;
    auto fresh = std::make_shared<Prepared>();
    fresh->name = owner->freshName();
    fresh->types = types;
    variants.push_back(fresh);
    return fresh;
}

void PostgresStatement::send(const std::string& sentText, PostgresWire::Purpose purpose) {
    owner->beforeSending();
    if (owner->wire().isTracing())
        purpose.traced = expanded();
    if (!owner->keepsStatements()) {
        owner->wire().execute(sentText, values, std::move(purpose));
        return;
    }
    const std::shared_ptr<Prepared> prepared = preparedFor(values.types);
    if (!owner->wire().has(*prepared))
        owner->wire().prepare(prepared, sentText, purpose);
    owner->wire().execute(*prepared, values, std::move(purpose));
}

bool PostgresStatement::step() {
    if (rows == nullptr) {
        send(nativeText, {PostgresWire::Wish::Answer});
        takeRows(owner->receive());
    }
    if (row + 1 >= rowCount())
        return false;
    ++row;
    return true;
}

void PostgresStatement::takeRows(Result fresh) {
    rows = std::move(fresh);
    row = -1;
}

int PostgresStatement::rowCount() const {
    return PQntuples(rows.get());
}

void PostgresStatement::reset() noexcept {
    rows.reset();
    row = -1;
}

long PostgresStatement::run() {
    send(nativeText, {PostgresWire::Wish::Answer});
    const Result done = owner->receive();
    return std::strtol(PQcmdTuples(done.get()), nullptr, 10);
}

void PostgresStatement::post(std::size_t ticket, long least) {
    send(nativeText, {PostgresWire::Wish::Post, ticket, least, {}, true});
    owner->notePost();
}

Row::Kind PostgresStatement::kind(int column) {
    if (PQgetisnull(rows.get(), row, column) != 0)
        return Null;
    switch (PQftype(rows.get(), column)) {
    case TypeBool:
    case TypeInt2:
    case TypeInt4:
    case TypeInt8:
    case TypeOid: return Integer;
    case TypeFloat4:
    case TypeFloat8: return Real;
    case TypeText:
    case TypeName:
    case TypeBpchar:
    case TypeVarchar: return Text;
    case TypeBytes: return Bytes;
    default:
        throw SqlFailure("the column " + std::string(PQfname(rows.get(), column)) +
                         " has a type that the library does not make; give it back the type "
                         "bigint, double precision, text or bytea");
    }
}

std::int64_t PostgresStatement::integer(int column) {
    const Kind known = kind(column);
    if (known == Real)
        return static_cast<std::int64_t>(real(column));
    if (known != Integer)
        return 0;
    const int size = PQgetlength(rows.get(), row, column);
    const std::uint64_t bits = readBits(PQgetvalue(rows.get(), row, column), size);
    switch (PQftype(rows.get(), column)) {
    case TypeInt2: return static_cast<std::int16_t>(bits);
    case TypeInt4: return static_cast<std::int32_t>(bits);
    default: return static_cast<std::int64_t>(bits);
    }
}

double PostgresStatement::real(int column) {
    const Kind known = kind(column);
    if (known == Integer)
        return static_cast<double>(integer(column));
    if (known != Real)
        return 0;
    const char* at = PQgetvalue(rows.get(), row, column);
    if (PQftype(rows.get(), column) == TypeFloat4)
        return static_cast<double>(
            std::bit_cast<float>(static_cast<std::uint32_t>(readBits(at, 4))));
    return std::bit_cast<double>(readBits(at, 8));
}

const char* PostgresStatement::text(int column, std::size_t& size) {
    size = static_cast<std::size_t>(PQgetlength(rows.get(), row, column));
    return PQgetvalue(rows.get(), row, column);
}

const void* PostgresStatement::bytes(int column, std::size_t& size) {
    return text(column, size);
}

std::string PostgresStatement::expanded() const {
    constexpr std::size_t longest = 1000;  // bytes of one value
    std::string filled;
    std::size_t parameter = 0;
    char quote = '\0';
    for (const char c : text_) {
        if (quote != '\0')
            quote = c == quote ? '\0' : quote;
        else if (c == '"' || c == '\'')
            quote = c;
        if (c != '?' || quote != '\0') {
            filled += c;
            continue;
        }
        const char* value = values.values[parameter];
        const auto size = static_cast<std::size_t>(values.sizes[parameter]);
        const unsigned type = values.types[parameter++];
        if (value == nullptr) {
            filled += "NULL";
        } else if (type == TypeInt8) {
            filled += std::to_string(static_cast<std::int64_t>(readBits(value, 8)));
        } else if (type == TypeFloat8) {
            char digits[64];
            const auto [end, error] = std::to_chars(digits, digits + sizeof digits,
                                                    std::bit_cast<double>(readBits(value, 8)));
            filled.append(digits, error == std::errc() ? end : digits);
        } else if (type == TypeInt8Array) {
            filled += shownList(value, size);
        } else if (type == TypeBytes) {
            filled += "'\\x";
            for (std::size_t i = 0; i < std::min(size, longest); ++i)
                for (const int half : {value[i] >> 4 & 15, value[i] & 15})
                    filled += "0123456789abcdef"[half];
            filled += size > longest ? "... (" + std::to_string(size) + " bytes)'" : "'";
        } else {
            filled += '\'';
            for (std::size_t i = 0; i < std::min(size, longest); ++i)
                filled.append(value[i] == '\'' ? 2 : 1, value[i]);
            filled += size > longest ? "... (" + std::to_string(size) + " bytes)'" : "'";
        }
    }
    return filled;
}

PostgresCursor::PostgresCursor(PostgresConnection& itsConnection, const std::string& itsText)
    : PostgresStatement(itsConnection, itsText),
      name(itsConnection.freshName()) {}

PostgresCursor::~PostgresCursor() {
    PostgresCursor::reset();
}

// One round trip, also for a query with few rows.
void PostgresCursor::open() {
    generation = connection().enterCursor();
    isOpen = true;
    batch = FirstBatch;
    send("DECLARE " + name + " NO SCROLL CURSOR FOR " + native(), {});
    sendFetch();
    takeRows(connection().receive());
}

void PostgresCursor::sendFetch() {
    connection().wire().execute("FETCH FORWARD " + std::to_string(batch) + " FROM " + name,
                                {PostgresWire::Wish::Answer});
}

void PostgresCursor::fetch() {
    connection().demand(generation);
    adjustBatch();
    sendFetch();
    takeRows(connection().receive());
}

// Rows are as large as they were so far.
void PostgresCursor::adjustBatch() {
    const std::size_t size = std::max(PQresultMemorySize(rows.get()), std::size_t{1});
    const std::size_t fitting = BatchSize * static_cast<std::size_t>(rowCount()) / size;
    batch = static_cast<int>(std::clamp(
        fitting, std::size_t{1}, static_cast<std::size_t>(std::min(batch * Growth, LargestBatch))));
}

bool PostgresCursor::step() {
    if (!isStarted) {
        isStarted = true;
        try {
            open();
        } catch (...) {
            reset();
            isStarted = true;
            throw;
        }
    }
    if (rows == nullptr)
        return false;
    if (row + 1 >= rowCount() && rowCount() == batch)
        fetch();
    if (row + 1 < rowCount()) {
        ++row;
        return true;
    }
    if (isOpen)
        connection().leaveCursor(name, generation);
    isOpen = false;
    return false;
}

void PostgresCursor::reset() noexcept {
    if (isOpen)
        connection().leaveCursor(name, generation);
    isOpen = false;
    isStarted = false;
    PostgresStatement::reset();
}

long PostgresCursor::run() {
    long count = 0;
    while (step())
        ++count;
    reset();
    return count;
}

void PostgresCursor::post(std::size_t, long) {
    run();
}

}  // namespace Kes::sql
