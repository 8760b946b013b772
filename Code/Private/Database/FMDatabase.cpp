#include <ZAVEventRepository/FMDatabase.h>

#include <sqlite3.h>

#include <utility>

#include "Private/Database/Internal/ZAVConnection.h"
#include "Private/Database/Internal/ZAVDatabaseOpening.h"

namespace zav {
namespace {

using BoundBytes = ZAVConnection::Bytes;
using ReachOfRun = ZAVConnection::Reach;

/// Lends a statement with values bound to its placeholders; null on failure.
template <class Values>
ZAVStatement* lendWith(ZAVConnection& connection, std::string_view sql, const Values& values,
                       BoundBytes bytes) {
    if (!connection.mayControlTransactions(sql)) {
        return nullptr;
    }
    ZAVStatement* const statement = connection.lend(sql, values.size());
    int position = 0;
    for (const auto& value : values) {
        if (statement == nullptr || !connection.bind(*statement, ++position, value, bytes)) {
            return nullptr;
        }
    }
    return statement;
}

}  // namespace

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

std::optional<FMResultSet> FMDatabase::query(std::string_view sql, std::initializer_list<FMParameter> values,
                                             Reach reach) {
    return connection_->query(lendWith(*connection_, sql, values, BoundBytes::copied),
                              static_cast<ReachOfRun>(reach));
}

bool FMDatabase::update(std::string_view sql, std::initializer_list<FMParameter> values, Reach reach) {
    return connection_->update(lendWith(*connection_, sql, values, BoundBytes::referredTo),
                               static_cast<ReachOfRun>(reach));
}

std::optional<FMResultSet> FMDatabase::executeQueryWithArgumentsInArray(std::string_view sql,
                                                                        std::span<const ZAVValue> arguments) {
    return connection_->query(lendWith(*connection_, sql, arguments, BoundBytes::copied), ReachOfRun::free);
}

bool FMDatabase::executeUpdateWithArgumentsInArray(std::string_view sql,
                                                   std::span<const ZAVValue> arguments) {
    return connection_->update(lendWith(*connection_, sql, arguments, BoundBytes::referredTo),
                               ReachOfRun::free);
}

bool FMDatabase::executeBoundedUpdateWithArgumentsInArray(std::string_view sql,
                                                          std::span<const ZAVValue> arguments) {
    return connection_->update(lendWith(*connection_, sql, arguments, BoundBytes::referredTo),
                               ReachOfRun::bounded);
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
