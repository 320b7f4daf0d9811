// Shows how far a long step has come.

#pragma once

#include <chrono>
#include <cstddef>
#include <ostream>
#include <string>

namespace packages {

/// A bar that is drawn over itself on a terminal; elsewhere one plain line at
/// the end of the step.
class Progress {
public:
    /// `out` is borrowed.
    Progress(std::ostream& out, bool onTerminal, std::string step, std::size_t total);

    /// Counts `count` further units as done. Cheap enough for every object.
    void advance(std::size_t count = 1);

    /// Ends the step with its line.
    void finish();

private:
    void draw();

    std::ostream& out;
    bool terminal;
    std::string step;
    std::size_t total;
    std::size_t done = 0;
    std::size_t nextDraw = 0;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

}  // namespace packages
