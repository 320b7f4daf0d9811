// Fields and classes that change, with data kept.

#include <climits>

#include "Topics.h"
#include "Upgrade.h"
#include "ValueCases.h"

namespace Kes::check {

namespace {

const std::vector<Value> Numbers{1, 2, 3};

Value initialFor(Kind kind) {
    switch (kind) {
    case Kind::ULong: return 9000000000UL;
    case Kind::Long: return -9000000000L;
    case Kind::Text: return String("it's \"new\" \xC3\xA4");
    case Kind::Int: return -7;
    case Kind::UInt: return 4000000000U;
    case Kind::Bool: return true;
    case Kind::Float: return 0.1F;
    case Kind::Double: return 1.0 / 3;
    case Kind::Time: return Timestamp(1969, 12, 31, 23, 59, 59);
    case Kind::Blob: break;
    }
    return Blob("\0new", 4);
}

// Old rows get what a new object has.
void addField(Check& check, Kind kind) {
    Upgrade upgrade(check, "added" + nameOf(kind));
    const std::string& name = upgrade.className();
    upgrade.open(1, {Shape(name).field("kept", Kind::Int)});
    const std::vector<unsigned long> ids = upgrade.store(name, "kept", Numbers);
    upgrade.open(2, {Shape(name).field("fresh", kind, initialFor(kind)).field("kept", Kind::Int)});
    upgrade.verify(name, "kept", ids, Numbers);
    upgrade.verify(name, "fresh", ids, std::vector<Value>(3, initialFor(kind)));
    transact(upgrade.model(), [&] {
        Object& object = *upgrade.model().get(name, ids[1]);
        object.change();
        object["fresh"] = plainValue(kind);
    });
    upgrade.model().close();
    upgrade.model().open();
    upgrade.verify(name, "fresh", ids, {initialFor(kind), plainValue(kind), initialFor(kind)});
}

void dropField(Check& check) {
    Upgrade upgrade(check, "dropped");
    const std::string& name = upgrade.className();
    const Shape whole = Shape(name).field("kept", Kind::Int).field("gone", Kind::Text, String("x"));
    upgrade.open(1, {whole});
    const std::vector<unsigned long> ids = upgrade.store(name, "kept", Numbers);
    transact(upgrade.model(), [&] {
        Object& object = *upgrade.model().get(name, ids[0]);
        object.change();
        object["gone"] = String("old text");
    });
    upgrade.open(2, {Shape(name).field("kept", Kind::Int)});
    upgrade.verify(name, "kept", ids, Numbers);
    const Raised raised = raisedBy([&] {
        Selection selection(upgrade.model()[name]);
        selection.where(selection["gone"] == "x");
        selection.next();
    });
    check.expect(raised.code == "SELERR", "a condition on a dropped field is accepted");
    upgrade.open(3, {whole});
    upgrade.verify(name, "kept", ids, Numbers);
    upgrade.verify(name, "gone", ids, std::vector<Value>(3, String("x")));
}

void renameField(Check& check) {
    Upgrade upgrade(check, "renamed");
    const std::string& name = upgrade.className();
    upgrade.open(1, {Shape(name).field("kept", Kind::Int).field("before", Kind::Int)});
    const std::vector<unsigned long> ids = upgrade.store(name, "kept", Numbers);
    upgrade.open(2, {Shape(name).field("kept", Kind::Int).field("after", Kind::Int, 5)});
    upgrade.verify(name, "kept", ids, Numbers);
    upgrade.verify(name, "after", ids, {5, 5, 5});
}

void reorderFields(Check& check) {
    Upgrade upgrade(check, "reordered");
    const std::string& name = upgrade.className();
    upgrade.open(1, {Shape(name).field("one", Kind::Int).field("two", Kind::Int, 8)});
    const std::vector<unsigned long> ids = upgrade.store(name, "one", Numbers);
    upgrade.open(2, {Shape(name).field("two", Kind::Int, 9).field("one", Kind::Int)});
    upgrade.verify(name, "one", ids, Numbers);
    upgrade.verify(name, "two", ids, {8, 8, 8});
}

struct Conversion {
    const char* label;
    Kind from;
    Kind to;
    std::vector<Value> before;
    std::vector<Value> after;
};

std::vector<Conversion> conversions() {
    return {{"int-to-long",
             Kind::Int,
             Kind::Long,
             {INT_MIN, 0, INT_MAX},
             {long{INT_MIN}, 0L, long{INT_MAX}}},
            {"uint-to-ulong", Kind::UInt, Kind::ULong, {0U, UINT_MAX}, {0UL, 4294967295UL}},
            {"uint-to-long", Kind::UInt, Kind::Long, {0U, UINT_MAX}, {0L, 4294967295L}},
            {"int-to-double",
             Kind::Int,
             Kind::Double,
             {INT_MIN, 0, INT_MAX},
             {-2147483648.0, 0.0, 2147483647.0}},
            {"float-to-double",
             Kind::Float,
             Kind::Double,
             {0.1F, -1.5F},
             {static_cast<double>(0.1F), -1.5}},
            {"bool-to-int", Kind::Bool, Kind::Int, {false, true}, {0, 1}},
            {"int-to-text",
             Kind::Int,
             Kind::Text,
             {-5, 0, INT_MAX},
             {String("-5"), String("0"), String("2147483647")}},
            {"long-to-text",
             Kind::Long,
             Kind::Text,
             {LONG_MIN, LONG_MAX},
             {String("-9223372036854775808"), String("9223372036854775807")}},
            {"long-to-int", Kind::Long, Kind::Int, {-1L, long{INT_MAX}}, {-1, INT_MAX}},
            {"long-to-uint", Kind::Long, Kind::UInt, {0L, 4294967295L}, {0U, UINT_MAX}},
            {"ulong-to-long", Kind::ULong, Kind::Long, {0UL, 5000000000UL}, {0L, 5000000000L}},
            {"int-to-bool", Kind::Int, Kind::Bool, {0, 1}, {false, true}},
            {"text-to-int", Kind::Text, Kind::Int, {String("12"), String("-3")}, {12, -3}},
            {"text-to-double",
             Kind::Text,
             Kind::Double,
             {String("0.1"), String("-2e3")},
             {0.1, -2000.0}},
            {"double-to-int", Kind::Double, Kind::Int, {3.0, -4.0}, {3, -4}},
            {"double-to-float", Kind::Double, Kind::Float, {0.5, -1024.0}, {0.5F, -1024.0F}}};
}

void convert(Check& check, const Conversion& conversion) {
    Upgrade upgrade(check, conversion.label);
    const std::string& name = upgrade.className();
    upgrade.open(1, {Shape(name).field("value", conversion.from)});
    const std::vector<unsigned long> ids = upgrade.store(name, "value", conversion.before);
    upgrade.open(2, {Shape(name).field("value", conversion.to)});
    upgrade.verify(name, "value", ids, conversion.after);
    for (const Value& value : conversion.after) {
        Selection selection(upgrade.model()[name]);
        selection.setCondition(newCondition(selection["value"], Condition::EQUAL, value));
        check.expectEqual<std::size_t>(1, idsOf(selection).size(),
                                       "objects found by " + describe(value));
    }
}

struct Misfit {
    const char* label;
    Kind from;
    Kind to;
    Value bad;
    Value good;
};

std::vector<Misfit> misfits() {
    return {{"long-above-int", Kind::Long, Kind::Int, 2147483648L, 1L},
            {"long-below-int", Kind::Long, Kind::Int, -2147483649L, 1L},
            {"long-below-ulong", Kind::Long, Kind::ULong, -1L, 1L},
            {"long-above-double", Kind::Long, Kind::Double, 9007199254740993L, 1L},
            {"int-above-float", Kind::Int, Kind::Float, 16777217, 1},
            {"int-below-uint", Kind::Int, Kind::UInt, -1, 1},
            {"int-above-bool", Kind::Int, Kind::Bool, 2, 1},
            {"word-as-int", Kind::Text, Kind::Int, String("x1"), String("1")},
            {"empty-text-as-int", Kind::Text, Kind::Int, String(""), String("1")},
            {"blank-as-int", Kind::Text, Kind::Int, String("1 "), String("1")},
            {"word-as-double", Kind::Text, Kind::Double, String("1,5"), String("1")},
            {"word-as-time", Kind::Text, Kind::Time, String("yesterday"), Value()},
            {"half-as-int", Kind::Double, Kind::Int, 2.5, 1.0},
            {"tenth-as-float", Kind::Double, Kind::Float, 0.1, 1.0},
            {"double-above-long", Kind::Double, Kind::Long, 1e300, 1.0},
            {"time-as-int", Kind::Time, Kind::Int, Timestamp(2000, 1, 1, 0, 0, 0), Value()},
            {"blob-as-int", Kind::Blob, Kind::Int, Blob("1", 1), Value()}};
}

// A row that does not fit keeps the old schema, with all data, until it is
// mended.
void refuseMisfit(Check& check, const Misfit& misfit) {
    Upgrade upgrade(check, misfit.label);
    const std::string& name = upgrade.className();
    const Shape old = Shape(name).field("value", misfit.from).field("kept", Kind::Int, 4);
    const Shape fresh = Shape(name).field("value", misfit.to).field("kept", Kind::Int, 5);
    upgrade.open(1, {old});
    const bool canMend = misfit.good.index() == misfit.bad.index();
    std::vector<Value> values(canMend ? 50 : 1, canMend ? misfit.good : misfit.bad);
    values.back() = misfit.bad;
    const std::vector<unsigned long> ids = upgrade.store(name, "value", values);
    upgrade.refuse(2, {fresh}, {upgrade.className(), "value", std::to_string(ids.back())});
    upgrade.open(1, {old});
    upgrade.verify(name, "value", ids, values);
    upgrade.verify(name, "kept", ids, std::vector<Value>(ids.size(), 4));
    if (!canMend)
        return;
    transact(upgrade.model(), [&] {
        Object& object = *upgrade.model().get(name, ids.back());
        object.change();
        object["value"] = misfit.good;
    });
    upgrade.open(2, {fresh});
    upgrade.verify(name, "kept", ids, std::vector<Value>(ids.size(), 4));
}

// One class that cannot be brought up to date keeps back all others.
void refuseWhole(Check& check) {
    Upgrade upgrade(check, "whole");
    const std::string& name = upgrade.className();
    const std::string second = name + "Two";
    const std::vector<Shape> old{Shape(name).field("value", Kind::Int),
                                 Shape(second).field("value", Kind::Text)};
    upgrade.open(1, old);
    const std::vector<unsigned long> ids = upgrade.store(name, "value", Numbers);
    const std::vector<Value> words{String("no number")};
    const std::vector<unsigned long> badIds = upgrade.store(second, "value", words);
    upgrade.refuse(2,
                   {Shape(name).field("other", Kind::Int), Shape(second).field("value", Kind::Int),
                    Shape(name + "Three").field("value", Kind::Int)},
                   {second});
    upgrade.open(1, old);
    upgrade.verify(name, "value", ids, Numbers);
    upgrade.verify(second, "value", badIds, words);
    transact(upgrade.model(), [&] { upgrade.model().make(name); });
    upgrade.verifyCount(name, 4);
}

void keepIdsAndVersions(Check& check) {
    Upgrade upgrade(check, "versions");
    const std::string& name = upgrade.className();
    upgrade.open(1, {Shape(name).field("value", Kind::Int)});
    const std::vector<unsigned long> ids = upgrade.store(name, "value", Numbers);
    for (int i = 0; i < 3; ++i)
        transact(upgrade.model(), [&] {
            Object& object = *upgrade.model().get(name, ids[0]);
            object.change();
            object["value"] = 10 + i;
        });
    upgrade.open(2, {Shape(name).field("value", Kind::Int).field("more", Kind::Int)});
    check.expectEqual(3UL, upgrade.model().get(name, ids[0])->getVersion(), "a changed version");
    check.expectEqual(0UL, upgrade.model().get(name, ids[1])->getVersion(), "a first version");
    const std::vector<unsigned long> later = upgrade.store(name, "value", {4});
    for (const unsigned long id : ids)
        check.expect(id != later[0], "an object id is given out again after an upgrade");
}

void upgradeAgainAndAgain(Check& check) {
    Upgrade upgrade(check, "again");
    const std::string& name = upgrade.className();
    Shape shape(name);
    shape.field("value", Kind::Int);
    upgrade.open(1, {shape});
    const std::vector<unsigned long> ids = upgrade.store(name, "value", Numbers);
    for (int version = 2; version < 12; ++version) {
        const std::string field = "field" + std::to_string(version);
        shape.field(field, Kind::Int, version);
        upgrade.open(version, {shape});
        upgrade.verify(name, "value", ids, Numbers);
        upgrade.verify(name, field, ids, std::vector<Value>(3, version));
    }
    upgrade.verify(name, "field2", ids, std::vector<Value>(3, 2));
}

void upgradeManyRows(Check& check) {
    Upgrade upgrade(check, "rows");
    const std::string& name = upgrade.className();
    std::vector<Value> values;
    values.reserve(20000);
    for (int i = 0; i < 20000; ++i)
        values.emplace_back(i);
    upgrade.open(1, {Shape(name).field("value", Kind::Int)});
    const std::vector<unsigned long> ids = upgrade.store(name, "value", values);
    upgrade.open(2, {Shape(name).field("value", Kind::Long).field("more", Kind::Text)});
    Selection selection(upgrade.model()[name]);
    selection.orderBy(selection["value"], true);
    std::size_t count = 0;
    while (selection.next()) {
        const Object& object = *static_cast<Object*>(selection.value());
        check.require(count < ids.size() && object.getObjectID() == ids[count],
                      "row " + std::to_string(count) + " is another object than before");
        ++count;
    }
    check.expectEqual(ids.size(), count, "rows after the upgrade");
}

// A program that is older than the database reads and writes what it knows.
void leaveNewerAlone(Check& check) {
    Upgrade upgrade(check, "newer");
    const std::string& name = upgrade.className();
    upgrade.open(2, {Shape(name).field("value", Kind::Int).field("more", Kind::Int, 6)});
    const std::vector<unsigned long> ids = upgrade.store(name, "value", Numbers);
    upgrade.open(1, {Shape(name).field("value", Kind::Int)});
    upgrade.verify(name, "value", ids, Numbers);
    transact(upgrade.model(), [&] {
        Object& object = *upgrade.model().get(name, ids[2]);
        object.change();
        object["value"] = 30;
    });
    upgrade.open(2, {Shape(name).field("value", Kind::Int).field("more", Kind::Int, 7)});
    upgrade.verify(name, "value", ids, {1, 2, 30});
    upgrade.verify(name, "more", ids, {6, 6, 6});
}

// Only the model's version goes up; the classes keep theirs.
void keepUnchangedClass(Check& check) {
    Upgrade upgrade(check, "unchanged");
    const std::string& name = upgrade.className();
    upgrade.open(1, {Shape(name).field("value", Kind::Int).withVersion(1)});
    const std::vector<unsigned long> ids = upgrade.store(name, "value", Numbers);
    upgrade.open(2, {Shape(name).field("value", Kind::Int).withVersion(1),
                     Shape(name + "Two").field("value", Kind::Int)});
    upgrade.verify(name, "value", ids, Numbers);
    upgrade.store(name + "Two", "value", Numbers);
    upgrade.verifyCount(name + "Two", 3);
}

}  // namespace

void addUpgradeChecks(Suite& suite) {
    for (const Kind kind : AllKinds)
        suite.add("upgrades.added-field." + nameOf(kind), [kind](Check& c) { addField(c, kind); });
    suite.add("upgrades.dropped-field", dropField);
    suite.add("upgrades.renamed-field", renameField);
    suite.add("upgrades.reordered-fields", reorderFields);
    for (const Conversion& each : conversions())
        suite.add(std::string("upgrades.converted.") + each.label,
                  [each](Check& c) { convert(c, each); });
    for (const Misfit& each : misfits())
        suite.add(std::string("upgrades.refused.") + each.label,
                  [each](Check& c) { refuseMisfit(c, each); });
    suite.add("upgrades.refused.whole", refuseWhole);
    suite.add("upgrades.ids-and-versions", keepIdsAndVersions);
    suite.add("upgrades.again-and-again", upgradeAgainAndAgain);
    suite.add("upgrades.many-rows", upgradeManyRows);
    suite.add("upgrades.newer-database", leaveNewerAlone);
    suite.add("upgrades.unchanged-class", keepUnchangedClass);
}

}  // namespace Kes::check
