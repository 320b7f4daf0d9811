#include "drivers/mariadb/MariadbMany.h"

#include <algorithm>

namespace Kes::sql {

namespace {

constexpr std::size_t MostParameters = 60000;  // the protocol counts to 65,535
constexpr std::size_t MostRows = 1000;         // share a round trip; more would gain little

// Each row of an UPDATE looks for its value among those of all rows: the work grows with
// the square.
constexpr std::size_t MostCases = 100;

constexpr const char* Id = "\"KesObjectID\"";

// The position of a part outside of names in quotes.
std::size_t find(const std::string& text, const std::string& part, std::size_t from = 0) {
    bool isQuoted = false;
    for (std::size_t i = from; i < text.size(); ++i) {
        if (!isQuoted && text.compare(i, part.size(), part) == 0)
            return i;
        if (text[i] == '"')
            isQuoted = !isQuoted;
    }
    return std::string::npos;
}

std::size_t countMarks(const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = find(text, "?"); at != std::string::npos; at = find(text, "?", at + 1))
        ++count;
    return count;
}

}  // namespace

MariadbMany::MariadbMany(const std::string& one) : parameters(countMarks(one)) {
    if (one.starts_with("INSERT "))
        readInsert(one);
    else if (one.starts_with("UPDATE "))
        readUpdate(one);
    else if (one.starts_with("DELETE FROM "))
        readDelete(one);
    if (parameters == 0 || each.empty()) {
        rowsAtMost = 0;
        return;
    }
    rowsAtMost = assignments.empty() ? MostRows : MostCases;
    rowsAtMost = std::min(rowsAtMost, MostParameters / (parameters + assignments.size()));
}

void MariadbMany::readInsert(const std::string& one) {
    const std::string values = " VALUES ";
    const std::size_t at = find(one, values);
    if (at == std::string::npos)
        return;
    head = one.substr(0, at + values.size());
    each = one.substr(at + values.size());
    separator = ", ";
}

// Every row of the table would be locked where the server prefers to read all.
void MariadbMany::readUpdate(const std::string& one) {
    const std::size_t set = find(one, " SET ");
    const std::size_t where = find(one, " WHERE ", set);
    if (set == std::string::npos || where == std::string::npos)
        return;
    const std::string condition = one.substr(where + 7);
    const bool isById = condition.starts_with(std::string(Id) + " = ?");
    head = one.substr(0, set) + (isById ? " FORCE INDEX (PRIMARY) SET " : " SET ");
    const std::string changes = one.substr(set + 5, where - set - 5);
    const std::size_t marks = countMarks(changes);
    if (marks != 0 && !isById)
        return;
    for (std::size_t i = 0, from = 0; i < marks; ++i) {
        const std::size_t at = find(changes, "?", from);
        assignments.push_back(changes.substr(from, at - from));
        from = at + 1;
    }
    middle = marks == 0 ? changes : changes.substr(changes.rfind('?') + 1);
    readCondition(condition);
}

void MariadbMany::readDelete(const std::string& one) {
    const std::string from = "DELETE FROM ";
    const std::size_t where = find(one, " WHERE ");
    if (where == std::string::npos)
        return;
    const std::string table = one.substr(from.size(), where - from.size());
    const std::string condition = one.substr(where + 7);
    head = condition.starts_with(Id)
               ? "DELETE " + table + " FROM " + table + " FORCE INDEX (PRIMARY)"
               : one.substr(0, where);
    readCondition(condition);
}

void MariadbMany::readCondition(const std::string& condition) {
    middle += " WHERE ";
    each = "(" + condition + ")";
    separator = " OR ";
}

std::string MariadbMany::text(std::size_t rows) const {
    std::string all = head;
    for (const std::string& assignment : assignments) {
        all += assignment + "CASE " + Id;
        for (std::size_t row = 0; row < rows; ++row)
            all += " WHEN ? THEN ?";
        all += " END";
    }
    all += middle;
    for (std::size_t row = 0; row < rows; ++row)
        all += (row == 0 ? "" : separator) + each;
    return all;
}

std::vector<MariadbMany::Place> MariadbMany::places(std::size_t rows) const {
    std::vector<Place> all;
    for (std::size_t i = 0; i < assignments.size(); ++i)
        for (std::size_t row = 0; row < rows; ++row) {
            all.push_back({row, assignments.size()});
            all.push_back({row, i});
        }
    for (std::size_t row = 0; row < rows; ++row)
        for (std::size_t i = assignments.size(); i < parameters; ++i)
            all.push_back({row, i});
    return all;
}

}  // namespace Kes::sql
