// Showing members to a Handler.
//
// A member of one of the handler's own kinds is shown as it is. Any other is
// shown as a value that carries it, and takes over what the handler has put
// there. A value that cannot be stored has a carrier, too, which is none that a
// value that can be stored has: whoever compares or restores fields must not take
// the one for the other. The commit finds it.

#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <utility>

#include <kes/Blob.h>
#include <kes/Error.h>
#include <kes/Handler.h>
#include <kes/Timestamp.h>
#include <kes/Uuid.h>

#include "typed/DescribedClass.h"

namespace Kes {

namespace {

// No text in UTF-8 has this byte.
constexpr char NoText = '\xFF';
constexpr long NoTime = 1000000;  // seconds; no day has so many

using Date = std::chrono::year_month_day;
using Bytes = std::vector<std::byte>;

// Thrown when the member cannot hold what the handler has put into its carrier.
struct Unfit {
    std::string why;
};

void report(Handler& handler, const String& name, const FieldCodec& codec, void* at);

std::int64_t readInteger(const FieldCodec& codec, const void* at) {
    const auto read = [at]<class T>(T value) {
        std::memcpy(&value, at, sizeof value);
        return static_cast<std::int64_t>(value);
    };
    switch (codec.size) {
    case 1: return codec.isSigned ? read(std::int8_t{}) : read(std::uint8_t{});
    case 2: return codec.isSigned ? read(std::int16_t{}) : read(std::uint16_t{});
    case 4: return codec.isSigned ? read(std::int32_t{}) : read(std::uint32_t{});
    default: return read(std::int64_t{});
    }
}

void writeInteger(const FieldCodec& codec, void* at, std::int64_t value) {
    const auto write = [&]<class T>(T fresh) { std::memcpy(at, &fresh, sizeof fresh); };
    switch (codec.size) {
    case 1: write(static_cast<std::uint8_t>(value)); break;
    case 2: write(static_cast<std::uint16_t>(value)); break;
    case 4: write(static_cast<std::uint32_t>(value)); break;
    default: write(value); break;
    }
    if (readInteger(codec, at) != value)
        throw Unfit{"is " + std::to_string(value) + ", which the member's type cannot hold"};
}

template <class Carrier>
void reportInteger(Handler& handler, void (Handler::*operation)(const String&, Carrier&),
                   const String& name, const FieldCodec& codec, void* at) {
    const auto before = static_cast<Carrier>(readInteger(codec, at));
    Carrier value = before;
    (handler.*operation)(name, value);
    if (value == before)
        return;
    const std::int64_t kept = readInteger(codec, at);
    try {
        writeInteger(codec, at, static_cast<std::int64_t>(value));
    } catch (const Unfit&) {
        writeInteger(codec, at, kept);
        throw;
    }
}

void reportInteger(Handler& handler, const String& name, const FieldCodec& codec, void* at) {
    switch (codec.carrier) {
    case FieldForm::Long: return reportInteger(handler, &Handler::handleLong, name, codec, at);
    case FieldForm::ULong: return reportInteger(handler, &Handler::handleULong, name, codec, at);
    case FieldForm::UInt: return reportInteger(handler, &Handler::handleUInt, name, codec, at);
    default: return reportInteger(handler, &Handler::handleInt, name, codec, at);
    }
}

// A NUL would end the text.
String carrierOf(const std::string& text) {
    if (std::memchr(text.data(), '\0', text.size()) == nullptr)
        return String(text.c_str());
    std::string marked = text;
    for (char& each : marked)
        if (each == '\0')
            each = NoText;
    return String(marked.c_str());
}

void reportText(Handler& handler, const String& name, std::string& text) {
    const String before = carrierOf(text);
    String value = before;
    handler.handleString(name, value, 255);
    if (value != before)
        text = static_cast<const char*>(value);
}

Blob carrierOf(const Bytes& bytes) {
    if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        return Blob();
    return Blob(bytes.data(), static_cast<int>(bytes.size()));
}

void reportBytes(Handler& handler, const String& name, Bytes& bytes) {
    const Blob before = carrierOf(bytes);
    Blob value = before;
    handler.handleBlob(name, value);
    if (value == before)
        return;
    const auto* first = static_cast<const std::byte*>(value.data());
    bytes.assign(first, first + value.size());
}

Timestamp carrierOf(const Date& date) {
    const int year = static_cast<int>(date.year());
    const auto month = static_cast<unsigned>(date.month());
    const auto day = static_cast<unsigned>(date.day());
    if (date.ok() && year >= 1 && year <= 7899)
        return Timestamp(year, static_cast<int>(month), static_cast<int>(day), 0, 0, 0);
    Timestamp none(1, 1, 1, 0, 0, 0);
    none.setAllDays(year);
    none.setAllSeconds(NoTime + static_cast<long>(month * 256 + day));
    return none;
}

void reportDate(Handler& handler, const String& name, Date& date) {
    const Timestamp before = carrierOf(date);
    Timestamp value = before;
    handler.handleTimestamp(name, value);
    if (value == before)
        return;
    if (value.getAllSeconds() >= NoTime) {
        const auto rest = static_cast<unsigned>(value.getAllSeconds() - NoTime);
        date = Date(std::chrono::year(static_cast<int>(value.getAllDays())),
                    std::chrono::month(rest / 256), std::chrono::day(rest % 256));
        return;
    }
    if (value.getAllSeconds() != 0)
        throw Unfit{"has a time of day, and the member is a date"};
    date = Date(std::chrono::year(value.getYear()),
                std::chrono::month(static_cast<unsigned>(value.getMonth())),
                std::chrono::day(static_cast<unsigned>(value.getDate())));
}

void reportUuid(Handler& handler, const String& name, Uuid& uuid) {
    const String before(uuid.toString().c_str());
    String value = before;
    handler.handleString(name, value, 36);
    if (value == before)
        return;
    try {
        uuid = Uuid(std::string_view(static_cast<const char*>(value)));
    } catch (const Error&) {
        throw Unfit{"is no UUID"};
    }
}

// Shows the stored form of a converted value. What the handler throws is told
// from what a conversion throws.
class StoredReport final : public StoredVisitor {
public:
    StoredReport(Handler& itsHandler, const String& itsName, const FieldCodec& itsCodec)
        : handler(itsHandler),
          name(itsName),
          codec(itsCodec) {}

