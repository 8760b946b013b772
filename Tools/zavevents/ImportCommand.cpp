#include <new>
#include <string>

#include <ZAVEventRepository/NSInternalInconsistencyException.h>

#include "Command.h"
#include "Importer.h"
#include "LineReader.h"
#include "ProgressLine.h"
#include "StopSignals.h"

namespace zavevents {
namespace {

using namespace zav;

struct ImportOptions {
    std::string file = "-";
    std::uint64_t batch = 1000;
    bool recordChanges = false;
    bool skipBadLines = false;
    ClientOptions client;
};

/// One import, from its options to its summary.
class Import {
public:
    Import(const DatabaseFile& database, const ImportOptions& options, const StopSignals& signals)
        : options_(options),
          signals_(signals),
          reader_(ownerOf(options.client)),
          lines_(options.file, &signals),
          importer_(openOrCreateStore(database),
                    {static_cast<std::size_t>(options.batch), options.recordChanges, options.client.user},
                    [this](const std::string& remark) { progress_.say(lines_.place() + remark); }) {}

    /// @return false when a signal ended it.
    /// @throws ToolError
    bool run() {
        try {
            storeLines();
            if (signals_.received() == 0) {
                importer_.finish();
                return true;
            }
        } catch (const BadLine& bad) {
            throw ToolError(lines_.place() + bad.what() + kept());
        } catch (const NSInternalInconsistencyException& exception) {
            throw ToolError(lines_.place() + "in the batch that ends here: " + exception.reason() + kept());
        } catch (const std::bad_alloc&) {
            throw ToolError(lines_.place() + "in the batch that ends here: out of memory" + kept());
        } catch (const ToolError& error) {
            throw ToolError(lines_.place() + "in the batch that ends here: " + error.what() + kept());
        }
        progress_.say("zavevents: " + lines_.place() + "stopped by " + nameOfSignal(signals_.received()) +
                      kept());
        return false;
    }

    void printSummary() const {
        const Importer::Counts& counts = importer_.counts();
        std::cout << "imported " << counts.stored() << " events in " << importer_.streamCount()
                  << " streams: " << counts.added << " new, " << counts.updated << " updated";
        if (counts.differing != 0) {
            std::cout << ", " << counts.differing << " stored with other content";
        }
        if (options_.skipBadLines) {
            std::cout << ", " << badLines_ << " bad lines skipped";
        }
        std::cout << '\n';
    }

private:
    void storeLines() {
        while (const auto line = lines_.nextWithText()) {
            if (signals_.received() != 0) {
                return;
            }
            progress_.show(lines_.lineNumber());
            store(*line);
        }
    }

    void store(std::string_view line) {
        try {
            importer_.add(reader_.read(line));
        } catch (const BadLine& bad) {
            if (!options_.skipBadLines) {
                throw;
            }
            progress_.say(lines_.place() + bad.what() + " (skipped)");
            ++badLines_;
        }
    }

    [[nodiscard]] std::string kept() const {
        return "\n" + std::to_string(importer_.counts().stored()) +
               " events of the batches before are stored, none of this batch";
    }

    const ImportOptions& options_;
    const StopSignals& signals_;
    ProgressLine progress_;
    EventReader reader_;
    LineReader lines_;
    Importer importer_;
    std::uint64_t badLines_ = 0;
};

void import(const DatabaseFile& database, const ImportOptions& options) {
    const StopSignals signals;
    if (Import import(database, options, signals); import.run()) {
        import.printSummary();
        return;
    }
    endBySignal(signals.received());  // the store is closed by now
}

}  // namespace

void addImportCommand(CLI::App& app, Invocation& invocation) {
    const Command<ImportOptions> command(app, invocation, "import", "Store the events of a JSON Lines file",
                                         "events.jsonl");
    CLI::App& parser = command.parser();
    ImportOptions& options = command.options();
    addOption(parser, "FILE", options.file, fileName(),
              "The events, one a line (default: standard input, also as -)");
    addOption(parser, "--batch", options.batch, wholeNumber<std::uint64_t>(1, 1000000),
              "How many events are stored together (default: 1000)");
    parser.add_flag("--record-changes", options.recordChanges,
                    "Record each new event as waiting to be processed");
    parser.add_flag("--skip-bad-lines", options.skipBadLines, "Count lines that are no events and go on");
    auto* const appID = addOption(parser, "--app-id", options.client.appID, uuid(),
                                  "The application, a UUID, that content is downloaded for");
    auto* const user =
        addOption(parser, "--user", options.client.user, text(),
                  "The user: the author of stored events without one, and who downloads content");
    appID->needs(user);
    command.does(import);
}

}  // namespace zavevents
