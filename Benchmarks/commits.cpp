#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "RunMain.h"
#include "Store.h"
#include "Support/TemporaryDirectory.h"

namespace zav::bench {
namespace {

using Synchronous = FMDatabaseOptions::Synchronous;

/// Commits that follow each other before it is the next one's turn.
constexpr std::size_t turn = 100;

/// Turns after which a log that is folded at idle is folded. In as many commits the others meet about one
/// checkpoint each.
constexpr std::size_t turnsBetweenFolds = 4;

constexpr std::size_t streamsOfStore = 100;

template <class Call>
auto require(const Call& call) {
    ZAVError error;
    auto result = call(&error);
    if (error) {
        throw std::runtime_error(error.description());
    }
    return result;
}

std::shared_ptr<FMDatabase> openStore(const std::string& path, const FMDatabaseOptions& options) {
    return require([&](ZAVError* error) { return ZAVDatabaseSchema::openDatabase(path, options, error); });
}

/// What is timed, one commit at a time.
class Subject {
public:
    explicit Subject(std::string name) : name_(std::move(name)) {}
    virtual ~Subject() = default;
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] std::vector<double>& milliseconds() { return milliseconds_; }

    void takeTurn(std::size_t number) {
        prepare(number);
        for (std::size_t index = 0; index < turn; ++index) {
            const auto begin = std::chrono::steady_clock::now();
            commit(index);
            const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
            milliseconds_.push_back(took.count());
        }
        rest(number);
    }

private:
    virtual void prepare(std::size_t number) = 0;
    virtual void commit(std::size_t index) = 0;
    virtual void rest(std::size_t number) = 0;

    std::string name_;
    std::vector<double> milliseconds_;
};

/// As many bytes as a commit of the library's adds to the log, written to a file, and synced.
class BareFile : public Subject {
public:
    BareFile(std::string name, const std::string& path, std::size_t bytes, bool syncs, bool appends)
        : Subject(std::move(name)),
          file_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)),
          bytes_(bytes, 'x'),
          syncs_(syncs),
          appends_(appends) {
        check(file_);
    }
    ~BareFile() override { ::close(file_); }
    BareFile(const BareFile&) = delete;
    BareFile& operator=(const BareFile&) = delete;

private:
    void prepare(std::size_t) override {}

    void commit(std::size_t) override {
        check(static_cast<int>(::pwrite(file_, bytes_.data(), bytes_.size(), position_)));
        if (syncs_) {
            check(::fdatasync(file_));
        }
        position_ += static_cast<off_t>(bytes_.size());
    }

    void rest(std::size_t number) override {
        if (number % turnsBetweenFolds == 0) {
            position_ = 0;
            if (appends_) {
                check(::ftruncate(file_, 0));
                check(::fsync(file_));
            }
        }
    }

    static void check(int result) {
        if (result < 0) {
            throw std::system_error(errno, std::generic_category(), "the bare file");
        }
    }

    int file_;
    std::string bytes_;
    bool syncs_;
    bool appends_;
    off_t position_ = 0;
};

/// Another thread that reads one conversation after the other, without a pause, while this lives.
class ReaderBeside {
public:
    explicit ReaderBeside(const ZAVEventRepository& repository)
        : thread_([this, &repository](const std::stop_token& stop) {
              for (std::size_t number = 0; !stop.stop_requested(); ++number) {
                  require([&](ZAVError* error) {
                      return repository.eventsFromRevivedStreamWithStreamDatabaseIdentifier(
                          static_cast<ZAVDatabaseIdentifier>(number % streamsOfStore + 1), error);
                  });
                  hasRead_ = true;
                  hasRead_.notify_one();
              }
          }) {
        hasRead_.wait(false);
    }

private:
    std::atomic<bool> hasRead_ = false;
    std::jthread thread_;
};

struct Case {
    Synchronous synchronous;
    bool foldsAtIdle;
    bool hasReader;
};

std::string nameOf(const Case& which) {
    return std::string(which.synchronous == Synchronous::full ? "full" : "normal") + ", checkpoints " +
           (which.foldsAtIdle ? "at idle" : "on the path") + (which.hasReader ? ", a reader beside" : "");
}

/// One event with one part, stored in a transaction of its own.
class Store : public Subject {
public:
    Store(const Case& which, std::string path)
        : Subject(nameOf(which)),
          which_(which),
          path_(std::move(path)),
          repository_(openStore(path_, options(which))),
          other_(openStore(path_, options(which))),
          reading_(openStore(path_, options(which))) {}

    /// What the log has grown by since it was folded last.
    [[nodiscard]] std::uintmax_t logBytes() const { return std::filesystem::file_size(path_ + "-wal"); }

private:
    static FMDatabaseOptions options(const Case& which) {
        FMDatabaseOptions options;
        options.synchronous = which.synchronous;
        if (which.foldsAtIdle) {
            options.writeAheadLogPages = 0;
        }
        return options;
    }

    void prepare(std::size_t number) override {
        events_.clear();
        for (const auto& event : makeEvents({1, false, streamsOfStore}, turn, number)) {
            events_.emplace_back().append(event);
        }
        if (which_.hasReader) {
            beside_ = std::make_unique<ReaderBeside>(reading_);
        }
    }

