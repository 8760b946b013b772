#pragma once

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>

#include <memory>
#include <string>
#include <vector>

#include "Support/TemporaryDirectory.h"

namespace zav::test {

/// A real database file with the library's schema, and an event repository on it.
class TestStore {
public:
    TestStore();

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] FMDatabase& database() const { return *database_; }
    [[nodiscard]] const std::shared_ptr<FMDatabase>& sharedDatabase() const { return database_; }
    [[nodiscard]] const ZAVEventRepository& repository() const { return repository_; }
    [[nodiscard]] ZAVStreamRepository streams() const { return ZAVStreamRepository(database_); }

    /// Registers a stream and returns its row; fails the test when it cannot.
    ZAVDatabaseIdentifier addStream(const ZAVUUID& uuid) const;

    /// Runs a statement; fails the test when it fails.
    void execute(const std::string& sql) const;

    /// The rows of a query, each column as the engine's text with "NULL" for NULL and X'..' for a blob,
    /// joined by "|".
    [[nodiscard]] std::vector<std::string> rows(const std::string& sql) const;

    /// A second connection to the same file.
    [[nodiscard]] std::shared_ptr<FMDatabase> secondConnection(int busyTimeoutMilliseconds = 100) const;

private:
    TemporaryDirectory directory_;
    std::string path_;
    std::shared_ptr<FMDatabase> database_;
    ZAVEventRepository repository_;
};

/// The same for any handle. Reads past the handle's own statements; throws when it cannot read to the end.
[[nodiscard]] std::vector<std::string> rowsOf(FMDatabase& database, const std::string& sql);

/// What a caller's error cell holds before a call, to see whether the call writes it.
[[nodiscard]] ZAVError errorOfSomebodyElse();

/// A UUID whose last byte is `number` and whose others are 0x11.
[[nodiscard]] ZAVUUID uuidNumber(int number);

/// A store with one stream, row 1, that the service knows as `uuidNumber(1)`.
class StreamStore : public TestStore {
public:
    StreamStore() { addStream(uuidNumber(1)); }
};

/// A new event of a type in a stream, with a client_id made from `number`.
[[nodiscard]] std::shared_ptr<ZAVEvent> makeEvent(ZAVTEventType type, const ZAVUUID& stream, int number);

/// A new text part, completely transferred.
[[nodiscard]] std::shared_ptr<ZAVEventContent> makeTextPart(const std::string& text);

}  // namespace zav::test
