#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "Store.h"

namespace zavevents {

/// What the command line asks for: filled in while it is read, done when the whole line has been read.
struct Invocation {
    DatabaseFile database{};
    std::function<void(const DatabaseFile&)> action{};  ///< of the command that is named
};

void addCheckCommand(CLI::App& app, Invocation& invocation);
void addCheckpointCommand(CLI::App& app, Invocation& invocation);
void addCompactCommand(CLI::App& app, Invocation& invocation);
void addConversationCommand(CLI::App& app, Invocation& invocation);
void addConversationsCommand(CLI::App& app, Invocation& invocation);
void addDeleteCommand(CLI::App& app, Invocation& invocation);
void addDeleteStreamCommand(CLI::App& app, Invocation& invocation);
void addDiskUsageCommand(CLI::App& app, Invocation& invocation);
void addEventsCommand(CLI::App& app, Invocation& invocation);
void addImportCommand(CLI::App& app, Invocation& invocation);
void addInitCommand(CLI::App& app, Invocation& invocation);
void addMessageCommand(CLI::App& app, Invocation& invocation);
void addMessageSeqCommand(CLI::App& app, Invocation& invocation);
void addMissingCommand(CLI::App& app, Invocation& invocation);
void addOutboxCommand(CLI::App& app, Invocation& invocation);
void addParticipantSeqCommand(CLI::App& app, Invocation& invocation);
void addPartsCommand(CLI::App& app, Invocation& invocation);
void addProcessedCommand(CLI::App& app, Invocation& invocation);
void addReceiveCommand(CLI::App& app, Invocation& invocation);
void addReclaimCommand(CLI::App& app, Invocation& invocation);
void addRepairCommand(CLI::App& app, Invocation& invocation);
void addSendCommand(CLI::App& app, Invocation& invocation);
void addSequenceCommand(CLI::App& app, Invocation& invocation);
void addStatsCommand(CLI::App& app, Invocation& invocation);
void addStreamPostedCommand(CLI::App& app, Invocation& invocation);
void addTombstoneCommand(CLI::App& app, Invocation& invocation);
void addTransferCommand(CLI::App& app, Invocation& invocation);
void addWatchCommand(CLI::App& app, Invocation& invocation);

}  // namespace zavevents
