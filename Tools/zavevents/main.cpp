#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <ZAVEventRepository/ZAVPrintable.h>

#include "Arguments.h"
#include "Commands.h"
#include "EngineReport.h"
#include "Help.h"
#include "Mistake.h"
#include "ToolError.h"

namespace zavevents {
namespace {

void setLogGuards(const std::string& choice) {
    const int level = choice == "verbose" ? 5 : choice == "error" ? 1 : 0;
    for (auto& preference : zav::gZAVLogPreferences) {
        preference = level;
    }
}

/// What is still buffered goes out now: a result that cannot be written is a failure, not a short file.
void flushStandardOutput() {
    errno = 0;
    if (!std::cout.flush() || std::fflush(stdout) != 0) {
        throw ToolError(std::string("standard output: ") + std::strerror(errno));
    }
}

int run(int argc, char** argv) {
    CLI::App app("Stores, lists and maintains the events of a messaging client's database.", "zavevents");
    app.formatter(std::make_shared<HelpFormatter>());
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", versionText, "Print the versions of tool and engine and exit");
    std::string log = "error";
    app.add_option("--log", log,
                   "What the library logs to standard error: verbose, error or off (default: error)")
        ->check(CLI::IsMember({"verbose", "error", "off"}));
    std::string keyFile;
    addOption(app, "--key-file", keyFile, fileName(),
              "A file with the key of an encrypted database; a line break at its end is no part of it");

    Invocation invocation;
    app.add_flag("--trace", invocation.database.isTraced,
                 "Print each statement to standard error: its time, the rows read, its text");

    for (const auto add :
         {addInitCommand,           addImportCommand,       addEventsCommand,     addPartsCommand,
          addConversationsCommand,  addWatchCommand,        addStatsCommand,      addSequenceCommand,
          addTombstoneCommand,      addDeleteCommand,       addProcessedCommand,  addConversationCommand,
          addParticipantSeqCommand, addMessageCommand,      addMessageSeqCommand, addTransferCommand,
          addReceiveCommand,        addSendCommand,         addOutboxCommand,     addStreamPostedCommand,
          addMissingCommand,        addDeleteStreamCommand, addReclaimCommand,    addRepairCommand,
          addDiskUsageCommand,      addCheckpointCommand,   addCompactCommand,    addCheckCommand}) {
        add(app, invocation);
    }
    setExample(app, "--trace stats chat.db");
    refuseValuesOfFlags(app);

    try {
        refuseEmptyValues(argc, argv);
        app.parse(argc, argv);
        setLogGuards(log);
        if (app.count("--key-file") != 0) {
            invocation.database.key = readKey(keyFile);
        }
        invocation.action(invocation.database);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            std::cerr << describeMistake(app, error) << '\n';
            return 2;
        }
        app.exit(error);  // help, or the version
    }
    flushStandardOutput();
    return 0;
}

int fail(const std::string& reason) {
    zav::DDLog::flush();
    std::cerr << "zavevents: " << reason << '\n';
    return 1;
}

}  // namespace
}  // namespace zavevents

int main(int argc, char** argv) {
    // A file that must not grow further is a write that fails: the message says what was stored.
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    static_cast<void>(zav::ZAVDatabaseEngine::configureProcess());  // nothing asks here what memory is in use
    try {
        return zavevents::run(argc, argv);
    } catch (const zavevents::ToolError& error) {
        return zavevents::fail(error.what());
    } catch (const std::exception& error) {
        return zavevents::fail(zav::ZAVPrintable(error.what()));
    }
}
