// Timestamps of any value in any format, and the way there and back.

#include <kes/Exception.h>
#include <kes/Timestamp.h>

#include "tests/fuzz/Input.h"

using Kes::String;
using Kes::Timestamp;
using Kes::fuzz::demand;
using Kes::fuzz::Input;

namespace {

// From the year 1000 on, which has the four digits that are read, to 7899.
constexpr long FirstDay = 364877;
constexpr long AllDays = 2885050 - FirstDay;
constexpr long DaySeconds = 86400;

// What is written in full is read as it was, from the first day of all on.
void goThereAndBack(const Timestamp& t, const char* format) {
    const String text = t.asString(format);
    Timestamp back(1, 1, 1, 0, 0, 0);
    back.parseString(text, format);
    const String again = back.asString(format);
    demand(back == t, static_cast<const char*>("from " + text + " back to " + again));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Timestamp any(2000, 1, 1, 0, 0, 0);
    any.setAllDays(input.number<long>());
    any.setAllSeconds(input.number<long>());
    const std::string format = input.text();
    const std::string text = input.text();

    Timestamp valid(any);
    valid.setAllDays(FirstDay +
                     static_cast<long>(static_cast<unsigned long>(any.getAllDays()) % AllDays));
    valid.setAllSeconds(
        static_cast<long>(static_cast<unsigned long>(any.getAllSeconds()) % DaySeconds));
    goThereAndBack(valid, "%Y-%m-%d %H:%M:%S");
    goThereAndBack(valid, "on %Y %B %d, %S %M %H");

    for (Timestamp* t : {&any, &valid}) {
        static_cast<void>(t->asString(format.c_str()));
        try {
            t->parseString(text.c_str(), format.c_str());
        } catch (const Kes::Exception& refused) {
            demand(std::string(refused.getCode()) == "E_TSPARSE", refused.getMessage());
        }
        static_cast<void>(t->asString(format.c_str()));
        const Timestamp before(*t);
        t->addMonths(static_cast<int>(any.getAllDays()));
        t->addSeconds(static_cast<int>(any.getAllSeconds()));
        demand((before < *t) == (*t > before), "an order that depends on the side");
    }
    return 0;
}
