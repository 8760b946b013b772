#include <iostream>
#include <memory>
#include <string>

#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVPrintable.h>

#include "Arguments.h"
#include "Commands.h"
#include "Help.h"

#include "Store.h"

namespace zavevents {

void addInitCommand(CLI::App& app, Action& action) {
    auto* const command =
        app.add_subcommand("init", "Create a database and its schema, or bring an older one up to date");
    const auto path = std::make_shared<std::string>();
    addDatabaseOption(*command, *path);
    setExample(*command, "chat.db");
    command->callback([path, &action] {
        action = [path] {
            static_cast<void>(openOrCreateStore(*path));
            std::cout << zav::ZAVPrintable(*path) << ": schema version "
                      << zav::ZAVDatabaseSchema::currentVersion() << '\n';
        };
    });
}

}  // namespace zavevents
