// A model over rows that the test makes up, with a driver in the same process.

#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <kes/Kes.h>

#include "tests/support/QuietDriver.h"

namespace Kes::testing {

using RowValue = std::variant<int, unsigned int, long, unsigned long, bool, float, double, String,
                              Timestamp, Blob>;

struct RowField {
    const char* name;
    RowValue value;
};

using RowFields = std::vector<RowField>;

/// Reports the fields that it was made with.
class Row final : public Instance {
public:
    Row(Class* c, RowFields itsFields) : Instance(c), fields(std::move(itsFields)) {}

    void handle(Handler* h) override {
        Instance::handle(h);
        ++walks;
        for (RowField& field : fields)
            std::visit([&](auto& value) { report(*h, field.name, value); }, field.value);
    }

    RowFields fields;
    static inline long walks = 0;

private:
    static void report(Handler& h, const char* name, int& value) { h.handleInt(name, value); }
    static void report(Handler& h, const char* name, unsigned int& value) {
        h.handleUInt(name, value);
    }
    static void report(Handler& h, const char* name, long& value) { h.handleLong(name, value); }
    static void report(Handler& h, const char* name, unsigned long& value) {
        h.handleULong(name, value);
    }
    static void report(Handler& h, const char* name, bool& value) { h.handleBool(name, value); }
    static void report(Handler& h, const char* name, float& value) { h.handleFloat(name, value); }
    static void report(Handler& h, const char* name, double& value) { h.handleDouble(name, value); }
    static void report(Handler& h, const char* name, String& value) {
        h.handleString(name, value, 0);
    }
    static void report(Handler& h, const char* name, Timestamp& value) {
        h.handleTimestamp(name, value);
    }
    static void report(Handler& h, const char* name, Blob& value) { h.handleBlob(name, value); }
};

/// The rows of each class, in the order in which its cursor delivers them.
using RowTable = std::map<const Class*, std::vector<std::unique_ptr<Row>>>;

class RowCursor final : public DBDriverSelection {
public:
    explicit RowCursor(const std::vector<std::unique_ptr<Row>>& itsRows) : rows(itsRows) {}
    bool next() override { return position++ < rows.size(); }
    Instance* getInstance() override { return rows[position - 1].get(); }

private:
    const std::vector<std::unique_ptr<Row>>& rows;
    std::size_t position = 0;
};

/// Answers every query with all rows of the class.
class RowDriver final : public QuietDriver {
public:
    explicit RowDriver(const RowTable& itsTable) : table(itsTable) {}

    DBDriverSelection* fetch(Class* cls, SelectionDefinition*) override {
        return new RowCursor(table.at(cls));
    }

private:
    const RowTable& table;
};

/// An abstract class with as many concrete ones below it as the test adds.
class RowModel : public DrivenModel<Model> {
public:
    RowModel() : DrivenModel("rows", 100) {
        setVersion(1);
        base = addClass("Base", 1, make);
        base->setAbstract(true);
        openWithDriver(new RowDriver(table));
    }

    /// The rows of a class report the same fields, as the first one does.
    Class* addRows(const char* called, const std::vector<RowFields>& rows) {
        shape() = rows.empty() ? RowFields() : rows.front();
        Class* cls = addClass(called, 1, make);
        cls->subclassOf(base);
        for (const RowFields& row : rows)
            addRow(cls, row);
        table[cls];
        return cls;
    }
    Row* addRow(Class* cls, const RowFields& row) {
        table[cls].push_back(std::make_unique<Row>(cls, row));
        table[cls].back()->setObjectID(++rowCount);
        return table[cls].back().get();
    }

    Class* base = nullptr;

protected:
    void declareModel() override {}

private:
    static RowFields& shape() {
        static RowFields fields;
        return fields;
    }
    static Instance* make(Class* c) { return new Row(c, shape()); }

    RowTable table;
    unsigned long rowCount = 0;
};

}  // namespace Kes::testing
