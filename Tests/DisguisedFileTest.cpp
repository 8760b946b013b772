#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "Operations/Catalogue.h"
#include "Support/DatabaseHandles.h"
#include "Support/HostileFile.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

struct Disguise {
    const char* name;
    const char* suffix;
    std::function<void(const std::string& path, const std::string& target)> put;
};

void PrintTo(const Disguise& disguise, std::ostream* stream) {
    *stream << disguise.name;
}

void putDirectory(const std::string& path, const std::string&) {
    fs::create_directory(path);
}

void putQueue(const std::string& path, const std::string&) {
    if (::mkfifo(path.c_str(), 0600) != 0) {
        throw std::runtime_error(std::string("mkfifo: ") + std::strerror(errno));
    }
}

void putLink(const std::string& path, const std::string& target) {
    fs::create_symlink(target, path);
}

void putGarbage(const std::string& path, const std::string&) {
    std::string garbage;
    for (std::uint64_t number = 0; number < 70000; ++number) {
        garbage += static_cast<char>(number * number / 7);
    }
    writeFile(path, garbage);
}

class DisguisedFile : public HostileFile, public testing::WithParamInterface<Disguise> {};

TEST_P(DisguisedFile, IsRefusedOrUsedWithoutHarm) {
    const std::string path = path_ + GetParam().suffix;
    fs::remove(path);
    GetParam().put(path, surroundings_.notes());
    if (path == path_) {
        ZAVError error;
        EXPECT_EQ(ZAVDatabaseSchema::openDatabase(path_, {}, &error), nullptr) << "this is no database";
        EXPECT_TRUE(error);
        surroundings_.expectUntouched();
    } else {
        use();
    }
}

INSTANTIATE_TEST_SUITE_P(As, DisguisedFile,
                         testing::Values(Disguise{"ADirectory", "", putDirectory},
                                         Disguise{"AQueue", "", putQueue},
                                         Disguise{"ALinkToNoDatabase", "", putLink},
                                         Disguise{"AJournalThatIsADirectory", "-journal", putDirectory},
                                         Disguise{"AJournalThatIsAQueue", "-journal", putQueue},
                                         Disguise{"AJournalThatIsALink", "-journal", putLink},
                                         Disguise{"AJournalOfGarbage", "-journal", putGarbage},
                                         Disguise{"ALogThatIsADirectory", "-wal", putDirectory},
                                         Disguise{"ALogThatIsAQueue", "-wal", putQueue},
                                         Disguise{"ALogThatIsALink", "-wal", putLink},
                                         Disguise{"ALogOfGarbage", "-wal", putGarbage},
                                         Disguise{"ASharedMemoryThatIsADirectory", "-shm", putDirectory},
                                         Disguise{"ASharedMemoryThatIsAQueue", "-shm", putQueue},
                                         Disguise{"ASharedMemoryThatIsALink", "-shm", putLink},
                                         Disguise{"ASharedMemoryOfGarbage", "-shm", putGarbage}),
                         [](const testing::TestParamInfo<Disguise>& disguise) {
                             return std::string(disguise.param.name);
                         });

void putOtherName(const std::string& path, const std::string& target) {
    fs::create_hard_link(target, path);
}

class CompanionOfAFile : public HostileFile,
                         public testing::WithParamInterface<std::tuple<const char*, Disguise>> {};

TEST_P(CompanionOfAFile, ThatIsNotItsOwnIsRefusedByName) {
    const auto& [suffix, disguise] = GetParam();
    const std::string companion = path_ + suffix;
    const std::string target = directory_.file("target");
    writeFile(target, "not for you");
    disguise.put(companion, target);
    for (const auto access :
         {FMDatabaseOptions::Access::readOnly, FMDatabaseOptions::Access::readWriteCreate}) {
        ZAVError error;
        EXPECT_EQ(FMDatabase::databaseWithPath(path_, withAccess(access), &error), nullptr)
            << companion << " was used";
        EXPECT_EQ(error.code(), 6) << error.description();
        EXPECT_NE(error.message().find(suffix), std::string::npos) << error.message();
    }
    fs::remove(path_);
    EXPECT_EQ(FMDatabase::databaseWithPath(path_), nullptr) << companion << " was used for a new file";
    EXPECT_FALSE(fs::exists(path_)) << "a file was made that was then refused";
    EXPECT_EQ(bytesOfFile(target), "not for you");
}

