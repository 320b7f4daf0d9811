// The database that the driver suite runs on.
//
// The suite is one program for all drivers. KES_TEST_DRIVER names the driver
// and is "sqlite" when it is not set; ctest runs the suite once for each driver
// that was built. A driver of a server finds it in a folder below
// KES_TEST_SERVERS, where ctest starts it before the tests and stops it after.

#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <kes/Model.h>

namespace Kes::testing {

/// A database of the test's own, empty at first and gone in the end, and a
/// second way to it, past the library.
class Engine {
public:
    /// Of the driver under test. Throws when its server does not run.
    static std::unique_ptr<Engine> make();

    /// What the script that started a server wrote down of it: the first line of
    /// the file `name` in the server's folder. Throws when there is none.
    static std::string serverSays(const std::string& server, const std::string& name);

    /// The folder that the scripts were told to start servers in.
    static std::string serverFolder();

    /// Where that file is.
    static std::string serverFile(const std::string& server, const std::string& name);

    Engine() = default;
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    virtual ~Engine() = default;

    virtual std::string driver() const = 0;

    /// The texts that open the database.
    virtual std::string source() const = 0;
    virtual std::string user() const { return ""; }
    virtual std::string password() const { return ""; }
    virtual std::string options() const { return ""; }

    /// Opens the model on the database, with further options.
    void open(Model& model, const std::string& more = "") const;

    /// Executes standard SQL with its names in brackets, as in [Person]. Throws
    /// with the database's words when it fails.
    void run(const std::string& text) { execute(quoted(text)); }

    /// The first column of the first row, "" for NULL or no row.
    std::string ask(const std::string& text) { return query(quoted(text)); }

    /// All tables but those with names of the library's own (kes_...).
    virtual std::vector<std::string> tables() = 0;

    /// Tables, views and, where there are any, sequences, those of the library too.
    virtual std::vector<std::string> contents() = 0;

    /// In their order; none when there is no such table.
    virtual std::vector<std::string> columnsOf(const std::string& table) = 0;

    /// How many indexes a table has, that of its key included.
    virtual std::size_t indexesOf(const std::string& table) = 0;

    // --- what databases disagree about ---

    /// The option that has a lock waited for no longer than that, in ms.
    virtual std::string waitingAtMost(int limit) const = 0;

    /// The same for as short as is possible: what has to wait for a session of
    /// the same thread waits in vain.
    virtual std::string hardlyWaiting() const { return waitingAtMost(50); }

    /// Whether the child of a fork can open what its parent has open.
    virtual bool opensInheritedFiles() const { return true; }

    /// Whether names of tables that differ in case only are one name.
    virtual bool foldsTableNames() const = 0;

    /// Whether a zero keeps its sign; it is refused otherwise.

    /// How many bytes the values of an object may have together, and what a
    /// refusal calls the limit.
    virtual std::size_t mostBytes() const { return 1000000000; }
    virtual std::string sizeLimit() const { return std::to_string(mostBytes()); }

    /// Whether an indexed field takes texts of any length; the index refuses
    /// long ones otherwise.
    virtual bool indexesLongTexts() const { return true; }

    /// How many columns the driver gives a table at most.
    virtual std::size_t mostColumns() const = 0;

    /// Names that tables cannot have, though columns can.
    virtual std::vector<std::string> tableNamesOfItsOwn() const = 0;

protected:
    virtual void execute(const std::string& text) = 0;
    virtual std::string query(const std::string& text) = 0;

    /// What names stand between.
    virtual char quote() const { return '"'; }

private:
    std::string quoted(std::string text) const;
};

}  // namespace Kes::testing
