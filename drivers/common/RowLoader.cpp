#include "drivers/common/RowLoader.h"

#include <cassert>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include <kes/Instance.h>
#include <kes/ManyAssociatedInstances.h>
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

}  // namespace

void RowLoader::begin(Row& source, const TableMapping& itsTable) {
    row = &source;
    table = &itsTable;
    column = 0;
}

void RowLoader::load(Row& source, const TableMapping& itsTable, Instance* instance) {
    begin(source, itsTable);
    handleFields(instance, this);
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
