#include "drivers/mariadb/MariadbErrors.h"

#include <errmsg.h>
#include <mysqld_error.h>

namespace Kes::sql {

namespace {

// The client library's headers do not name it.
constexpr unsigned IdleTimeout = 4031;

// A node without its cluster answers every command as one that it does not know.
constexpr unsigned NotReadyInCluster = ER_UNKNOWN_COM_ERROR;

const char* adviceFor(unsigned code) {
    switch (code) {
    case ER_LOCK_DEADLOCK:
    case ER_CHECKREAD: return "; somebody else came first: roll back and try again";
    case ER_LOCK_WAIT_TIMEOUT:
        return "; another session holds the row or the table: try again, or open with a larger "
               "lock_timeout";
    case NotReadyInCluster:
        return "; this node is not connected to the majority of its cluster: open on another "
               "node";
    case ER_STATEMENT_TIMEOUT: return "; open with a larger statement_timeout";
    case ER_ACCESS_DENIED_ERROR:
    case ER_ACCESS_DENIED_NO_PASSWORD_ERROR: return "; check the user and the password";
    case CR_PLUGIN_NOT_ALLOWED:
        return "; it has not proved who it is, so it does not get it: open with tls=verify";
    case ER_DBACCESS_DENIED_ERROR:
        return "; the user has no rights in this database, or there is none of this name";
    case ER_BAD_DB_ERROR: return "; create it first, or check its name";
    case ER_CON_COUNT_ERROR: return "; close some, or raise the server's max_connections";
    case CR_UNKNOWN_HOST: return "; check the name of the host";
    case CR_CONN_HOST_ERROR:
    case CR_CONNECTION_ERROR: return "; check that the server runs there";
    case ER_DISK_FULL:
    case ER_RECORD_FILE_FULL: return "; make room on the server and try again";
    default: return "";
    }
}

}  // namespace

MariadbFault classify(unsigned code) {
    switch (code) {
    case ER_LOCK_DEADLOCK:
    case ER_CHECKREAD: return MariadbFault::Conflict;
    case ER_LOCK_WAIT_TIMEOUT: return MariadbFault::Timeout;
    case NotReadyInCluster: return MariadbFault::CutOff;
    case CR_SERVER_GONE_ERROR:
    case CR_SERVER_LOST:
    case CR_MALFORMED_PACKET:
    case ER_SERVER_SHUTDOWN:
    case ER_NEW_ABORTING_CONNECTION:
    case ER_NET_PACKET_TOO_LARGE:
    case ER_CONNECTION_KILLED:
    case CR_SERVER_LOST_EXTENDED:
    case IdleTimeout: return MariadbFault::Lost;
    default: return MariadbFault::Statement;
    }
}

FailureKind kindOf(unsigned code) {
    switch (classify(code)) {
    case MariadbFault::Conflict: return FailureKind::Conflict;
    case MariadbFault::CutOff:
    case MariadbFault::Lost: return FailureKind::LostConnection;
    default: return isOfHost(code) ? FailureKind::LostConnection : FailureKind::Unclassified;
    }
}

bool isWithoutAnswer(unsigned code) {
    return code == CR_SERVER_LOST || code == CR_SERVER_LOST_EXTENDED ||
           code == CR_MALFORMED_PACKET || code == ER_SERVER_SHUTDOWN ||
           code == ER_CONNECTION_KILLED;
}

// A node that is cut off while it commits answers ER_ERROR_DURING_COMMIT, and the
// others may have the transaction.
bool isRefusedCommit(unsigned code) {
    return !isWithoutAnswer(code) &&
           (classify(code) != MariadbFault::Statement || code == ER_OPTION_PREVENTS_STATEMENT);
}

bool isOfHost(unsigned code) {
    switch (code) {
    case ER_CON_COUNT_ERROR:
    case ER_HOST_IS_BLOCKED:
    case ER_HOST_NOT_PRIVILEGED:
    case ER_SERVER_SHUTDOWN:
    case NotReadyInCluster: return true;
    default: return code >= CR_MIN_ERROR && code < 3000;
    }
}

// Where a way to authenticate is refused, the client library names another one.
std::string explain(unsigned code, const std::string& words) {
    const bool isRefused = code == CR_PLUGIN_NOT_ALLOWED;
    return (isRefused ? "the server demands the password itself" : words) + " (" +
           std::to_string(code) + ")" + adviceFor(code);
}

std::string explainOpen(unsigned code, const std::string& words) {
    return code == ER_LOCK_WAIT_TIMEOUT ? explainAlone(code, words) : explain(code, words);
}

std::string explainAlone(unsigned code, const std::string& words) {
    return words + " (" + std::to_string(code) +
           "); this node does not hear the rest of its cluster: open on another node";
}

}  // namespace Kes::sql
