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
    std::vector<std::string> result;
    sqlite3_stmt* statement = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(database_->sqliteHandle(), sql.c_str(), -1, &statement, nullptr), SQLITE_OK)
        << sql << ": " << sqlite3_errmsg(database_->sqliteHandle());
    while (sqlite3_step(statement) == SQLITE_ROW) {
        std::string row;
        for (int column = 0; column < sqlite3_column_count(statement); ++column) {
            row += column == 0 ? "" : "|";
            const int type = sqlite3_column_type(statement, column);
            if (type == SQLITE_NULL) {
                row += "NULL";
            } else if (type == SQLITE_BLOB) {
                static constexpr char digits[] = "0123456789ABCDEF";
                const auto* bytes = static_cast<const unsigned char*>(sqlite3_column_blob(statement, column));
                row += "X'";
                for (int index = 0; index < sqlite3_column_bytes(statement, column); ++index) {
                    row += digits[bytes[index] >> 4];
                    row += digits[bytes[index] & 0x0F];
                }
                row += "'";
            } else {
                row += reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
            }
        }
        result.push_back(std::move(row));
    }
    sqlite3_finalize(statement);
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
