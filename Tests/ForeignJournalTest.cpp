#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "Operations/Catalogue.h"
#include "Support/DatabaseHandles.h"
#include "Support/HostileFile.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;

TEST_F(HostileFile, BesideTheLogOfAnotherDatabaseIsRefusedOrUsedWithoutHarm) {
    const std::string other = directory_.file("other.db");
    {
        const auto writer = openHandle(other);
        run(*writer,
            "CREATE TABLE streams (a); CREATE TABLE notes (b); INSERT INTO notes VALUES (zeroblob(50000)); "
            "PRAGMA user_version=1");
        writeFile(path_ + "-wal", bytesOfFile(other + "-wal"));
        ASSERT_GT(fs::file_size(path_ + "-wal"), 50000U);
    }
    const Outcome outcome = use();
    EXPECT_FALSE(outcome.succeeded.contains("persistEvents")) << "nothing was proved: the log was ignored";
}

/// A journal that puts pages back, as the engine leaves one when it dies in the middle of a transaction.
std::string journalOf(std::string_view pages, const std::string& superJournal = "") {
    constexpr std::uint32_t pageSize = 4096;
    constexpr std::uint32_t sectorSize = 512;
    constexpr std::uint32_t nonce = 1;
    static constexpr std::string_view magic("\xD9\xD5\x05\xF9\x20\xA1\x63\xD7", 8);
    const auto number = [](std::uint64_t value) {
        std::string bytes;
        for (const int shift : {24, 16, 8, 0}) {
            bytes += static_cast<char>((value >> shift) & 0xFF);
        }
        return bytes;
    };
    const std::uint64_t count = pages.size() / pageSize;
    std::string journal(magic);
    journal += number(count) + number(nonce) + number(count) + number(sectorSize) + number(pageSize);
    journal.resize(sectorSize, '\0');
    for (std::uint64_t index = 0; index < count; ++index) {
        const std::string_view page = pages.substr(index * pageSize, pageSize);
        std::uint32_t checksum = nonce;
        for (std::uint32_t position = pageSize - 200; position > 0 && position < pageSize; position -= 200) {
            checksum += static_cast<unsigned char>(page[position]);
        }
        journal += number(index + 1) + std::string(page) + number(checksum);
    }
    if (!superJournal.empty()) {
        std::uint32_t checksum = 0;
        for (const char character : superJournal) {
            checksum += static_cast<std::uint32_t>(static_cast<signed char>(character));
        }
        // The record's page number is that of the page which locks are taken on.
        journal += number(0x40000000U / pageSize + 1) + superJournal + number(superJournal.size()) +
                   number(checksum) + std::string(magic);
    }
    return journal;
}

TEST_F(HostileFile, BesideTheJournalOfAnotherDatabaseIsRefusedOrUsedWithoutHarm) {
    const std::string other = directory_.file("other.db");
    run(*openHandle(other, withoutWriteAheadLog()),
        "CREATE TABLE notes (b); INSERT INTO notes VALUES (zeroblob(20000))");
    writeFile(path_ + "-journal", journalOf(bytesOfFile(other)));
    const Outcome outcome = use();
    EXPECT_FALSE(outcome.opened) << "nothing was proved: the journal was ignored";
    EXPECT_EQ(outcome.refusal.code(), ZAVDatabaseErrorForeignSchema) << outcome.refusal.description();
}

TEST_F(HostileFile, BesideAJournalOfItsOwnIsPutBackAndUsed) {
    tamper("DELETE FROM events");
    ASSERT_NE(bytesOfFile(path_), genuineStore());
    writeFile(path_ + "-journal", journalOf(genuineStore()));
    const Outcome outcome = use([](FMDatabase& database) {
        EXPECT_EQ(scalar(database, "SELECT COUNT(*) FROM events"), "24") << "the journal was ignored";
    });
    EXPECT_EQ(outcome.succeeded.size(), everyOperation().size());
}

TEST_F(HostileFile, BesideAJournalThatNamesAnotherFileLeavesThatFileAlone) {
    writeFile(path_ + "-journal", journalOf(genuineStore(), surroundings_.notes()));
    use();
    EXPECT_TRUE(fs::exists(surroundings_.notes())) << "a journal had a file removed that it named";
}

TEST_F(HostileFile, BehindALinkBesideAJournalThatNamesAnotherFileLeavesThatFileAlone) {
    fs::create_directory(directory_.path() / "real");
    const std::string real = (directory_.path() / "real" / "kept.db").string();
    fs::rename(path_, real);
    fs::create_symlink("../client/../real/kept.db", path_);
    writeFile(real + "-journal", journalOf(genuineStore(), surroundings_.notes()));
    ZAVError error;
    EXPECT_EQ(FMDatabase::databaseWithPath(path_, {}, &error), nullptr)
        << "the journal beside the file was used";
    EXPECT_EQ(error.code(), 6) << error.description();
    EXPECT_TRUE(fs::exists(surroundings_.notes())) << "a journal had a file removed that it named";
}

TEST_F(HostileFile, BesideAJournalThatNamesADatabaseLeavesThatDatabaseAlone) {
    const std::string other = directory_.file("other.db");
    writeFile(other, genuineStore());
    writeFile(path_ + "-journal", journalOf(genuineStore(), other));
    use();
    EXPECT_EQ(bytesOfFile(other), genuineStore()) << "a journal had another database removed";
}

}  // namespace
}  // namespace zav::test
