#include "Ask.h"

#include <algorithm>

namespace Kes::check {

Ask askField(const std::string& className, const std::string& field, int op, const Value& value) {
    constexpr const char* symbols[] = {"==", "!=", ">", "<", ">=", "<=", "like"};
    return {[=](CheckModel& model) {
                const Attribute attribute(model[className], field.c_str());
                return std::unique_ptr<Condition>(newCondition(attribute, op, value));
            },
            [=](Object& object) { return Kes::check::holds(object[field], op, value); },
            field + " " + symbols[op] + " " + describe(value)};
}

namespace {

Role roleOf(CheckModel& model, const std::string& className, const std::string& association,
            const std::string& role) {
    Selection selection(model[className]);
    return selection(model.tagged(association).c_str(), role.c_str());
}

}  // namespace

Ask askPartner(const std::string& className, const std::string& association,
               const std::string& role, Object* partner, bool equal) {
    return {[=](CheckModel& model) {
                const Role tested = roleOf(model, className, association, role);
                Instance* instance = partner;
                return std::unique_ptr<Condition>(equal ? (tested == instance).getNew()
                                                        : (tested != instance).getNew());
            },
            [=](Object& object) {
                const std::vector<Object*> partners = object.partners(role);
                const bool has = partner == nullptr ? partners.empty()
                                                    : std::find(partners.begin(), partners.end(),
                                                                partner) != partners.end();
                return has == equal;
            },
            role + (equal ? " == " : " != ") +
                (partner == nullptr ? "nobody" : std::to_string(partner->getObjectID()))};
}

Ask askNested(const std::string& className, const std::string& association, const std::string& role,
              const std::string& partnerClass, const Ask* nested, bool equal) {
    const auto inner = nested != nullptr ? std::make_shared<Ask>(*nested) : nullptr;
    return {[=](CheckModel& model) {
                Selection selection(model[partnerClass]);
                if (inner != nullptr)
                    selection.setCondition(inner->build(model).release());
                const Role tested = roleOf(model, className, association, role);
                return std::unique_ptr<Condition>(equal ? (tested == selection).getNew()
                                                        : (tested != selection).getNew());
            },
            [=](Object& object) {
                const Class* wanted =
                    static_cast<CheckModel&>(*object.getClass()->getModel())[partnerClass];
                const std::vector<Object*> partners = object.partners(role);
                return std::any_of(partners.begin(), partners.end(), [&](Object* partner) {
                           return partner->getClass()->isA(wanted) &&
                                  (inner == nullptr || inner->holds(*partner));
                       }) == equal;
            },
            role + (equal ? " in " : " not in ") + partnerClass + "(" +
                (inner == nullptr ? "" : inner->text) + ")"};
}

Ask askBoth(const Ask& one, Condition::LogicalOperator op, const Ask& other) {
    // Shared, since each of the two functions would copy a whole tree.
    const auto left = std::make_shared<const Ask>(one);
    const auto right = std::make_shared<const Ask>(other);
    return {[=](CheckModel& model) {
                return std::make_unique<CombinationCondition>(left->build(model).release(), op,
                                                              right->build(model).release());
            },
            [=](Object& object) {
                return op == Condition::AND ? left->holds(object) && right->holds(object)
                                            : left->holds(object) || right->holds(object);
            },
            "(" + one.text + (op == Condition::AND ? " and " : " or ") + other.text + ")"};
}

void compareAnswers(Check& check, CheckModel& model, const std::string& className,
                    const std::vector<Pointer<Object>>& all, const Ask& ask) {
    std::vector<unsigned long> wanted;
    for (const Pointer<Object>& object : all)
        if (object->getClass()->isA(model[className]) && ask.holds(*object))
            wanted.push_back(object->getObjectID());
    Selection selection(model[className]);
    selection.setCondition(ask.build(model).release());
    std::vector<unsigned long> found = idsOf(selection);
    std::sort(wanted.begin(), wanted.end());
    std::sort(found.begin(), found.end());
    check.expect(found == wanted, ask.text + " finds " + std::to_string(found.size()) +
                                      " objects, not the " + std::to_string(wanted.size()) +
                                      " for which it holds");
}

}  // namespace Kes::check
