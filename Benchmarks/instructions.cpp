#include <sqlite3.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Connection.h"
#include "Support/TemporaryDirectory.h"
#include "Workloads.h"

namespace zav::bench {
namespace {

constexpr std::size_t eventCount = 1'000;
constexpr ZAVSize purgedSize = 1'000'000;

struct Job {
    std::function<void(Session&)> prepare;
    std::function<void(Session&)> run;
};

void repeat(std::size_t times, const std::function<void()>& call) {
    for (std::size_t index = 0; index < times; ++index) {
        call();
    }
}

const std::map<std::string, Job, std::less<>>& jobs() {
    static const std::map<std::string, Job, std::less<>> all{
        {"persist",
         {[](Session& session) {
              session.toStore = makeEvents({1, false}, eventCount, session.run);
          },
          [](Session& session) { session.contender.persist(session.toStore); }}},
        {"persist_again",
         {[](Session& session) {
              if (session.toStore.empty()) {
                  session.toStore = makeEvents({1, false}, eventCount, session.run);
              }
          },
          [](Session& session) { session.contender.persist(session.toStore); }}},
        {"purge",
         {[](Session&) {},
          [](Session& session) {
              repeat(100, [&] { session.parts = session.contender.leastRecentlyAccessed(purgedSize); });
          }}},
        {"read_all",
         {[](Session&) {}, [](Session& session) { session.events = session.contender.allEvents(); }}},
        {"by_row",
         {[](Session&) {},
          [](Session& session) {
              for (const ZAVDatabaseIdentifier row : session.samples.eventRows) {
                  session.events.append(session.contender.eventInRow(row));
              }
          }}},
        {"update_part",
         {[](Session& session) {
              for (const ZAVDatabaseIdentifier row : session.samples.partRows) {
                  session.toUpdate.append(session.contender.partInRow(row));
              }
          },
          [](Session& session) {
              for (const auto& part : session.toUpdate) {
                  session.contender.updatePart(*part);
              }
          }}},
        {"queue",
         {[](Session&) {},
          [](Session& session) {
              repeat(100, [&] { session.parts = session.contender.incompleteDownloads(100); });
          }}},
    };
    return all;
}

int run(const std::string& name, std::string_view contenderName) {
    if (name == "--versions") {
        std::printf("%s, %s, SQLite %s\n", ZAV_COMPILER, ZAV_BUILD_TYPE, sqlite3_libversion());
        return 0;
    }
    if (name == "--list") {
        for (const auto& [job, steps] : jobs()) {
            std::printf("%s\n", job.c_str());
        }
        return 0;
    }
    const auto job = jobs().find(name);
    if (job == jobs().end()) {
        throw std::invalid_argument("there is no workload " + name);
    }
    const test::TemporaryDirectory directory;
    const std::string path = directory.file("store.db");
    StoreShape shape;
    shape.events = eventCount;
    shape.unsequenced = 10;
    shape.incompleteEvery = name == "queue" ? 1 : 100;
    makeStore(path, shape);
    const Samples samples = takeSamples(path, eventCount);
    const auto contender = contenderName == "floor" ? openFloor(path) : openLibrary(path);
    Session session(*contender, samples);
    // One transaction throughout: no lock is taken and no file written while instructions are counted.
    execute(contender->connection(), "BEGIN IMMEDIATE");
    const auto& [prepare, work] = job->second;
    prepare(session);
    work(session);  // statements are prepared, pages read
    ++session.run;
    session.events.clear();
    session.parts.clear();
    session.toUpdate.clear();
    prepare(session);
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_TOGGLE_COLLECT;
    work(session);
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_STOP_INSTRUMENTATION;
    execute(contender->connection(), "ROLLBACK");
    return 0;
}

}  // namespace
}  // namespace zav::bench

int main(int count, char** arguments) {
    if (count < 2) {
        std::fprintf(stderr, "usage: zav_instructions WORKLOAD [floor] | --list | --versions\n");
        return 2;
    }
    try {
        return zav::bench::run(arguments[1], count > 2 ? arguments[2] : "library");
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
        return 2;
    }
}
