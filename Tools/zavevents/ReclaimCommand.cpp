#include <cstdint>
#include <string>

#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVPrintable.h>

#include "Command.h"

namespace zavevents {
namespace {

using namespace zav;

struct ReclaimOptions {
    std::uint64_t bytes = 0;
    ClientOptions client;
    bool dryRun = false;
};

/// Prints what became of a part.
void tell(const ZAVPurgedContent& content) {
    using Outcome = ZAVPurgedContent::Outcome;
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

void reclaim(ZAVEventStore& store, const ReclaimOptions& options) {
    ZAVPurgePolicy policy;
    policy.bytesToFree = options.bytes;
    policy.changesNothing = options.dryRun;
    ZAVPurgeResult done;  // also of a purge that fails
    const auto count = [&](const ZAVPurgedContent& content) {
        done.parts += content.parts;
        done.bytes += content.bytes;
        tell(content);
    };
    ZAVError error;
    const auto result = store.content().purge(policy, count, &error);
    if (!result && error.domain() == ZAVErrorDomainEventStore) {
        throw ToolError(error.message());  // the directory cannot be used
    }
    std::cout << done.parts << " parts, " << done.bytes
              << (options.dryRun ? " bytes to free\n" : " bytes freed\n");
    require(result.has_value(), "cannot reclaim", error);
    if (result->refused != 0 && result->bytes < options.bytes) {
        throw ToolError(std::to_string(result->refused) + " parts could not be reclaimed");
    }
}

}  // namespace

void addReclaimCommand(CLI::App& app, Invocation& invocation) {
    const Command<ReclaimOptions> command(
        app, invocation, "reclaim",
        "Remove the files of the least recently accessed parts and mark them purged",
        "--bytes 100000000 --cache ~/.cache/ZAVEventRepository --dry-run");
    auto& [bytes, client, dryRun] = command.options();
    addOption(command.parser(), "--bytes", bytes, amount(), "How much to free")->required();
    addCacheOption(command.parser(), client);
    command.parser().add_flag("--dry-run", dryRun, "Say what would be removed, and remove nothing");
    command.doesInClientStore(reclaim);
}

}  // namespace zavevents
