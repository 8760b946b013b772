#include <chrono>
#include <cstdint>
#include <string>

#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVPrintable.h>

#include "Command.h"

namespace zavevents {
namespace {

using namespace zav;

struct RepairOptions {
    ClientOptions client;
    std::int64_t age = 86400;
    bool dryRun = false;
};

void tell(const ZAVContentOrphans& orphans, bool isDone) {
    for (const std::string& file : orphans.files) {
        std::cout << ZAVPrintable(file) << ": no part names it" << (isDone ? ", removed\n" : "\n");
    }
    for (const ZAVDatabaseIdentifier part : orphans.partsWithoutFile) {
        std::cout << "part in row " << part << ": its file is missing"
                  << (isDone ? ", marked purged\n" : "\n");
    }
    for (const ZAVDatabaseIdentifier part : orphans.uploadsWithoutFile) {
        std::cout << "part in row " << part << ": its file is missing, and was not uploaded\n";
    }
    std::cout << (isDone ? "repaired " : "to repair: ") << orphans.files.size() << " files of "
              << orphans.bytes << " bytes and " << orphans.partsWithoutFile.size() << " parts; "
              << orphans.uploadsWithoutFile.size() << " uploads are lost\n";
}

void repair(ZAVEventStore& store, const RepairOptions& options) {
    const std::chrono::seconds age(options.age);
    ZAVError error;
    auto orphans =
        options.dryRun ? store.content().findOrphans(age, &error) : store.content().repair(age, &error);
    tell(required(std::move(orphans), "cannot repair", error), !options.dryRun);
}

}  // namespace

void addRepairCommand(CLI::App& app, Invocation& invocation) {
    const Command<RepairOptions> command(
        app, invocation, "repair", "Make the files of content and the parts that name them agree",
        "--cache ~/.cache/ZAVEventRepository --app-id 9f4a5f2e-0c65-4a35-9c0e-6d0f6a3b1c55 --user ada --dry-run");
    CLI::App& parser = command.parser();
    auto& [client, age, dryRun] = command.options();
    addCacheOption(parser, client);
    addOption(parser, "--app-id", client.appID, uuid(), "The application, a UUID, whose files are looked at")
        ->required();
    addOption(parser, "--user", client.user, text(), "The user whose files are looked at")->required();
    addOption(parser, "--age", age, wholeNumber<std::int64_t>(0, 1000000000),
              "For how many seconds a file must have been left unchanged (default: a day)");
    parser.add_flag("--dry-run", dryRun, "Say what does not agree, and change nothing");
    command.doesInClientStore(repair);
}

}  // namespace zavevents
