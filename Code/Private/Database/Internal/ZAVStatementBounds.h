#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include <ZAVEventRepository/ZAVError.h>

struct sqlite3;

namespace zav {

/// What one run of a statement has used of what it may use.
struct ZAVStatementRun {
    std::size_t textSize = 0;  ///< in bytes
    bool reads = true;         ///< and writes nothing
    bool isBounded = false;
    bool hasPassedBounds = false;
    std::uint64_t number = 0;   ///< tells the bounded runs of a connection apart
    std::int64_t rowsLeft = 0;  ///< until the file is looked at

    // What is asked for only when a first allowance is used up belongs to the run of this number.
    std::uint64_t countedNumber = 0;
    std::uint64_t rowsAllowed = 0;
    std::uint64_t steps = 0;
    std::uint64_t stepsAllowed = 0;  ///< 0 while the first allowance lasts
};

/// Ends statements that a sound file would have ended long before. The pages of a damaged file may lead to
/// one another in such a way that a walk over a small table takes years, and the engine does not notice.
///
/// A file has no more than one cell for each six of its bytes, and a statement of the library looks at each
/// cell a few times: rows and the engine's steps both have a bound, which grows with the file. The first
/// allowance of a run is a constant; the file is looked at when it has been used up, so that an ordinary run
/// asks for nothing.
///
/// There is one for each connection, and it is the connection's progress handler; as such it also ends what
/// runs on a connection that is interrupted.
class ZAVStatementBounds {
public:
    /// @param isInterrupted whether what runs is to end, bounded or not; must outlive this.
    ZAVStatementBounds(sqlite3* connection, const std::atomic<bool>& isInterrupted) noexcept;
    ~ZAVStatementBounds() = default;
    ZAVStatementBounds(const ZAVStatementBounds&) = delete;
    ZAVStatementBounds& operator=(const ZAVStatementBounds&) = delete;

    /// Begins a bounded run. The bounds of one that writes do not grow with what it writes.
    void begin(ZAVStatementRun& run) noexcept {
        run.isBounded = true;
        run.hasPassedBounds = false;
        run.number = ++lastRun_;
        run.rowsLeft = firstRows;
    }

    /// The engine's steps are a bounded run's while this lives.
    class Charge {
    public:
        Charge(ZAVStatementBounds& bounds, ZAVStatementRun& run) noexcept
            : bounds_(bounds), outer_(std::exchange(bounds.running_, &run)) {}
        ~Charge() { bounds_.running_ = outer_; }
        Charge(const Charge&) = delete;
        Charge& operator=(const Charge&) = delete;

    private:
        ZAVStatementBounds& bounds_;
        ZAVStatementRun* outer_;
    };

    /// What became of a step of a bounded run for which the engine answered `status`.
    [[nodiscard]] int outcome(ZAVStatementRun& run, int status) noexcept {
        return (status != row || --run.rowsLeft >= 0 || mayHandOutMoreRows(run)) && isWithinBounds(run)
                   ? status
                   : corrupt;
    }

    /// Whether a bounded run has kept its bounds, and each run since it began has kept its own: an operation
    /// that runs statements for each of its rows must not wait for the end of one after the other.
    [[nodiscard]] bool isWithinBounds(ZAVStatementRun& run) const noexcept {
        if (run.number > lastRunAtBreach_) [[likely]] {
            return true;
        }
        run.hasPassedBounds = true;
        return false;
    }

    /// Makes a run fail that did not keep its bounds, and all that began before it. Answers false.
    bool pass(ZAVStatementRun& run) noexcept;

    /// What a run that passed its bounds fails with.
    [[nodiscard]] static ZAVError error();

private:
    // The engine's own numbers.
    static constexpr int row = 100;
    static constexpr int corrupt = 11;

    static constexpr std::int64_t firstRows = 4096;
    static constexpr std::uint64_t firstSteps = 1'000'000;

    /// A list of values is loaded before the first row.
    static constexpr std::uint64_t stepsPerByteOfText = 4;

    /// The greediest statement, a transfer queue over the smallest rows, takes 14 for each six bytes.
    static constexpr std::uint64_t stepsPerCell = 50;

    static int lookAtSteps(void* bounds) noexcept;
    [[nodiscard]] bool mayTakeMoreSteps(ZAVStatementRun& run) noexcept;
    [[nodiscard]] bool mayHandOutMoreRows(ZAVStatementRun& run) noexcept;
    [[nodiscard]] std::optional<std::uint64_t> mostCells() const noexcept;
    static void startCounting(ZAVStatementRun& run) noexcept;

    sqlite3* connection_;
    const std::atomic<bool>& isInterrupted_;
    ZAVStatementRun* running_ = nullptr;
    std::uint64_t lastRun_ = 0;
    std::uint64_t lastRunAtBreach_ = 0;  ///< the run that began last when one passed its bounds
};

}  // namespace zav
