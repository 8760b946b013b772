#pragma once

#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Contender.h"
#include "Store.h"
#include "Workloads.h"

namespace zav::bench {

inline constexpr std::array contenderKinds{
    ContenderKind{"library", openLibrary}, ContenderKind{"floor", openFloor},
    ContenderKind{"naive", openNaive}, ContenderKind{"SQLiteCpp", openSQLiteCpp},
    ContenderKind{"SOCI", openSoci}};

inline constexpr std::size_t libraryIndex = 0;
inline constexpr std::size_t floorIndex = 1;

/// The contenders side by side, each with files of its own: one that is only read, and one that is written.
class Comparison {
public:
    explicit Comparison(const std::filesystem::path& directory);

    struct Result {
        std::size_t rounds = 0;
        double floorSeconds = 0;  ///< median for one unit

        /// Median, over the rounds, of a contender's time as a multiple of the floor's in the same round.
        std::array<double, contenderKinds.size()> ratios{};
    };

    /// Checks that all contenders run the same statements and answer the same, then times them in turn, round
    /// by round, for about `seconds`.
    /// @throws std::runtime_error when a contender differs from the library.
    Result run(const Workload& workload, double seconds);

private:
    struct Files {
        std::unique_ptr<Contender> reading;
        std::unique_ptr<Contender> writing;
    };

    std::vector<Session> sessionsFor(const Workload& workload);

    Samples samples_;
    std::vector<Files> contenders_;
};

}  // namespace zav::bench
