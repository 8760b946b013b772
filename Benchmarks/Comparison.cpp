#include "Comparison.h"

#include <sqlite3.h>

#include <chrono>
#include <stdexcept>

#include "Connection.h"
#include "Timer.h"

namespace zav::bench {
namespace {

constexpr std::size_t sampleCount = 1'000;
constexpr std::size_t fewestRounds = 11;
constexpr std::size_t mostRounds = 101;

/// The texts of all statements that run on a connection while this lives.
class StatementTrace {
public:
    explicit StatementTrace(sqlite3* connection) : connection_(connection) {
        sqlite3_trace_v2(
            connection_, SQLITE_TRACE_STMT,
            [](unsigned, void* context, void* statement, void*) {
                const char* const text = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
                static_cast<StatementTrace*>(context)->texts_.emplace_back(text);
                return 0;
            },
            this);
    }
    ~StatementTrace() { sqlite3_trace_v2(connection_, 0, nullptr, nullptr); }
    StatementTrace(const StatementTrace&) = delete;
    StatementTrace& operator=(const StatementTrace&) = delete;

    [[nodiscard]] std::vector<std::string> take() { return std::move(texts_); }

private:
    sqlite3* connection_;
    std::vector<std::string> texts_;
};

struct Behaviour {
    std::vector<std::string> statements;
    std::string answer;
    std::string stored;
};

Behaviour observe(const Workload& workload, Session& session) {
    Behaviour behaviour;
    StatementTrace trace(session.contender.connection());
    runOnce(workload, session, [&] {
        behaviour.statements = trace.take();
        behaviour.answer = digestOfAnswer(session);
        if (workload.writes != Workload::Writes::none) {
            behaviour.stored = digestOfTables(session.contender.connection());
        }
    });
    return behaviour;
}

void requireSame(const std::string& what, const std::string& expected, const std::string& actual) {
    if (expected != actual) {
        throw std::runtime_error(what + ": expected " + expected + ", got " + actual);
    }
}

void requireSame(const std::string& who, const Behaviour& expected, const Behaviour& actual) {
    for (std::size_t index = 0; index < expected.statements.size() && index < actual.statements.size();
         ++index) {
        requireSame(who + " runs another statement than the library, number " + std::to_string(index),
                    expected.statements[index], actual.statements[index]);
    }
    requireSame(who + " runs another number of statements than the library",
                std::to_string(expected.statements.size()), std::to_string(actual.statements.size()));
    requireSame(who + " answers otherwise than the library", expected.answer, actual.answer);
    requireSame(who + " stores otherwise than the library", expected.stored, actual.stored);
}

}  // namespace

Comparison::Comparison(const std::filesystem::path& directory) {
    const std::filesystem::path model = directory / "model.db";
    makeStore(model.string(), StoreShape{});
    samples_ = takeSamples(model.string(), sampleCount);
    for (const ContenderKind& kind : contenderKinds) {
        const auto open = [&](const char* suffix) {
            const std::filesystem::path file = directory / (std::string(kind.name) + suffix);
            std::filesystem::copy_file(model, file, std::filesystem::copy_options::overwrite_existing);
            return kind.open(file.string());
        };
        contenders_.push_back({open("-reading.db"), open("-writing.db")});
    }
}

std::vector<Session> Comparison::sessionsFor(const Workload& workload) {
    std::vector<Session> sessions;
    for (const Files& files : contenders_) {
        const bool writes = workload.writes != Workload::Writes::none;
        sessions.emplace_back(writes ? *files.writing : *files.reading, samples_);
    }
    return sessions;
}

Comparison::Result Comparison::run(const Workload& workload, double seconds) {
    std::vector<Session> sessions = sessionsFor(workload);
    const Behaviour expected = observe(workload, sessions[libraryIndex]);
    for (std::size_t index = libraryIndex + 1; index < sessions.size(); ++index) {
        requireSame(workload.name + ": " + contenderKinds[index].name, expected,
                    observe(workload, sessions[index]));
    }
    const std::size_t units = workload.units != 0 ? workload.units : sessions[libraryIndex].answered;
    if (units == 0) {
        throw std::runtime_error(workload.name + ": nothing was answered");
    }

    Result result;
    std::vector<double> floorTimes;
    std::array<std::vector<double>, contenderKinds.size()> ratios;
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (result.rounds < fewestRounds ||
           (result.rounds < mostRounds && std::chrono::steady_clock::now() < end)) {
        std::array<double, contenderKinds.size()> times{};
        for (std::size_t turn = 0; turn < sessions.size(); ++turn) {
            const std::size_t index = (turn + result.rounds) % sessions.size();  // each is first in its turn
            times[index] = runOnce(workload, sessions[index]);
        }
        for (std::size_t index = 0; index < times.size(); ++index) {
            ratios[index].push_back(times[index] / times[floorIndex]);
        }
        floorTimes.push_back(times[floorIndex]);
        ++result.rounds;
    }
    result.floorSeconds = median(floorTimes) / static_cast<double>(units);
    for (std::size_t index = 0; index < ratios.size(); ++index) {
        result.ratios[index] = median(ratios[index]);
    }
    return result;
}

}  // namespace zav::bench
