#include "bench/staff/StaffData.h"

#include <algorithm>
#include <numeric>

namespace bench {

StaffData::StaffData(int count) {
    for (int i = 0; i < count / 100; ++i) {
        std::string name = "C" + std::to_string(i + 1) + " " + letters(8, 30);
        companies.push_back({std::move(name), letters(5, 20)});
    }
    for (int i = 0; i < count; ++i) {
        PersonData person;
        person.name = "P" + std::to_string(i + 1) + " " + letters(5, 30);
        person.age = 18 + draw(50);
        person.salary = 1000 + draw(80000) / 8.0;
        person.active = draw(2) == 1;
        person.hired = 1000000000L + draw(500000000);
        person.company = i / 100;
        persons.push_back(std::move(person));
    }
    for (int i = 0; i < count * 9 / 10; ++i)
        vehicles.push_back(
            {letters(6, 24), 1950 + draw(75), 2 + draw(4), draw(1000) / 16.0, 100L * draw(500)});
    lookups.resize(static_cast<std::size_t>(count));
    std::iota(lookups.begin(), lookups.end(), 0);
    std::shuffle(lookups.begin(), lookups.end(), random);
    lookups.resize(lookups.size() / 2);
}

std::string StaffData::letters(int least, int most) {
    std::string text(static_cast<std::size_t>(least + draw(most - least + 1)), ' ');
    for (char& c : text)
        c = static_cast<char>('a' + draw(26));
    return text;
}

}  // namespace bench
