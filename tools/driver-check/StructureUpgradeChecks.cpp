// Indexes, classes and associations that come, go and change, with data kept.

#include "Topics.h"
#include "Upgrade.h"

namespace Kes::check {

namespace {

const std::vector<Value> Numbers{1, 2, 3};

void addIndex(Check& check, const std::string& label, const std::string& fields, bool isUnique) {
    Upgrade upgrade(check, label);
    const std::string& name = upgrade.className();
    const Shape plain = Shape(name).field("value", Kind::Int).field("word", Kind::Text);
    upgrade.open(1, {plain});
    const std::vector<unsigned long> ids = upgrade.store(name, "value", Numbers);
    upgrade.open(2, {Shape(plain).index(fields, isUnique)});
    upgrade.verify(name, "value", ids, Numbers);
    const Raised raised = raisedBy([&] { upgrade.store(name, "value", {4, 3}); });
    if (isUnique) {
        check.expectEqual<std::string>("COMFAIL", raised.code, "a second value in a unique index");
        check.expect(raised.names(name), "the refusal does not name the class: " + raised.message);
    } else {
        check.expect(!raised, "an index that is not unique refuses: " + raised.message);
    }
    upgrade.model().close();
    upgrade.model().open();
    upgrade.verifyCount(name, isUnique ? 3 : 5);
    upgrade.open(3, {plain});
    upgrade.store(name, "value", {3});
    upgrade.verifyCount(name, isUnique ? 4 : 6);
}

// A unique index over values that are there twice.
void refuseIndex(Check& check) {
    Upgrade upgrade(check, "twice");
    const std::string& name = upgrade.className();
    const Shape plain = Shape(name).field("value", Kind::Int);
    upgrade.open(1, {plain});
    const std::vector<Value> values{1, 2, 1};
    const std::vector<unsigned long> ids = upgrade.store(name, "value", values);
    upgrade.refuse(2, {Shape(plain).index("value", true)}, {name});
    upgrade.open(1, {plain});
    upgrade.verify(name, "value", ids, values);
    transact(upgrade.model(), [&] { upgrade.model().get(name, ids[2])->remove(); });
    upgrade.open(2, {Shape(plain).index("value", true)});
    upgrade.verifyCount(name, 2);
}

void refuseIndexList(Check& check, const std::string& label, const std::string& fields) {
    Upgrade upgrade(check, label);
    const std::string& name = upgrade.className();
    upgrade.refuse(1, {Shape(name).field("a", Kind::Int).field("b", Kind::Text).index(fields)},
                   {name});
}

// Values that differ in a trailing blank, in case or in an accent are two.
void distinguishTexts(Check& check) {
    Upgrade upgrade(check, "distinct");
    const std::string& name = upgrade.className();
    upgrade.open(1, {Shape(name).field("word", Kind::Text).index("word", true)});
    const std::vector<Value> words{
        String("a"),        String("a "), String("A"),   String(""),          String(" "),
        String("\xC3\xA4"), String("ae"), String("a\t"), String("a\xCC\x88"), String("\xC3\x84")};
    const std::vector<unsigned long> ids = upgrade.store(name, "word", words);
    upgrade.model().close();
    upgrade.model().open();
    upgrade.verify(name, "word", ids, words);
    const Raised raised = raisedBy([&] { upgrade.store(name, "word", {String("a ")}); });
    check.expectEqual<std::string>("COMFAIL", raised.code, "a text that is there already");
}

void addClass(Check& check) {
    Upgrade upgrade(check, "newclass");
    const std::string& name = upgrade.className();
    upgrade.open(1, {Shape(name).field("value", Kind::Int)});
    const std::vector<unsigned long> ids = upgrade.store(name, "value", Numbers);
    upgrade.open(2, {Shape(name).field("value", Kind::Int),
                     Shape(name + "Sub", name).field("more", Kind::Text)});
    upgrade.verify(name, "value", ids, Numbers);
    upgrade.store(name + "Sub", "value", {4, 5});
    upgrade.verifyCount(name, 5);
    upgrade.verifyCount(name + "Sub", 2);
}

// The objects wait in their table until the class is concrete again.
void makeAbstract(Check& check) {
    Upgrade upgrade(check, "abstract");
    const std::string& name = upgrade.className();
    const std::string sub = name + "Sub";
    const std::vector<Shape> concrete{Shape(name).field("value", Kind::Int),
                                      Shape(sub, name).field("more", Kind::Text)};
    const std::vector<Shape> abstract{Shape(name).field("value", Kind::Int).asAbstract(),
                                      Shape(sub, name).field("more", Kind::Text)};
    upgrade.open(1, concrete);
    const std::vector<unsigned long> ids = upgrade.store(name, "value", Numbers);
    const std::vector<unsigned long> subIds = upgrade.store(sub, "value", Numbers);
    const Raised raised = raisedBy([&] { upgrade.open(2, abstract); });
    if (!raised) {
        upgrade.verifyCount(name, 3);
        upgrade.verify(name, "value", subIds, Numbers);
    }
    upgrade.open(3, concrete);
    upgrade.verify(name, "value", ids, Numbers);
    upgrade.verify(sub, "value", subIds, Numbers);
    upgrade.verifyCount(name, 6);
}

void makeConcrete(Check& check) {
    Upgrade upgrade(check, "concrete");
    const std::string& name = upgrade.className();
    const std::string sub = name + "Sub";
    upgrade.open(1, {Shape(name).field("value", Kind::Int).asAbstract(),
                     Shape(sub, name).field("more", Kind::Text)});
    const std::vector<unsigned long> ids = upgrade.store(sub, "value", Numbers);
    upgrade.open(
        2, {Shape(name).field("value", Kind::Int), Shape(sub, name).field("more", Kind::Text)});
    upgrade.store(name, "value", {4});
    upgrade.verify(sub, "value", ids, Numbers);
    upgrade.verifyCount(name, 4);
}

void moveBelow(Check& check) {
    Upgrade upgrade(check, "moved");
    const std::string& name = upgrade.className();
    const std::string other = name + "Other";
    upgrade.open(1, {Shape(name).field("value", Kind::Int), Shape(other).field("own", Kind::Int)});
    const std::vector<unsigned long> ids = upgrade.store(name, "value", Numbers);
    const std::vector<unsigned long> otherIds = upgrade.store(other, "own", Numbers);
    upgrade.open(
        2, {Shape(name).field("value", Kind::Int, 9), Shape(other, name).field("own", Kind::Int)});
    upgrade.verify(name, "value", ids, Numbers);
    upgrade.verify(name, "value", otherIds, {9, 9, 9});
    upgrade.verify(other, "own", otherIds, Numbers);
    upgrade.verifyCount(name, 6);
}

void moveField(Check& check) {
    Upgrade upgrade(check, "lifted");
    const std::string& name = upgrade.className();
    const std::string sub = name + "Sub";
    upgrade.open(1,
                 {Shape(name).field("value", Kind::Int), Shape(sub, name).field("own", Kind::Int)});
    const std::vector<unsigned long> ids = upgrade.store(sub, "own", Numbers);
    const std::vector<unsigned long> baseIds = upgrade.store(name, "value", Numbers);
    upgrade.open(
        2, {Shape(name).field("value", Kind::Int).field("own", Kind::Int, 8), Shape(sub, name)});
    upgrade.verify(name, "own", ids, Numbers);
    upgrade.verify(name, "own", baseIds, {8, 8, 8});
}

// Owner and thing, linked or not.
std::vector<Shape> pair(const std::string& name, const std::string& link, bool ownerIsMany,
                        bool thingIsMany) {
    Shape owner = Shape(name).field("value", Kind::Int);
    Shape thing = Shape(name + "Thing").field("value", Kind::Int);
    if (link.empty())
        return {owner, thing};
    ownerIsMany ? owner.many(link, "things") : owner.one(link, "things");
    thingIsMany ? thing.many(link, "owners") : thing.one(link, "owners");
    return {owner, thing};
}

std::size_t linksOf(Upgrade& upgrade, const std::vector<unsigned long>& ids) {
    std::size_t count = 0;
    for (const unsigned long id : ids)
        count += upgrade.model().get(upgrade.className(), id)->partners("things").size();
    return count;
}

void linkAll(Upgrade& upgrade, const std::vector<unsigned long>& ids,
             const std::vector<unsigned long>& things) {
    const std::string thingClass = upgrade.className() + "Thing";
    transact(upgrade.model(), [&] {
        for (std::size_t i = 0; i < ids.size(); ++i)
            upgrade.model()
                .get(upgrade.className(), ids[i])
                ->link("things", upgrade.model().get(thingClass, things[i]));
    });
}

void addAssociation(Check& check, const std::string& label, bool ownerIsMany, bool thingIsMany) {
    Upgrade upgrade(check, label);
    const std::string& name = upgrade.className();
    upgrade.open(1, pair(name, "", false, false));
    const std::vector<unsigned long> ids = upgrade.store(name, "value", Numbers);
    const std::vector<unsigned long> things = upgrade.store(name + "Thing", "value", Numbers);
    const std::vector<Shape> linked = pair(name, name + "Link", ownerIsMany, thingIsMany);
    upgrade.open(2, linked);
    upgrade.verify(name, "value", ids, Numbers);
    check.expectEqual<std::size_t>(0, linksOf(upgrade, ids), "links of a new association");
    linkAll(upgrade, ids, things);
    upgrade.open(3, linked);
    check.expectEqual<std::size_t>(3, linksOf(upgrade, ids), "links after another upgrade");
    upgrade.open(4, pair(name, "", false, false));
    upgrade.verify(name, "value", ids, Numbers);
    upgrade.verify(name + "Thing", "value", things, Numbers);
}

// Links stay, or the change is refused and they stay as they were.
void changePlurality(Check& check, const std::string& label, bool toMany) {
    Upgrade upgrade(check, label);
    const std::string& name = upgrade.className();
    const std::vector<Shape> old = pair(name, name + "Link", true, !toMany);
    upgrade.open(1, old);
    const std::vector<unsigned long> ids = upgrade.store(name, "value", Numbers);
    const std::vector<unsigned long> things = upgrade.store(name + "Thing", "value", Numbers);
    linkAll(upgrade, ids, things);
    const Raised raised =
        raisedBy([&] { upgrade.open(2, pair(name, name + "Link", true, toMany)); });
    if (raised)
        upgrade.open(1, old);
    check.expectEqual<std::size_t>(3, linksOf(upgrade, ids),
                                   raised ? "links after a refusal" : "links after the change");
    upgrade.verify(name + "Thing", "value", things, Numbers);
}

// Two models of one database do not disturb one another.
void keepModelsApart(Check& check) {
    Upgrade one(check, "first");
    Upgrade two(check, "second");
    one.open(1, {Shape(one.className()).field("value", Kind::Int)});
    two.open(5, {Shape(two.className()).field("value", Kind::Text)});
    const std::vector<unsigned long> ids = one.store(one.className(), "value", Numbers);
    const std::vector<Value> words{String("a"), String("b")};
    const std::vector<unsigned long> otherIds = two.store(two.className(), "value", words);
    for (const unsigned long id : ids)
        for (const unsigned long other : otherIds)
            check.expect(id != other, "two models share an object id");
    two.open(6, {Shape(two.className()).field("value", Kind::Text).field("more", Kind::Int)});
    one.open(1, {Shape(one.className()).field("value", Kind::Int)});
    one.verify(one.className(), "value", ids, Numbers);
    two.verify(two.className(), "value", otherIds, words);
}

// A class that two models declare as shared is one class.
void shareClass(Check& check) {
    const std::vector<Shape> shapes{Shape("UpShared").field("value", Kind::Int).asShared()};
    CheckModel one(check, "sharing one", shapes);
    one.open();
    Pointer<Object> object;
    transact(one, [&] {
        object = one.make("UpShared");
        (*object)["value"] = 7;
    });
    CheckModel two(check, "sharing two", shapes);
    two.open();
    Object* seen = two.find("UpShared", object->getObjectID());
    check.require(seen != nullptr, "the other model's object is not to be found");
    check.expect(std::get<int>((*seen)["value"]) == 7,
                 "the other model's object has another value");
}

// A class belongs to the model that made its storage.
void refuseClassOfAnother(Check& check) {
    const std::vector<Shape> shapes{Shape("UpOwned").field("value", Kind::Int)};
    CheckModel one(check, "owning one", shapes);
    one.open();
    one.close();
    CheckModel two(check, "owning two", shapes);
    const Raised raised = raisedBy([&] { two.open(); });
    check.expect(raised.code == "DECLERR", "the class of another model was taken for one's own");
    CheckModel again(check, "owning one", shapes);
    again.open();
}

}  // namespace

void addStructureUpgradeChecks(Suite& suite) {
    suite.add("upgrades.index.added", [](Check& c) { addIndex(c, "index", "value", false); });
    suite.add("upgrades.index.of-two",
              [](Check& c) { addIndex(c, "indextwo", "word, value", false); });
    suite.add("upgrades.index.unique", [](Check& c) { addIndex(c, "unique", "value", true); });
    suite.add("upgrades.index.unique-of-two",
              [](Check& c) { addIndex(c, "uniquetwo", "word,value", true); });
    suite.add("upgrades.index.unique-over-duplicates", refuseIndex);
    suite.add("upgrades.index.texts-alike", distinguishTexts);
    for (const auto& [label, fields] : {std::pair{"unknown", "c"},
                                        {"twice-the-same", "a,a"},
                                        {"nothing", ""},
                                        {"trailing-comma", "a,"},
                                        {"direction", "a DESC"},
                                        {"function", "lower(b)"},
                                        {"statement", "a); DROP TABLE x; --"},
                                        {"quote", "a\",\"b"}})
        suite.add(std::string("upgrades.index.refused-") + label,
                  [which = label, list = fields](Check& c) {
                      refuseIndexList(c, std::string("list") + which, list);
                  });
    suite.add("upgrades.class-added", addClass);
    suite.add("upgrades.class-made-abstract", makeAbstract);
    suite.add("upgrades.class-made-concrete", makeConcrete);
    suite.add("upgrades.class-moved-below", moveBelow);
    suite.add("upgrades.field-moved-up", moveField);
    suite.add("upgrades.association.one-to-one",
              [](Check& c) { addAssociation(c, "onetoone", false, false); });
    suite.add("upgrades.association.one-to-many",
              [](Check& c) { addAssociation(c, "onetomany", true, false); });
    suite.add("upgrades.association.many-to-many",
              [](Check& c) { addAssociation(c, "manytomany", true, true); });
    suite.add("upgrades.association.made-plural",
              [](Check& c) { changePlurality(c, "plural", true); });
    suite.add("upgrades.association.made-singular",
              [](Check& c) { changePlurality(c, "singular", false); });
    suite.add("upgrades.models-apart", keepModelsApart);
    suite.add("upgrades.class-shared", shareClass);
    suite.add("upgrades.class-of-another-model", refuseClassOfAnother);
}

}  // namespace Kes::check
