// The input of the staff circuit: the same for every program.

#pragma once

#include <random>
#include <string>
#include <vector>

namespace bench {

struct CompanyData {
    std::string name;
    std::string city;
};

struct PersonData {
    std::string name;
    int age;
    double salary;
    bool active;
    long hired;
    int company;  // position of the employer, from 0
};

struct VehicleData {
    std::string name;
    int year;
    int doors;
    double draft;
    long load;
};

/// 100 persons per company in the order of ids; fixed seed.
class StaffData {
public:
    explicit StaffData(int persons);

    std::vector<CompanyData> companies;
    std::vector<PersonData> persons;
    std::vector<VehicleData> vehicles;  // car, boat and van in turn
    std::vector<int> lookups;           // distinct positions of persons, half of them

private:
    std::string letters(int least, int most);
    int draw(int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); }

    std::minstd_rand random{1};
};

}  // namespace bench
