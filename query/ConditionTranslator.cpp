#include <kes/ConditionTranslator.h>

namespace Kes {

ConditionTranslator::~ConditionTranslator() = default;

const String ConditionTranslator::getNewAlias() {
    return String("a") + String(aliasCounter++);
}

}  // namespace Kes
