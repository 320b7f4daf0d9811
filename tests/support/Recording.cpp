#include "tests/support/Recording.h"

#include <stdexcept>

namespace Kes::testing {

Recording& Recording::get() {
    static Recording recording;
    return recording;
}

void Recording::reset() {
    *this = Recording();
}

void Recording::failAt(long n, const std::string& slot, bool fromThenOn) {
    wish = n;
    wishedSlot = slot;
    goesOn = fromThenOn;
    matching = 0;
    failed = false;
}

bool Recording::enter(const std::string& slot, const std::string& details) {
    ++calls;
    log.push_back(details.empty() ? slot : slot + " " + details);
    if (wish == 0 || (!wishedSlot.empty() && wishedSlot != slot))
        return false;
    return isWished();
}

bool Recording::enterUnnoted(const std::string& slot) {
    return wish != 0 && wishedSlot == slot && isWished();
}

bool Recording::isWished() {
    ++matching;
    if (matching != wish && !(goesOn && matching > wish))
        return false;
    failed = true;
    if (throwing)
        throw std::runtime_error("told to throw");
    return true;
}

std::vector<std::string> Recording::only(const std::string& slot) const {
    std::vector<std::string> found;
    for (const std::string& line : log)
        if (line == slot || line.rfind(slot + " ", 0) == 0)
            found.push_back(line);
    return found;
}

}  // namespace Kes::testing