    void commit(std::size_t index) override {
        auto transaction =
            require([&](ZAVError* error) { return ZAVTransaction::begin(repository_.database(), error); });
        require([&](ZAVError* error) { return repository_.persistEvents(events_[index], error); });
        require([&](ZAVError* error) { return transaction->commit(error); });
    }

    void rest(std::size_t number) override {
        beside_.reset();
        if (which_.foldsAtIdle && number % turnsBetweenFolds == 0) {
            const auto folded = require(
                [&](ZAVError* error) { return other_.checkpoint(ZAVCheckpointMode::passive, error); });
            if (folded->isHeldUp) {
                throw std::runtime_error("nobody is there who could hold a checkpoint up");
            }
        }
    }

    Case which_;
    std::string path_;
    ZAVEventRepository repository_;
    ZAVDatabaseMaintenance other_;
    ZAVEventRepository reading_;
    std::vector<ZAVSet<ZAVTEvent>> events_;
    std::unique_ptr<ReaderBeside> beside_;
};

double percentile(const std::vector<double>& sorted, double percent) {
    const auto rank = static_cast<std::size_t>(std::ceil(percent / 100 * static_cast<double>(sorted.size())));
    return sorted[std::clamp<std::size_t>(rank, 1, sorted.size()) - 1];
}

constexpr std::array percentiles{50.0, 99.0, 99.9, 100.0};

/// The percentiles of one, and what they are as multiples of those of another.
void print(Subject& subject, Subject& bare) {
    std::printf("| %s |", subject.name().c_str());
    for (const double percent : percentiles) {
        const double own = percentile(subject.milliseconds(), percent);
        std::printf(" %.3f (%.2f) |", own, own / percentile(bare.milliseconds(), percent));
    }
    std::printf("\n");
}

/// How much one commit of one event adds to the log.
std::size_t bytesOfACommit(const std::string& model, const std::string& path) {
    std::filesystem::copy_file(model, path);
    Store store({Synchronous::normal, true, false}, path);
    const std::uintmax_t before = store.logBytes();
    store.takeTurn(1);
    return static_cast<std::size_t>((store.logBytes() - before) / turn);
}

void measure(std::size_t turns) {
    const test::TemporaryDirectory directory;
    const std::string model = directory.file("model.db");
    StoreShape shape;
    shape.events = streamsOfStore * 200;
    makeStore(model, shape);
    const std::size_t bytes = bytesOfACommit(model, directory.file("first.db"));

    std::vector<std::unique_ptr<Subject>> subjects;
    std::vector<Subject*> bareOf;
    const auto file = [&] { return directory.file(std::to_string(subjects.size()) + ".db"); };
    for (const Synchronous synchronous : {Synchronous::full, Synchronous::normal}) {
        const bool syncs = synchronous == Synchronous::full;
        const std::string suffix = syncs ? " and sync" : "";
        const auto add = [&](std::unique_ptr<Subject> subject, Subject* bare) {
            subjects.push_back(std::move(subject));
            bareOf.push_back(bare != nullptr ? bare : subjects.back().get());
        };
        add(std::make_unique<BareFile>("bare append" + suffix, file(), bytes, syncs, true), nullptr);
        Subject* const bare = subjects.back().get();
        add(std::make_unique<BareFile>("bare write over what is there" + suffix, file(), bytes, syncs, false),
            bare);
        for (const bool foldsAtIdle : {false, true}) {
            for (const bool hasReader : {false, true}) {
                const std::string path = file();
                std::filesystem::copy_file(model, path);
                add(std::make_unique<Store>(Case{synchronous, foldsAtIdle, hasReader}, path), bare);
            }
        }
    }
    for (std::size_t number = 1; number <= turns; ++number) {
        for (std::size_t index = 0; index < subjects.size(); ++index) {
            subjects[(index + number) % subjects.size()]->takeTurn(number);
        }
    }
    std::printf("%zu commits each, of %zu bytes; milliseconds, and multiples of the bare append\n\n",
                turns * turn, bytes);
    std::printf("| one event a commit | p50 | p99 | p99.9 | longest |\n|---|---:|---:|---:|---:|\n");
    for (const auto& subject : subjects) {
        std::sort(subject->milliseconds().begin(), subject->milliseconds().end());
    }
    for (std::size_t index = 0; index < subjects.size(); ++index) {
        print(*subjects[index], *bareOf[index]);
    }
}

int run(int count, char** arguments) {
    std::size_t commits = 10'000;
    if (count > 1) {
        const std::string_view text = arguments[1];
        const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), commits);
        if (count > 2 || status != std::errc() || end != text.data() + text.size() || commits < turn ||
            commits > 1'000'000) {
            std::fprintf(stderr, "usage: zav_commits [COMMITS]\n");
            return 2;
        }
    }
    measure(commits / turn);
    return 0;
}

}  // namespace
}  // namespace zav::bench

int main(int count, char** arguments) {
    return zav::bench::runMain(zav::bench::run, count, arguments);
}
