// Instances that are known already: their rows become values first.

#include <cstddef>
#include <utility>
#include <variant>
#include <vector>

#include <kes/Class.h>
#include <kes/Instance.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>

#include "drivers/common/ObjectFields.h"
#include "drivers/common/RowLoader.h"

namespace Kes::sql {

namespace {

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

}  // namespace Kes::sql
