// Conditions together with what they mean.

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Shape.h"

namespace Kes::check {

/// A condition that can be asked of the database and answered without it.
struct Ask {
    std::function<std::unique_ptr<Condition>(CheckModel&)> build;
    std::function<bool(Object&)> holds;
    std::string text;  ///< for messages
};

Ask askField(const std::string& className, const std::string& field, int op, const Value& value);

/// Whether some partner in the role is `partner`, or none for null; and the
/// opposite.
Ask askPartner(const std::string& className, const std::string& association,
               const std::string& role, Object* partner, bool equal);

/// Whether some partner is an object of the class for which `nested` holds, and
/// the opposite. Without a `nested` all objects of the class count.
Ask askNested(const std::string& className, const std::string& association, const std::string& role,
              const std::string& partnerClass, const Ask* nested, bool equal);

Ask askBoth(const Ask& one, Condition::LogicalOperator op, const Ask& other);

/// Asks for objects of the class and compares with those of `all` that are
/// objects of it and for which `ask` holds.
void compareAnswers(Check& check, CheckModel& model, const std::string& className,
                    const std::vector<Pointer<Object>>& all, const Ask& ask);

}  // namespace Kes::check
