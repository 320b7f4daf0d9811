// Schema changes on MariaDB and on Galera clusters.
//
// The new tables take their names with one RENAME, which is done as a whole or
// not at all and which a cluster does on all nodes at once. Until then the old
// ones have triggers that refuse writes. A table whose name holds a number tells
// whose turn it is: each upgrade renames it to the next number when it begins
// and again together with its tables, so two that run at the same time, even on
// two nodes, cannot both come to their end. On one node they wait for each other.

#pragma once

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

    void takeTurn();
    void sweep();
    std::vector<std::string> namesLike(const std::string& query, const std::string& pattern);
    std::string nameOf(const char* purpose, std::size_t position) const;
    static std::string turnName(long number);

    MariadbConnection& connection;
    long turn = 0;
    std::vector<Move> moves;
    bool isOpen = false;
    bool isSwapped = false;
};

}  // namespace Kes::sql
