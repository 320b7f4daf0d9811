// What a driver needs of a client library.
//
// Positions of parameters and columns count from 0. Failures are thrown as
// SqlFailure with the database's own words.

#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>

namespace Kes::sql {

/// The current row of a statement, or one that was kept aside.
class Row {
public:
    enum Kind : std::uint8_t { Null, Integer, Real, Text, Bytes };

    virtual ~Row() = default;
    virtual Kind kind(int column) = 0;
    virtual std::int64_t integer(int column) = 0;
    virtual double real(int column) = 0;

    /// Terminated by a NUL; valid until the row changes. So are bytes().
    virtual const char* text(int column, std::size_t& size) = 0;
    virtual const void* bytes(int column, std::size_t& size) = 0;
};

/// A prepared statement, executed again and again.
class Statement : public Row {
public:
    virtual void bindNull(int parameter) = 0;
    virtual void bind(int parameter, std::int64_t value) = 0;
    virtual void bind(int parameter, double value) = 0;

    /// Borrowed until the execution ends.
    virtual void bindText(int parameter, const char* text, std::size_t size) = 0;
    virtual void bindBytes(int parameter, const void* bytes, std::size_t size) = 0;

    /// True when a row has become current, false at the end.
    virtual bool step() = 0;

    /// Ends an execution; the next step starts anew.
    virtual void reset() noexcept = 0;

    /// Executes to the end and returns the number of rows that were written.
    virtual long run() = 0;
};

class Connection {
public:
    virtual ~Connection() = default;
    virtual std::unique_ptr<Statement> prepare(const std::string& text) = 0;
    virtual void execute(const std::string& text) = 0;

    /// Begins a transaction that may write.
    virtual void begin() = 0;
    virtual void commit() = 0;

    /// Does nothing when the database has rolled back by itself.
    virtual void rollback() = 0;
    virtual bool inTransaction() = 0;

    /// Null disables.
    virtual void traceTo(std::ostream* stream) = 0;
};

}  // namespace Kes::sql