    void visit(void* stored) override {
        try {
            report(handler, name, codec, stored);
        } catch (...) {
            thrown = true;
            throw;
        }
    }

    bool hasThrown() const { return thrown; }

private:
    Handler& handler;
    const String& name;
    const FieldCodec& codec;
    bool thrown = false;
};

void reportConverted(Handler& handler, const String& name, const FieldCodec& codec, void* at) {
    StoredReport visitor(handler, name, *codec.inner);
    try {
        codec.convert(at, visitor);
    } catch (const std::exception& failure) {
        if (visitor.hasThrown())
            throw;
        throw Unfit{std::string("is refused by the conversion of its type: ") + failure.what()};
    }
}

void report(Handler& handler, const String& name, const FieldCodec& codec, void* at) {
    switch (codec.form) {
    case FieldForm::ULong: return handler.handleULong(name, *static_cast<unsigned long*>(at));
    case FieldForm::Long: return handler.handleLong(name, *static_cast<long*>(at));
    case FieldForm::Text: return handler.handleString(name, *static_cast<String*>(at), 255);
    case FieldForm::Int: return handler.handleInt(name, *static_cast<int*>(at));
    case FieldForm::UInt: return handler.handleUInt(name, *static_cast<unsigned int*>(at));
    case FieldForm::Bool: return handler.handleBool(name, *static_cast<bool*>(at));
    case FieldForm::Float: return handler.handleFloat(name, *static_cast<float*>(at));
    case FieldForm::Double: return handler.handleDouble(name, *static_cast<double*>(at));
    case FieldForm::Time: return handler.handleTimestamp(name, *static_cast<Timestamp*>(at));
    case FieldForm::Bytes: return handler.handleBlob(name, *static_cast<Blob*>(at));
    case FieldForm::Integer: return reportInteger(handler, name, codec, at);
    case FieldForm::StdText: return reportText(handler, name, *static_cast<std::string*>(at));
    case FieldForm::StdBytes: return reportBytes(handler, name, *static_cast<Bytes*>(at));
    case FieldForm::Date: return reportDate(handler, name, *static_cast<Date*>(at));
    case FieldForm::Uuid: return reportUuid(handler, name, *static_cast<Uuid*>(at));
    case FieldForm::Converted: return reportConverted(handler, name, codec, at);
    case FieldForm::Optional: break;
    }
}

// While it lives, an optional has a value to show.
class ShownOptional {
public:
    ShownOptional(const FieldCodec& itsCodec, void* itsMember)
        : codec(itsCodec),
          member(itsMember),
          value(codec.access(member, FieldCodec::Peek)),
          isSet(value != nullptr) {
        if (isSet)
            return;
        value = codec.access(member, FieldCodec::Emplace);
        if (codec.inner->form == FieldForm::Date)
            *static_cast<Date*>(value) = Date(std::chrono::sys_days());
    }
    ShownOptional(const ShownOptional&) = delete;
    ShownOptional& operator=(const ShownOptional&) = delete;
    ~ShownOptional() {
        if (!isSet)
            codec.access(member, FieldCodec::Reset);
    }

