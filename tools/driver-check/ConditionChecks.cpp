// Every comparison of every kind of field, held against the same comparison made
// here.

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

#include "Shape.h"
#include "Topics.h"
#include "ValueCases.h"

namespace Kes::check {

namespace {

constexpr const char* FieldName = "value";
constexpr const char* OperatorNames[] = {"equal",         "not-equal",  "greater", "less",
                                         "greater-equal", "less-equal", "like"};

// Objects of one class, one for each value, and for each that the driver may refuse
// and does not.
struct Population {
    Population(const Check& check, const std::string& className, Kind kind,
               const std::vector<Value>& values, bool withOddValues = false)
        : model(check, className, {Shape(className).field(FieldName, kind)}) {
        model.open();
        Selection known(model[className]);
        objects = allOf(known);
        if (!objects.empty())
            return;
        transact(model, [&] {
            for (const Value& value : values) {
                objects.emplace_back(model.make(className));
                (*objects.back())[FieldName] = value;
            }
        });
        if (!withOddValues)
            return;
        for (const Pointer<Object>& object : storeOddCases(model, className, FieldName, kind))
            objects.push_back(object);
    }

    std::vector<Value> held() const {
        std::vector<Value> values;
        for (const Pointer<Object>& object : objects)
            values.push_back((*object)[FieldName]);
        return values;
    }

