// What an error of the server means, and what the user can do about it.

#include <libpq-fe.h>

#include <cstring>

#include "drivers/postgres/PostgresMessages.h"
#include "drivers/postgres/PostgresWire.h"

namespace Kes::sql {

namespace {

std::string milliseconds(long limit) {
    return std::to_string(limit) + " ms";
}

}  // namespace

// Somebody else came first. A lock that others hold too long is no proof that
// they have changed what was read.
FailureKind PostgresWire::kindOf(const pg_result* result) const {
    const std::string state = fieldOf(result, PG_DIAG_SQLSTATE);
    if (state == "25P02" && !refusalWords.empty())
        return kindOfRefusal;
    return state == "40001" || state == "40P01" ? FailureKind::Conflict : FailureKind::Unclassified;
}

std::string PostgresWire::explain(const pg_result* result) const {
    const std::string state = fieldOf(result, PG_DIAG_SQLSTATE);
    std::string words = fieldOf(result, PG_DIAG_MESSAGE_PRIMARY);
    const std::string detail = onOneLine(PQresultErrorField(result, PG_DIAG_MESSAGE_DETAIL));
    if (words.empty())
        return onOneLine(PQresultErrorMessage(result));
    if (state == "40001" || state == "40P01")
        return "somebody else has changed the same objects at the same time (" + words +
               "); refresh them and try again";
    if (!detail.empty())
        words += " (" + detail + ")";
    if (state == "55P03")
        return "somebody else has locked it (" + words + " after " + milliseconds(limits.lock) +
               "); try again, or open with a larger lock_timeout";
    if (state == "57014" && limits.statement.has_value() && *limits.statement > 0)
        return words + "; it took longer than the statement_timeout of " +
               milliseconds(*limits.statement);
    if (state == "25P02")
        return "an earlier statement of the transaction has failed" +
               (refusalWords.empty() ? "" : " (" + refusalWords + ")") +
               "; roll it back and try again";
    if (state == "25006")
        return explainReadOnly(words);
    if (says(words, "serializable mode in a hot standby"))
        return words + "; open it with isolation=repeatable read";
    if (state == "54000" && says(words, "index row"))
        return words +
               "; an index holds texts of some 2700 bytes, more where they can be "
               "compressed: shorten the text, or drop the index";
    if (state == "53100")
        return words + "; make room and try again";
    return words;
}

std::string PostgresWire::explainReadOnly(const std::string& words) const {
    const char* standby = PQparameterStatus(connection, "in_hot_standby");
    if (standby == nullptr || std::strcmp(standby, "on") != 0)
        return words + "; the server, the database or the account is set up for reading only";
    return "the server is a standby, which can only be read (" + words +
           "); to write, name the primary's host in the source too and open with "
           "target_session_attrs=read-write";
}

}  // namespace Kes::sql
