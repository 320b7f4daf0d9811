#include "drivers/mariadb/MariadbSettings.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

namespace {

constexpr const char* Forms =
    "; write host[:port]/database, several hosts separated by commas, or "
    "/path/of/the/socket/database";

// Where the user part of a URL ends: at the last @ in front of the path.
std::size_t endOfUser(const std::string& text, std::size_t begin) {
    const std::size_t at = text.find('@', begin);
    if (at == std::string::npos)
        return at;
    return text.rfind('@', text.find('/', at));
}

std::size_t endOfScheme(const std::string& text) {
    for (const std::string scheme : {"mariadb://", "mysql://"})
        if (text.starts_with(scheme))
            return scheme.size();
    return 0;
}

unsigned readPort(const std::string& text) {
    unsigned port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port == 0 || port > 65535)
        throw SqlFailure("\"" + text + "\" is no port; a port is a number from 1 to 65535");
    return port;
}

MariadbHost readHost(const std::string& text) {
    MariadbHost host;
    if (text.empty())
        throw SqlFailure(std::string("no host is named") + Forms);
    if (text.front() == '/') {
        host.socket = text;
        return host;
    }
    std::size_t colon = text.rfind(':');
    if (text.front() == '[') {
        const std::size_t end = text.find(']');
        if (end == std::string::npos)
            throw SqlFailure("the bracket in \"" + text + "\" is not closed");
        host.name = text.substr(1, end - 1);
        colon = text.find(':', end);
    } else {
        host.name = text.substr(0, colon);
    }
    if (colon != std::string::npos)
        host.port = readPort(text.substr(colon + 1));
    if (host.name.empty())
        throw SqlFailure(std::string("no host is named") + Forms);
    return host;
}

}  // namespace

std::string MariadbHost::text() const {
    return socket.empty() ? name + ":" + std::to_string(port) : socket;
}

bool namesPassword(const std::string& source) {
    std::string lowered = "?";
    for (const char c : source)
        lowered += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    for (const std::string key : {"password=", "passwd=", "pwd="})
        for (std::size_t at = lowered.find(key); at != std::string::npos;
             at = lowered.find(key, at + 1))
            if (std::string_view("?&;, ").find(lowered[at - 1]) != std::string_view::npos)
                return true;
    return false;
}

// A password may have an @ and a slash.
std::string withoutPassword(const std::string& source) {
    const std::size_t begin = endOfScheme(source);
    if (namesPassword(source))
        return source.substr(0, begin) + "...";
    const std::size_t end = endOfUser(source, begin);
    const std::size_t colon = source.find(':', begin);
    if (end == std::string::npos || colon > end)
        return source;
    return source.substr(0, colon + 1) + "..." + source.substr(source.rfind('@'));
}

void MariadbSettings::readSource(const std::string& source) {
    std::size_t begin = endOfScheme(source);
    const std::size_t userEnd = endOfUser(source, begin);
    const bool hasUser = userEnd != std::string::npos;
    if (namesPassword(source) ||
        (hasUser && std::string_view(source).substr(begin, userEnd - begin).find(':') !=
                        std::string_view::npos))
        throw SqlFailure(
            "the source holds a password, and it is kept and shown in places "
            "where a password must not be; give the password by itself");
    if (hasUser) {
        const std::string named = source.substr(begin, userEnd - begin);
        if (user.empty())
            user = named;
        begin = userEnd + 1;
    }
    std::size_t end = source.size();
    if (database.empty()) {
        end = source.rfind('/');
        if (end == std::string::npos || end < begin || end + 1 == source.size())
            throw SqlFailure(std::string("no database is named") + Forms);
        database = source.substr(end + 1);
    }
    hosts.clear();
    for (std::size_t at = begin; at <= end;) {
        const std::size_t comma = std::min(source.find(',', at), end);
        hosts.push_back(readHost(source.substr(at, comma - at)));
        at = comma + 1;
    }
}

}  // namespace Kes::sql
