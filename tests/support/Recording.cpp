#include "tests/support/Recording.h"

#include <algorithm>
#include <stdexcept>

namespace Kes::testing {

namespace {

bool isAmong(const std::string& slot, std::initializer_list<const char*> slots) {
    return std::find(slots.begin(), slots.end(), slot) != slots.end();
}

bool isNoted(const std::string& slot) {
    return !isAmong(slot, {"getErrorMessage", "getStatus", "cursor.next", "cursor.getInstance",
                           "cursor.destroy"});
}

bool isCounted(const std::string& slot) {
    return isNoted(slot) &&
           !isAmong(slot, {"getVersion", "setVersion", "traceSQLTo", "disableSQLTrace"});
}

}  // namespace

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

bool Recording::isDue(const std::string& slot, const std::string& details) {
    if (isNoted(slot))
        log.push_back(details.empty() ? slot : slot + " " + details);
    if (isCounted(slot))
        ++calls;
    const bool matches = wishedSlot.empty() ? isCounted(slot) : slot == wishedSlot;
    return wish != 0 && matches && isWished();
}

bool Recording::isWished() {
    ++matching;
    if (matching != wish && !(goesOn && matching > wish))
        return false;
    failed = true;
    return true;
}

bool Recording::strike(const std::string&, bool mayThrow) {
    if (throwing && mayThrow)
        throw std::runtime_error("told to throw");
    return true;
}

std::string Recording::describe(const std::string& slot) const {
    return slot + " was told to fail";
}

std::vector<std::string> Recording::only(const std::string& slot) const {
    std::vector<std::string> found;
    for (const std::string& line : log)
        if (line == slot || line.rfind(slot + " ", 0) == 0)
            found.push_back(line);
    return found;
}

}  // namespace Kes::testing
