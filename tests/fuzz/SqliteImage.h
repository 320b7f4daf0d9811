// A small database with what a case does to it.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include <sqlite3.h>

#include "tests/fuzz/Input.h"

namespace Kes::fuzz {

struct CloseDatabase {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;

/// For reading and writing a file behind the library's back. Ends the fuzzer when
/// it is not there.
Database openPlainly(const std::string& file);

/// False when one of the statements fails.
bool execute(sqlite3* database, const std::string& statements);

/// The bytes of a database file, and of the journal or log beside it.
struct Image {
    std::string file;
    std::string journal;
    std::string log;

    /// Reads what lies at `path`.
    static Image of(const std::string& path);

    /// Puts them there, and nothing else beside them.
    void write(const std::string& path) const;

    bool operator==(const Image& other) const = default;
};

/// What a case does to an image: statements that somebody else has executed, and
/// bytes and pages that are not what they were.
class Changes {
public:
    /// Takes them from the input to its end.
    explicit Changes(Input& input);

    bool isEmpty() const { return statements.empty() && damages.empty(); }

    /// Whether only statements are executed: what the file says, it says soundly.
    bool isSound() const { return damages.empty(); }

    /// Whether the database does more than it is told.
    bool hasTrigger() const;

    /// The statements go to a file without companions only.
    Image apply(const Image& image) const;

private:
    struct Damage {
        unsigned kind;
        std::size_t at;
        unsigned char value;
    };

    void addValue(Input& input);
    void addSchema(Input& input);
    static void damage(std::string& bytes, const Damage& how);

    std::vector<std::string> statements;
    std::vector<Damage> damages;
};

}  // namespace Kes::fuzz
