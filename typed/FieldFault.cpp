// Whether members can be stored, on every database alike.

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include <kes/Blob.h>
#include <kes/Timestamp.h>

#include "typed/DescribedClass.h"

namespace Kes {

namespace {

using Date = std::chrono::year_month_day;

std::string faultOfReal(double value) {
    return std::isfinite(value) ? "" : "is not finite, which not every database keeps";
}

std::string faultOfNumber(std::uint64_t value) {
    return value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())
               ? ""
               : "is " + std::to_string(value) + ", above the largest signed 64-bit number";
}

std::string faultOfText(const char* text, std::size_t size) {
    if (std::memchr(text, '\0', size) != nullptr)
        return "has a NUL byte, which no database keeps in a text";
    return isStorableText(text, size) ? "" : "is not valid UTF-8";
}

std::string faultOfTime(const Timestamp& value) {
    static const long firstDay = Timestamp(1, 1, 1, 0, 0, 0).getAllDays();
    static const long lastDay = Timestamp(7899, 12, 31, 0, 0, 0).getAllDays();
    const bool fits = value.getAllDays() >= firstDay && value.getAllDays() <= lastDay &&
                      value.getAllSeconds() >= 0 && value.getAllSeconds() <= 86400;
    return fits ? "" : "is outside the years 1 to 7899 or the seconds of a day";
}

std::string faultOfDate(const Date& date) {
    if (!date.ok())
        return "is no date of the calendar";
    const int year = static_cast<int>(date.year());
    return year >= 1 && year <= 7899 ? "" : "is outside the years 1 to 7899";
}

class StoredFault final : public StoredVisitor {
public:
    explicit StoredFault(const FieldCodec& itsCodec) : codec(itsCodec) {}
    void visit(void* stored) override { fault = reasonToRefuse(codec, stored); }
    const std::string& get() const { return fault; }

private:
    const FieldCodec& codec;
    std::string fault;
};

template <class T>
const T& as(const void* member) {
    return *static_cast<const T*>(member);
}

// The bytes that follow a lead byte; -1 for one that cannot lead.
int followersOf(unsigned char lead) {
    return lead < 0x80   ? 0
           : lead < 0xC2 ? -1
           : lead < 0xE0 ? 1
           : lead < 0xF0 ? 2
           : lead < 0xF5 ? 3
                         : -1;
}

// Excludes overlong forms, surrogates and what lies beyond the last plane.
bool isSecond(unsigned char lead, unsigned char second) {
    const unsigned char least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    return second >= least && second <= most;
}

}  // namespace

bool isStorableText(const char* text, std::size_t size) {
    for (std::size_t i = 0; i < size;) {
        const auto lead = static_cast<unsigned char>(text[i++]);
        const int followers = followersOf(lead);
        if (lead == 0 || followers < 0 || size - i < static_cast<std::size_t>(followers))
            return false;
        if (followers > 0 && !isSecond(lead, static_cast<unsigned char>(text[i])))
            return false;
        for (int k = 0; k < followers; ++k)
            if ((static_cast<unsigned char>(text[i++]) & 0xC0) != 0x80)
                return false;
    }
    return true;
}

std::string reasonToRefuse(const FieldCodec& codec, void* member) {
    switch (codec.form) {
    case FieldForm::ULong: return faultOfNumber(as<unsigned long>(member));
    case FieldForm::Float: return faultOfReal(static_cast<double>(as<float>(member)));
    case FieldForm::Double: return faultOfReal(as<double>(member));
    case FieldForm::Text: {
        const char* text = as<String>(member);
        return faultOfText(text, std::strlen(text));
    }
    case FieldForm::StdText: {
        const auto& text = as<std::string>(member);
        return faultOfText(text.data(), text.size());
    }
    case FieldForm::Time: return faultOfTime(as<Timestamp>(member));
    case FieldForm::Date: return faultOfDate(as<Date>(member));
    case FieldForm::StdBytes:
        return as<std::vector<std::byte>>(member).size() <=
                       static_cast<std::size_t>(std::numeric_limits<int>::max())
                   ? ""
                   : "has more than 2147483647 bytes";
    case FieldForm::Integer:
        return codec.carrier == FieldForm::ULong ? faultOfNumber(as<unsigned long>(member)) : "";
    case FieldForm::Optional: {
        void* value = codec.access(member, FieldCodec::Peek);
        return value != nullptr ? reasonToRefuse(*codec.inner, value) : "";
    }
    case FieldForm::Converted: {
        StoredFault visitor(*codec.inner);
        codec.convert(member, visitor);
        return visitor.get();
    }
    case FieldForm::Long:
    case FieldForm::Int:
    case FieldForm::UInt:
    case FieldForm::Bool:
    case FieldForm::Bytes:
    case FieldForm::Uuid: break;
    }
    return "";
}

}  // namespace Kes
