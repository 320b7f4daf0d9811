#include "fetch/BatchQueries.h"

#include <cstddef>
#include <utility>

#include <kes/Attribute.h>

namespace Kes {

// Memory for the new node is there before anything is released to it.
std::unique_ptr<Condition> joinAny(std::vector<std::unique_ptr<Condition>> parts) {
    while (parts.size() > 1) {
        std::vector<std::unique_ptr<Condition>> joined;
        joined.reserve(parts.size() / 2 + 1);
        for (std::size_t i = 0; i + 1 < parts.size(); i += 2)
            joined.emplace_back(new CombinationCondition(parts[i].release(), Condition::OR,
                                                         parts[i + 1].release()));
        if (parts.size() % 2 != 0)
            joined.push_back(std::move(parts.back()));
        parts = std::move(joined);
    }
    return std::move(parts.front());
}

std::unique_ptr<Condition> anyOf(Class* cls, const std::vector<unsigned long>& ids) {
    std::vector<std::unique_ptr<Condition>> parts;
    parts.reserve(ids.size());
    for (const unsigned long id : ids)
        parts.emplace_back(new AttributeCondition<unsigned long>(new Attribute(cls, "KesObjectID"),
                                                                 Condition::EQUAL, id));
    return joinAny(std::move(parts));
}

}  // namespace Kes
