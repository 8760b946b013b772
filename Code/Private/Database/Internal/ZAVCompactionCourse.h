#pragma once

#include <cstdint>
#include <exception>
#include <functional>

#include "Private/Database/Internal/ZAVWatchedFiles.h"

namespace zav {

/// How far a compaction is, for those who asked to be told, and whether it is to end.
///
/// It is asked before each write, and every few steps of the engine in between. What a caller's function
/// throws cannot pass through the engine: it is kept, and the compaction ends.
class ZAVCompactionCourse final : public ZAVWatchedFiles::Watcher {
public:
    /// @param progress is told a share of the work, 0 to 1, that never falls.
    /// @param cancel answers true to end it. Either may be empty.
    /// @param content how many bytes the temporary copy and the database are expected to be written. A copy
    /// of twice as many comes from a damaged file, whose pages lead to one another, and is ended.
    /// @param log the same of the log.
    ZAVCompactionCourse(const std::function<void(double)>& progress, const std::function<bool()>& cancel,
                        std::int64_t content, std::int64_t log) noexcept
        : progress_(progress), cancel_(cancel), temporary_{content}, log_{log}, database_{content} {}

    /// Asks whether to go on. Once the answer was no, it stays.
    [[nodiscard]] bool mayGoOn() noexcept;

    /// The work that may still be undone has come to an end, well or not: nothing is refused after it.
    void pass() noexcept { mayRefuse_ = false; }

    /// All is done.
    void finish() noexcept { report(1); }

    [[nodiscard]] bool isCancelled() const noexcept { return isCancelled_; }
    [[nodiscard]] bool isEndless() const noexcept { return isEndless_; }

    /// Throws what a caller's function threw, if one did.
    void rethrow() const;

    bool mayWrite(ZAVWatchedFiles::Kind kind, std::int64_t size, std::int64_t end) noexcept override;

private:
    struct Part {
        std::int64_t expected = 0;
        std::int64_t done = 0;

        [[nodiscard]] double share() const noexcept;
    };

    void report(double share) noexcept;
    template <class Call>
    void callOut(const Call& call) noexcept;

    const std::function<void(double)>& progress_;
    const std::function<bool()>& cancel_;
    Part temporary_;
    Part log_;
    Part database_;
    double reported_ = -1;
    bool mayRefuse_ = true;
    bool isCancelled_ = false;
    bool isEndless_ = false;
    std::exception_ptr thrown_;
};

}  // namespace zav
