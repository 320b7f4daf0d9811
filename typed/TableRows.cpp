#include "typed/TableRows.h"

#include <algorithm>
#include <memory>
#include <utility>

#include <kes/DBDriver.h>

#include "object/InstanceState.h"
#include "object/SelectionAccess.h"
#include "transaction/StoredState.h"
#include "typed/DescribedClass.h"

namespace Kes {

namespace {

// Hands over each row that a driver shows.
template <class Take>
class RowTaker final : public TableReader {
public:
    explicit RowTaker(Take itsTake) : take(std::move(itsTake)) {}

    Handler& cell() override {
        finishCell();
        isOpen = true;
        return taker;
    }
    void skip() override {
        finishCell();
        row.emplace_back();
    }
    void endRow() override {
        finishCell();
        take(std::exchange(row, {}));
    }

private:
    void finishCell() {
        if (isOpen)
            row.push_back(std::exchange(taker.value, {}));
        isOpen = false;
    }

    Take take;
    CellTaker taker;
    CellRow row;
    bool isOpen = false;
};

const DescribedField* fieldCalled(const Class* cls, const String& name) {
    if (const auto* described = DescribedClass::from(cls))
        for (const DescribedField& each : described->getFields())
            if (each.name == name)
                return &each;
    return nullptr;
}

Cell valueOf(const DescribedField* field, Instance* instance) {
    if (field == nullptr)
        return instance->getObjectID();
    CellTaker taker;
    const FieldCodec* codec = field->codec;
    void* member = field->of(instance);
    if (codec->form == FieldForm::Optional) {
        member = codec->access(member, FieldCodec::Peek);
        codec = codec->inner;
    }
    if (member != nullptr)
        reportValue(taker, field->name, *codec, member);
    return std::move(taker.value);
}

}  // namespace

GroupTable::GroupTable(std::vector<TableColumn> itsColumns, std::size_t itsKeys)
    : columns(std::move(itsColumns)),
      keys(itsKeys) {
    if (keys > 0)
        return;
    CellRow& none = groups[CellRow()];
    for (const TableColumn& column : columns)
        none.push_back(column.function == TableColumn::Count ? Cell(0UL) : Cell());
}

bool GroupTable::Less::operator()(const CellRow& a, const CellRow& b) const {
    for (std::size_t i = 0; i < a.size(); ++i)
        if (const int difference = compareCells(a[i], b[i]); difference != 0)
            return difference < 0;
    return false;
}

void GroupTable::addPart(CellRow part) {
    for (std::size_t i = keys; i < part.size(); ++i)
        if (columns[i].function == TableColumn::Sum)
            if (const auto* digits = std::get_if<String>(&part[i]))
                part[i] = Total{integerOf(*digits), 0};
    CellRow key(part.begin(), part.begin() + static_cast<std::ptrdiff_t>(keys));
    const auto [place, isNew] = groups.try_emplace(std::move(key));
    if (isNew)
        place->second = std::move(part);
    else
        combine(place->second, part);
}

void GroupTable::addObject(const CellRow& values) {
    CellRow part = values;
    for (std::size_t i = keys; i < part.size(); ++i) {
        const bool isEmpty = std::holds_alternative<std::monostate>(part[i]);
        if (columns[i].function == TableColumn::Count)
            part[i] = isEmpty ? 0UL : 1UL;
        else if (columns[i].function == TableColumn::Sum && !isEmpty)
            part[i] = totalOf(part[i]);
    }
    addPart(std::move(part));
}

void GroupTable::combine(CellRow& whole, CellRow& part) const {
    for (std::size_t i = keys; i < whole.size(); ++i) {
        Cell& a = whole[i];
        Cell& b = part[i];
        if (std::holds_alternative<std::monostate>(b))
            continue;
        const bool isFirst = std::holds_alternative<std::monostate>(a);
        switch (columns[i].function) {
        case TableColumn::Value: break;
        case TableColumn::Count: a = std::get<unsigned long>(a) + std::get<unsigned long>(b); break;
        case TableColumn::Sum: {
            const Total left = totalOf(a);
            const Total right = totalOf(b);
            a = Total{left.whole + right.whole, left.real + right.real};
            break;
        }
        case TableColumn::Least:
            if (isFirst || compareCells(b, a) < 0)
                a = std::move(b);
            break;
        case TableColumn::Greatest:
            if (isFirst || compareCells(a, b) < 0)
                a = std::move(b);
            break;
        }
    }
}

std::vector<CellRow> GroupTable::takeRows() {
    std::vector<CellRow> rows;
    rows.reserve(groups.size());
    for (auto& [key, row] : groups)
        rows.push_back(std::move(row));
    groups.clear();
    return rows;
}

// The columns behind those that are wanted, by which rows of several classes are
// sorted.
struct TableRows::Order {
    std::size_t first;
    std::vector<bool> isAscending;

