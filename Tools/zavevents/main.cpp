#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <map>
#include <string>

#include "Commands.h"
#include "Private/Logging/DDLog.h"

namespace {

enum class LogChoice { off, error, verbose };

void setLogGuards(LogChoice choice) {
    const int level = choice == LogChoice::verbose ? 5 : choice == LogChoice::error ? 1 : 0;
    for (auto& preference : zav::gZAVLogPreferences) {
        preference = level;
    }
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Stores, lists and maintains the events of a messaging client's database.", "zavevents");
    app.require_subcommand(1);
    app.fallthrough();
    LogChoice log = LogChoice::error;
    app.add_option("--log", log,
                   "What the library logs to standard error: verbose, error or off (default: error)")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, LogChoice>{
                {"verbose", LogChoice::verbose}, {"error", LogChoice::error}, {"off", LogChoice::off}},
            CLI::ignore_case));

    zavevents::Action action;
    zavevents::addInitCommand(app, action);
    zavevents::addImportCommand(app, action);
    zavevents::addEventsCommand(app, action);
    zavevents::addPartsCommand(app, action);
    zavevents::addStatsCommand(app, action);
    zavevents::addEventCommands(app, action);
    zavevents::addTransferCommand(app, action);
    zavevents::addReclaimCommand(app, action);
    zavevents::addCheckCommand(app, action);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        setLogGuards(log);
        action();
    } catch (const std::exception& error) {
        zav::DDLog::flush();
        std::cerr << "zavevents: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
