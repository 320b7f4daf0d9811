// The beginning of a connection: hosts, options, and what the server has to be.

#include <mysql.h>
#include <mysqld_error.h>

#include <mutex>
#include <string>

#include "drivers/mariadb/MariadbConnection.h"

namespace Kes::sql {

namespace {

constexpr unsigned long OldestServer = 100600;  // as the client library counts versions

// Ways to authenticate that do not let the server know the password.
constexpr const char* ProofsOfPassword =
    "mysql_native_password,client_ed25519,auth_gssapi_client,parsec";

std::string quotedText(const std::string& text) {
    std::string literal = "'";
    for (const char c : text)
        literal += c == '\'' ? std::string("''") : std::string(1, c);
    return literal + "'";
}

// What the driver relies on, whatever the server's own settings are.
//
// Sorting compares so many bytes of a text and no more, three for a character,
// and needs room for fifteen keys. A server must not give up on a cursor that
// waits for its program, nor on a program that waits for its user.
std::string sessionSettings(const MariadbSettings& settings) {
    std::string isolation = settings.isolation;
    for (char& c : isolation)
        c = c == ' ' ? '-' : static_cast<char>(c - 'a' + 'A');
    const std::string patience = std::to_string(settings.lockSeconds());
    return "SET SESSION sql_mode = 'STRICT_ALL_TABLES,NO_ZERO_DATE,NO_ZERO_IN_DATE,"
           "ERROR_FOR_DIVISION_BY_ZERO,NO_ENGINE_SUBSTITUTION,ANSI_QUOTES,PIPES_AS_CONCAT,"
           "NO_BACKSLASH_ESCAPES', "
           "collation_connection = 'utf8mb4_nopad_bin', autocommit = 1, "
           "completion_type = 'NO_CHAIN', sql_safe_updates = 0, sql_big_selects = 1, "
           "sql_select_limit = DEFAULT, default_storage_engine = InnoDB, "
           "innodb_strict_mode = 1, max_sort_length = 262144, "
           "sort_buffer_size = GREATEST(@@sort_buffer_size, 8388608), "
           "net_write_timeout = 31536000, wait_timeout = 31536000, tx_isolation = " +
           quotedText(isolation) + ", innodb_lock_wait_timeout = " + patience +
           ", lock_wait_timeout = " + patience +
           ", max_statement_time = " + std::to_string(settings.statementTimeout) + " / 1000";
}

// Of an option that keeps secrets, or texts, from harm.
void demand(int result) {
    if (result != 0)
        throw SqlFailure(
            "the client library is too old or too new for this driver: it does not "
            "know an option that is needed; install MariaDB Connector/C 3.3");
}

void setUpLibrary() {
    static std::once_flag once;
    std::call_once(once, [] { mysql_library_init(0, nullptr, nullptr); });
}

}  // namespace

MariadbConnection::MariadbConnection(const MariadbSettings& wanted)
    : settings(wanted),
      stage(*this) {
    setUpLibrary();
    try {
        connect();
    } catch (...) {
        mysql_close(handle);
        throw;
    }
}

MariadbConnection::~MariadbConnection() {
    mysql_close(handle);
}

void MariadbConnection::connect() {
    std::string all;
    for (const MariadbHost& host : settings.hosts) {
        std::string words;
        if (connectTo(host, words))
            return;
        all += (all.empty() ? "" : "; ") + words;
    }
    throw SqlFailure(all, FailureKind::LostConnection);
}

// False when another host may do better.
bool MariadbConnection::connectTo(const MariadbHost& host, std::string& words) {
    handle = mysql_init(nullptr);
    if (handle == nullptr)
        throw SqlFailure("the client library cannot begin; there is too little memory");
    setOptions();
    const bool isSocket = !host.socket.empty();
    const bool isThere = mysql_real_connect(
        handle, isSocket ? "localhost" : host.name.c_str(), settings.user.c_str(),
        settings.password.c_str(), settings.database.c_str(), isSocket ? 0 : host.port,
        isSocket ? host.socket.c_str() : nullptr, CLIENT_FOUND_ROWS);
    if (isThere)
        checkServer();
    if (isThere && sendUnchecked(sessionSettings(settings)) && configure())
        return true;
    const unsigned code = mysql_errno(handle);
    words = host.text() + ": " + explainOpen(code, mysql_error(handle));
    if (!isOfHost(code) && code != ER_LOCK_WAIT_TIMEOUT)
        throw SqlFailure(words);
    mysql_close(handle);
    handle = nullptr;
    return false;
}

void MariadbConnection::setOptions() {
    const auto connectTimeout = static_cast<unsigned>(settings.connectTimeout);
    mysql_options(handle, MYSQL_OPT_CONNECT_TIMEOUT, &connectTimeout);
    if (settings.networkTimeout != 0) {
        const auto networkTimeout = static_cast<unsigned>(settings.networkTimeout);
        mysql_options(handle, MYSQL_OPT_READ_TIMEOUT, &networkTimeout);
        mysql_options(handle, MYSQL_OPT_WRITE_TIMEOUT, &networkTimeout);
    }
    demand(mysql_options(handle, MYSQL_SET_CHARSET_NAME, "utf8mb4"));

    // A server must not be able to ask for the program's files.
    const unsigned no = 0;
    demand(mysql_options(handle, MYSQL_OPT_LOCAL_INFILE, &no));
    // A server that has not proved who it is must not be able to ask for the password
    // itself, in clear or for a key of its own.
    if (settings.tls != "verify")
        demand(mysql_options(handle, MARIADB_OPT_RESTRICTED_AUTH, ProofsOfPassword));
    if (settings.tls == "off")
        return;
    const my_bool yes = 1;
    const auto file = [](const std::string& name) { return name.empty() ? nullptr : name.c_str(); };
    mysql_ssl_set(handle, file(settings.tlsKey), file(settings.tlsCert), file(settings.tlsCa),
                  nullptr, nullptr);
    demand(mysql_options(handle, MYSQL_OPT_SSL_ENFORCE, &yes));
    const my_bool verify = settings.tls == "verify" ? 1 : 0;
    demand(mysql_options(handle, MYSQL_OPT_SSL_VERIFY_SERVER_CERT, &verify));

    // The client library goes on without where the server offers none, unless a
    // certificate is asked for; an empty finger-print asks for any.
    if (verify == 0)
        demand(mysql_options(handle, MARIADB_OPT_TLS_PEER_FP, ""));
}

void MariadbConnection::checkServer() {
    const std::string version = mysql_get_server_info(handle);
    if (!mariadb_connection(handle) || mysql_get_server_version(handle) < OldestServer)
        throw SqlFailure("the server is " +
                         std::string(mariadb_connection(handle) ? "MariaDB " : "version ") +
                         version + "; this driver needs MariaDB 10.6 or later");
    if (settings.tls != "off" && mysql_get_ssl_cipher(handle) == nullptr)
        throw SqlFailure("the server offers no TLS, which the option tls demands");
    unsigned long extended = 0;
    mariadb_get_infov(handle, MARIADB_CONNECTION_EXTENDED_SERVER_CAPABILITIES, &extended);
    bulk = (extended & (MARIADB_CLIENT_STMT_BULK_OPERATIONS >> 32)) != 0;
}

// False when the node cannot serve.
bool MariadbConnection::configure() {
    if (!sendUnchecked("SHOW VARIABLES WHERE variable_name IN ('max_allowed_packet', 'wsrep_on', "
                       "'lower_case_table_names')"))
        return false;
    MYSQL_RES* shown = mysql_store_result(handle);
    if (shown == nullptr)
        return false;
    for (MYSQL_ROW row = mysql_fetch_row(shown); row != nullptr; row = mysql_fetch_row(shown)) {
        const std::string name = row[0];
        const std::string value = row[1];
        if (name == "max_allowed_packet")
            packetLimit = std::stoul(value);
        else if (name == "wsrep_on")
            clustered = value == "ON";
        else
            foldsTables = value != "0";
    }
    mysql_free_result(shown);
    // A node that gives up a transaction amid the command for many rows says that
    // all is well, writes the rest of the rows by themselves and takes the COMMIT.
    bulk = bulk && !clustered;
    isFresh = true;
    return !clustered || isServing();
}

// A node that has lost its cluster still knows its settings, and nothing more.
bool MariadbConnection::isServing() {
    return sendUnchecked(std::string("SET SESSION wsrep_sync_wait = ") +
                         (settings.causalReads ? "1" : "0")) &&
           sendUnchecked("START TRANSACTION") && sendUnchecked("ROLLBACK");
}

}  // namespace Kes::sql
