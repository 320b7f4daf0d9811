// The part of the connection that deals with transactions and with failures.

#include <mysql.h>
#include <mysqld_error.h>

#include <string>
#include <utility>

#include "drivers/mariadb/MariadbConnection.h"
#include "drivers/mariadb/MariadbStatement.h"

namespace Kes::sql {

namespace {

constexpr int MostTriesToEnd = 3;  // the second mostly does

}  // namespace

void MariadbConnection::checkUse() const {
    if (lost.has_value())
        throw SqlFailure(*lost);
    if (isGone && failed.has_value())
        throw SqlFailure(*failed);
}

void MariadbConnection::fail() {
    fail(mysql_errno(handle), mysql_error(handle));
}

// Of an error among rows only the connection knows.
void MariadbConnection::fail(st_mysql_stmt* statement) {
    const unsigned code = mysql_stmt_errno(statement);
    if (code == 0)
        fail();
    fail(code, mysql_stmt_error(statement));
}

void MariadbConnection::fail(unsigned code, const std::string& words) {
    const SqlFailure failure(explain(code, words), kindOf(code));
    note(failure, code);
    throw SqlFailure(lost.has_value() ? *lost : failure);
}

void MariadbConnection::failRead() {
    if (clustered && mysql_errno(handle) == ER_LOCK_WAIT_TIMEOUT)
        failAlone(ER_LOCK_WAIT_TIMEOUT, mysql_error(handle));
    fail();
}

// At the strongest level every read takes locks.
void MariadbConnection::failRead(st_mysql_stmt* statement) {
    if (clustered && settings.isolation != "serializable" &&
        mysql_stmt_errno(statement) == ER_LOCK_WAIT_TIMEOUT)
        failAlone(ER_LOCK_WAIT_TIMEOUT, mysql_stmt_error(statement));
    fail(statement);
}

// A node without the others is of no more use than one that is gone.
void MariadbConnection::failAlone(unsigned code, const std::string& words) {
    lose(explainAlone(code, words));
    throw SqlFailure(*lost);
}

// After a conflict the transaction is gone, and what is sent next would take
// effect by itself. After a timeout it is still there, with half of the work.
void MariadbConnection::note(const SqlFailure& failure, unsigned code) {
    switch (classify(code)) {
    case MariadbFault::Statement: isInDoubt = inside; return;
    case MariadbFault::Conflict:
    case MariadbFault::Timeout:
        noteFailure(failure);
        isGone = inside;
        if (inside)
            endAtServer();
        return;
    case MariadbFault::CutOff:
    case MariadbFault::Lost: lose(failure.what());
    }
}

void MariadbConnection::lose(const std::string& words) {
    streaming = nullptr;
    lost.emplace("the connection to the server is lost: " + words +
                     (inside ? "; the transaction was not committed" : "") +
                     "; close and open again",
                 FailureKind::LostConnection);
    inside = false;
    isInDoubt = false;
    snapshot = Snapshot::None;
}

bool MariadbConnection::isOpenAtServer() const {
    return (handle->server_status & SERVER_STATUS_IN_TRANS) != 0;
}

void MariadbConnection::noteEnd() {
    if (!inside || isGone || isDivided || isOpenAtServer())
        return;
    noteFailure(SqlFailure(
        "the server has ended the transaction without a word, perhaps because somebody else came "
        "first: roll back and try again",
        FailureKind::Conflict));
    isGone = true;
    endAtServer();
}

void MariadbConnection::checkTransaction() {
    noteEnd();
    checkUse();
}

void MariadbConnection::askForTransaction() {
    if (mysql_ping(handle) != 0)
        fail();
    noteEnd();
}

void MariadbConnection::confirmTransaction() {
    if (inside && !isGone)
        askForTransaction();
    checkUse();
}

// A transaction that stayed open would be committed by the begin of the next. A node
// of a cluster may answer the first ROLLBACK with the conflict that ended it.
void MariadbConnection::endAtServer() {
    std::string words = "it does not roll back";
    for (int tries = 0; tries < MostTriesToEnd; ++tries) {
        if (sendUnchecked("ROLLBACK") && !isOpenAtServer())
            return;
        const unsigned code = mysql_errno(handle);
        if (code == 0)
            continue;
        words = explain(code, mysql_error(handle));
        const MariadbFault fault = classify(code);
        if (fault == MariadbFault::Lost || fault == MariadbFault::CutOff)
            break;
    }
    lose(words);
}

void MariadbConnection::noteEndOfRows() noexcept {
    const unsigned code = mysql_errno(handle);
    if (code != 0)
        note(SqlFailure(explain(code, mysql_error(handle)), kindOf(code)), code);
    else
        noteEnd();
    releaseSnapshot();
}

void MariadbConnection::readStatusBehindRows() {
    constexpr unsigned char EndOfRows = 254;
    const unsigned char* packet = handle->net.read_pos;
    if (packet != nullptr && packet[0] == EndOfRows)
        handle->server_status = packet[3] | static_cast<unsigned>(packet[4]) << 8;
    checkTransaction();
    releaseSnapshot();
}

// At the level at which each query sees what is committed by then the server has
// no snapshot for several.
void MariadbConnection::beginSnapshot() {
    makeWay(nullptr);
    if (settings.isolation != "repeatable read")
        send("SET TRANSACTION ISOLATION LEVEL REPEATABLE READ");
    if (!sendUnchecked("START TRANSACTION WITH CONSISTENT SNAPSHOT, READ ONLY"))
        failRead();
    snapshot = Snapshot::Open;
}

// The rows of the last query are still on the wire.
void MariadbConnection::endSnapshot() noexcept {
    if (snapshot == Snapshot::Open)
        snapshot = Snapshot::Ended;
    releaseSnapshot();
}

void MariadbConnection::releaseSnapshot() noexcept {
    if (snapshot != Snapshot::Ended || streaming != nullptr || lost.has_value())
        return;
    snapshot = Snapshot::None;
    if (sendUnchecked("COMMIT"))
        return;
    const unsigned code = mysql_errno(handle);
    note(SqlFailure(explain(code, mysql_error(handle)), kindOf(code)), code);
}

void MariadbConnection::noteFailure(const SqlFailure& cause) {
    if (inside && !failed.has_value())
        failed.emplace(std::string("the transaction cannot be committed: ") + cause.what(),
                       cause.kind);
}

// Right behind the begin of the transaction the mark costs nothing.
void MariadbConnection::mark() {
    isMarked = isUsed;
    if (isMarked)
        send("SAVEPOINT kes");
}

bool MariadbConnection::backToMark() {
    if (lost.has_value() || isGone || !inside)
        return false;
    const bool isBack = isMarked ? sendUnchecked("ROLLBACK TO SAVEPOINT kes")
                                 : sendUnchecked("ROLLBACK") && sendUnchecked("START TRANSACTION");
    isInDoubt = false;
    return isBack && isOpenAtServer();
}

void MariadbConnection::begin() {
    makeWay(nullptr);
    if (!sendUnchecked("START TRANSACTION"))
        failRead();
    inside = true;
    isUsed = false;
    isInDoubt = false;
    isDivided = false;
    checkTransaction();
}

void MariadbConnection::commit() {
    makeWayToWrite(nullptr);
    checkTransaction();
    if (!sendUnchecked("COMMIT"))
        failCommit();
    inside = false;
    endSchema();
}

// A COMMIT that was not sent, or refused, is no commit. Of any other that failed
// nobody knows.
void MariadbConnection::failCommit() {
    const unsigned code = mysql_errno(handle);
    if (isRefusedCommit(code))
        fail();
    const std::string words = explain(code, mysql_error(handle));
    inside = false;
    lost.emplace(
        "the connection to the server is lost, and it is not known whether an earlier transaction "
        "is stored; close, open again and look",
        FailureKind::LostConnection);
    throw SqlFailure(
        std::string("it is not known whether the transaction is stored, because ") +
            (isWithoutAnswer(code) ? "the connection broke while the server committed it: "
                                   : "the server failed while it committed it: ") +
            words + "; close, open again and look",
        FailureKind::UnknownOutcome);
}

void MariadbConnection::rollback() {
    if (posting != nullptr)
        posting->dropPosts();
    const bool isOpen = inside && !isGone && !lost.has_value();
    inside = false;
    isGone = false;
    failed.reset();
    if (isOpen && streaming != nullptr)
        streaming->stepAside();
    if (isOpen && !lost.has_value())
        endAtServer();
    endSchema();
}

}  // namespace Kes::sql
