#include <kes/Attribute.h>

namespace Kes {

void Attribute::deleteThis() {
    delete this;
}

void Attribute::deleteThis(Attribute* attribute) {
    delete attribute;
}

#define KES_BUILD(symbol, code, type)                                                  \
    AttributeCondition<type> Attribute::operator symbol(type value) const {            \
        return AttributeCondition<type>(new Attribute(*this), Condition::code, value); \
    }

#define KES_BUILD_ALL(symbol, code)                                                      \
    KES_BUILD(symbol, code, unsigned long)                                               \
    KES_BUILD(symbol, code, long)                                                        \
    KES_BUILD(symbol, code, int)                                                         \
    KES_BUILD(symbol, code, unsigned int)                                                \
    KES_BUILD(symbol, code, bool)                                                        \
    KES_BUILD(symbol, code, float)                                                       \
    KES_BUILD(symbol, code, double)                                                      \
    KES_BUILD(symbol, code, Timestamp)                                                   \
    AttributeCondition<String> Attribute::operator symbol(const String& value) const {   \
        return AttributeCondition<String>(new Attribute(*this), Condition::code, value); \
    }                                                                                    \
    AttributeCondition<String> Attribute::operator symbol(const char* value) const {     \
        const String text(value);                                                        \
        return AttributeCondition<String>(new Attribute(*this), Condition::code, text);  \
    }

KES_BUILD_ALL(==, EQUAL)
KES_BUILD_ALL(!=, NOT_EQUAL)
KES_BUILD_ALL(>, GREATER)
KES_BUILD_ALL(<, LESS)
KES_BUILD_ALL(>=, GREATER_OR_EQUAL)
KES_BUILD_ALL(<=, LESS_OR_EQUAL)

#undef KES_BUILD_ALL
#undef KES_BUILD

AttributeCondition<String> Attribute::like(const String& pattern) const {
    return AttributeCondition<String>(new Attribute(*this), Condition::LIKE, pattern);
}

}  // namespace Kes
