#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "Store/ContentFixture.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Rows = std::vector<std::string>;

constexpr const char* unusable = "ZAVEventStore 11";
constexpr const char* nothingToFetch = "ZAVEventStore 12";
constexpr const char* inUse = "ZAVEventStore 14";

/// Parts of five bytes, as `receivePicture` makes them.
class Resuming : public ContentStore {
protected:
    /// Goes on with the download of an event's only part and gives it up after some bytes; says how many had
    /// been there.
    std::uint64_t fetchSome(ZAVDatabaseIdentifier row, const std::string& bytes) {
        ZAVError error;
        auto writer = content().resumeDownload(row, 0, &error);
        EXPECT_TRUE(writer) << error.description();
        if (!writer) {
            return 0;
        }
        const std::uint64_t before = writer->size();
        EXPECT_TRUE(writer->append(bytesOf(bytes), &error)) << error.description();
        EXPECT_EQ(writer->size(), before + bytes.size());
        return before;
    }

    /// The same, to the end.
    std::uint64_t fetchTheRest(ZAVDatabaseIdentifier row, const std::string& bytes) {
        ZAVError error;
        auto writer = content().resumeDownload(row, 0, &error);
        EXPECT_TRUE(writer) << error.description();
        if (!writer) {
            return 0;
        }
        const std::uint64_t before = writer->size();
        EXPECT_TRUE(writer->append(bytesOf(bytes), &error) && writer->finish(&error)) << error.description();
        return before;
    }

    std::string refusalOf(ZAVDatabaseIdentifier row) {
        ZAVError error;
        EXPECT_FALSE(content().resumeDownload(row, 0, &error));
        return domainAndCode(error);
    }

    /// Runs `work` in a process of its own, with a store of its own; returns the process.
    pid_t inAProcess(const std::function<void(ZAVContentCache&)>& work) {
        closeAda();
        closeStore();
        const pid_t child = ::fork();
        if (child == 0) {
            const auto store = open(optionsOfAda());
            work(store->content());
            ::_exit(0);
        }
        return child;
    }

    [[nodiscard]] std::string onlyFile() const {
        const auto present = files();
        EXPECT_EQ(present.size(), 1U);
        return present.empty() ? "" : present.front();
    }
};

TEST_F(Resuming, GoesOnWhereAnEarlierDownloadWasGivenUp) {
    const auto row = receivePicture(7);
    EXPECT_EQ(fetchSome(row, "01"), 0U);
    EXPECT_FALSE(fs::exists(fileOf(7))) << "half a file is not the part's";
    EXPECT_EQ(rows("SELECT transfer_status FROM event_content_parts"), Rows{"3"});
    EXPECT_EQ(fetchSome(row, "2"), 2U);
    reopenAda();
    EXPECT_EQ(fetchTheRest(row, "34"), 3U);
    EXPECT_EQ(contentOf(fileOf(7)), "01234");
    EXPECT_EQ(files(), Rows{fileOf(7)}) << "nothing else is left";
    EXPECT_EQ(rows("SELECT transfer_status, size, last_accessed IS NOT NULL FROM event_content_parts"),
              Rows{"4|5|1"});
    EXPECT_EQ(refusalOf(row), nothingToFetch) << "it is complete";
}

TEST_F(Resuming, GoesOnWhereAProcessWasKilled) {
    const auto row = receivePicture(7);
    std::string whole(300000, 'x');
    for (std::size_t index = 0; index < whole.size(); ++index) {
        whole[index] = static_cast<char>('a' + index % 23);
    }
    execute("UPDATE event_content_parts SET size = 300000");
    const pid_t child = inAProcess([&](ZAVContentCache& content) {
        auto writer = content.resumeDownload(row, 0);
        if (writer && writer->append(bytesOf(whole.substr(0, 100000))) &&
            writer->append(bytesOf(whole.substr(100000, 70000)))) {
            ::raise(SIGKILL);
        }
    });
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "it was killed in the middle";
    reopenAda();
    EXPECT_EQ(fetchTheRest(row, whole.substr(170000)), 170000U);
    EXPECT_TRUE(contentOf(fileOf(7)) == whole);
    EXPECT_EQ(files(), Rows{fileOf(7)});
}

TEST_F(Resuming, HasNothingToFetchWhenAProcessWasKilledBeforeItCouldSaySo) {
    const auto row = receivePicture(7);
    fetchSome(row, "012");
    const std::string partial = onlyFile();
    place(fileOf(7), "01234");  // as a finished file has its name before its row is committed
    EXPECT_EQ(fetchSome(row, ""), 3U) << "what was begun is gone on with";
    fs::remove(partial);
    EXPECT_EQ(fetchTheRest(row, ""), 5U);
    EXPECT_EQ(contentOf(fileOf(7)), "01234");
    EXPECT_EQ(files(), Rows{fileOf(7)});
    EXPECT_EQ(rows("SELECT transfer_status, size FROM event_content_parts"), Rows{"4|5"});
}

