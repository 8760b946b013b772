#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace zavevents {

/// What the command line asks for: set by the command that was named, run when the whole line has been read.
using Action = std::function<void()>;

void addInitCommand(CLI::App& app, Action& action);
void addImportCommand(CLI::App& app, Action& action);
void addEventsCommand(CLI::App& app, Action& action);
void addStatsCommand(CLI::App& app, Action& action);
void addPartsCommand(CLI::App& app, Action& action);

/// `sequence`, `tombstone`, `delete` and `processed`.
void addEventCommands(CLI::App& app, Action& action);

/// `conversation`, `participant-seq`, `message` and `message-seq`.
void addConversationCommands(CLI::App& app, Action& action);

void addTransferCommand(CLI::App& app, Action& action);
void addReclaimCommand(CLI::App& app, Action& action);
void addCheckCommand(CLI::App& app, Action& action);

}  // namespace zavevents
