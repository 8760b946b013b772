#pragma once

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>

#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVTransaction.h>

#include "Arguments.h"
#include "Commands.h"
#include "Help.h"

#include "Store.h"
#include "ToolError.h"

namespace zavevents {

/// A command that changes rows of an existing store, all or none of them: it runs inside one transaction,
/// which has the write lock from its beginning, and what it says is printed once that is stored.
template <class Options>
class StoreCommand {
public:
    StoreCommand(CLI::App& app, const std::string& name, const std::string& description,
                 const std::string& example)
        : command_(app.add_subcommand(name, description)) {
        addDatabaseOption(*command_, *database_);
        setExample(*command_, "chat.db " + example);
    }

    [[nodiscard]] CLI::App& command() const { return *command_; }
    [[nodiscard]] Options& options() const { return *options_; }

    /// Has the command do `work`, which takes the open store and the options, and returns what to print.
    template <class Work>
    void does(Action& action, Work work) const {
        command_->callback([path = database_, options = options_, work, &action] {
            action = [path, options, work] {
                const std::shared_ptr<zav::FMDatabase> database = openStore(*path);
                zav::ZAVError error;
                auto transaction = zav::ZAVTransaction::begin(*database, &error);
                if (!transaction) {
                    throw ToolError("cannot begin to write", error);
                }
                const std::string done = work(database, *options);
                if (!transaction->commit(&error)) {
                    throw ToolError("cannot store the changes", error);
                }
                std::cout << done << '\n';
            };
        });
    }

private:
    CLI::App* command_;
    std::shared_ptr<std::string> database_ = std::make_shared<std::string>();
    std::shared_ptr<Options> options_ = std::make_shared<Options>();
};

/// @throws ToolError unless an operation succeeded.
inline void require(bool succeeded, const std::string& what, const zav::ZAVError& error) {
    if (!succeeded) {
        throw ToolError(what, error);
    }
}

/// The event in a row.
/// @throws ToolError also when there is none.
[[nodiscard]] inline std::shared_ptr<zav::ZAVEvent> eventInRow(const zav::ZAVEventRepository& repository,
                                                               zav::ZAVDatabaseIdentifier row) {
    zav::ZAVError error;
    auto event = repository.eventForDatabaseIdentifier(row, &error);
    require(!error, "cannot read the event", error);
    if (event == nullptr) {
        throw ToolError("there is no event in row " + std::to_string(row));
    }
    return event;
}

/// Says how many rows the last statement changed.
[[nodiscard]] inline std::string lastChanges(const zav::FMDatabase& database, const std::string& what) {
    return std::to_string(database.changes()) + " " + what;
}

}  // namespace zavevents