    bool operator()(const CellRow& a, const CellRow& b) const {
        for (std::size_t i = 0; i < isAscending.size(); ++i)
            if (const int difference = compareCells(a[first + i], b[first + i]); difference != 0)
                return (difference < 0) == isAscending[i];
        return false;
    }
};

TableRows::TableRows(const QueryBase::Definition& itsDefinition)
    : definition(itsDefinition),
      tabulator(dynamic_cast<Tabulator*>(itsDefinition.session->getDriver())) {}

TableColumn TableRows::columnOf(TableColumn::Function function, FieldKey field) const {
    const PredicateScope scope{*definition.session, definition.cls, false};
    const PredicateScope::Names names = scope.namesOf(field);
    return {function, names.name, names.flag};
}

bool TableRows::isSorted() const {
    return definition.isPart() || definition.isBehind || !definition.keys.empty();
}

std::vector<CellRow> TableRows::readObjects(const std::vector<TableColumn>& columns) const {
    return tabulator != nullptr ? readNatively(columns) : loadObjects(columns);
}

TableRows::Order TableRows::orderFrom(std::vector<TableColumn>& columns) const {
    Order order{columns.size(), {}};
    bool isDecided = false;
    for (const SortKeyData& key : definition.keys) {
        columns.push_back(columnOf(TableColumn::Value, key.field));
        order.isAscending.push_back(key.isAscending);
        isDecided = isDecided || key.field == nullptr;
    }
    if (!isDecided) {
        columns.push_back(columnOf(TableColumn::Value, nullptr));
        order.isAscending.push_back(true);
    }
    return order;
}

std::vector<CellRow> TableRows::readNatively(const std::vector<TableColumn>& columns) const {
    const bool isOfSeveral = definition.cls->getConcreteClasses().size() > 1;
    const bool merges = isOfSeveral && isSorted();
    Tabulation wanted;
    wanted.columns = columns;
    Order order{0, {}};
    if (merges)
        order = orderFrom(wanted.columns);
    const std::uint64_t last = definition.most > UINT64_MAX - definition.skipped
                                   ? UINT64_MAX
                                   : definition.most + definition.skipped;
    wanted.count = isOfSeveral ? last : definition.most;
    wanted.offset = isOfSeveral ? 0 : definition.skipped;
    Selection selection(definition.cls);
    definition.restrict(selection);
    if (merges ? wanted.count != UINT64_MAX : isSorted())
        definition.sort(selection);
    std::vector<CellRow> rows;
    RowTaker reader([&rows](CellRow row) { rows.push_back(std::move(row)); });
    SelectionAccess::tabulate(selection, *tabulator, wanted, reader);
    if (!merges)
        return rows;
    std::stable_sort(rows.begin(), rows.end(), order);
    const std::size_t end = std::min<std::uint64_t>(rows.size(), last);
    const std::size_t begin = std::min<std::uint64_t>(end, definition.skipped);
    std::vector<CellRow> part(
        std::make_move_iterator(rows.begin()) + static_cast<std::ptrdiff_t>(begin),
        std::make_move_iterator(rows.begin()) + static_cast<std::ptrdiff_t>(end));
    for (CellRow& row : part)
        row.resize(columns.size());
    return part;
}

// What the open transaction has changed is not stored yet: of such an object the
// driver is asked what is.
std::vector<CellRow> TableRows::loadObjects(const std::vector<TableColumn>& columns) const {
    std::vector<const DescribedField*> fields;
    fields.reserve(columns.size());
    for (const TableColumn& column : columns)
        fields.push_back(fieldCalled(definition.cls, column.field));
    Selection selection(definition.cls);
    definition.restrict(selection);
    if (isSorted())
        definition.sort(selection);
    std::vector<CellRow> rows;
    while (selection.next()) {
        Instance* shown = selection.value();
        std::unique_ptr<Instance> stored;
        if (InstanceState::isPending(shown)) {
            stored.reset(shown->getClass()->getDummy());
            stored->setObjectID(shown->getObjectID());
            if (readStored(definition.session.get(), stored.get(), "Kes::Query") != Stored::Found)
                continue;
            shown = stored.get();
        }
        CellRow& row = rows.emplace_back();
        for (const DescribedField* field : fields)
            row.push_back(valueOf(field, shown));
    }
    return rows;
}

std::vector<CellRow> TableRows::readGroups(const std::vector<TableColumn>& columns,
                                           std::size_t keys) const {
    GroupTable groups(columns, keys);
    if (tabulator == nullptr || definition.isPart()) {
        std::vector<TableColumn> values = columns;
        for (TableColumn& each : values)
            each.function = TableColumn::Value;
        for (const CellRow& row : readObjects(values))
            groups.addObject(row);
        return groups.takeRows();
    }
    Tabulation wanted;
    wanted.columns = columns;
    wanted.isGrouped = true;
    wanted.keys = keys;
    Selection selection(definition.cls);
    definition.restrict(selection);
    RowTaker reader([&groups](CellRow row) { groups.addPart(std::move(row)); });
    SelectionAccess::tabulate(selection, *tabulator, wanted, reader);
    return groups.takeRows();
}

}  // namespace Kes
