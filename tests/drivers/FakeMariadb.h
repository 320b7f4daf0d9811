// A server that says which version it is and lets everybody in.

#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <thread>

namespace Kes::testing {

/// Serves one connection on a free port of loopback, without TLS.
class FakeMariadb {
public:
    /// `wanted` is the way to authenticate that it demands of everybody; none when
    /// it is empty.
    explicit FakeMariadb(const std::string& version, const std::string& wanted = "")
        : listener(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(listener, generic, size) != 0 || listen(listener, 1) != 0 ||
            getsockname(listener, generic, &size) != 0)
            throw std::runtime_error("no port for a server");
        number = ntohs(address.sin_port);
        serving = std::thread([this, version, wanted] { serve(version, wanted); });
    }
    FakeMariadb(const FakeMariadb&) = delete;
    FakeMariadb& operator=(const FakeMariadb&) = delete;
    ~FakeMariadb() {
        heard();
        close(listener);
    }

    int port() const { return number; }

    /// All that the client has sent. Waits for its end.
    const std::string& heard() {
        shutdown(listener, SHUT_RDWR);
        if (serving.joinable())
            serving.join();
        return all;
    }

private:
    void serve(const std::string& version, const std::string& wanted) {
        const int client = accept(listener, nullptr, nullptr);
        if (client < 0)
            return;
        send(client, 0, greeting(version));
        char sequence = 2;
        if (hear(client) && !wanted.empty()) {
            send(client, sequence, "\xFE" + wanted + std::string("\0saltsaltsaltsaltsalt\0", 22));
            sequence = 4;
            hear(client);
        }
        // OK: no rows, no id, autocommit, no warnings.
        send(client, sequence, std::string("\0\0\0\2\0\0\0", 7));
        while (hear(client))
            continue;
        close(client);
    }

    bool hear(int client) {
        char bytes[4096];
        const ssize_t size = recv(client, bytes, sizeof bytes, 0);
        if (size > 0)
            all.append(bytes, static_cast<std::size_t>(size));
        return size > 0;
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
    std::string all;
    std::thread serving;
};

}  // namespace Kes::testing
