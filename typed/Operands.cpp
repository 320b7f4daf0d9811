// Values that fields are compared with.

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <kes/Handler.h>
#include <kes/Predicate.h>

#include "typed/DescribedClass.h"
#include "typed/Operands.h"
#include "typed/SchemaRecord.h"

namespace Kes {

namespace {

// Takes the value that carries another one.
class Capture final : public EmptyHandler {
public:
    void handleULong(const String&, unsigned long& shown) override { value = shown; }
    void handleLong(const String&, long& shown) override { value = shown; }
    void handleString(const String&, String& shown, int) override {
        value = std::string(static_cast<const char*>(shown));
    }
    void handleInt(const String&, int& shown) override { value = shown; }
    void handleUInt(const String&, unsigned int& shown) override { value = shown; }
    void handleBool(const String&, bool& shown) override { value = shown; }
    void handleFloat(const String&, float& shown) override { value = shown; }
    void handleDouble(const String&, double& shown) override { value = shown; }
    void handleTimestamp(const String&, Timestamp& shown) override { value = shown; }

    StoredValue value;
};

}  // namespace

OperandPtr operand(std::int64_t value) {
    return std::make_shared<OperandValue>(OperandValue{long{value}, ""});
}

OperandPtr operand(std::uint64_t value) {
    return std::make_shared<OperandValue>(OperandValue{value, ""});
}

OperandPtr operand(std::nullopt_t) {
    return std::make_shared<OperandValue>();
}

// Nothing is written through the pointer: what is shown stays as it is.
OperandPtr operand(const FieldCodec& codec, const void* value) {
    auto* member = const_cast<void*>(value);
    Capture capture;
    std::string fault = reasonToRefuse(codec, member);
    if (fault.empty())
        reportValue(capture, String(), codec, member);
    return std::make_shared<OperandValue>(OperandValue{std::move(capture.value), std::move(fault)});
}

OperandPtr operand(double value) {
    return operand(FieldCodecOf<double>::value, &value);
}

OperandPtr operand(std::string_view value) {
    const std::string text(value);
    return operand(FieldCodecOf<std::string>::value, &text);
}

OperandList::OperandList() = default;
OperandList::~OperandList() = default;

void OperandList::add(std::int64_t value) {
    values.push_back(operand(value));
}
void OperandList::add(std::uint64_t value) {
    values.push_back(operand(value));
}
void OperandList::add(double value) {
    values.push_back(operand(value));
}
void OperandList::add(std::string_view value) {
    values.push_back(operand(value));
}
void OperandList::add(const FieldCodec& codec, const void* value) {
    values.push_back(operand(codec, value));
}
void OperandList::add(std::nullopt_t) {
    values.push_back(operand(std::nullopt));
}

}  // namespace Kes
