#include "drivers/common/RowLoader.h"

#include <cassert>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include <kes/Class.h>
#include <kes/Instance.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>

#include "drivers/common/ObjectFields.h"
#include "drivers/common/SqlFailure.h"
#include "drivers/common/TextForms.h"

namespace Kes::sql {

namespace {

// Whether the real, which is finite, is the integer.
bool isExact(double real, std::int64_t integer) {
    constexpr double beyond = 9223372036854775808.0;
    return real < beyond && static_cast<std::int64_t>(real) == integer;
}

// The base class reports the two reserved fields, and no code of the
// application's takes part.
class VersionSetter final : public EmptyHandler {
public:
    explicit VersionSetter(unsigned long itsVersion) : version(itsVersion) {}
    void set(Instance* instance) { instance->Instance::handle(this); }

    void handleULong(const String&, unsigned long& value) override {
        if (position++ == TableMapping::VersionColumn)
            value = version;
    }

private:
    unsigned long version;
    int position = 0;
};

}  // namespace

// Offers a value that was read to a handler.
struct RowLoader::Shown {
    Handler& handler;
    const String& name;

    void operator()(unsigned long& value) const { handler.handleULong(name, value); }
    void operator()(long& value) const { handler.handleLong(name, value); }
    void operator()(String& value) const { handler.handleString(name, value, value.size()); }
    void operator()(int& value) const { handler.handleInt(name, value); }
    void operator()(unsigned int& value) const { handler.handleUInt(name, value); }
    void operator()(bool& value) const { handler.handleBool(name, value); }
    void operator()(float& value) const { handler.handleFloat(name, value); }
    void operator()(double& value) const { handler.handleDouble(name, value); }
    void operator()(Timestamp& value) const { handler.handleTimestamp(name, value); }
    void operator()(Blob& value) const { handler.handleBlob(name, value); }
    void operator()(Partner&) const {}
};

// Exchanges the members of an instance for values, which hold what the members
// were then.
class RowLoader::Exchange final : public Handler {
public:
    Exchange(std::vector<Value>& itsValues, Instance* itsInstance)
        : values(itsValues),
          instance(itsInstance),
          before(instance->getVersion()) {}

    void run() {
        limit = values.size();
        handleFields(instance, this);
        while (taken < ones.size())
            take(ones[taken++]);
        for (ManyAssociatedInstances* each : manies)
            each->setFetched(false);
        VersionSetter(std::get<unsigned long>(values[TableMapping::VersionColumn])).set(instance);
    }

    // A handle that throws does so behind the fields that it has reported.
    void undo() noexcept {
        VersionSetter(before).set(instance);
        isUndoing = true;
        limit = std::exchange(position, 0);
        try {
            while (taken > 0)
                take(ones[--taken]);
            instance->handle(this);
        } catch (...) {}
    }

    void handleULong(const String&, unsigned long& value) override { exchange(value); }
    void handleLong(const String&, long& value) override { exchange(value); }
    void handleString(const String&, String& value, int) override { exchange(value); }
    void handleInt(const String&, int& value) override { exchange(value); }
    void handleUInt(const String&, unsigned int& value) override { exchange(value); }
    void handleBool(const String&, bool& value) override { exchange(value); }
    void handleFloat(const String&, float& value) override { exchange(value); }
    void handleDouble(const String&, double& value) override { exchange(value); }
    void handleTimestamp(const String&, Timestamp& value) override { exchange(value); }
    void handleBlob(const String&, Blob& value) override { exchange(value); }
    void handleOneAssociated(const String&, const String&, OneAssociatedInstance* ref,
                             Association::ConsistencyRule) override {
        if (position >= limit)
            return;
        if (!isUndoing)
            ones.push_back({ref, nullptr, std::get<Partner>(values[position]).id, false});
        ++position;
    }
    void handleManyAssociated(const String&, const String&, ManyAssociatedInstances* ref) override {
        if (!isUndoing)
            manies.push_back(ref);
    }

private:
    // A reference with what it is going to show.
    struct One {
        OneAssociatedInstance* ref;
        Instance* held;
        unsigned long id;
        bool isFetched;
    };

