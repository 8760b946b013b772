#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "Contender.h"
#include "Store.h"

namespace zav::bench {

/// One contender at one workload: what it is given, and what it answered in the latest run.
struct Session {
    Session(Contender& contenderAtWork, const Samples& samplesOfStore)
        : contender(contenderAtWork), samples(samplesOfStore) {}

    Contender& contender;
    const Samples& samples;
    std::size_t run = 0;

    ZAVSet<ZAVTEvent> toStore;
    std::vector<ZAVDatabaseIdentifier> rows;  ///< of what is stored already, and now again
    Contender::Parts toUpdate;
    Contender::Events chosen;

    Contender::Events events;
    Contender::Parts parts;
    ZAVSize number = 0;
    std::size_t answered = 0;  ///< how many records the last run answered
};

/// A job that is timed.
struct Workload {
    /// What becomes of what a run has written.
    enum class Writes { none, kept, undone };

    std::string name;

    /// How long the library may take, as a multiple of the floor.
    double target;

    /// What the time is given for, and how many of them a run does. 0: as many as it answers.
    std::string unit;
    std::size_t units;

    Writes writes;
    std::function<void(Session&)> prepare;  ///< not timed
    std::function<void(Session&)> run;
};

std::vector<Workload> makeWorkloads();

/// The workload runs once on the session, in a transaction if it writes. Returns the seconds of processor
/// time that the timed part took, not counting the transaction itself. `inspect` is called when the timed
/// part is over and the transaction is not.
double runOnce(const Workload& workload, Session& session, const std::function<void()>& inspect = {});

/// A digest of all that the session was answered, field by field.
std::string digestOfAnswer(const Session& session);

}  // namespace zav::bench
