// A prepared statement of a server.

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "drivers/common/RowBuffer.h"
#include "drivers/common/SqlFailure.h"
#include "drivers/mariadb/MariadbConnection.h"
#include "drivers/mariadb/MariadbMany.h"
#include "drivers/mariadb/MariadbPosts.h"

namespace Kes::sql {

class MariadbStatement final : public Statement {
public:
    MariadbStatement(MariadbConnection& itsConnection, const std::string& itsText);
    MariadbStatement(const MariadbStatement&) = delete;
    MariadbStatement& operator=(const MariadbStatement&) = delete;
    ~MariadbStatement() override;

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

    bool step() override;
    void reset() noexcept override;
    long run() override;
    void post(std::size_t ticket, long least) override;

    // --- for the connection ---

    /// Takes the rows that are on the wire aside.
    void stepAside();

    /// Sends what is posted. Throws the PostFailure of the first that failed.
    void sendPosts();
    void dropPosts();

private:
    // Bytes of a command beside its values: the header, their types, the marks of null.
    // More than a hundred columns need.
    static constexpr std::size_t PacketOverhead = 1024;

    // Where the client library puts one column of a row.
    struct Field {
        Kind kind = Null;
        std::int64_t integer = 0;
        double real = 0;
        std::vector<char> data;
        unsigned long size = 0;
        char isNull = 0;  // the library's truth value, as isCut
        char isCut = 0;
    };

    MariadbValue& parameter(int position);
    void prepare();
    void execute(const std::vector<MariadbValue>& values);
    [[noreturn]] void failExecution();
    bool send(const std::vector<MariadbValue>& values);
    void describeResult();
    void bindResult();
    bool fetch();
    bool advance();
    void breakOff(const SqlFailure& failure);
    void makeWayToClose() noexcept;
    void widen();
    void giveRoomBack() noexcept;
    void finish() noexcept;
    long sendOne(const std::vector<MariadbValue>& values);
    void sendPost(std::size_t position);
    void sendAll();
    long sendMany();
    long sendArrays();
    long sendTogether(std::size_t begin, std::size_t count);
    std::size_t mostPosted() const;
    void checkSize(const std::vector<MariadbValue>& values) const;

    MariadbConnection& connection;
    const std::string sql;
    st_mysql_stmt* handle = nullptr;
    unsigned long generation = 0;  // of the connection that the handle belongs to
    std::vector<MariadbValue> parameters;
    MariadbPosts posts;
    const MariadbMany many;
    std::vector<Field> fields;
    bool isRunning = false;
    bool onRow = false;
    std::unique_ptr<RowBuffer> kept;   // rows that stepped aside, the current one first
    std::optional<SqlFailure> broken;  // why there are no more of them
};

}  // namespace Kes::sql