    CheckModel model;
    std::vector<Pointer<Object>> objects;
};

std::string listOf(const std::vector<unsigned long>& missing, Population& population) {
    std::string text;
    for (const Pointer<Object>& object : population.objects)
        if (std::find(missing.begin(), missing.end(), object->getObjectID()) != missing.end())
            text += " " + describe((*object)[FieldName]);
    return text;
}

// Asks the condition and compares with those objects for which `test` holds.
template <class Test>
void compareAnswers(Check& check, Population& population, const std::string& className,
                    Condition* condition, const std::string& what, Test test) {
    std::vector<unsigned long> wanted;
    for (const Pointer<Object>& object : population.objects)
        if (test((*object)[FieldName]))
            wanted.push_back(object->getObjectID());
    Selection selection(population.model[className]);
    selection.setCondition(condition);
    std::vector<unsigned long> found = idsOf(selection);
    std::sort(wanted.begin(), wanted.end());
    std::sort(found.begin(), found.end());
    std::vector<unsigned long> missing;
    std::vector<unsigned long> extra;
    std::set_difference(wanted.begin(), wanted.end(), found.begin(), found.end(),
                        std::back_inserter(missing));
    std::set_difference(found.begin(), found.end(), wanted.begin(), wanted.end(),
                        std::back_inserter(extra));
    check.expect(missing.empty(), what + " misses" + listOf(missing, population));
    check.expect(extra.empty(), what + " finds" + listOf(extra, population));
}

std::vector<Value> keptValues(Kind kind) {
    std::vector<Value> values;
    for (const ValueCase& each : valueCases(kind))
        if (each.property == nullptr)
            values.push_back(each.get());
    return values;
}

void checkComparison(Check& check, Kind kind, int op) {
    const std::string className = "Asked" + nameOf(kind);
    Population population(check, className, kind, keptValues(kind), true);
    const Attribute attribute(population.model[className], FieldName);
    for (const Value& constant : population.held())
        compareAnswers(check, population, className, newCondition(attribute, op, constant),
                       std::string(OperatorNames[op]) + " " + describe(constant),
                       [&](const Value& held) { return holds(held, op, constant); });
}

// A constant that no field may hold can still be compared with.
void checkOddConstant(Check& check, Kind kind, const ValueCase& each) {
    const std::string className = "Asked" + nameOf(kind);
    Population population(check, className, kind, keptValues(kind), true);
    const Attribute attribute(population.model[className], FieldName);
    const Value constant = each.get();
    for (int op = Condition::EQUAL; op <= Condition::LESS_OR_EQUAL; ++op) {
        const Raised raised = raisedBy([&] {
            compareAnswers(
                check, population, className, newCondition(attribute, op, constant),
                std::string(OperatorNames[op]) + " " + describe(constant), [&](const Value& held) {
                    return isNan(constant) ? op == Condition::NOT_EQUAL : holds(held, op, constant);
                });
        });
        if (raised)
            check.expect(raised.code == "SELERR" && raised.names(FieldName),
                         "a refused constant is to raise SELERR and name the field, not " +
                             raised.code + ": " + raised.message);
    }
}

constexpr Kind NumberKinds[] = {Kind::ULong, Kind::Long,  Kind::Int,   Kind::UInt,
                                Kind::Bool,  Kind::Float, Kind::Double};

// Numbers that a field or a constant of the kind holds exactly.
std::vector<Value> smallNumbers(Kind kind) {
    switch (kind) {
    case Kind::ULong: return {0UL, 1UL, 3UL, 16777217UL, 3000000000UL, 9007199254740992UL};
    case Kind::Long: return {0L, 1L, -1L, 3L, 16777217L, -3000000000L, 9007199254740992L};
    case Kind::Int: return {0, 1, -1, 3, 16777217, -2147483647};
    case Kind::UInt: return {0U, 1U, 3U, 16777217U, 3000000000U};
    case Kind::Bool: return {false, true};
    case Kind::Float: return {0.0F, 1.0F, -1.0F, 0.5F, 2.75F, 16777216.0F, -3.0e9F};
    default: return {0.0, 1.0, -1.0, 0.1, 0.5, 2.75, 16777217.0, 3.0e9, 9007199254740992.0};
    }
}

// Whole numbers that fewer fields hold, and that are rounded by who takes them for
// real ones.
std::vector<Value> numbersToCompareWith(Kind kind) {
    std::vector<Value> numbers = smallNumbers(kind);
    if (kind == Kind::ULong)
        numbers.insert(numbers.end(), {Value(9007199254740993UL), Value(1UL << 63), Value(~0UL)});
    if (kind == Kind::Long)
        numbers.insert(numbers.end(), {Value(9007199254740993L), Value(-9007199254740993L)});
    return numbers;
}

std::vector<Value> numbersToHold(Kind kind) {
    std::vector<Value> numbers = smallNumbers(kind);
    if (kind == Kind::Double)
        numbers.insert(numbers.end(), {Value(9223372036854775808.0), Value(1e300)});
    return numbers;
}

// Wide enough for whole numbers of 64 bits.
long double numberOf(const Value& value) {
    return std::visit(
        [](const auto& held) -> long double {
            if constexpr (std::is_arithmetic_v<std::decay_t<decltype(held)>>)
                return static_cast<long double>(held);
            else
                return 0;
        },
        value);
}

bool numberHolds(const Value& held, int op, const Value& constant) {
    const long double left = numberOf(held);
    const long double right = numberOf(constant);
    return holds(left < right ? -1 : left > right ? 1 : 0, op, 0);
}

// The constant's type need not be the field's: numbers compare as numbers.
void checkOtherNumbers(Check& check, Kind kind) {
    const std::string className = "Mixed" + nameOf(kind);
    Population population(check, className, kind, numbersToHold(kind));
    const Attribute attribute(population.model[className], FieldName);
    for (const Kind constantKind : NumberKinds)
        for (const Value& constant : numbersToCompareWith(constantKind))
            for (int op = Condition::EQUAL; op <= Condition::LESS_OR_EQUAL; ++op)
                compareAnswers(check, population, className, newCondition(attribute, op, constant),
                               std::string(OperatorNames[op]) + " the " + nameOf(constantKind) +
                                   " " + describe(constant),
                               [&](const Value& held) { return numberHolds(held, op, constant); });
}

std::vector<String> patterns() {
    return {"",
            "%",
            "_",
            "%%",
            "a%",
            "%a",
            "%a%",
            "A%",
            "_ b",
            "__",
            "\\%",
            "\\_",
            "\\\\",
            "100\\%",
            "%\\%%",
            "snake\\_case",
            "a\\",
            "%\\",
            "snake_case",
            "s%e",
            "\\a%",
            " %",
            "% ",
            "%'%",
            "%\"%",
            "%;%",
            "%\n%",
            "%-- b%",
            "007",
            "0%7",
            "_7",
            "[a]%",
            "%\xC3\xA4%",
            "_\xB6%",
            "\xE4\xB8_",
            "_\xE6\x96\x87",
            "\xF0\x9F\x98\x80",
            "____"};
}

void checkLike(Check& check) {
    const std::string className = "Liked";
    std::vector<Value> values = keptValues(Kind::Text);
    for (const char* text : {"a", "A", "ab", "aB", "x%y", "x_y", "a%", "a\\", "[a]b", "a b", "Aa",
                             "\xC3\x84", "aaaaaaaaab"})
        values.emplace_back(String(text));
    Population population(check, className, Kind::Text, values);
    const Attribute attribute(population.model[className], FieldName);
    for (const String& pattern : patterns()) {
        const Value constant = pattern;
        const Raised raised = raisedBy([&] {
            compareAnswers(
                check, population, className, newCondition(attribute, Condition::LIKE, constant),
                "like " + describe(constant),
                [&](const Value& held) { return holds(held, Condition::LIKE, constant); });
        });
        if (raised)
            check.expect(
                raised.code == "SELERR" && raised.names(FieldName),
                "like " + describe(constant) + " raised " + raised.code + ": " + raised.message);
    }
}

// Fields that a class does not report are an error, not a constant.
void checkUnknownField(Check& check) {
    Population population(check, "Unasked", Kind::Int, {Value(1)});
    for (const char* name : {"nope", "", "Value", "value ", "value\" or 1=1 or \"", "1", "rowid",
                             "KesClass", "count(*)", "*", "value, value"}) {
        const Raised raised = raisedBy([&] {
            Selection selection(population.model["Unasked"]);
            selection.where(Attribute(population.model["Unasked"], name) == 1);
            while (selection.next())
                continue;
        });
        check.expect(raised.code == "SELERR", std::string("a condition on the field \"") + name +
                                                  "\", which does not "
                                                  "exist, raised " +
                                                  (raised ? raised.code : "nothing"));
        check.expect(
            !raised || raised.names(name),
            "the refusal does not name the field \"" + std::string(name) + "\": " + raised.message);
    }
}

// Texts and times are no numbers, and blobs cannot be compared.
void checkSenseless(Check& check) {
    const std::string name = "Senseless";
    CheckModel model(check, name,
                     {Shape(name)
                          .field("text", Kind::Text)
                          .field("number", Kind::Int)
                          .field("time", Kind::Time)
                          .field("blob", Kind::Blob)
                          .one("Senselesslink", "partner")
                          .many("Senselesslink", "partners")});
    model.open();
    transact(model, [&] { model.make(name); });
    const auto refuses = [&](const Condition& condition, const std::string& what) {
        const Raised raised = raisedBy([&] {
            Selection selection(model[name]);
            selection.where(condition);
            while (selection.next())
                continue;
        });
        check.expect(raised.code == "SELERR",
                     what + " raised " + (raised ? raised.code : "nothing"));
    };
    const Attribute text(model[name], "text");
    const Attribute number(model[name], "number");
    const Attribute time(model[name], "time");
    const Attribute blob(model[name], "blob");
    refuses(text == 0, "a text compared with a number");
    refuses(number == "0", "a number compared with a text");
    refuses(number.like("0"), "a number compared with a pattern");
    refuses(time == "2000", "a time compared with a text");
    refuses(time > 1, "a time compared with a number");
    refuses(number < Timestamp(2000, 1, 1, 0, 0, 0), "a number compared with a time");
    refuses(blob == 0, "a blob compared with a number");
    refuses(blob == "", "a blob compared with a text");
    refuses(Attribute(model[name], "partner") == 1, "a reference compared with a number");
}

// The id and the version are fields like others.
void checkReserved(Check& check) {
    Population population(check, "Reserved", Kind::Int, {Value(1), Value(2), Value(3)});
    const unsigned long middle = population.objects[1]->getObjectID();
    Selection byId(population.model["Reserved"]);
    byId.where(byId["KesObjectID"] == middle);
    check.expect(idsOf(byId) == std::vector<unsigned long>{middle}, "a condition on the id");
    Selection above(population.model["Reserved"]);
    above.where(above["KesObjectID"] > middle);
    check.expectEqual<std::size_t>(1, idsOf(above).size(), "objects with greater ids");
    Selection byVersion(population.model["Reserved"]);
    byVersion.where(byVersion["KesVersion"] == 0UL);
    check.expectEqual<std::size_t>(3, idsOf(byVersion).size(), "objects of the first version");
}

}  // namespace

void addConditionChecks(Suite& suite) {
    for (const Kind kind : AllKinds) {
        if (kind == Kind::Blob)
            continue;
        const std::string topic = "conditions." + nameOf(kind) + ".";
        for (int op = Condition::EQUAL; op <= Condition::LESS_OR_EQUAL; ++op)
            suite.add(topic + OperatorNames[op],
                      [kind, op](Check& c) { checkComparison(c, kind, op); });
        for (const ValueCase& each : valueCases(kind))
            if (each.property != nullptr && each.bytes == 0)
                suite.add(topic + "constant-" + each.label,
                          [kind, each](Check& c) { checkOddConstant(c, kind, each); });
    }
    for (const Kind kind : NumberKinds)
        suite.add("conditions." + nameOf(kind) + ".other-numbers",
                  [kind](Check& c) { checkOtherNumbers(c, kind); });
    suite.add("conditions.text.like", checkLike);
    suite.add("conditions.unknown-field", checkUnknownField);
    suite.add("conditions.senseless", checkSenseless);
    suite.add("conditions.reserved-fields", checkReserved);
}

}  // namespace Kes::check
