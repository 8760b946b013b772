#include <ZAVEventRepository/FMDatabase.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Support/DatabaseHandles.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;

/// Works in a directory of its own, on an engine that takes what begins with "file:" for a URI; this program
/// has told it to.
class PathThatLooksLikeAURI : public testing::Test {
protected:
    PathThatLooksLikeAURI() { fs::current_path(directory_.path()); }
    ~PathThatLooksLikeAURI() override { fs::current_path(before_); }

    const fs::path before_ = fs::current_path();
    TemporaryDirectory directory_;
};

TEST_F(PathThatLooksLikeAURI, IsOneForTheEngine) {
    sqlite3* connection = nullptr;
    sqlite3_open_v2("file:engine.db?mode=memory", &connection, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                    nullptr);
    sqlite3_exec(connection, "CREATE TABLE t (a)", nullptr, nullptr, nullptr);
    sqlite3_close(connection);
    EXPECT_TRUE(fs::is_empty(directory_.path()))
        << "nothing is proved by the other tests: this engine takes no URIs";
}

TEST_F(PathThatLooksLikeAURI, IsThePathOfAFile) {
    for (const std::string& path :
         std::vector<std::string>{"file:x.db", "file:x.db?mode=memory", "file:%41.db", "FILE:x.db"}) {
        run(*openHandle(path), "CREATE TABLE t (a); INSERT INTO t VALUES ('stored')");
        EXPECT_TRUE(fs::is_regular_file(directory_.path() / path))
            << path << " was stored elsewhere, or nowhere";
        EXPECT_EQ(scalar(*openHandle("./" + path), "SELECT a FROM t"), "stored") << path;
    }
    fs::create_directory("file:");
    run(*openHandle("file:/below.db"), "CREATE TABLE t (a)");
    EXPECT_TRUE(fs::is_regular_file(directory_.path() / "file:" / "below.db"));
}

/// A journal without pages that names a further journal.
std::string journalThatNames(const std::string& other) {
    static const std::string mark = "\xD9\xD5\x05\xF9\x20\xA1\x63\xD7";
    const auto number = [](std::uint64_t value) {
        std::string bytes;
        for (const int shift : {24, 16, 8, 0}) {
            bytes += static_cast<char>((value >> shift) & 0xFF);
        }
        return bytes;
    };
    std::uint64_t checksum = 0;
    for (const char character : other) {
        checksum += static_cast<unsigned char>(character);
    }
    std::string journal = mark + number(0) + number(1) + number(1) + number(512) + number(4096);
    journal.resize(512, '\0');
    return journal + number(0x40000000U / 4096 + 1) + other + number(other.size()) + number(checksum) + mark;
}

class JournalBesideAPathThatLooksLikeAURI : public PathThatLooksLikeAURI {
protected:
    JournalBesideAPathThatLooksLikeAURI() { std::ofstream(victim_) << "not for you"; }

    void expectVictimUntouched() const {
        ASSERT_TRUE(fs::exists(victim_)) << "a journal had a file removed that it named";
        EXPECT_EQ(bytesOfFile(victim_), "not for you");
    }

    static constexpr const char* path_ = "file:x.db?cache=private";
    const std::string victim_ = directory_.file("victim");
};

TEST_F(JournalBesideAPathThatLooksLikeAURI, IsLookedAt) {
    run(*openHandle(std::string("./") + path_), "CREATE TABLE t (a)");
    std::ofstream("file:x.db?cache=private-journal", std::ios::binary) << journalThatNames(victim_);
    ZAVError error;
    EXPECT_EQ(FMDatabase::databaseWithPath(path_, {}, &error), nullptr)
        << "the journal beside the file was used";
    EXPECT_EQ(error.code(), 6) << error.description();
    expectVictimUntouched();
}

TEST_F(JournalBesideAPathThatLooksLikeAURI, IsNotThatOfTheFileWhichTheURIWouldMean) {
    run(*openHandle("./x.db"), "CREATE TABLE t (a)");
    std::ofstream("x.db-journal", std::ios::binary) << journalThatNames(victim_);
    EXPECT_NE(FMDatabase::databaseWithPath(path_), nullptr)
        << "there is nothing beside the file of this path";
    expectVictimUntouched();
}

}  // namespace
}  // namespace zav::test