    void* get() const { return value; }
    bool hasValue() const { return isSet; }
    void keep(bool set) { isSet = set; }

private:
    const FieldCodec& codec;
    void* member;
    void* value;
    bool isSet;
};

// An empty one is shown as a value that nobody looks at, behind its mark.
void reportOptional(Handler& handler, const DescribedField& field, void* at) {
    ShownOptional shown(*field.codec, at);
    int mark = shown.hasValue() ? 1 : 0;
    handler.handleInt(field.flag, mark);
    if (mark != 0 && mark != 1)
        throw Unfit{"is marked with " + std::to_string(mark) + " in " +
                    static_cast<const char*>(field.flag) + ", where 0 or 1 has to stand"};
    report(handler, field.name, *field.codec->inner, shown.get());
    shown.keep(mark == 1);
}

}  // namespace

void reportValue(Handler& handler, const String& name, const FieldCodec& codec, void* value) {
    report(handler, name, codec, value);
}

void loadValue(Handler& handler, const Class* cls, const String& name, const FieldCodec& codec,
               void* value) {
    try {
        report(handler, name, codec, value);
    } catch (const Unfit& unfit) {
        const std::string field(static_cast<const char*>(name));
        const std::string className(static_cast<const char*>(cls->getName()));
        throw Error(ErrorKind::InvalidValue, "VALUEERR", "Kes::Query",
                    "The field " + field + " of some " + className +
                        " object cannot be read: what is stored " + unfit.why +
                        "; select the objects, which tells whose, and mend the row in the database",
                    className, 0, field);
    }
}

void reportField(Handler& handler, const DescribedField& field, Instance* instance) {
    try {
        if (field.codec->form == FieldForm::Optional)
            reportOptional(handler, field, field.of(instance));
        else
            report(handler, field.name, *field.codec, field.of(instance));
    } catch (const Unfit& unfit) {
        const std::string name(static_cast<const char*>(field.name));
        throw Error(ErrorKind::InvalidValue, "VALUEERR", "Instance::handle",
                    describeField(instance, name) + " cannot be read: what is stored " + unfit.why +
                        "; mend the row in the database",
                    static_cast<const char*>(instance->getClass()->getName()),
                    instance->getObjectID(), name);
    }
}

}  // namespace Kes
