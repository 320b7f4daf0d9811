// The wait for a socket, which the client library leaves to its users.

#pragma once

namespace Kes::sql {

/// Waits until the socket can be read, or written where `toSend`, and returns
/// whether it can: false after `limit` ms without that. -1 waits for ever. A
/// broken or closed connection counts as readable: reading tells.
bool awaitSocket(int socket, bool toSend, int limit);

/// Lets the server find out that nobody listens any more. The socket stays open.
void endTalk(int socket);

}  // namespace Kes::sql
