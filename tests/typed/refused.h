// What the cases of refused.txt use. Compiled by itself, so without a guard.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

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

struct Colour {
    int rgb = 0;
};

template <>
struct Kes::FieldTraits<Colour> {
    using Stored = int;
    static int store(const Colour& colour) { return colour.rgb; }
    static Colour load(int rgb) { return {rgb}; }
};

enum class State { Open, Done };

struct Pen : Kes::Object<Pen> {
    Colour colour;
    State state = State::Open;
    Kes::Decimal<2> price;
    Kes::Uuid key;
    std::vector<std::byte> image;
    bool dry = false;
    static void describe(Kes::Description<Pen>& d);
};

using Kes::field;