TEST_F(Resuming, TakesNoFileOfAnotherLengthOrOfAnotherPartForItsOwn) {
    const auto row = receivePicture(7);
    place(fileOf(7), "0123");
    EXPECT_EQ(fetchSome(row, ""), 0U) << "it is not whole";
    fs::remove_all(fs::path(fileOf(7)).parent_path());
    place(fileOf(7), "01234");
    receivePicture(8);
    execute(
        "UPDATE event_content_parts SET transfer_status = 4, file_path = (SELECT file_path FROM"
        " event_content_parts WHERE event_database_identifier = 1) WHERE event_database_identifier = 2");
    EXPECT_EQ(fetchSome(row, ""), 0U) << "another part counts on it";
    EXPECT_EQ(contentOf(fileOf(7)), "01234");
}

TEST_F(Resuming, DoesNotUseWhatIsLongerThanTheContent) {
    const auto row = receivePicture(7);
    fetchSome(row, "too long");
    EXPECT_EQ(fetchSome(row, "01234"), 0U);
    EXPECT_EQ(fetchTheRest(row, ""), 5U) << "what is as long is whole";
    EXPECT_EQ(contentOf(fileOf(7)), "01234");
}

TEST_F(Resuming, UsesWhatIsThereWhenTheSizeIsNotKnown) {
    const auto row = receivePicture(7);
    execute("UPDATE event_content_parts SET size = 0");
    fetchSome(row, "0123456");
    EXPECT_EQ(fetchTheRest(row, "789"), 7U);
    EXPECT_EQ(contentOf(fileOf(7)), "0123456789");
    EXPECT_EQ(rows("SELECT size FROM event_content_parts"), Rows{"10"});
}

TEST_F(Resuming, DoesNotUseWhatWasLeftForAnotherPart) {
    const auto one = receivePicture(7);
    const auto other = receivePicture(8);
    execute(
        "UPDATE event_content_parts SET file_path = (SELECT file_path FROM event_content_parts"
        " WHERE event_database_identifier = 1)");
    fetchSome(one, "012");
    EXPECT_EQ(fetchSome(other, "ab"), 0U) << "that both have one path does not make them one";
    EXPECT_EQ(fetchSome(one, ""), 3U);
    EXPECT_EQ(fetchSome(other, ""), 2U);
}

TEST_F(Resuming, StartsOverWhenItIsAskedTo) {
    const auto row = receivePicture(7);
    fetchSome(row, "99999");
    ZAVError error;
    auto writer = content().resumeDownload(row, 0, &error);
    ASSERT_TRUE(writer && writer->append(bytesOf("8")) && writer->startOver(&error)) << error.description();
    EXPECT_EQ(writer->size(), 0U);
    EXPECT_TRUE(writer->append(bytesOf("01234")) && writer->finish(&error)) << error.description();
    EXPECT_EQ(contentOf(fileOf(7)), "01234");
    EXPECT_FALSE(writer->startOver(&error)) << "it is over";
    EXPECT_EQ(domainAndCode(error), unusable);
    EXPECT_EQ(writer->size(), 5U);
}

TEST_F(Resuming, IsForOneWriterAtATime) {
    const auto row = receivePicture(7);
    {
        auto first = content().resumeDownload(row, 0);
        ASSERT_TRUE(first && first->append(bytesOf("01")));
        EXPECT_EQ(refusalOf(row), inUse);
        EXPECT_TRUE(first->append(bytesOf("2")));
        auto other = content().beginDownload(row, 0);
        EXPECT_TRUE(other && other->append(bytesOf("x"))) << "one that goes on with nothing needs no other";
    }
    EXPECT_EQ(fetchTheRest(row, "34"), 3U);
    EXPECT_EQ(contentOf(fileOf(7)), "01234");
}

TEST_F(Resuming, IsForOneProcessAtATime) {
    const auto row = receivePicture(7);
    std::array<int, 2> begun{};
    ASSERT_EQ(::pipe(begun.data()), 0);
    const pid_t child = inAProcess([&](ZAVContentCache& content) {
        auto writer = content.resumeDownload(row, 0);
        if (writer && writer->append(bytesOf("012")) && ::write(begun[1], "x", 1) == 1) {
            ::pause();
        }
    });
    ::close(begun[1]);
    char byte = 0;
    EXPECT_EQ(::read(begun[0], &byte, 1), 1);
    ::close(begun[0]);
    reopenAda();
    EXPECT_EQ(refusalOf(row), inUse);
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(fetchTheRest(row, "34"), 3U) << "a process that is gone is in nobody's way";
    EXPECT_EQ(contentOf(fileOf(7)), "01234");
}

