#include "Upgrade.h"

#include <set>

namespace Kes::check {

Upgrade::Upgrade(Check& runs, std::string label) : check(runs), name("Up" + std::move(label)) {}

CheckModel& Upgrade::open(int version, std::vector<Shape> shapes) {
    current.reset();
    current = std::make_unique<CheckModel>(check, name, std::move(shapes), version);
    current->open();
    return *current;
}

Raised Upgrade::refuse(int version, std::vector<Shape> shapes,
                       const std::vector<std::string>& names) {
    static const std::set<std::string> codes{"DELCLS", "CRECLS", "CREVW", "CREASS", "ROLLFAIL"};
    Raised raised = raisedBy([&] { open(version, std::move(shapes)); });
    current.reset();
    if (!check.expect(static_cast<bool>(raised), "the declaration was accepted"))
        return raised;
    check.expect(codes.contains(raised.code), "the refusal raised " + raised.code);
    for (const std::string& wanted : names)
        check.expect(raised.names(wanted),
                     "the refusal does not name \"" + wanted + "\": " + raised.message);
    return raised;
}

std::vector<unsigned long> Upgrade::store(const std::string& cls, const std::string& field,
                                          const std::vector<Value>& values) {
    std::vector<unsigned long> ids;
    transact(*current, [&] {
        for (const Value& value : values) {
            Object& object = *current->make(cls);
            object[field] = value;
            ids.push_back(object.getObjectID());
        }
    });
    return ids;
}

void Upgrade::verify(const std::string& cls, const std::string& field,
                     const std::vector<unsigned long>& ids, const std::vector<Value>& values) {
    for (std::size_t i = 0; i < ids.size(); ++i) {
        Object* object = current->find(cls, ids[i]);
        if (!check.expect(object != nullptr, "an object is lost"))
            continue;
        check.expect(
            isExactly((*object)[field], values[i]),
            field + " is " + describe((*object)[field]) + " instead of " + describe(values[i]));
    }
}

void Upgrade::verifyCount(const std::string& cls, std::size_t wanted) {
    Selection selection((*current)[cls]);
    check.expectEqual(wanted, idsOf(selection).size(), "objects of " + cls);
}

}  // namespace Kes::check
