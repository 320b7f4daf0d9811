#include "packages/Progress.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "packages/Text.h"

namespace packages {

Progress::Progress(std::ostream& stream, bool onTerminal, std::string name, std::size_t units)
    : out(stream),
      terminal(onTerminal),
      step(std::move(name)),
      total(units) {}

void Progress::advance(std::size_t count) {
    done += count;
    if (!terminal || done < nextDraw)
        return;
    draw();
    nextDraw = done + std::max<std::size_t>(total / 200, 1);
}

void Progress::finish() {
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.2f", elapsed.count());
    if (terminal)
        out << "\r\x1b[K";
    out << step << ": ";
    if (total != 0)
        out << grouped(static_cast<long>(done)) << " in ";
    out << seconds << " s" << std::endl;
}

void Progress::draw() {
    constexpr std::size_t width = 40;
    const std::size_t most = std::max<std::size_t>(total, 1);
    const std::size_t filled = std::min(done, most) * width / most;
    out << '\r' << step << " [" << std::string(filled, '#') << std::string(width - filled, ' ')
        << "] " << std::min(done, most) * 100 / most << '%' << std::flush;
}

}  // namespace packages
