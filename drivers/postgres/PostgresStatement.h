// A statement of the server, executed again and again.

#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "drivers/common/Connection.h"
#include "drivers/postgres/PostgresWire.h"

namespace Kes::sql {

class PostgresConnection;

/// Prepared when it is first executed, because the types of its parameters are
/// those of the values that are bound.
class PostgresStatement : public Statement {
public:
    /// `itsText` has ? for each parameter.
    PostgresStatement(PostgresConnection& itsConnection, const std::string& itsText);
    PostgresStatement(const PostgresStatement&) = delete;
    PostgresStatement& operator=(const PostgresStatement&) = delete;
    ~PostgresStatement() override;

    Kind kind(int column) override;
    std::int64_t integer(int column) override;
    double real(int column) override;
    const char* text(int column, std::size_t& size) override;
    const void* bytes(int column, std::size_t& size) override;

    void bindNull(int parameter) override;
    void bind(int parameter, std::int64_t value) override;
    void bind(int parameter, double value) override;
    void bindText(int parameter, const char* text, std::size_t size) override;
    void bindBytes(int parameter, const void* bytes, std::size_t size) override;
    void bindList(int parameter, const std::vector<std::int64_t>& numbers) override;

    bool step() override;
    void reset() noexcept override;
    long run() override;
    void post(std::size_t ticket, long least) override;

protected:
    /// Sends an execution of the text that is given, which is prepared first
    /// where that has not been done for the types of the bound values.
    void send(const std::string& nativeText, PostgresWire::Purpose purpose);
    const std::string& native() const { return nativeText; }
    PostgresConnection& connection() { return *owner; }

    void takeRows(Result fresh);
    int rowCount() const;

    Result rows;  // null while nothing is executed
    int row = -1;

private:
    const char* place(int parameter, unsigned type, const char* value, std::size_t size);
    void putNumber(int parameter, unsigned type, std::uint64_t bits);
    std::shared_ptr<Prepared> preparedFor(const std::vector<unsigned>& types);

    PostgresConnection* owner;
    std::string text_;
    std::string nativeText;
    WireValues values;
    std::vector<std::array<char, 8>> numbers;
    std::map<int, std::string> lists;  // by their parameters
    std::vector<std::shared_ptr<Prepared>> variants;
};

}  // namespace Kes::sql
