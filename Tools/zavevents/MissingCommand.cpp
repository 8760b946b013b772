#include <nlohmann/json.hpp>
#include <utility>

#include "Command.h"

namespace zavevents {
namespace {

using namespace zav;

struct MissingOptions {
    std::optional<ZAVUUID> stream;
    std::uint64_t limit = 100;
    bool json = false;
    ClientOptions client;
};

std::vector<ZAVSequenceGap> missingSequences(ZAVEventStore& store, const MissingOptions& options) {
    std::optional<std::vector<ZAVSequenceGap>> gaps;
    ZAVDatabaseIdentifier stream = ZAVDatabaseIdentifierNotSet;
    ZAVError error;
    store.read(
        [&](const ZAVRepositories& repositories) {
            stream = repositories.streams.streamDatabaseIdentifierForUUID(*options.stream, &error);
            gaps = store.missingSequences(*options.stream, static_cast<std::size_t>(options.limit), &error);
        },
        &error);
    require(!error && gaps, "cannot look for missing sequences", error);
    if (stream == ZAVDatabaseIdentifierNotSet) {
        throw ToolError("there is no stream " + options.stream->UUIDString());
    }
    return *std::move(gaps);
}

void writeMissing(ZAVEventStore& store, const MissingOptions& options) {
    const auto gaps = missingSequences(store, options);
    if (options.json) {
        auto array = nlohmann::ordered_json::array();
        for (const auto& [first, last] : gaps) {
            array.push_back({{"first", first}, {"last", last}});
        }
        std::cout << nlohmann::ordered_json{{"gaps", std::move(array)}}.dump() << '\n';
        return;
    }
    for (const auto& [first, last] : gaps) {
        std::cout << first << (first == last ? "" : " to " + std::to_string(last)) << '\n';
    }
}

}  // namespace

void addMissingCommand(CLI::App& app, Invocation& invocation) {
    const Command<MissingOptions> command(app, invocation, "missing",
                                          "Tell which sequences of a stream are missing, the newest first",
                                          "--stream 48714726-d247-5be7-8537-0a57a788e38b");
    auto& [stream, limit, json, client] = command.options();
    addOption(command.parser(), "--stream", stream, uuid(), "The stream's UUID")->required();
    addOption(command.parser(), "--limit", limit, wholeNumber<std::uint64_t>(1, 1000000),
              "At most so many gaps (default: 100)");
    command.parser().add_flag("--json", json, "Write one JSON object");
    command.doesInClientStore(writeMissing);
}

}  // namespace zavevents
