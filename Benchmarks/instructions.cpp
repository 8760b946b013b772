#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <sqlite3.h>
#include <valgrind/callgrind.h>

#include <array>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Connection.h"
#include "PlainFloor.h"
#include "Support/TemporaryDirectory.h"
#include "Workloads.h"

namespace zav::bench {
namespace {

constexpr std::size_t eventCount = 1'000;
constexpr ZAVSize purgedSize = 1'000'000;
constexpr ZAVSize queueLimit = 100;
constexpr std::array jobNames{"by_row", "persist",  "persist_again", "purge",
                              "queue",  "read_all", "update_part"};

/// What each of them answers is kept until it is asked again.
struct Job {
    std::function<void()> prepare;  ///< not counted
    std::function<void()> run;
};
using Jobs = std::map<std::string, Job, std::less<>>;

void repeat(std::size_t times, const std::function<void()>& call) {
    for (std::size_t index = 0; index < times; ++index) {
        call();
    }
}

/// The jobs of the library, and of the floor that fills the library's records.
Jobs jobsOf(Session& session) {
    const auto renew = [&session] { session.toStore = makeEvents({1, false}, eventCount, session.run++); };
    const auto forget = [&session] {
        session.events.clear();
        session.parts.clear();
        session.toUpdate.clear();
    };
    const auto persist = [&session] { session.contender.persist(session.toStore); };
    return {
        {"persist", {renew, persist}},
        {"persist_again",
         {[=, &session] {
              if (session.toStore.empty()) {
                  renew();
              }
          },
          persist}},
        {"purge",
         {forget,
          [&session] {
              repeat(100, [&] { session.parts = session.contender.leastRecentlyAccessed(purgedSize); });
          }}},
        {"read_all", {forget, [&session] { session.events = session.contender.allEvents(); }}},
        {"by_row",
         {forget,
          [&session] {
              for (const ZAVDatabaseIdentifier row : session.samples.eventRows) {
                  session.events.append(session.contender.eventInRow(row));
              }
          }}},
        {"update_part",
         {[=, &session] {
              forget();
              for (const ZAVDatabaseIdentifier row : session.samples.partRows) {
                  session.toUpdate.append(session.contender.partInRow(row));
              }
          },
          [&session] {
              for (const auto& part : session.toUpdate) {
                  session.contender.updatePart(*part);
              }
          }}},
        {"queue",
         {forget,
          [&session] {
              repeat(100, [&] { session.parts = session.contender.incompleteDownloads(queueLimit); });
          }}},
    };
}

/// The floor with plain records at work.
struct PlainSession {
    PlainFloor& floor;
    const Samples& samples;
    std::size_t run = 0;
    std::vector<PlainEvent> toStore{};
    std::vector<PlainPart> toUpdate{};
    std::vector<PlainEvent> events{};
    std::vector<PlainPart> parts{};
};

/// The same jobs with plain records.
Jobs jobsOf(PlainSession& session) {
    const auto renew = [&session] {
        session.toStore.clear();
        for (const auto& event : makeEvents({1, false}, eventCount, session.run++)) {
            session.toStore.push_back(plainEventOf(static_cast<const ZAVEvent&>(*event)));
        }
    };
    const auto forget = [&session] {
        session.events = {};
        session.parts = {};
        session.toUpdate = {};
    };
    const auto persist = [&session] { session.floor.persist(session.toStore); };
    return {
        {"persist", {renew, persist}},
        {"persist_again",
         {[=, &session] {
              if (session.toStore.empty()) {
                  renew();
              }
          },
          persist}},
        {"purge",
         {forget,
          [&session] {
              repeat(100, [&] { session.parts = session.floor.leastRecentlyAccessed(purgedSize); });
          }}},
        {"read_all", {forget, [&session] { session.events = session.floor.allEvents(); }}},
        {"by_row",
         {forget,
          [&session] {
              for (const ZAVDatabaseIdentifier row : session.samples.eventRows) {
                  session.events.push_back(session.floor.eventInRow(row).value());
              }
          }}},
        {"update_part",
         {[=, &session] {
              forget();
              for (const ZAVDatabaseIdentifier row : session.samples.partRows) {
                  session.toUpdate.push_back(session.floor.partInRow(row).value());
              }
          },
          [&session] {
              for (const PlainPart& part : session.toUpdate) {
                  session.floor.updatePart(part);
              }
          }}},
        {"queue",
         {forget,
          [&session] {
              repeat(100, [&] { session.parts = session.floor.incompleteDownloads(queueLimit); });
          }}},
    };
}

const Job& jobNamed(const Jobs& jobs, const std::string& name) {
    const auto job = jobs.find(name);
    if (job == jobs.end()) {
        throw std::invalid_argument("there is no workload " + name);
    }
    return job->second;
}

/// In one transaction throughout: no lock is taken and no file written while instructions are counted.
void count(sqlite3* connection, const Job& job) {
    execute(connection, "BEGIN IMMEDIATE");
    job.prepare();
    job.run();  // statements are prepared, pages read
    job.prepare();
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_TOGGLE_COLLECT;
    job.run();
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_STOP_INSTRUMENTATION;
    execute(connection, "ROLLBACK");
}

void countOn(const std::string& contenderName, const std::string& path, const std::string& name) {
    const Samples samples = takeSamples(path, eventCount);
    if (contenderName == "plain") {
        PlainFloor floor(path);
        PlainSession session{floor, samples};
        count(floor.connection(), jobNamed(jobsOf(session), name));
        return;
    }
    const auto contender = contenderName == "floor" ? openFloor(path) : openLibrary(path);
    Session session(*contender, samples);
    count(contender->connection(), jobNamed(jobsOf(session), name));
}

void run(const std::string& name, const std::string& contenderName) {
    if (name == "--versions") {
        std::printf("%s, %s, SQLite %s\n", ZAV_COMPILER, ZAV_BUILD_TYPE, sqlite3_libversion());
        return;
    }
    if (name == "--list") {
        for (const char* const job : jobNames) {
            std::printf("%s\n", job);
        }
        return;
    }
    const test::TemporaryDirectory directory;
    const std::string path = directory.file("store.db");
    StoreShape shape;
    shape.events = eventCount;
    shape.unsequenced = 10;
    shape.incompleteEvery = name == "queue" ? 1 : 100;
    makeStore(path, shape);
    countOn(contenderName, path, name);
}

}  // namespace
}  // namespace zav::bench

int main(int count, char** arguments) {
    if (count < 2) {
        std::fprintf(stderr,
                     "usage: zav_instructions WORKLOAD [library | configured | floor | plain] | --list | "
                     "--versions\n"
                     "configured: the library, in a process that ZAVDatabaseEngine::configureProcess was "
                     "called in\n");
        return 2;
    }
    try {
        const std::string contender = count > 2 ? arguments[2] : "library";
        if (contender == "configured" && !zav::ZAVDatabaseEngine::configureProcess()) {
            throw std::runtime_error("the engine cannot be configured");
        }
        zav::bench::run(arguments[1], contender);
        return 0;
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
        return 2;
    }
}