INSTANTIATE_TEST_SUITE_P(As, CompanionOfAFile,
                         testing::Combine(testing::Values("-journal", "-wal", "-shm"),
                                          testing::Values(Disguise{"ADirectory", "", putDirectory},
                                                          Disguise{"AQueue", "", putQueue},
                                                          Disguise{"ALink", "", putLink},
                                                          Disguise{"AnotherName", "", putOtherName})),
                         [](const auto& companion) {
                             return std::string(std::get<1>(companion.param).name) + "As" +
                                    (std::get<0>(companion.param) + 1);
                         });

TEST_F(HostileFile, BehindALinkIsUsedWhereItLies) {
    const std::string elsewhere = directory_.file("elsewhere.db");
    fs::rename(path_, elsewhere);
    fs::create_symlink(elsewhere, path_);
    const Outcome outcome = use();
    EXPECT_EQ(outcome.succeeded.size(), everyOperation().size()) << "a store may be reached through a link";
    EXPECT_TRUE(fs::is_symlink(path_)) << "the link was replaced";
}

/// Acts as a user without privileges while it lives, if the process has any.
class WithoutPrivileges {
public:
    static constexpr uid_t nobody = 65534;

    WithoutPrivileges() : privileged_(::geteuid() == 0) {
        if (privileged_ && ::seteuid(nobody) != 0) {
            throw std::runtime_error(std::string("seteuid: ") + std::strerror(errno));
        }
    }
    ~WithoutPrivileges() {
        if (privileged_ && ::seteuid(0) != 0) {
            std::terminate();
        }
    }
    WithoutPrivileges(const WithoutPrivileges&) = delete;
    WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;

private:
    bool privileged_;
};

TEST_F(HostileFile, ThatMayOnlyBeReadIsReadAndNotWritten) {
    const fs::path client = directory_.path() / "client";
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(directory_.path().c_str(), WithoutPrivileges::nobody, 0), 0);
        ASSERT_EQ(::chown(client.c_str(), WithoutPrivileges::nobody, 0), 0);
    }
    fs::permissions(path_, fs::perms(0444));
    Outcome outcome;
    {
        const WithoutPrivileges unprivileged;
        outcome = use();
    }
    EXPECT_EQ(bytesOfFile(path_), genuineStore()) << "a file that may only be read was written";
    ASSERT_TRUE(outcome.opened) << outcome.refusal.description();
    EXPECT_EQ(outcome.codes["persistEvents"], SQLITE_READONLY);
    EXPECT_EQ(outcome.codes["deleteEvents"], SQLITE_READONLY);
    EXPECT_TRUE(outcome.succeeded.contains("allEvents")) << "what may be read is read";
}

TEST_F(HostileFile, InADirectoryThatMayOnlyBeReadIsRefusedOrOnlyRead) {
    const fs::path client = directory_.path() / "client";
    fs::permissions(directory_.path(), fs::perms(0755));
    fs::permissions(client, fs::perms(0555));
    fs::permissions(path_, fs::perms(0444));
    Outcome outcome;
    {
        const WithoutPrivileges unprivileged;
        outcome = use();
    }
    fs::permissions(client, fs::perms(0755));
    EXPECT_EQ(bytesOfFile(path_), genuineStore());
    EXPECT_FALSE(outcome.succeeded.contains("persistEvents"));
}

}  // namespace
}  // namespace zav::test
