#include "drivers/mariadb/MariadbStage.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "drivers/common/SqlFailure.h"
#include "drivers/mariadb/MariadbConnection.h"

namespace Kes::sql {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* Turns = "kes_turn_";

// Behind the name of a turn, while somebody has it.
constexpr const char* Clearing = "_clearing";
constexpr const char* Running = "_running";

// Longer than a cluster stands still when it loses a node.
constexpr std::chrono::seconds ClearingPatience(30);
constexpr std::chrono::milliseconds Pause(20);
constexpr int MostTriesForTurn = 20;  // each lost to another program that took its turn

// The database compares names without regard to case and accents, and tables
// whose names only look like the library's are somebody else's.
constexpr const char* Tables =
    "SELECT table_name FROM information_schema.tables WHERE table_schema = DATABASE() AND "
    "CAST(table_name AS BINARY) REGEXP ?";
constexpr const char* Triggers =
    "SELECT trigger_name FROM information_schema.triggers WHERE trigger_schema = DATABASE() AND "
    "CAST(trigger_name AS BINARY) REGEXP ?";
constexpr const char* TurnForm = "^kes_turn_[0-9]+(_clearing|_running)?$";

std::string quotedName(const std::string& name) {
    std::string text = "\"";
    for (const char c : name)
        text.append(c == '"' ? 2 : 1, c);
    return text + "\"";
}

std::string turnName(long number) {
    return Turns + std::to_string(number);
}

std::string clearingName(long number) {
    return turnName(number) + Clearing;
}

std::string runningName(long number) {
    return turnName(number) + Running;
}

long turnOf(const std::string& name) {
    return std::strtol(name.c_str() + std::string(Turns).size(), nullptr, 10);
}

std::string renaming(const std::string& from, const std::string& to) {
    return "RENAME TABLE " + quotedName(from) + " TO " + quotedName(to);
}

}  // namespace

std::vector<std::string> MariadbStage::namesLike(const std::string& query,
                                                 const std::string& form) {
    const std::unique_ptr<Statement> asking = connection.prepare(query);
    asking->bindText(0, form.data(), form.size());
    std::vector<std::string> names;
    while (asking->step()) {
        std::size_t size = 0;
        names.emplace_back(asking->text(0, size));
    }
    return names;
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
    isClearing = false;
    isFirst = false;
    turn = 0;
    claim();
    sweep();
    endClearing(runningName(turn));
    connection.begin();
}

std::string MariadbStage::lastTurn() {
    std::string last;
    for (const std::string& name : namesLike(Tables, TurnForm))
        if (last.empty() || turnOf(name) > turnOf(last))
            last = name;
    return last;
}

// Whoever has the turn on this node is dead, or the schema lock would not have
// been given. A program on another node is given its time.
void MariadbStage::claim() {
    std::string seen;
    auto since = Clock::now();
    for (int tries = 1;;) {
        const std::string last = lastTurn();
        if (last != seen) {
            seen = last;
            since = Clock::now();
        }
        if (Clock::now() - since >= patienceFor(last)) {
            if (takeTurnAfter(last, tries == MostTriesForTurn))
                return;
            ++tries;
        }
        std::this_thread::sleep_for(Pause);
    }
}

std::chrono::milliseconds MariadbStage::patienceFor(const std::string& last) const {
    if (connection.isClustered() && last.ends_with(Clearing))
        return ClearingPatience;
    if (connection.isClustered() && last.ends_with(Running))
        return connection.lockTimeout();
    return std::chrono::milliseconds(0);
}

// False when another node was faster.
bool MariadbStage::takeTurnAfter(const std::string& last, bool isLastTry) {
    const long next = last.empty() ? 1 : turnOf(last) + 1;
    try {
        if (last.empty())
            connection.execute("CREATE TABLE " + quotedName(clearingName(next)) +
                               " (id INTEGER NOT NULL PRIMARY KEY)");
        else
            connection.execute(renaming(last, clearingName(next)));
        if (last.empty() && lastTurn() != clearingName(next)) {
            connection.execute("DROP TABLE " + quotedName(clearingName(next)));
            return false;
        }
    } catch (const SqlFailure&) {
        if (isLastTry)
            throw;
        return false;
    }
    turn = next;
    isFirst = last.empty();
    isClearing = true;
    return true;
}

