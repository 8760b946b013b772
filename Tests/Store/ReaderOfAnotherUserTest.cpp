#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventStore.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "Support/DatabaseHandles.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;

/// Whom the files of a test do not belong to.
constexpr uid_t nobody = 65534;

/// What a work has to say that runs in a process of its own, as the user nobody.
std::string saidByAnother(const std::function<std::string()>& work) {
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0) {
        throw std::runtime_error("no pipe");
    }
    const pid_t process = ::fork();
    if (process == 0) {
        const bool isAnother = ::setgid(nobody) == 0 && ::setuid(nobody) == 0;
        const std::string said = isAnother ? work() : "cannot become another user";
        const bool isWritten = ::write(pipe[1], said.data(), said.size()) >= 0;
        ::_exit(isWritten ? 0 : 1);
    }
    ::close(pipe[1]);
    std::string said;
    std::array<char, 1024> bytes{};
    for (ssize_t count = 0; (count = ::read(pipe[0], bytes.data(), bytes.size())) > 0;) {
        said.append(bytes.data(), static_cast<std::size_t>(count));
    }
    ::close(pipe[0]);
    ::waitpid(process, nullptr, 0);
    return said;
}

/// A process that has a store open, in which it adds a stream when it is asked to. A process of its own: what
/// is forked from one that has a file open finds it open.
class OwnerOfStore {
public:
    OwnerOfStore(const std::string& path, std::uint32_t mode) {
        std::array<int, 2> orders{};
        std::array<int, 2> answers{};
        if (::pipe(orders.data()) != 0 || ::pipe(answers.data()) != 0) {
            throw std::runtime_error("no pipe");
        }
        process_ = ::fork();
        if (process_ == 0) {
            ::close(orders[1]);
            ::close(answers[0]);
            own(path, mode, orders[0], answers[1]);
        }
        ::close(orders[0]);
        ::close(answers[1]);
        orders_ = orders[1];
        answers_ = answers[0];
    }
    ~OwnerOfStore() {
        ::close(orders_);
        ::close(answers_);
        ::waitpid(process_, nullptr, 0);  // it closes its store
    }
    OwnerOfStore(const OwnerOfStore&) = delete;
    OwnerOfStore& operator=(const OwnerOfStore&) = delete;

    void addStream() const {
        char letter = 'a';
        EXPECT_EQ(::write(orders_, &letter, 1), 1);
        EXPECT_EQ(::read(answers_, &letter, 1), 1);
        EXPECT_EQ(letter, 'y');
    }

private:
    [[noreturn]] static void own(const std::string& path, std::uint32_t mode, int orders, int answers) {
        ZAVEventStoreOptions options;
        options.database.newFileMode = mode;
        auto store = ZAVEventStore::open(path, options);
        char letter = 0;
        while (::read(orders, &letter, 1) == 1) {
            const bool isAdded = store != nullptr && store->write([](const ZAVRepositories& repositories) {
                return repositories.streams.findOrCreateStreamWithUUID(ZAVUUID::random()) !=
                       ZAVDatabaseIdentifierNotSet;
            });
            letter = isAdded ? 'y' : 'n';
            if (::write(answers, &letter, 1) != 1) {
                break;
            }
        }
        store.reset();
        ::_exit(0);
    }

    pid_t process_ = -1;
    int orders_ = -1;
    int answers_ = -1;
};

/// A store in a directory that everybody may look into.
class ReaderOfAnotherUser : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "only root can become another user";
        }
        if (sqlite3_libversion_number() < 3022000) {
            GTEST_SKIP() << "the engine is older than 3.22 and must be able to write beside what it reads";
        }
        fs::permissions(directory_.path(), fs::perms::others_read | fs::perms::others_exec,
                        fs::perm_options::add);
        ::umask(022);
    }
    ~ReaderOfAnotherUser() override { ::umask(umask_); }

    [[nodiscard]] std::string path() const { return directory_.file("chat.db"); }

    /// The number of streams that another user finds, or why it can find none.
    [[nodiscard]] std::string foundByAnother() const {
        return saidByAnother([this] {
            ZAVError error;
            const auto database = ZAVDatabaseSchema::openDatabase(
                path(), withAccess(FMDatabaseOptions::Access::readOnly), &error);
            if (database == nullptr) {
                return error.description();
            }
            const std::string count = scalar(*database, "SELECT COUNT(*) FROM streams");
            return database->executeUpdate("DELETE FROM streams") ? "it can write" : count;
        });
    }

private:
    TemporaryDirectory directory_;
    mode_t umask_ = ::umask(022);
};

TEST_F(ReaderOfAnotherUser, ReadsWhileTheLogIsThere) {
    const OwnerOfStore owner(path(), 0644);
    owner.addStream();
    EXPECT_EQ(foundByAnother(), "1");
    owner.addStream();
    EXPECT_EQ(foundByAnother(), "2");
}

TEST_F(ReaderOfAnotherUser, IsToldWhatIsMissingWhenTheLogIsNotThere) {
    OwnerOfStore(path(), 0644).addStream();
    const std::string said = foundByAnother();
    EXPECT_NE(said.find("write-ahead log"), std::string::npos) << said;
    EXPECT_NE(said.find("chat.db-wal is not there, "), std::string::npos) << said;
    EXPECT_FALSE(fs::exists(path() + "-wal")) << "nothing was made";
}

TEST_F(ReaderOfAnotherUser, IsToldOfTheFilesThatItMayNotRead) {
    const OwnerOfStore owner(path(), 0644);
    owner.addStream();
    fs::permissions(path() + "-shm", fs::perms::owner_read | fs::perms::owner_write);
    const std::string said = foundByAnother();
    EXPECT_NE(said.find("chat.db-shm may not be read"), std::string::npos) << said;
}

TEST_F(ReaderOfAnotherUser, ReadsNothingOfAStoreThatIsItsOwnersAlone) {
    const OwnerOfStore owner(path(), 0600);
    owner.addStream();
    const std::string said = foundByAnother();
    EXPECT_NE(said.find("Domain=SQLite Code=14"), std::string::npos) << said;
}

}  // namespace
}  // namespace zav::test
