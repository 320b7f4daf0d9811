#include "drivers/mariadb/MariadbStage.h"

#include <algorithm>
#include <cstdlib>

#include "drivers/common/SqlFailure.h"
#include "drivers/mariadb/MariadbConnection.h"

namespace Kes::sql {

namespace {

constexpr const char* Turns = "kes_turn_";
constexpr const char* Tables =
    "SELECT table_name FROM information_schema.tables WHERE table_schema = DATABASE() AND "
    "table_name LIKE ?";
constexpr const char* Triggers =
    "SELECT trigger_name FROM information_schema.triggers WHERE trigger_schema = DATABASE() AND "
    "trigger_name LIKE ?";

std::string quoted(const std::string& name) {
    std::string text = "\"";
    for (const char c : name)
        text.append(c == '"' ? 2 : 1, c);
    return text + "\"";
}

}  // namespace

std::vector<std::string> MariadbStage::namesLike(const std::string& query,
                                                 const std::string& pattern) {
    const std::unique_ptr<Statement> asking = connection.prepare(query + " ESCAPE '|'");
    asking->bindText(0, pattern.data(), pattern.size());
    std::vector<std::string> names;
    while (asking->step()) {
        std::size_t size = 0;
        names.emplace_back(asking->text(0, size));
    }
    return names;
}

std::string MariadbStage::turnName(long number) {
    return quoted(Turns + std::to_string(number));
}

std::string MariadbStage::nameOf(const char* purpose, std::size_t position) const {
    return "kes_" + std::string(purpose) + "_" + std::to_string(turn) + "_" +
           std::to_string(position);
}

void MariadbStage::begin() {
    connection.takeSchemaLock();
    connection.commit();
    isOpen = true;
    isSwapped = false;
    takeTurn();
    sweep();
    connection.begin();
}

void MariadbStage::takeTurn() {
    long last = 0;
    for (const std::string& name : namesLike(Tables, "kes|_turn|_%"))
        last = std::max(last, std::strtol(name.c_str() + std::string(Turns).size(), nullptr, 10));
    if (last == 0)
        connection.execute("CREATE TABLE " + turnName(1) + " (id INTEGER NOT NULL PRIMARY KEY)");
    else
        connection.execute("RENAME TABLE " + turnName(last) + " TO " + turnName(last + 1));
    turn = last + 1;
}

// Tables first: an upgrade that still runs comes to no end without its own.
void MariadbStage::sweep() {
    for (const char* pattern : {"kes|_new|_%", "kes|_old|_%"})
        for (const std::string& name : namesLike(Tables, pattern))
            connection.execute("DROP TABLE IF EXISTS " + quoted(name));
    for (const std::string& name : namesLike(Triggers, "kes|_stop|_%"))
        connection.execute("DROP TRIGGER IF EXISTS " + quoted(name));
}

void MariadbStage::freeze(const std::string& table) {
    int number = 0;
    for (const char* event : {"INSERT", "UPDATE", "DELETE"})
        connection.execute(
            "CREATE TRIGGER " +
            quoted(nameOf("stop", moves.size()) + "_" + std::to_string(++number)) + " BEFORE " +
            event + " ON " + quoted(table) +
            " FOR EACH ROW SIGNAL SQLSTATE '45000' SET MESSAGE_TEXT = 'a program upgrades the "
            "schema, or was cut off while it did; let it open the database again'");
    moves.push_back({table, true});
}

std::string MariadbStage::place(const std::string& table) {
    const auto known = std::find_if(moves.begin(), moves.end(),
                                    [&](const Move& move) { return move.table == table; });
    const auto position = static_cast<std::size_t>(known - moves.begin());
    if (known == moves.end())
        moves.push_back({table, false});
    return quoted(nameOf("new", position));
}

void MariadbStage::swap() {
    std::string text = "RENAME TABLE " + turnName(turn) + " TO " + turnName(turn + 1);
    for (std::size_t i = 0; i < moves.size(); ++i) {
        const std::string table = quoted(moves[i].table);
        if (moves[i].isReplaced)
            text += ", " + table + " TO " + quoted(nameOf("old", i));
        text += ", " + quoted(nameOf("new", i)) + " TO " + table;
    }
    try {
        connection.execute(text);
    } catch (const SqlFailure& failure) {
        throw SqlFailure(std::string("the new tables cannot take their places, perhaps because "
                                     "another program has begun to upgrade the schema as well; "
                                     "open again: ") +
                         failure.what());
    }
    isSwapped = true;
}

// What cannot be dropped now is dropped by the next upgrade.
void MariadbStage::end() {
    if (!isOpen)
        return;
    isOpen = false;
    try {
        for (std::size_t i = 0; i < moves.size(); ++i) {
            if (moves[i].isReplaced && !isSwapped)
                for (const char* number : {"_1", "_2", "_3"})
                    connection.execute("DROP TRIGGER IF EXISTS " +
                                       quoted(nameOf("stop", i) + number));
            if (moves[i].isReplaced || !isSwapped)
                connection.execute("DROP TABLE IF EXISTS " +
                                   quoted(nameOf(isSwapped ? "old" : "new", i)));
        }
        connection.releaseSchemaLock();
    } catch (const SqlFailure&) {
        // The connection is lost; its lock went with it.
    }
    moves.clear();
}

}  // namespace Kes::sql
