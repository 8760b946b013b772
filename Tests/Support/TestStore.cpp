#include "Support/TestStore.h"

#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <stdexcept>

namespace zav::test {
namespace {

std::shared_ptr<FMDatabase> open(const std::string& path) {
    ZAVError error;
    auto database = ZAVDatabaseSchema::openDatabase(path, {}, &error);
    if (!database) {
        throw std::runtime_error("cannot open " + path + ": " + error.description());
    }
    return database;
}

std::string columnText(sqlite3_stmt* statement, int column) {
    static constexpr char digits[] = "0123456789ABCDEF";
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_NULL:
            return "NULL";
        case SQLITE_BLOB: {
            const auto* const bytes =
                static_cast<const unsigned char*>(sqlite3_column_blob(statement, column));
            const int size = sqlite3_column_bytes(statement, column);
            // By address: the sweeps read every row of a store thousands of times.
            std::string hexadecimal(static_cast<std::size_t>(size) * 2, '\0');
            char* digit = hexadecimal.data();
            for (int index = 0; index < size; ++index) {
                *digit++ = digits[bytes[index] >> 4];
                *digit++ = digits[bytes[index] & 0x0F];
            }
            return "X'" + hexadecimal + "'";
        }
        default:
            return {reinterpret_cast<const char*>(sqlite3_column_text(statement, column)),
                    static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
    }
}

}  // namespace

TestStore::TestStore() : path_(directory_.file("store.db")), database_(open(path_)), repository_(database_) {}

ZAVDatabaseIdentifier TestStore::addStream(const ZAVUUID& uuid) const {
    ZAVError error;
    const ZAVDatabaseIdentifier row = streams().findOrCreateStreamWithUUID(uuid, &error);
    EXPECT_NE(row, ZAVDatabaseIdentifierNotSet) << error.description();
    return row;
}

void TestStore::execute(const std::string& sql) const {
    EXPECT_TRUE(database_->executeStatements(sql)) << sql << ": " << database_->lastError().description();
}

std::vector<std::string> TestStore::rows(const std::string& sql) const {
    return rowsOf(*database_, sql);
}

std::vector<std::string> rowsOf(FMDatabase& database, const std::string& sql) {
    std::vector<std::string> result;
    sqlite3_stmt* statement = nullptr;
    int status = sqlite3_prepare_v2(database.sqliteHandle(), sql.c_str(), -1, &statement, nullptr);
    while (status == SQLITE_OK || status == SQLITE_ROW) {
        status = sqlite3_step(statement);
        if (status == SQLITE_ROW) {
            std::string row;
            for (int column = 0; column < sqlite3_column_count(statement); ++column) {
                row += (column == 0 ? "" : "|") + columnText(statement, column);
            }
            result.push_back(std::move(row));
        }
    }
    sqlite3_finalize(statement);
    if (status != SQLITE_DONE) {
        throw std::runtime_error(sql + ": " + sqlite3_errmsg(database.sqliteHandle()));
    }
    return result;
}

std::shared_ptr<FMDatabase> TestStore::secondConnection(int busyTimeoutMilliseconds) const {
    FMDatabaseOptions options;
    options.access = FMDatabaseOptions::Access::readWrite;
    options.busyTimeout = std::chrono::milliseconds(busyTimeoutMilliseconds);
    ZAVError error;
    auto database = FMDatabase::databaseWithPath(path_, options, &error);
    EXPECT_NE(database, nullptr) << error.description();
    return database;
}

ZAVError errorOfSomebodyElse() {
    return {"Elsewhere", 42, "an error of somebody else"};
}

ZAVUUID uuidNumber(int number) {
    ZAVUUID::Bytes bytes;
    bytes.fill(0x11);
    bytes.back() = static_cast<std::uint8_t>(number);
    return ZAVUUID(bytes);
}

std::shared_ptr<ZAVEvent> makeEvent(ZAVTEventType type, const ZAVUUID& stream, int number) {
    auto event = std::make_shared<ZAVEvent>();
    event->set_type(type);
    event->set_stream_id(ZAVDataFromUUID(stream));
    event->set_client_id(ZAVDataFromUUID(uuidNumber(number)));
    return event;
}

std::shared_ptr<ZAVEventContent> makeTextPart(const std::string& text) {
    auto part = std::make_shared<ZAVEventContent>();
    part->set_media_type("text/plain");
    part->set_body(ZAVData::fromText(text));
    part->set_size(static_cast<std::int64_t>(text.size()));
    part->setTransferStatus(ZAVContentTransferComplete);
    return part;
}

}  // namespace zav::test
