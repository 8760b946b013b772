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

/// Prints what became of a part.
void tell(const ReclaimedContent& content) {
    using Outcome = ReclaimedContent::Outcome;
    if (content.outcome == Outcome::refused) {
        std::cerr << ZAVPrintable(content.reason) << '\n';
        return;
    }
    std::cout << ZAVPrintable(content.path) << ": "
              << (content.outcome == Outcome::removed ? std::to_string(content.bytes) + " bytes"
                  : content.outcome == Outcome::gone  ? "was gone already"
                                                      : "kept, since a part that is not complete needs it")
              << '\n';
}

void reclaim(const DatabaseFile& file, const ReclaimOptions& options) {
    const auto database = openStore(file);
    ContentReclaimer reclaimer(*database, options.cache);
    std::size_t parts = 0;
    std::uint64_t bytes = 0;
    std::size_t refused = 0;
    const auto count = [&](const ReclaimedContent& content) {
        parts += content.parts;
        bytes += content.bytes;
        refused += content.outcome == ReclaimedContent::Outcome::refused ? 1 : 0;
        tell(content);
    };
    ZAVError error;
    const bool succeeded = options.dryRun ? reclaimer.foretell(options.bytes, count, &error)
                                          : reclaimer.reclaim(options.bytes, count, &error);
    std::cout << parts << " parts, " << bytes << (options.dryRun ? " bytes to free\n" : " bytes freed\n");
    if (!succeeded) {
        throw ToolError("cannot reclaim", error);
    }
    if (refused != 0 && bytes < options.bytes) {
        throw ToolError(std::to_string(refused) + " parts could not be reclaimed");
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
