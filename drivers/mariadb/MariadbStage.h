// Schema changes on MariaDB and on Galera clusters.
//
// The new tables take their names with one RENAME, which is done as a whole or
// not at all and which a cluster does on all nodes at once. Until then the old
// ones have triggers that refuse writes. A table whose name holds a number tells
// whose turn it is: each upgrade renames it to the next number when it begins
// and again together with its tables, so two that run at the same time, even on
// two nodes, cannot both come to their end. On one node they wait for each other.
// On other nodes they wait as long as for a lock while the name says that an
// upgrade runs, which may be one that has died.
//
// Whoever drops leftovers says so in that name too, and the others wait: a server
// that drops a trigger holds its name while it waits for its place in the
// cluster's order, and when two nodes drop the same trigger at the same moment,
// the whole cluster stands still for ever.

#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "drivers/common/SchemaStage.h"

namespace Kes::sql {

class MariadbConnection;

class MariadbStage final : public SchemaStage {
public:
    explicit MariadbStage(MariadbConnection& itsConnection) : connection(itsConnection) {}

    void begin() override;
    void freeze(const std::string& table) override;
    std::string place(const std::string& table) override;
    void swap() override;
    void end() override;

private:
    struct Move {
        std::string table;
        bool isReplaced;
    };

    void claim();
    std::chrono::milliseconds patienceFor(const std::string& last) const;
    bool takeTurnAfter(const std::string& last, bool isLastTry);
    std::string lastTurn();
    void sweep();
    void endClearing(const std::string& next);
    void finish();
    void giveUp();
    std::vector<std::string> namesLike(const std::string& query, const std::string& form);
    std::string nameOf(const char* purpose, std::size_t position) const;

    MariadbConnection& connection;
    long turn = 0;  // 0 before it is known
    std::vector<Move> moves;
    bool isOpen = false;
    bool isSwapped = false;
    bool isClearing = false;  // alone: the others wait
    bool isFirst = false;     // nobody had a turn before
};

}  // namespace Kes::sql
