#pragma once

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVError.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Support/TemporaryDirectory.h"

namespace zav::test {

/// Counts the calls of what a schema must never be able to call.
extern std::atomic<int> sideEffects;

/// While it lives each connection of the process, from its very beginning, knows a function and a virtual
/// table with side effects.
class EquippedConnections {
public:
    EquippedConnections();
    ~EquippedConnections();
    EquippedConnections(const EquippedConnections&) = delete;
    EquippedConnections& operator=(const EquippedConnections&) = delete;
};

/// The engine's own file system, which tells which files were opened and removed through it.
class WatchedFileSystem {
public:
    static constexpr const char* name = "zav-watched";

    WatchedFileSystem();
    ~WatchedFileSystem() { sqlite3_vfs_unregister(&watched_); }
    WatchedFileSystem(const WatchedFileSystem&) = delete;
    WatchedFileSystem& operator=(const WatchedFileSystem&) = delete;

    /// "opened PATH" and "removed PATH", each once. Temporary files, which have no name, are left out.
    [[nodiscard]] const std::set<std::string>& uses() const { return uses_; }

    /// Files that would have made the caller wait until somebody writes into them. They were not opened.
    [[nodiscard]] const std::vector<std::string>& waits() const { return waits_; }

private:
    static int open(sqlite3_vfs* vfs, const char* path, sqlite3_file* file, int flags, int* flagsOut);
    static int remove(sqlite3_vfs* vfs, const char* path, int synchronise);

    sqlite3_vfs* original_;
    sqlite3_vfs watched_;
    std::set<std::string> uses_;
    std::vector<std::string> waits_;
};

/// Makes a file of these bytes; throws when it cannot.
void writeFile(const std::string& path, std::string_view bytes);

/// A tree of files beside a database, none of which is any business of whoever opens the database.
class Surroundings {
public:
    explicit Surroundings(std::filesystem::path root);

    [[nodiscard]] std::string notes() const { return (root_ / "notes").string(); }

    void expectUntouched() const;

private:
    /// Of each path its kind, size, times of change and bytes.
    [[nodiscard]] std::map<std::string, std::string> state() const;

    std::filesystem::path root_;
    std::map<std::string, std::string> before_;
};

/// Opens a store, and makes it; throws when it cannot.
[[nodiscard]] std::shared_ptr<FMDatabase> openStore(const std::string& path);

/// The bytes of a store that `fillStore` has filled and that has been closed.
[[nodiscard]] const std::string& genuineStore();

/// A connection as an attacker has it: it trusts the schema, and lets the schema table be written.
class AttackersConnection {
public:
    explicit AttackersConnection(const std::string& path);
    ~AttackersConnection();
    AttackersConnection(const AttackersConnection&) = delete;
    AttackersConnection& operator=(const AttackersConnection&) = delete;

    /// Runs a script; the error's text, empty on success.
    [[nodiscard]] std::string attempt(const std::string& script) const;

private:
    sqlite3* connection_ = nullptr;
};

/// The names of the tables that the event store makes.
[[nodiscard]] std::vector<std::string> tablesOf(FMDatabase& database);

/// What came of opening a file and running every operation on it.
struct Outcome {
    bool opened = false;
    ZAVError refusal;                  ///< why it was not opened
    std::set<std::string> succeeded;   ///< operations without an error
    std::map<std::string, int> codes;  ///< the errors of those that failed, without the engine's extensions
    std::set<std::string> stopped;     ///< operations that would have gone on forever
};

/// A filled store in the hands of somebody hostile, who changes it before an application opens it.
class HostileFile : public testing::Test {
protected:
    HostileFile();

    void tamper(const std::string& script) const;

    /// Opens the file as an application does, runs every operation, and expects that each works or fails as
    /// it promises and that nothing but the database is touched. `work` sees the handle before the
    /// operations.
    Outcome use(const std::function<void(FMDatabase&)>& work = [](FMDatabase&) {});

    void expectNothingElseTouched() const;

    TemporaryDirectory directory_;
    const std::string path_ = (directory_.path() / "client" / "store.db").string();
    const Surroundings surroundings_;

private:
    const EquippedConnections equipped_;
    const WatchedFileSystem watch_;
};

// Scripts for an attacker

/// The columns of `events` but for the identifier of a row.
extern const std::string eventColumns;

/// Puts something else in the place of a table, whose rows stay in `stored`.
[[nodiscard]] std::string inPlaceOf(const std::string& table, const std::string& statement);

/// Makes a table anew with other columns, and copies the rows of those that are named.
[[nodiscard]] std::string remade(const std::string& table, const std::string& definition,
                                 const std::string& columns);

/// Changes the schema table, and the row of one name in it.
[[nodiscard]] std::string inSchemaTable(const std::string& change);
[[nodiscard]] std::string ofSchemaRow(const std::string& name, const std::string& change);

/// The first line in which two texts differ, from both; empty when they do not.
[[nodiscard]] std::string firstDifference(const std::vector<std::string>& left,
                                          const std::vector<std::string>& right);

}  // namespace zav::test
