#include "drivers/postgres/PostgresSocket.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace Kes::sql {

bool awaitSocket(int socket, bool toSend, int limit) {
    // Nothing would ever happen on a socket that is closed.
    if (socket < 0)
        return true;
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(std::max(limit, 0));
    pollfd watched{socket, static_cast<short>(toSend ? POLLIN | POLLOUT : POLLIN), 0};
    for (int left = limit;;) {
        const int ready = ::poll(&watched, 1, left);
        if (ready >= 0 || errno != EINTR)
            return ready != 0;
        // A signal came in between.
        if (limit >= 0)
            left = static_cast<int>(std::max<std::chrono::milliseconds::rep>(
                0, std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count()));
    }
}

void endTalk(int socket) {
    ::shutdown(socket, SHUT_RDWR);
}

}  // namespace Kes::sql
