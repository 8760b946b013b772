#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>
#include <memory>
#include <string>

#include <ZAVEventRepository/ZAVTransaction.h>

#include "Arguments.h"
#include "Commands.h"
#include "Help.h"
#include "ToolError.h"
#include "WholeOption.h"

namespace zavevents {

/// A command while it is being described: its name, its help, the database that it takes first, its options.
template <class Options>
class Command {
public:
    /// @param example what stands behind the database in the example that ends its help.
    Command(CLI::App& app, Invocation& invocation, const std::string& name, const std::string& description,
            const std::string& example)
        : parser_(*app.add_subcommand(name, description)), invocation_(invocation) {
        addOption(parser_, "DATABASE", invocation.database.path, fileName(), "The database file")->required();
        setExample(parser_, example.empty() ? "chat.db" : "chat.db " + example);
    }

    [[nodiscard]] CLI::App& parser() const { return parser_; }
    [[nodiscard]] Options& options() const { return *options_; }

    /// Has the command do `work`, which takes the database file and the options.
    /// @param check throws `CLI::ValidationError` when the options do not go together.
    template <class Work>
    void does(
        Work work, const std::function<void()>& check = [] {}) const {
        parser_.callback([&invocation = invocation_, options = options_, work, check] {
            check();
            invocation.action = [options, work](const DatabaseFile& file) { work(file, *options); };
        });
    }

    /// Has the command change rows of an existing store, all or none of them: `work` takes the open store and
    /// the options, runs inside one transaction, which has the write lock from its beginning, and returns
    /// what is printed once that is stored. The texts say what cannot be done when the transaction fails.
    template <class Work>
    void changes(Work work, const std::string& cannotBegin = "cannot begin to write",
                 const std::string& cannotStore = "cannot store the changes") const {
        does([work, cannotBegin, cannotStore](const DatabaseFile& file, const Options& options) {
            changeRows(file, options, work, cannotBegin, cannotStore);
        });
    }

    /// Has the command run operations of a client's store, which is opened as `client` says: `work` takes it
    /// and the options.
    template <class Work>
    void doesInClientStore(Work work) const {
        does([work](const DatabaseFile& file, const Options& options) {
            work(*openClientStore(file, storeOptionsOf(options.client)), options);
        });
    }

    /// Has the command run operations of a client's store when `whole` says so, and `work` inside one
    /// transaction as `changes` does otherwise. `client` takes the store and the options, and returns what is
    /// printed.
    template <class Work, class Client>
    void changesOrWhole(Work work, Client client) const {
        does([work, client](const DatabaseFile& file, const Options& options) {
            if (!options.whole.isWanted) {
                changeRows(file, options, work, "cannot begin to write", "cannot store the changes");
                return;
            }
            std::cout << client(*openClientStore(file, storeOptionsOf(options.whole.client)), options)
                      << '\n';
        });
    }

private:
    template <class Work>
    static void changeRows(const DatabaseFile& file, const Options& options, const Work& work,
                           const std::string& cannotBegin, const std::string& cannotStore) {
        const std::shared_ptr<zav::FMDatabase> database = openStore(file);
        zav::ZAVError error;
        auto transaction = required(zav::ZAVTransaction::begin(*database, &error), cannotBegin, error);
        const std::string done = work(database, options);
        require(transaction.commit(&error), cannotStore, error);
        std::cout << done << '\n';
    }

    CLI::App& parser_;
    Invocation& invocation_;
    std::shared_ptr<Options> options_ = std::make_shared<Options>();
};

}  // namespace zavevents
