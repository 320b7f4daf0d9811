// Names that databases stumble over: each works or is refused, and nothing of
// it is ever run.

#include <algorithm>

#include "Topics.h"
#include "Upgrade.h"

namespace Kes::check {

namespace {

struct Name {
    std::string label;
    std::string text;
    std::string hardship{};  ///< behind "class-name-" and the like; "" for a name that has to work
};

std::vector<Name> names() {
    std::vector<Name> all;
    for (const char* word :
         {"select",  "from",    "where", "order", "group",        "user",       "table",
          "index",   "primary", "key",   "value", "values",       "references", "end",
          "column",  "default", "limit", "union", "desc",         "true",       "null",
          "integer", "text",    "rowid", "oid",   "current_user", "interval"})
        all.push_back({word, word});
    all.push_back({"blank", "two words"});
    all.push_back({"leading-blank", " indented"});
    all.push_back({"dot", "a.b"});
    all.push_back({"dots", "main.sqlite.x"});
    all.push_back({"percent", "50%"});
    all.push_back({"parenthesis", "f(x)"});
    all.push_back({"colon", ":name"});
    all.push_back({"question-mark", "what?"});
    all.push_back({"question-mark-1", "?1"});
    all.push_back({"dollar", "$1"});
    all.push_back({"dollar-last", "price$"});
    all.push_back({"dollar-within", "rank$9"});
    all.push_back({"dollars", "$x$"});
    all.push_back({"at", "@a"});
    all.push_back({"hash", "#"});
    all.push_back({"format", "%s"});
    all.push_back({"braces", "{x}"});
    all.push_back({"comma", "a,b"});
    all.push_back({"backslash", "\\"});
    all.push_back({"bracket", "a[1]"});
    all.push_back({"slash", "a/b\\c"});
    all.push_back({"digit", "1st"});
    all.push_back({"underscore", "_own"});
    all.push_back({"comment", "a--b/*c*/"});
    all.push_back({"lone-comment", "--"});
    all.push_back({"open-comment", "/* x"});
    all.push_back({"apostrophe", "it's"});
    all.push_back({"lone-apostrophe", "'"});
    all.push_back({"semicolon", "a;b"});
    all.push_back({"newline", "a\nb"});
    all.push_back({"umlaut", "\xC3\x84pfel"});
    all.push_back({"chinese", "\xE4\xB8\xAD\xE6\x96\x87"});
    all.push_back({"emoji", "\xF0\x9F\x98\x80", "emoji"});
    all.push_back({"double-quote", "say \"so\"", "quotes"});
    all.push_back({"lone-double-quote", "\"", "quotes"});
    all.push_back({"lone-backtick", "`", "quotes"});
    all.push_back({"backtick", "a`b", "quotes"});
    all.push_back({"injection", "x\"; DROP TABLE \"NameWitness\"; --", "quotes"});
    all.push_back({"injection-backtick", "x`; DROP TABLE `NameWitness`; --", "quotes"});
    all.push_back({"injection-bracket", "x']; DROP TABLE NameWitness; --"});
    all.push_back({"invalid-utf8", "a\xFFz", "invalid-utf8"});
    for (const std::size_t size : {63U, 64U, 65U, 200U})
        all.push_back(
            {std::to_string(size) + "-bytes", std::string(size, 'n'), std::to_string(size)});
    return all;
}

// A refusal has to name what it refuses; then nothing was made.
bool openOrRefuse(Check& check, CheckModel& model, const Name& name, const std::string& owner) {
    const Raised raised = raisedBy([&] { model.open(); });
    if (!name.hardship.empty())
        check.noteProperty(owner + "-name-" + name.hardship, static_cast<bool>(raised));
    else
        check.require(!raised, "refused: " + raised.message);
    if (raised)
        check.expect(raised.names(name.text),
                     "the refusal does not name \"" + name.text + "\": " + raised.message);
    return !raised;
}

// Stores, changes, finds, sorts and removes with one field of a name.
void useField(Check& check, CheckModel& model, const std::string& cls, const std::string& field) {
    std::vector<unsigned long> ids;
    transact(model, [&] {
        for (int i = 0; i < 3; ++i) {
            Object& object = *model.make(cls);
            object[field] = i;
            ids.push_back(object.getObjectID());
        }
    });
    transact(model, [&] {
        Object& object = *model.get(cls, ids[1]);
        object.change();
        object[field] = 10;
    });
    model.close();
    model.open();
    check.require(model.find(cls, ids[1]) != nullptr, "the object is not stored");
    check.expect(std::get<int>((*model.get(cls, ids[1]))[field]) == 10, "the change is not stored");
    Selection above(model[cls]);
    above.where(above[field.c_str()] > 0);
    above.orderBy(above[field.c_str()], false);
    check.expect(idsOf(above) == std::vector<unsigned long>{ids[1], ids[2]},
                 "a sorted condition finds other objects");
    transact(model, [&] { model.get(cls, ids[2])->remove(); });
    Selection left(model[cls]);
    check.expectEqual<std::size_t>(2, idsOf(left).size(), "objects that are left");
}

// A refusal leaves nothing behind that the next declaration stumbles over.
void openInstead(Check& check, const std::string& modelName, const std::string& cls) {
    CheckModel plain(check, modelName,
                     {Shape(cls).field("value", Kind::Int), Shape(cls + "S", cls)});
    const Raised raised = raisedBy([&] { plain.open(); });
    check.require(!raised, "after the refusal, a declaration without the name is refused too: " +
                               raised.message);
    useField(check, plain, cls, "value");
}

// Classes and associations have the tag behind their names, and one of so many bytes
// has them with it: what a driver takes does not depend on earlier runs.
Name untagged(const Check& check, Name name) {
    if (name.text.size() >= 63)
        name.text.resize(name.text.size() - check.config().tag.size());
    return name;
}

void nameClass(Check& check, const Name& wanted, std::size_t number) {
    const Name name = untagged(check, wanted);
    const std::string& text = name.text;
    const std::string modelName = "name class " + std::to_string(number);
    const std::string beside = "NamedBeside" + std::to_string(number);
    // No digit makes one of the other names of it, which an S would.
    CheckModel model(check, modelName,
                     {Shape(text).field("value", Kind::Int).index("value"),
                      Shape(text + "2", text).field("more", Kind::Int),
                      Shape(beside).field("value", Kind::Int), Shape(beside + "S", beside)},
                     1, check.config().tag.empty() ? CheckModel::Exact : CheckModel::Tagged);
    if (openOrRefuse(check, model, name, "class"))
        useField(check, model, text, "value");
    else
        openInstead(check, modelName, beside);
}

void nameField(Check& check, const Name& name, std::size_t number) {
    const std::string cls = "NamedField" + std::to_string(number);
    CheckModel model(check, cls, {Shape(cls).field(name.text, Kind::Int), Shape(cls + "S", cls)});
    if (openOrRefuse(check, model, name, "field"))
        useField(check, model, cls, name.text);
    else
        openInstead(check, cls, cls);
}

// The name for an association, its link table and one of its roles.
//
// A link table is called like its association, so no association can be called
// like a class; other words have to do for those that are reserved.
void nameAssociation(Check& check, const Name& name, std::size_t number, bool isReserved) {
    const std::string cls = "NamedLink" + std::to_string(number);
    const Name tableName = untagged(check, name);
    const std::string association = isReserved ? name.text : "A" + tableName.text;
    CheckModel model(
        check, cls,
        {Shape(cls).many(association, name.text).one("One" + association, "next"),
         Shape(cls + "S").many(association, "owners").many("One" + association, "last")});
    if (!openOrRefuse(check, model, tableName, "association"))
        return openInstead(check, cls, cls);
    Pointer<Object> one;
    Pointer<Object> other;
    transact(model, [&] {
        one = model.make(cls);
        other = model.make(cls + "S");
        one->link(name.text, other);
        one->link("next", other);
    });
    const unsigned long id = one->getObjectID();
    model.close();
    model.open();
    Object* read = model.find(cls, id);
    check.require(read != nullptr, "the object is not stored");
    check.expectEqual<std::size_t>(1, read->partners(name.text).size(), "partners");
    check.expect(read->partner("next") == read->partner(name.text), "partners by two roles");
    Selection selection(model[cls]);
    selection.where(selection(model.tagged(association).c_str(), name.text.c_str()) ==
                    static_cast<Instance*>(read->partner("next")));
    check.expectEqual<std::size_t>(1, idsOf(selection).size(), "objects found by the partner");
}

// Neither run nor cut: a table beside them is still there.
void keepWitness(Check& check) {
    const std::vector<Shape> shapes{Shape("NameWitness").field("value", Kind::Int)};
    CheckModel model(check, "name witness", shapes, 1, CheckModel::Exact);
    model.open();
    Pointer<Object> object;
    transact(model, [&] { object = model.make("NameWitness"); });
    std::size_t number = 1000;
    for (const Name& name : names()) {
        if (name.text.find("DROP") == std::string::npos)
            continue;
        static_cast<void>(raisedBy([&] { nameField(check, {"", name.text, "quotes"}, ++number); }));
        Selection selection(model["NameWitness"]);
        selection.where(selection["value"] == 0);
        check.expect(!idsOf(selection).empty(), "the text of a name was run");
    }
}

void refuseEmpty(Check& check, const std::string& label, const Shape& shape) {
    CheckModel model(check, "empty " + label, {shape}, 1, CheckModel::Exact);
    const Raised raised = raisedBy([&] { model.open(); });
    check.expect(static_cast<bool>(raised), "the name is accepted");
}

// A name that is too long is refused without a look at the other, and what a
// database takes for one letter only the database knows.
void checkNamed(Check& check, const Raised& raised, const std::string& one,
                const std::string& other) {
    const bool isPlain = one.size() <= 63 && std::all_of(one.begin(), one.end(), [](char c) {
                             return static_cast<unsigned char>(c) < 0x80;
                         });
    check.expect(!isPlain ? raised.names(one) || raised.names(other)
                          : raised.names(one) && raised.names(other),
                 "the refusal does not name both: " + raised.message);
}

// Two names that the database may take for one: two things or none.
void tellApart(Check& check, const std::string& label, const std::string& one,
               const std::string& other, const char* property) {
    Upgrade upgrade(check, "alike" + label);
    const std::vector<Shape> shapes{Shape(upgrade.className() + one).field("value", Kind::Int),
                                    Shape(upgrade.className() + other).field("value", Kind::Int)};
    const Raised raised = raisedBy([&] { upgrade.open(1, shapes); });
    if (property != nullptr)
        check.noteProperty(property, static_cast<bool>(raised));
    else
        check.require(!raised, "refused: " + raised.message);
    if (raised) {
        checkNamed(check, raised, shapes[0].name, shapes[1].name);
        return;
    }
    upgrade.store(shapes[0].name, "value", {1, 2});
    upgrade.store(shapes[1].name, "value", {3});
    upgrade.verifyCount(shapes[0].name, 2);
    upgrade.verifyCount(shapes[1].name, 1);
}

void tellFieldsApart(Check& check, const std::string& label, const std::string& one,
                     const std::string& other, const char* property) {
    Upgrade upgrade(check, "fieldsalike" + label);
    const std::string& cls = upgrade.className();
    const Raised raised = raisedBy(
        [&] { upgrade.open(1, {Shape(cls).field(one, Kind::Int, 1).field(other, Kind::Int, 2)}); });
    if (property != nullptr)
        check.noteProperty(property, static_cast<bool>(raised));
    else
        check.require(!raised, "refused: " + raised.message);
    if (raised) {
        checkNamed(check, raised, one, other);
        return;
    }
    const std::vector<unsigned long> ids = upgrade.store(cls, one, {5});
    upgrade.model().close();
    upgrade.model().open();
    upgrade.verify(cls, one, ids, {5});
    upgrade.verify(cls, other, ids, {2});
}

// What a class and something else would both be called.
void collide(Check& check, const std::string& label, std::vector<Shape> shapes,
             const char* property, const std::string& named) {
    CheckModel model(check, "collision " + label, std::move(shapes));
    const Raised raised = raisedBy([&] { model.open(); });
    if (property != nullptr)
        check.noteProperty(property, static_cast<bool>(raised));
    else
        check.expect(static_cast<bool>(raised), "the collision is accepted");
    check.expect(!raised || raised.names(named),
                 "the refusal does not name \"" + named + "\": " + raised.message);
}

}  // namespace

void addNameChecks(Suite& suite) {
    std::size_t number = 0;
    for (const Name& name : names()) {
        ++number;
        suite.add("names.class." + name.label,
                  [name, number](Check& c) { nameClass(c, name, number); });
        suite.add("names.field." + name.label,
                  [name, number](Check& c) { nameField(c, name, number); });
        suite.add("names.association." + name.label,
                  [name, number](Check& c) { nameAssociation(c, name, number, false); });
    }
    for (const char* word : {"join", "having", "create", "check", "foreign", "exists", "between",
                             "natural", "trigger", "grant", "all", "into"})
        suite.add(std::string("names.association.") + word, [word, which = ++number](Check& c) {
            nameAssociation(c, {word, word}, which, true);
        });
    suite.add("names.never-run", keepWitness);
    for (const auto& [label, text] :
         {std::pair{"empty", ""}, {"one-blank", " "}, {"ends-in-blank", "a "}}) {
        suite.add(std::string("names.refused.class-") + label, [which = label,
                                                                name = text](Check& c) {
            refuseEmpty(c, std::string("class ") + which, Shape(name).field("value", Kind::Int));
        });
        suite.add(std::string("names.refused.field-") + label,
                  [which = label, name = text](Check& c) {
                      refuseEmpty(c, std::string("field ") + which,
                                  Shape(std::string("Refused") + which).field(name, Kind::Int));
                  });
    }
    const std::string same(70, 's');
    suite.add("names.alike.classes-case",
              [](Check& c) { tellApart(c, "case", "a", "A", "case-classes"); });
    suite.add("names.alike.classes-umlaut-case", [](Check& c) {
        tellApart(c, "umlaut", "\xC3\xA4", "\xC3\x84", "case-umlaut-classes");
    });
    suite.add("names.alike.classes-umlaut",
              [](Check& c) { tellApart(c, "accent", "\xC3\xA4", "a", nullptr); });
    suite.add("names.alike.classes-long",
              [=](Check& c) { tellApart(c, "long", same + "1", same + "2", "names-alike-64"); });
    suite.add("names.alike.fields-case",
              [](Check& c) { tellFieldsApart(c, "case", "value", "VALUE", "case-fields"); });
    suite.add("names.alike.fields-umlaut-case", [](Check& c) {
        tellFieldsApart(c, "umlaut", "\xC3\xA4", "\xC3\x84", "case-umlaut-fields");
    });
    suite.add("names.alike.fields-umlaut",
              [](Check& c) { tellFieldsApart(c, "accent", "\xC3\xA4", "a", "accent-fields"); });
    suite.add("names.alike.fields-long", [=](Check& c) {
        tellFieldsApart(c, "long", same + "1", same + "2", "names-alike-64");
    });
    suite.add("names.collision.class-like-view", [](Check& c) {
        collide(c, "view",
                {Shape("Covered").field("a", Kind::Int), Shape("CoveredSub", "Covered"),
                 Shape("Covered" + c.config().tag + "_all").field("b", Kind::Int)},
                "class-like-view", "Covered");
    });
    suite.add("names.collision.class-like-link-table", [](Check& c) {
        collide(c, "link",
                {Shape("Joined").many("JoinedLink", "to").many("JoinedLink", "from"),
                 Shape("JoinedLink").field("b", Kind::Int)},
                "class-like-association", "JoinedLink");
    });
    suite.add("names.collision.role-like-field", [](Check& c) {
        collide(c, "role",
                {Shape("Doubled").field("partner", Kind::Int).one("Doubling", "partner"),
                 Shape("DoubledOther").many("Doubling", "doubled")},
                "role-like-field", "partner");
    });
    for (const char* own : {"KesObjectID", "KesVersion"})
        suite.add(std::string("names.collision.field-") + own, [own](Check& c) {
            collide(c, own, {Shape(std::string("Reserved") + own).field(own, Kind::Int)}, nullptr,
                    own);
        });
}

}  // namespace Kes::check
