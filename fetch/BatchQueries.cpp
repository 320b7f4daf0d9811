#include "fetch/BatchQueries.h"

#include <cstddef>
#include <utility>

#include <kes/Attribute.h>

namespace Kes {

std::unique_ptr<Condition> joinAny(std::vector<std::unique_ptr<Condition>> parts) {
    while (parts.size() > 1) {
        std::vector<std::unique_ptr<Condition>> joined;
        for (std::size_t i = 0; i + 1 < parts.size(); i += 2) {
            Condition* left = parts[i].release();
            joined.push_back(std::make_unique<CombinationCondition>(left, Condition::OR,
                                                                    parts[i + 1].release()));
        }
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
        parts.push_back(std::make_unique<AttributeCondition<unsigned long>>(
            new Attribute(cls, "KesObjectID"), Condition::EQUAL, id));
    return joinAny(std::move(parts));
}

}  // namespace Kes
