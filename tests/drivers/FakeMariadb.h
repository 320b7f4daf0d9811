// A server that says which version it is and lets everybody in.

#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <thread>

namespace Kes::testing {

/// Serves one connection on a free port of loopback.
class FakeMariadb {
public:
    explicit FakeMariadb(const std::string& version) : listener(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(listener, generic, size) != 0 || listen(listener, 1) != 0 ||
            getsockname(listener, generic, &size) != 0)
            throw std::runtime_error("no port for a server");
        number = ntohs(address.sin_port);
        serving = std::thread([this, version] { serve(version); });
    }
    FakeMariadb(const FakeMariadb&) = delete;
    FakeMariadb& operator=(const FakeMariadb&) = delete;
    ~FakeMariadb() {
        shutdown(listener, SHUT_RDWR);
        serving.join();
        close(listener);
    }

    int port() const { return number; }

private:
    void serve(const std::string& version) const {
        const int client = accept(listener, nullptr, nullptr);
        if (client < 0)
            return;
        send(client, 0, greeting(version));
        char ignored[4096];
        if (recv(client, ignored, sizeof ignored, 0) > 0) {
            // OK: no rows, no id, autocommit, no warnings.
            send(client, 2, std::string("\0\0\0\2\0\0\0", 7));
            while (recv(client, ignored, sizeof ignored, 0) > 0)
                continue;
        }
        close(client);
    }

    // Protocol 10, with the plug-in for passwords that the client knows.
    static std::string greeting(const std::string& version) {
        std::string text = "\x0A" + version;
        text += std::string("\0\1\0\0\0", 5);          // end of the version, connection
        text += "saltsalt";                            // first half of a challenge
        text += std::string("\0\xFF\xF7\x2D\2\0", 6);  // capabilities, character set, status
        text += std::string("\x0B\x80\x15", 3);        // more capabilities, size of the challenge
        text += std::string(10, '\0');
        text += std::string("saltsaltsalt\0", 13);
        text += std::string("mysql_native_password\0", 22);
        return text;
    }

    static void send(int client, char sequence, const std::string& body) {
        std::string packet;
        for (int shift = 0; shift < 24; shift += 8)
            packet += static_cast<char>(body.size() >> shift & 255);
        packet += sequence;
        packet += body;
        ::send(client, packet.data(), packet.size(), MSG_NOSIGNAL);
    }

    int listener;
    int number = 0;
    std::thread serving;
};

}  // namespace Kes::testing
