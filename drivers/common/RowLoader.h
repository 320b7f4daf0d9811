// Data mapper: fills instances from rows.
//
// An object in memory shows one stored version in whole, or its own pending
// changes.
//
// A new instance that cannot be filled is dropped. One that the program knows
// shows one stored version in whole, whatever fails on the way: a value that is
// refused, memory, the application's handle. So its row is read into values
// first, and these are exchanged for the members, which allocates nothing; a
// walk that ends early is undone by another one. The version comes last.

#pragma once

#include <string>
#include <variant>
#include <vector>

#include <kes/Blob.h>
#include <kes/Handler.h>
#include <kes/Timestamp.h>

#include "drivers/common/TableMapping.h"

namespace Kes::sql {

/// Assigns the k-th column to the k-th field that an instance reports, and sets
/// its references to unfetched. Throws SqlFailure, with class, field and object
/// named, for a stored value that the field cannot hold.
class RowLoader final : public Handler {
public:
    /// When it throws, some fields are loaded and others are not.
    void load(Row& source, const TableMapping& itsTable, Instance* instance);

    /// The same for an instance in memory, which stays as it was when this
    /// throws, except that its collections may have gone back to unfetched.
    /// Hands it to Model::set when it is the one that the model has filed.
    void renew(Row& source, const TableMapping& itsTable, Instance* instance);

    /// Shows a column of a plain field as it is stored. Throws as load does.
    void show(Row& source, const TableMapping& itsTable, int position, Handler& handler);

    void handleULong(const String& name, unsigned long& value) override;
    void handleLong(const String& name, long& value) override;
    void handleString(const String& name, String& value, int length) override;
    void handleInt(const String& name, int& value) override;
    void handleUInt(const String& name, unsigned int& value) override;
    void handleBool(const String& name, bool& value) override;
    void handleFloat(const String& name, float& value) override;
    void handleDouble(const String& name, double& value) override;
    void handleTimestamp(const String& name, Timestamp& value) override;
    void handleBlob(const String& name, Blob& value) override;
    void handleOneAssociated(const String& association, const String& role,
                             OneAssociatedInstance* ref,
                             Association::ConsistencyRule rule) override;
    void handleManyAssociated(const String& association, const String& role,
                              ManyAssociatedInstances* ref) override;

private:
    class Exchange;
    struct Shown;

    // Of a reference: the partner's object id.
    struct Partner {
        unsigned long id;
    };
    using Value = std::variant<unsigned long, long, String, int, unsigned int, bool, float, double,
                               Timestamp, Blob, Partner>;

    void begin(Row& source, const TableMapping& itsTable);
    Value read(const Column& field);
    template <class T>
    Value read(void (RowLoader::*handle)(const String&, T&), const String& name);
    unsigned long loadPartner(const String& role);
    template <class T>
    void loadInteger(const String& name, T& value);
    double loadReal(const String& name);
    [[noreturn]] void refuse(const String& name, const char* wanted) const;

    Row* row = nullptr;
    const TableMapping* table = nullptr;
    int column = 0;
    std::vector<Value> values;  // of the row that an instance in memory takes
};

}  // namespace Kes::sql
