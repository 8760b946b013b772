#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVPrintable.h>

#include "Command.h"

namespace zavevents {
namespace {

using namespace zav;

struct InitOptions {};

void init(const DatabaseFile& file, const InitOptions& /*options*/) {
    static_cast<void>(openOrCreateStore(file));
    std::cout << ZAVPrintable(file.path) << ": schema version " << ZAVDatabaseSchema::currentVersion()
              << '\n';
}

}  // namespace

void addInitCommand(CLI::App& app, Invocation& invocation) {
    const Command<InitOptions> command(
        app, invocation, "init", "Create a database and its schema, or bring an older one up to date", "");
    command.does(init);
}

}  // namespace zavevents
