#include "drivers/common/FieldBinder.h"

#include <cmath>
#include <cstring>
#include <limits>

#include <kes/Blob.h>
#include <kes/Instance.h>
#include <kes/OneAssociatedInstance.h>
#include <kes/Timestamp.h>

#include "drivers/common/ObjectFields.h"
#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

std::string reasonToRefuse(double value) {
    if (std::isnan(value))
        return "is not a number (NaN), which not every database keeps";
    if (std::isinf(value))
        return "is infinite, which not every database keeps";
    return "";
}

void FieldBinder::start(Statement& target, const TableMapping& itsTable, Instance* instance,
                        const std::vector<LinkValue>& itsLinks, int first) {
    statement = &target;
    table = &itsTable;
    bound = instance;
    links = &itsLinks;
    column = 0;
    asInMemory = true;
    parameter = first;
    if (first == 0)
        forget();
    limit = connection.sizeLimit();
    bytes = 0;
    largest = 0;
    handleFields(instance, this);
    checkBytes();
}

void FieldBinder::bindAll(Statement& target, const TableMapping& itsTable, Instance* instance,
                          const std::vector<LinkValue>& itsLinks, int first) {
    set = nullptr;
    start(target, itsTable, instance, itsLinks, first);

    // The values would be taken for those of other fields, or of another row.
    if (static_cast<std::size_t>(column) != table->columns().size())
        throw SqlFailure("it reports " + std::to_string(column) + " fields and references, and " +
                         std::to_string(table->columns().size()) +
                         " when the class was declared; let its handle operation report the "
                         "same ones each time");
}

int FieldBinder::bindSome(Statement& target, const TableMapping& itsTable, Instance* instance,
                          const std::vector<LinkValue>& itsLinks, const ColumnSet& itsSet) {
    set = &itsSet;
    start(target, itsTable, instance, itsLinks, 0);
    return parameter;
}

void FieldBinder::forget() {
    formattedUsed = 0;
    texts.clear();
    blobs.clear();
}

int FieldBinder::nextParameter() {
    const auto position = static_cast<std::size_t>(column++);
    if (set != nullptr &&
        (position / 64 >= set->size() || ((*set)[position / 64] >> position % 64 & 1) == 0))
        return -1;
    return parameter++;
}

void FieldBinder::bindInteger(std::int64_t value) {
    const int at = nextParameter();
    if (at >= 0)
        statement->bind(at, value);
}

void FieldBinder::bindReal(const String& name, double value) {
    const int at = nextParameter();
    if (at < 0)
        return;
    std::string fault = reasonToRefuse(value);
    if (fault.empty())
        fault = dialect.reasonToRefuse(value);
    if (!fault.empty())
        refuse(name, fault);
    statement->bind(at, value);
}

std::string FieldBinder::boundName() const {
    return "the " + table->name() + " object " + std::to_string(bound->getObjectID());
}

void FieldBinder::refuse(const String& name, const std::string& why) const {
    throw SqlFailure("the field " + std::string(static_cast<const char*>(name)) + " of " +
                     boundName() + " " + why + "; give it another value");
}

void FieldBinder::countBytes(const String& name, std::size_t size, bool isSent) {
    if (!isSent && limit.isOfStatement)
        return;
    bytes += size;
    if (size <= largest)
        return;
    largest = size;
    largestField = static_cast<const char*>(name);
}

// A database that gets a row beyond its limit may end the connection.
void FieldBinder::checkBytes() const {
    // What a database puts before a row and before each of its values.
    const std::size_t overhead = 1024 + 9 * static_cast<std::size_t>(column);
    if (bytes + overhead <= limit.bytes)
        return;
    throw SqlFailure("the values of " + boundName() + " have " + std::to_string(bytes) +
                     " bytes together, " + std::to_string(largest) + " of them in the field " +
                     largestField + ", too much for " + limit.called + " of " +
                     std::to_string(limit.bytes) + "; " + limit.remedy);
}

void FieldBinder::handleULong(const String& name, unsigned long& value) {
    if (value > static_cast<unsigned long>(std::numeric_limits<std::int64_t>::max()))
        refuse(name, "is " + std::to_string(value) +
                         ", above the largest signed 64-bit number 9223372036854775807");
    bindInteger(static_cast<std::int64_t>(value));
}

void FieldBinder::handleLong(const String&, long& value) {
    bindInteger(value);
}

void FieldBinder::handleInt(const String&, int& value) {
    bindInteger(value);
}

void FieldBinder::handleUInt(const String&, unsigned int& value) {
    bindInteger(value);
}

void FieldBinder::handleBool(const String&, bool& value) {
    bindInteger(value ? 1 : 0);
}

void FieldBinder::handleFloat(const String& name, float& value) {
    bindReal(name, static_cast<double>(value));
}

void FieldBinder::handleDouble(const String& name, double& value) {
    bindReal(name, value);
}

void FieldBinder::handleString(const String& name, String& value, int) {
    const int at = nextParameter();
    const char* text = value;
    const std::size_t size = std::strlen(text);
    countBytes(name, size, at >= 0);
    if (at < 0)
        return;
    if (!isValidUtf8(text, size))
        refuse(name, "is not valid UTF-8");
    texts.push_back(value);
    statement->bindText(at, texts.back(), size);
}

void FieldBinder::handleTimestamp(const String& name, Timestamp& value) {
    const int at = nextParameter();
    if (at < 0)
        return;
    if (formattedUsed == formatted.size())
        formatted.emplace_back();
    char(&text)[TimestampSize + 1] = formatted[formattedUsed++].text;
    if (!writeTimestamp(value, text))
        refuse(name, "has day " + std::to_string(value.getAllDays()) + " and second " +
                         std::to_string(value.getAllSeconds()) +
                         ", outside the years 1 to 7899 or the seconds of a day");
    statement->bindText(at, text, TimestampSize);
}

void FieldBinder::handleBlob(const String& name, Blob& value) {
    const int at = nextParameter();
    const auto size = static_cast<std::size_t>(value.size());
    countBytes(name, size, at >= 0);
    if (at < 0)
        return;
    if (value.isEmpty()) {
        statement->bindNull(at);
        return;
    }
    blobs.push_back(value);
    statement->bindBytes(at, value.data(), size);
}

void FieldBinder::handleOneAssociated(const String&, const String&, OneAssociatedInstance* ref,
                                      Association::ConsistencyRule) {
    const int position = column;
    const int at = nextParameter();
    if (at < 0)
        return;
    unsigned long partner = ref->getObjectID();
    if (ref->isFetched()) {
        const Instance* held = ref->getInstance();
        partner = held != nullptr && !held->isRemoved() ? held->getObjectID() : 0;
    }
    for (const LinkValue& link : *links)
        if (link.column == position) {
            asInMemory = asInMemory && partner == link.partner;
            partner = link.partner;
        }
    if (partner == 0)
        statement->bindNull(at);
    else
        statement->bind(at, static_cast<std::int64_t>(partner));
}

void FieldBinder::handleManyAssociated(const String&, const String&, ManyAssociatedInstances*) {}

}  // namespace Kes::sql
