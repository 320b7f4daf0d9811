#include "drivers/common/UnionReader.h"

#include <algorithm>
#include <map>

#include "drivers/common/RowCounter.h"

namespace Kes::sql {

namespace {

// Before the columns of the tables: whose row it is, and its place in the order.
constexpr int OwnerColumn = 0;
constexpr int FirstSlot = 2;

// A row of the union as its table has it.
class PartOfRow final : public Row {
public:
    PartOfRow(Row& itsWhole, const std::vector<int>& itsPlaces)
        : whole(itsWhole),
          places(itsPlaces) {}

    Kind kind(int column) override { return whole.kind(at(column)); }
    std::int64_t integer(int column) override { return whole.integer(at(column)); }
    double real(int column) override { return whole.real(at(column)); }
    const char* text(int column, std::size_t& size) override {
        return whole.text(at(column), size);
    }
    const void* bytes(int column, std::size_t& size) override {
        return whole.bytes(at(column), size);
    }

private:
    int at(int column) const { return places[static_cast<std::size_t>(column)]; }

    Row& whole;
    const std::vector<int>& places;
};

}  // namespace

// Which column of a table lies in which of the union: the n-th one of a kind in the
// n-th place for that kind, so that all that share a place have one type.
class UnionReader::Layout {
public:
    explicit Layout(const std::vector<TableMapping*>& tables) {
        std::map<FieldKind, std::size_t> most;
        for (const TableMapping* table : tables)
            for (const auto& [kind, count] : countsOf(*table))
                most[kind] = std::max(most[kind], count);
        std::map<FieldKind, int> first;
        for (const auto& [kind, count] : most) {
            first[kind] = FirstSlot + static_cast<int>(kinds.size());
            kinds.insert(kinds.end(), count, kind);
        }
        for (const TableMapping* table : tables) {
            std::map<FieldKind, int> next = first;
            std::vector<int>& places = placesOf.emplace_back();
            for (const Column& column : table->columns())
                places.push_back(next[column.kind]++);
        }
    }

    std::vector<FieldKind> kinds;            // of the places
    std::vector<std::vector<int>> placesOf;  // the columns of each table

private:
    static std::map<FieldKind, std::size_t> countsOf(const TableMapping& table) {
        std::map<FieldKind, std::size_t> counts;
        for (const Column& column : table.columns())
            ++counts[column.kind];
        return counts;
    }
};

std::vector<std::unique_ptr<RowBuffer>> UnionReader::read(const std::vector<TableMapping*>& tables,
                                                          const TableMapping& base,
                                                          const QueryPlan& plan) {
    const Layout layout(tables);
    const bool isEach = RowCounter::takes(plan.parameters.size() * tables.size());
    Statement& statement = statementOf(
        isEach ? text(tables, layout, plan) : textOfOne(tables, base, layout, plan), plan.hasFew);
    int position = 0;
    for (std::size_t i = 0; i < (isEach ? tables.size() : 1); ++i)
        for (const Parameter& value : plan.parameters)
            bindParameter(statement, position++, value);

    std::vector<std::unique_ptr<RowBuffer>> buffers;
    std::vector<PartOfRow> parts;
    for (std::size_t i = 0; i < tables.size(); ++i) {
        const std::vector<int>& places = layout.placesOf[i];
        buffers.push_back(std::make_unique<RowBuffer>(static_cast<int>(places.size())));
        parts.emplace_back(statement, places);
    }
    const Execution execution(statement);
    while (statement.step()) {
        const auto owner = static_cast<std::size_t>(statement.integer(OwnerColumn));
        buffers.at(owner)->append(parts[owner]);
    }
    return buffers;
}

// A union has no order of its own, whatever its parts are sorted by.
std::string UnionReader::text(const std::vector<TableMapping*>& tables, const Layout& layout,
                              const QueryPlan& plan) const {
    std::string whole;
    for (std::size_t i = 0; i < tables.size(); ++i)
        whole += (i == 0 ? "(SELECT " : " UNION ALL (SELECT ") + std::to_string(i) + " AS k, " +
                 (plan.order.empty() ? "0" : "ROW_NUMBER() OVER (" + plan.order + ")") + " AS r" +
                 placesOf(tables, i, layout) + " FROM " + tables[i]->table() + " AS t" + plan.tail +
                 ")";
    return whole + " ORDER BY 1, 2";
}

// With the condition, and with it its parameters, only once: a statement takes so many.
// A range is one of all rows then, which is what has been asked for.
std::string UnionReader::textOfOne(const std::vector<TableMapping*>& tables,
                                   const TableMapping& base, const Layout& layout,
                                   const QueryPlan& plan) const {
    std::string all;
    for (std::size_t i = 0; i < tables.size(); ++i) {
        all += (i == 0 ? "SELECT " : " UNION ALL SELECT ") + std::to_string(i) + " AS kes_k" +
               placesOf(tables, i, layout);
        for (std::size_t k = 0; k < base.columns().size(); ++k)
            all += ", t." + base.column(static_cast<int>(k));
        all += " FROM " + tables[i]->table() + " AS t";
    }
    std::string columns = "t.kes_k, 0";
    for (std::size_t k = 0; k < layout.kinds.size(); ++k)
        columns += ", t.kes_c" + std::to_string(k);
    return "SELECT " + columns + " FROM (" + all + ") AS t" + plan.tail;
}

// The columns of a table where the union has them.
std::string UnionReader::placesOf(const std::vector<TableMapping*>& tables, std::size_t table,
                                  const Layout& layout) const {
    std::vector<std::string> columns;
    columns.reserve(layout.kinds.size());
    for (const FieldKind kind : layout.kinds)
        columns.push_back(dialect.nullOf(kind));
    const std::vector<int>& places = layout.placesOf[table];
    for (std::size_t k = 0; k < places.size(); ++k)
        columns[static_cast<std::size_t>(places[k] - FirstSlot)] =
            "t." + tables[table]->column(static_cast<int>(k));
    std::string list;
    for (std::size_t k = 0; k < columns.size(); ++k)
        list += ", " + columns[k] + " AS kes_c" + std::to_string(k);
    return list;
}

Statement& UnionReader::statementOf(const std::string& text, bool hasFew) {
    return statements.of(text, [&](StatementCache& cache) {
        return hasFew ? cache.make(text) : cache.makeCursor(text);
    });
}

}  // namespace Kes::sql
