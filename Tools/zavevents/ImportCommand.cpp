#include <unistd.h>

#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "Arguments.h"
#include "Commands.h"
#include "Help.h"
#include "Importer.h"
#include "LineReader.h"
#include "Private/Foundation/NSInternalInconsistencyException.h"
#include "Store.h"
#include "ToolError.h"

namespace zavevents {
namespace {

using namespace zav;

struct ImportOptions {
    std::string database;
    std::string file = "-";
    std::uint64_t batch = 1000;
    bool recordChanges = false;
    bool skipBadLines = false;
    std::optional<ZAVUUID> appID;
    std::string user;
};

/// Shows how far a long import is, on a terminal only.
class Progress {
public:
    Progress() = default;
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    void show(std::uint64_t lines) {
        if (isTerminal_ && lines % 10000 == 0) {
            std::cerr << '\r' << lines << " lines";
            shown_ = true;
        }
    }
    ~Progress() {
        if (shown_) {
            std::cerr << "\r\033[K";
        }
    }

private:
    const bool isTerminal_ = isatty(STDERR_FILENO) != 0;
    bool shown_ = false;
};

std::optional<DownloadOwner> ownerFrom(const ImportOptions& options) {
    if (!options.appID) {
        return std::nullopt;
    }
    return DownloadOwner{*options.appID, options.user};
}

bool isBlank(std::string_view line) {
    return line.find_first_not_of(" \t\r") == std::string_view::npos;
}

void import(const ImportOptions& options) {
    EventReader reader(ownerFrom(options));
    LineReader lines(options.file);
    Importer importer(openOrCreateStore(options.database), static_cast<std::size_t>(options.batch),
                      options.recordChanges);
    std::uint64_t badLines = 0;
    const auto place = [&] { return lines.name() + ":" + std::to_string(lines.lineNumber()) + ": "; };
    const auto stopped = [&](const std::string& reason) {
        const Importer::Counts& kept = importer.counts();
        return ToolError(place() + reason + "\n" + std::to_string(kept.added + kept.updated) +
                         " events of the batches before are stored, none of this batch");
    };
    try {
        Progress progress;
        while (const auto line = lines.next()) {
            progress.show(lines.lineNumber());
            if (isBlank(*line)) {
                continue;
            }
            ReadEvent read;
            try {
                read = reader.read(*line);
            } catch (const BadLine& bad) {
                if (!options.skipBadLines) {
                    throw;
                }
                std::cerr << place() << bad.what() << " (skipped)\n";
                ++badLines;
                continue;
            }
            importer.add(read);
        }
        importer.finish();
    } catch (const BadLine& bad) {
        throw stopped(bad.what());
    } catch (const NSInternalInconsistencyException& exception) {
        throw stopped("in the batch that ends here: " + exception.reason());
    } catch (const ToolError& error) {
        throw stopped(std::string("in the batch that ends here: ") + error.what());
    }
    const Importer::Counts& counts = importer.counts();
    std::cout << "imported " << counts.added + counts.updated << " events in " << importer.streamCount()
              << " streams: " << counts.added << " new, " << counts.updated << " updated";
    if (options.skipBadLines) {
        std::cout << ", " << badLines << " bad lines skipped";
    }
    std::cout << '\n';
}

}  // namespace

void addImportCommand(CLI::App& app, Action& action) {
    auto* const command = app.add_subcommand("import", "Store the events of a JSON Lines file");
    const auto options = std::make_shared<ImportOptions>();
    addDatabaseOption(*command, options->database);
    addOption(*command, "FILE", options->file, fileName(),
              "The events, one a line (default: standard input, also as -)");
    addOption(*command, "--batch", options->batch, wholeNumber<std::uint64_t>(1, 1000000),
              "How many events are stored together (default: 1000)");
    command->add_flag("--record-changes", options->recordChanges,
                      "Record each new event as waiting to be processed");
    command->add_flag("--skip-bad-lines", options->skipBadLines, "Count lines that are no events and go on");
    auto* const appID = addOption(*command, "--app-id", options->appID, uuid(),
                                  "The application, a UUID, that content is downloaded for");
    auto* const user =
        addOption(*command, "--user", options->user, text(), "The user that content is downloaded for");
    appID->needs(user);
    user->needs(appID);
    setExample(*command, "chat.db events.jsonl");
    command->callback([options, &action] { action = [options] { import(*options); }; });
}

}  // namespace zavevents
