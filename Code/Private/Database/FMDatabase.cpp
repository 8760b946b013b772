#include <ZAVEventRepository/FMDatabase.h>

#include <sqlite3.h>

#include <utility>

#include "Private/Database/Internal/ZAVConnection.h"
#include "Private/Database/Internal/ZAVDatabaseOpening.h"

namespace zav {

using Reach = ZAVConnection::Reach;

std::shared_ptr<FMDatabase> FMDatabase::databaseWithPath(const std::string& path,
                                                         const FMDatabaseOptions& options, ZAVError* error) {
    auto connection = ZAVOpenDatabase(path, options, error);
    return connection == nullptr ? nullptr : std::make_shared<FMDatabase>(std::move(connection));
}

FMDatabase::FMDatabase(std::unique_ptr<ZAVConnection> connection) noexcept
    : connection_(std::move(connection)) {}

FMDatabase::~FMDatabase() {
    connection_->close();  // here, where an observer that is told of it still finds the handle in order
}

std::optional<FMResultSet> FMDatabase::query(ZAVStatement* statement) {
    return connection_->query(statement, Reach::free);
}

std::optional<FMResultSet> FMDatabase::boundedQuery(ZAVStatement* statement) {
    return connection_->query(statement, Reach::bounded);
}

bool FMDatabase::update(ZAVStatement* statement) {
    return connection_->update(statement, Reach::free);
}

bool FMDatabase::boundedUpdate(ZAVStatement* statement) {
    return connection_->update(statement, Reach::bounded);
}

std::optional<FMResultSet> FMDatabase::executeQueryWithArgumentsInArray(std::string_view sql,
                                                                        std::span<const ZAVValue> arguments) {
    return query(statementWithArguments(sql, Bytes::copied, arguments));
}

bool FMDatabase::executeUpdateWithArgumentsInArray(std::string_view sql,
                                                   std::span<const ZAVValue> arguments) {
    return update(statementWithArguments(sql, Bytes::referredTo, arguments));
}

bool FMDatabase::executeBoundedUpdateWithArgumentsInArray(std::string_view sql,
                                                          std::span<const ZAVValue> arguments) {
    return boundedUpdate(statementWithArguments(sql, Bytes::referredTo, arguments));
}

ZAVStatement* FMDatabase::statementWithArguments(std::string_view sql, Bytes bytes,
                                                 std::span<const ZAVValue> arguments) {
    ZAVStatement* const statement = lend(sql, arguments.size());
    int position = 0;
    for (const ZAVValue& argument : arguments) {
        if (statement == nullptr || !bind(*statement, ++position, argument, bytes)) {
            return nullptr;
        }
    }
    return statement;
}

ZAVStatement* FMDatabase::lend(std::string_view sql, std::size_t valueCount) {
    return connection_->mayControlTransactions(sql) ? connection_->lend(sql, valueCount) : nullptr;
}

bool FMDatabase::bindInteger(ZAVStatement& statement, int position, std::int64_t value) {
    return connection_->bind(statement, position, value);
}

bool FMDatabase::bindReal(ZAVStatement& statement, int position, double value) {
    return connection_->bind(statement, position, value);
}

bool FMDatabase::bindBytes(ZAVStatement& statement, int position, const FMParameter& value, Bytes bytes) {
    return connection_->bindBytes(
        statement, position, value,
        bytes == Bytes::copied ? ZAVConnection::Bytes::copied : ZAVConnection::Bytes::referredTo);
}

bool FMDatabase::bindNull(ZAVStatement& statement, int position) {
    return connection_->bind(statement, position, nullptr);
}

bool FMDatabase::prepare(std::string_view sql) {
    ZAVStatement* const statement = connection_->lend(sql);
    if (statement != nullptr) {
        connection_->giveBackUnused(*statement);
    }
    return statement != nullptr;
}

bool FMDatabase::executeStatements(const std::string& script) {
    return connection_->runScript(script);
}

bool FMDatabase::useWriteAheadLog() {
    return ZAVUseWriteAheadLog(*connection_);
}

const ZAVError& FMDatabase::lastError() const noexcept {
    return connection_->lastError();
}

int FMDatabase::changes() const noexcept {
    return sqlite3_changes(connection_->engine());
}

std::int64_t FMDatabase::lastInsertRowId() const noexcept {
    return sqlite3_last_insert_rowid(connection_->engine());
}

bool FMDatabase::inTransaction() const noexcept {
    return connection_->isInTransaction();
}

void FMDatabase::rollback() {
    if (connection_->mayControlTransactions()) {
        connection_->endTransaction();
    }
}

void FMDatabase::setStatementObserver(FMStatementObserver observer) {
    connection_->setStatementObserver(std::move(observer));
}

void FMDatabase::setChangeObserver(FMChangeObserver observer) {
    connection_->setChangeObserver(std::move(observer));
}

std::size_t FMDatabase::openResultSets() const noexcept {
    return connection_->cursorCount();
}

sqlite3* FMDatabase::sqliteHandle() const noexcept {
#ifdef ZAV_ENGINE_IS_HIDDEN
    return nullptr;
#else
    return connection_->engine();
#endif
}

}  // namespace zav