TEST_F(Resuming, WritesNothingThroughALinkOrASecondName) {
    const auto row = receivePicture(7);
    fetchSome(row, "012");
    const std::string partial = onlyFile();
    const std::string secret = path() + "-secret";
    place(secret, "sec");
    fs::remove(partial);
    fs::create_symlink(secret, partial);
    EXPECT_EQ(fetchSome(row, "01"), 0U);
    EXPECT_EQ(contentOf(secret), "sec");
    fs::remove(partial);
    fs::create_hard_link(secret, partial);
    EXPECT_EQ(fetchTheRest(row, "01234"), 0U);
    EXPECT_EQ(contentOf(secret), "sec");
    EXPECT_EQ(contentOf(fileOf(7)), "01234");
}

TEST_F(Resuming, NeverWritesToTheDatabase) {
    const auto row = receivePicture(7);
    fetchSome(row, "012");
    const std::string partial = onlyFile();
    fs::remove(partial);
    fs::create_hard_link(path(), partial);
    EXPECT_EQ(refusalOf(row), unusable);
    EXPECT_EQ(rows("PRAGMA integrity_check"), Rows{"ok"});
}

TEST_F(Resuming, GoesThroughNoDirectoryThatIsALink) {
    const auto row = receivePicture(7);
    fetchSome(row, "012");
    const fs::path folder = fs::path(fileOf(7)).parent_path();
    fs::rename(folder, path() + "-elsewhere");
    fs::create_directory_symlink(path() + "-elsewhere", folder);
    EXPECT_EQ(refusalOf(row), unusable);
}

TEST_F(Resuming, LeavesWhatIsWholeWhenTheDatabaseFails) {
    const auto row = receivePicture(7);
    execute(
        "CREATE TEMP TRIGGER refuse BEFORE UPDATE ON event_content_parts WHEN NEW.transfer_status = 4"
        " BEGIN SELECT RAISE(ABORT, 'no'); END");
    {
        auto writer = content().resumeDownload(row, 0);
        ASSERT_TRUE(writer && writer->append(bytesOf("01234")));
        EXPECT_FALSE(writer->finish());
    }
    execute("DROP TRIGGER refuse");
    EXPECT_EQ(fetchTheRest(row, ""), 5U);
    EXPECT_EQ(contentOf(fileOf(7)), "01234");
}

TEST_F(Resuming, EndsWhenItsPartIsDeleted) {
    const auto row = receivePicture(7);
    auto writer = content().resumeDownload(row, 0);
    ASSERT_TRUE(writer && writer->append(bytesOf("012")));
    EXPECT_EQ(ada().deleteEvents(std::vector{row}), 1U);
    ZAVError error;
    EXPECT_FALSE(writer->finish(&error));
    EXPECT_EQ(domainAndCode(error), nothingToFetch);
    EXPECT_EQ(files(), Rows());
}

TEST_F(Resuming, LeavesNothingOfWhatIsDeleted) {
    const auto deleted = receivePicture(7);
    receivePicture(8);
    fetchSome(deleted, "012");
    fetchSome(2, "01");
    EXPECT_EQ(ada().deleteEvents(std::vector{deleted}), 1U);
    EXPECT_FALSE(fs::exists(fs::path(fileOf(7)).parent_path())) << "nor is its directory left";
    EXPECT_EQ(ada().makeTombstone(uuidNumber(1), 8), true);
    EXPECT_EQ(files(), Rows());
}

TEST_F(Resuming, IsNotDisturbedByARepairUntilWhatIsThereIsOld) {
    const auto row = receivePicture(7);
    fetchSome(row, "012");
    ASSERT_TRUE(content().repair());
    EXPECT_EQ(fetchSome(row, ""), 3U);
    const auto settled = content().repair(0s);
    ASSERT_TRUE(settled);
    EXPECT_EQ(settled->files.size(), 1U);
    EXPECT_EQ(settled->bytes, 3U);
    EXPECT_EQ(files(), Rows());
    EXPECT_EQ(fetchTheRest(row, "01234"), 0U) << "it begins again";
}

TEST_F(Resuming, FetchesAgainWhatWasPurged) {
    const auto row = downloadPicture(7, "first");
    ASSERT_TRUE(content().purge({}));
    EXPECT_EQ(fetchSome(row, "sec"), 0U);
    EXPECT_EQ(fetchTheRest(row, "nd"), 3U);
    EXPECT_EQ(contentOf(fileOf(7)), "secnd");
    EXPECT_EQ(rows("SELECT transfer_status, purged FROM event_content_parts"), Rows{"4|0"});
}

}  // namespace
}  // namespace zav::test