    // `each` shows what the reference did, also when this throws.
    static void take(One& each) {
        const One wanted = each;
        each.held = each.ref->getInstance();
        each.id = each.ref->getObjectID();
        each.isFetched = each.ref->isFetched();
        wanted.ref->setFetched(wanted.isFetched);
        wanted.ref->setObjectID(wanted.id);
        if (wanted.isFetched)
            wanted.ref->setInstance(wanted.held);
    }

    // The reserved fields are set when everything else has succeeded.
    template <class T>
    void exchange(T& value) {
        if (position >= limit)
            return;
        if (position > TableMapping::VersionColumn)
            std::swap(value, std::get<T>(values[position]));
        ++position;
    }

    std::vector<Value>& values;
    Instance* instance;
    unsigned long before;
    std::size_t position = 0;
    std::size_t limit = 0;
    bool isUndoing = false;
    std::vector<One> ones;
    std::size_t taken = 0;  // so many of them
    std::vector<ManyAssociatedInstances*> manies;
};

void RowLoader::begin(Row& source, const TableMapping& itsTable) {
    row = &source;
    table = &itsTable;
    column = 0;
}

void RowLoader::load(Row& source, const TableMapping& itsTable, Instance* instance) {
    begin(source, itsTable);
    handleFields(instance, this);
}

void RowLoader::renew(Row& source, const TableMapping& itsTable, Instance* instance) {
    begin(source, itsTable);
    values.clear();
    for (const Column& field : itsTable.columns())
        values.push_back(read(field));
    Model* model = instance->getClass()->getModel();
    const bool isFiled = model->get(instance->getObjectID()) == instance;
    Exchange exchange(values, instance);
    try {
        exchange.run();
        if (isFiled)
            fileObject(model, instance);
    } catch (...) {
        exchange.undo();
        throw;
    }
}

void RowLoader::show(Row& source, const TableMapping& itsTable, int position, Handler& handler) {
    begin(source, itsTable);
    column = position;
    const Column& field = itsTable.columns()[static_cast<std::size_t>(position)];
    Value value = read(field);
    const String name(field.name.c_str());
    std::visit(Shown{handler, name}, value);
}

template <class T>
RowLoader::Value RowLoader::read(void (RowLoader::*handle)(const String&, T&), const String& name) {
    T value{};
    (this->*handle)(name, value);
    return value;
}

RowLoader::Value RowLoader::read(const Column& field) {
    const String name(field.name.c_str());
    switch (field.kind) {
    case FieldKind::ULong: return read(&RowLoader::handleULong, name);
    case FieldKind::Long: return read(&RowLoader::handleLong, name);
    case FieldKind::Text: break;
    case FieldKind::Int: return read(&RowLoader::handleInt, name);
    case FieldKind::UInt: return read(&RowLoader::handleUInt, name);
    case FieldKind::Bool: return read(&RowLoader::handleBool, name);
    case FieldKind::Float: return read(&RowLoader::handleFloat, name);
    case FieldKind::Double: return read(&RowLoader::handleDouble, name);
    case FieldKind::Timestamp: return read(&RowLoader::handleTimestamp, name);
    case FieldKind::Blob: return read(&RowLoader::handleBlob, name);
    case FieldKind::Reference: return Partner{loadPartner(name)};
    }
    String text;
    handleString(name, text, 0);
    return text;
}

void RowLoader::refuse(const String& name, const char* wanted) const {
    throw SqlFailure("the stored value of the field " +
                     std::string(static_cast<const char*>(name)) + " of the " + table->name() +
                     " object " + std::to_string(row->integer(TableMapping::IdColumn)) + " is no " +
                     wanted + "; mend the row in the database");
}

template <class T>
void RowLoader::loadInteger(const String& name, T& value) {
    // The order of the fields is the order of the columns, on every walk.
    assert(table->columns()[static_cast<std::size_t>(column)].name ==
           static_cast<const char*>(name));
    // A value's kind is asked first: reading it may convert it.
    const bool isInteger = row->kind(column) == Row::Integer;
    const std::int64_t stored = row->integer(column);
    if (!isInteger || !std::in_range<T>(stored))
        refuse(name, "integer that the field can hold");
    value = static_cast<T>(stored);
    ++column;
}

void RowLoader::handleULong(const String& name, unsigned long& value) {
    if (column == TableMapping::IdColumn && row->integer(column) == 0)
        refuse(name, "object id");
    loadInteger(name, value);
}

void RowLoader::handleLong(const String& name, long& value) {
    loadInteger(name, value);
}

void RowLoader::handleInt(const String& name, int& value) {
    loadInteger(name, value);
}

void RowLoader::handleUInt(const String& name, unsigned int& value) {
    loadInteger(name, value);
}

void RowLoader::handleBool(const String& name, bool& value) {
    const bool isInteger = row->kind(column) == Row::Integer;
    const std::int64_t stored = row->integer(column);
    if (!isInteger || (stored != 0 && stored != 1))
        refuse(name, "0 or 1");
    value = stored == 1;
    ++column;
}

// What no driver writes is not read either: the object could never be stored
// again.
double RowLoader::loadReal(const String& name) {
    const Row::Kind kind = row->kind(column);
    if (kind != Row::Real && kind != Row::Integer)
        refuse(name, "number");
    const double value = row->real(column);
    if (!std::isfinite(value))
        refuse(name, "finite number");
    if (kind == Row::Integer && !isExact(value, row->integer(column)))
        refuse(name, "number that the field can hold");
    ++column;
    return value;
}

void RowLoader::handleFloat(const String& name, float& value) {
    const double stored = loadReal(name);
    if (std::fabs(stored) > static_cast<double>(std::numeric_limits<float>::max()))
        refuse(name, "number that the field can hold");
    value = static_cast<float>(stored);
}

void RowLoader::handleDouble(const String& name, double& value) {
    value = loadReal(name);
}

void RowLoader::handleString(const String& name, String& value, int) {
    std::size_t size = 0;
    const bool isText = row->kind(column) == Row::Text;
    const char* text = row->text(column, size);
    if (!isText || std::strlen(text) != size)
        refuse(name, "text without NUL bytes");
    if (!isValidUtf8(text, size))
        refuse(name, "valid UTF-8");
    value = text;
    ++column;
}

void RowLoader::handleTimestamp(const String& name, Timestamp& value) {
    std::size_t size = 0;
    const bool isText = row->kind(column) == Row::Text;
    const char* text = row->text(column, size);
    if (!isText || !readTimestamp(text, size, value))
        refuse(name, "time of the form YYYY-MM-DD HH:MM:SS");
    ++column;
}

void RowLoader::handleBlob(const String& name, Blob& value) {
    const Row::Kind kind = row->kind(column);
    if (kind == Row::Null) {
        value.setEmpty();
        ++column;
        return;
    }
    std::size_t size = 0;
    const void* bytes = row->bytes(column, size);
    if (kind != Row::Bytes || size > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        refuse(name, "blob of at most 2147483647 bytes");
    value.setData(bytes, static_cast<int>(size));
    ++column;
}

unsigned long RowLoader::loadPartner(const String& role) {
    const Row::Kind kind = row->kind(column);
    if (kind != Row::Null && (kind != Row::Integer || row->integer(column) <= 0))
        refuse(role, "object id");
    const std::int64_t id = kind == Row::Null ? 0 : row->integer(column);
    ++column;
    return static_cast<unsigned long>(id);
}

void RowLoader::handleOneAssociated(const String&, const String& role, OneAssociatedInstance* ref,
                                    Association::ConsistencyRule) {
    const unsigned long id = loadPartner(role);
    ref->setFetched(false);
    ref->setObjectID(id);
}

void RowLoader::handleManyAssociated(const String&, const String&, ManyAssociatedInstances* ref) {
    ref->setFetched(false);
}

}  // namespace Kes::sql
