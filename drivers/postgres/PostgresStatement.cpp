#include "drivers/postgres/PostgresStatement.h"

#include <libpq-fe.h>

#include <algorithm>
#include <bit>
#include <cstdlib>

#include "drivers/postgres/PostgresConnection.h"
#include "drivers/postgres/PostgresTrace.h"
#include "drivers/postgres/PostgresTypes.h"

namespace Kes::sql {

namespace {

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

void appendBits(std::string& bytes, std::uint64_t bits, int size) {
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8)
        bytes += static_cast<char>(bits >> shift & 0xFF);
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
        purpose.traced = expanded(text_, values);
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

}  // namespace Kes::sql