void MariadbStage::endClearing(const std::string& next) {
    connection.execute(renaming(clearingName(turn), next));
    isClearing = false;
}

// Tables first: an upgrade that still runs comes to no end without its own.
void MariadbStage::sweep() {
    for (const std::string& name : namesLike(Tables, "^kes_(new|old)_[0-9]+_[0-9]+$"))
        connection.execute("DROP TABLE IF EXISTS " + quotedName(name));
    for (const std::string& name : namesLike(Triggers, "^kes_stop_[0-9]+_[0-9]+_[0-9]+$"))
        connection.execute("DROP TRIGGER IF EXISTS " + quotedName(name));
}

// An upgrade that has lost its turn may make a trigger yet; it stops nobody.
void MariadbStage::freeze(const std::string& table) {
    const std::string condition =
        "EXISTS (SELECT 1 FROM information_schema.tables WHERE table_schema = DATABASE() AND "
        "table_name = '" +
        runningName(turn) + "')";
    int number = 0;
    for (const char* event : {"INSERT", "UPDATE", "DELETE"})
        connection.execute(
            "CREATE TRIGGER " +
            quotedName(nameOf("stop", moves.size()) + "_" + std::to_string(++number)) + " BEFORE " +
            event + " ON " + quotedName(table) + " FOR EACH ROW IF " + condition +
            " THEN SIGNAL SQLSTATE '45000' SET MESSAGE_TEXT = 'a program upgrades the schema, or "
            "was cut off while it did; let it open the database again'; END IF");
    moves.push_back({table, true});
}

std::string MariadbStage::place(const std::string& table) {
    const auto known = std::find_if(moves.begin(), moves.end(),
                                    [&](const Move& move) { return move.table == table; });
    const auto position = static_cast<std::size_t>(known - moves.begin());
    if (known == moves.end())
        moves.push_back({table, false});
    return quotedName(nameOf("new", position));
}

void MariadbStage::swap() {
    std::string text = renaming(runningName(turn), runningName(turn + 1));
    for (std::size_t i = 0; i < moves.size(); ++i) {
        const std::string table = quotedName(moves[i].table);
        if (moves[i].isReplaced)
            text += ", " + table + " TO " + quotedName(nameOf("old", i));
        text += ", " + quotedName(nameOf("new", i)) + " TO " + table;
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
        if (isSwapped)
            finish();
        else
            giveUp();
    } catch (const SqlFailure&) {
        // Another program has taken the turn and clears away, or the connection
        // is lost.
    }
    moves.clear();
    try {
        connection.releaseSchemaLock();
    } catch (const SqlFailure&) {
        // The lock went with the connection.
    }
}

// The triggers of the old tables go with them.
void MariadbStage::finish() {
    for (std::size_t i = 0; i < moves.size(); ++i)
        if (moves[i].isReplaced)
            connection.execute("DROP TABLE IF EXISTS " + quotedName(nameOf("old", i)));
    connection.execute(renaming(runningName(turn + 1), turnName(turn + 1)));
}

// Nothing is left in a database that had nothing. Whoever waited for the turn makes
// the first one anew.
void MariadbStage::giveUp() {
    if (turn == 0)
        return;
    if (!isClearing) {
        connection.execute(renaming(runningName(turn), clearingName(turn + 1)));
        ++turn;
        isClearing = true;
        sweep();
    }
    if (isFirst)
        connection.execute("DROP TABLE " + quotedName(clearingName(turn)));
    else
        endClearing(turnName(turn));
}

}  // namespace Kes::sql
