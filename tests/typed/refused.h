// What the cases of refused.txt use. Compiled by itself, so without a guard.

#include <optional>
#include <string>

#include <kes/Kes.h>

struct Ticket;
struct Label;

struct Project : Kes::Object<Project> {
    std::string name;
    Kes::Many<Ticket> tickets;
    static void describe(Kes::Description<Project>& d);
};

struct Ticket : Kes::Object<Ticket> {
    std::string title;
    int effort = 0;
    std::optional<int> room;
    Kes::One<Project> project;
    Kes::Many<Label> labels;
    static void describe(Kes::Description<Ticket>& d);
};

struct Bug : Kes::Object<Bug, Ticket> {
    int severity = 3;
    static void describe(Kes::Description<Bug>& d);
};

struct Label : Kes::Object<Label> {
    std::string word;
    Kes::Many<Ticket> tickets;
    static void describe(Kes::Description<Label>& d);
};
