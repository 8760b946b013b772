#include <cstdint>
#include <string>

#include <ZAVEventRepository/ZAVPrintable.h>

#include "Command.h"
#include "ContentReclaimer.h"

namespace zavevents {
namespace {

using namespace zav;

struct ReclaimOptions {
    std::uint64_t bytes = 0;
    std::string cache;
    bool dryRun = false;
};

/// Prints what became of each part, and counts.
class ReclaimReport {
public:
    void add(const ReclaimedContent& content) {
        using Outcome = ReclaimedContent::Outcome;
        parts_ += content.parts;
        bytes_ += content.bytes;
        if (content.outcome == Outcome::refused) {
            ++refused_;
            std::cerr << ZAVPrintable(content.reason) << '\n';
            return;
        }
        std::cout << ZAVPrintable(content.path) << ": "
                  << (content.outcome == Outcome::removed ? std::to_string(content.bytes) + " bytes"
                      : content.outcome == Outcome::gone  ? "was gone already"
                                                         : "kept, since a part that is not complete needs it")
                  << '\n';
    }

    [[nodiscard]] std::size_t parts() const { return parts_; }
    [[nodiscard]] std::uint64_t bytes() const { return bytes_; }
    [[nodiscard]] std::size_t refused() const { return refused_; }

private:
    std::size_t parts_ = 0;
    std::uint64_t bytes_ = 0;
    std::size_t refused_ = 0;
};

void reclaim(const DatabaseFile& file, const ReclaimOptions& options) {
    const auto database = openStore(file);
    ContentReclaimer reclaimer(*database, options.cache);
    ReclaimReport report;
    const auto tell = [&report](const ReclaimedContent& content) { report.add(content); };
    ZAVError error;
    const bool succeeded = options.dryRun ? reclaimer.foretell(options.bytes, tell, &error)
                                          : reclaimer.reclaim(options.bytes, tell, &error);
    std::cout << report.parts() << " parts, " << report.bytes()
              << (options.dryRun ? " bytes to free\n" : " bytes freed\n");
    if (!succeeded) {
        throw ToolError("cannot reclaim", error);
    }
    if (report.refused() != 0 && report.bytes() < options.bytes) {
        throw ToolError(std::to_string(report.refused()) + " parts could not be reclaimed");
    }
}

}  // namespace

void addReclaimCommand(CLI::App& app, Invocation& invocation) {
    const Command<ReclaimOptions> command(
        app, invocation, "reclaim",
        "Remove the files of the least recently accessed parts and mark them purged",
        "--bytes 100000000 --cache ~/.cache/ZAVEventRepository --dry-run");
    auto& [bytes, cache, dryRun] = command.options();
    addOption(command.parser(), "--bytes", bytes, amount(), "How much to free")->required();
    addOption(command.parser(), "--cache", cache, fileName(),
              "The cache directory; nothing outside it is touched")
        ->required();
    command.parser().add_flag("--dry-run", dryRun, "Say what would be removed, and remove nothing");
    command.does(reclaim);
}

}  // namespace zavevents
