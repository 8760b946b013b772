// Files of events: any bytes as JSON Lines.
//
// An input is a byte of options and the file's bytes: bits 0 and 1 say how many events make a batch (one to
// four), bit 2 whether bad lines are skipped, bit 3 whether changes are recorded, bit 4 whether content is to
// be downloaded, bit 5 whether a long blank line comes first, so that the others lie across the end of a
// block of the reader.

#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "EventReader.h"
#include "EventWriter.h"
#include "ExactExpirations.h"
#include "Expect.h"
#include "Importer.h"
#include "InputReader.h"
#include "LineReader.h"
#include "Operations/Description.h"
#include "Operations/FilledStore.h"
#include "ReadBackCheck.h"
#include "Support/TemporaryDirectory.h"
#include "ToolError.h"

namespace {

using namespace zav;
using namespace zavevents;
using fuzzing::expect;

struct Options {
    explicit Options(std::uint8_t bits)
        : batch((bits & 3U) + 1),
          skipBadLines((bits & 4) != 0),
          recordChanges((bits & 8) != 0),
          longLine((bits & 32) != 0) {
        if ((bits & 16) != 0) {
            owner = DownloadOwner{ZAVUUID(), "user/../1"};
        }
    }

    std::size_t batch;
    bool skipBadLines;
    bool recordChanges;
    bool longLine;
    std::optional<DownloadOwner> owner;
};

/// An empty event store in memory; its schema is made once.
class EmptyStore {
public:
    EmptyStore() : database_(ZAVDatabaseSchema::openDatabase(":memory:")) {
        expect(database_ != nullptr, "an event store in memory to open");
    }

    const std::shared_ptr<FMDatabase>& emptied() {
        expect(database_->executeStatements(
                   "DELETE FROM streams; DELETE FROM events; DELETE FROM event_content_parts;"
                   "DELETE FROM synced_changes; DELETE FROM keyed_values_remote;"
                   "DELETE FROM sqlite_sequence"),
               "a store to be emptied");
        return database_;
    }

private:
    std::shared_ptr<FMDatabase> database_;
};

/// The lines by the definition: what stands between line breaks, and after the last of them unless that is
/// nothing; without a mark of UTF-8 at the beginning.
std::vector<std::string> linesOf(const std::string& bytes) {
    const std::string_view mark = "\xEF\xBB\xBF";
    std::vector<std::string> lines;
    std::istringstream stream(bytes);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    if (!lines.empty() && lines.front().starts_with(mark)) {
        lines.front().erase(0, mark.size());
    }
    return lines;
}

/// The lines as the tool reads them; none when it takes the file for text in another encoding.
std::optional<std::vector<std::string>> readLines(const std::string& bytes) {
    static const test::TemporaryDirectory directory;
    static const std::string path = directory.file("events.jsonl");
    std::ofstream(path, std::ios::binary) << bytes;
    LineReader reader(path);
    std::vector<std::string> lines;
    try {
        while (const auto line = reader.next()) {
            lines.emplace_back(*line);
        }
    } catch (const BadLine&) {
        expect(lines.empty(), "the encoding to be told by the first line");
        return std::nullopt;
    }
    expect(reader.lineNumber() == lines.size(), "lines to be counted from one");
    expect(!reader.next(), "the end of a file to stay its end");
    return lines;
}

std::string lineOf(const ZAVEvent& event) {
    std::string line;
    appendEvent(event, event.seqIsSet(), line);
    expect(line.find('\n') == line.size() - 1, "an event to be one line");
    line.pop_back();
    return line;
}

std::vector<std::string> textOf(const ZAVEvent& event) {
    std::vector<std::string> text{test::describeAlone(event)};
    for (const auto& parts : {test::describeMetadata(event), test::describeParts(event)}) {
        text.insert(text.end(), parts.begin(), parts.end());
    }
    return text;
}

/// The event of a line, with the fields set that the writer always writes.
ReadEvent readWithEveryField(std::string_view line, EventReader& reader) {
    ReadEvent read = reader.read(line);
    ZAVEvent& event = *read.event;
    event.set_subtype(event.subtype());
    event.set_preceding_seq(event.preceding_seq());
    event.set_client_seq(event.client_seq());
    event.set_server_timestamp(event.server_timestamp());
    return read;
}

/// What was read is written and read again: it is the same event.
void checkFixpoint(std::string_view line, EventReader& reader) {
    const ReadEvent read = readWithEveryField(line, reader);
    const std::string written = lineOf(*read.event);
    try {
        const ReadEvent again = reader.read(written);
        if (textOf(*again.event) != textOf(*read.event) || lineOf(*again.event) != written) {
            std::cerr << line << '\n' << written << '\n' << lineOf(*again.event) << '\n';
            expect(false, "an event that was written to be read as the same event");
        }
    } catch (const BadLine& bad) {
        std::cerr << line << '\n' << written << '\n' << bad.what() << '\n';
        expect(false, "an event that was written to be readable");
    }
}

struct Import {
    bool finished = false;
    Importer::Counts counts;
    std::size_t events = 0;
};

/// Imports lines as the tool does, and holds that what a refused batch leaves is what was there before it.
Import import(const std::vector<std::string>& lines, const Options& options,
              const std::shared_ptr<FMDatabase>& database) {
    EventReader reader(options.owner);
    Import result;
    std::vector<std::string> stored = test::rowsOfAllTables(*database);
    try {
        Importer importer(database, {options.batch, options.recordChanges}, [](const std::string&) {});
        for (const std::string& line : lines) {
            if (line.find_first_not_of(" \t\r") == std::string::npos) {
                continue;
            }
            ReadEvent read;
            try {
                read = reader.read(line);
            } catch (const BadLine& bad) {
                expect(*bad.what() != '\0', "a refused line to come with a reason");
                if (options.skipBadLines) {
                    continue;
                }
                throw;
            }
            checkFixpoint(line, reader);
            try {
                importer.add(read);
            } catch (const BadLine& bad) {
                expect(*bad.what() != '\0',
                       "an event at a sequence that is taken to be refused with a reason");
                if (options.skipBadLines) {
                    continue;
                }
                throw;
            }
            ++result.events;
            const Importer::Counts& counts = importer.counts();
            if (counts.added + counts.updated != result.counts.added + result.counts.updated) {
                stored = test::rowsOfAllTables(*database);
                result.counts = counts;
            }
        }
        importer.finish();
        result.counts = importer.counts();
        result.finished = true;
    } catch (const BadLine&) {
    } catch (const ToolError&) {
    } catch (const NSInternalInconsistencyException&) {
    }
    expect(!database->inTransaction() && database->openResultSets() == 0, "an import to leave nothing open");
    if (!result.finished) {
        expect(test::rowsOfAllTables(*database) == stored, "nothing of a refused batch to be stored");
    }
    return result;
}

/// What an export writes, and whether it says of every event that it can be read back.
struct Export {
    std::vector<std::string> lines;
    bool isReadBack = true;
};

/// The stored events as lines, in order of their rows.
Export exported(const std::shared_ptr<FMDatabase>& database) {
    const ZAVEventRepository repository(database);
    ZAVError error;
    const auto all = repository.allEvents(&error);
    const auto posted = repository.postedAndProcessedEvents(&error);
    expect(all && posted && !error, "stored events to be readable");
    std::set<ZAVDatabaseIdentifier> sequenced;
    for (const auto& event : *posted) {
        sequenced.insert(event->databaseIdentifier());
    }
    std::vector<std::shared_ptr<ZAVEvent>> events(all->begin(), all->end());
    std::sort(events.begin(), events.end(), [](const auto& left, const auto& right) {
        return left->databaseIdentifier() < right->databaseIdentifier();
    });
    std::vector<bool> isSequenced;
    for (const auto& event : events) {
        isSequenced.push_back(sequenced.contains(event->databaseIdentifier()));
    }
    ReadBackCheck check(*database);
    check.findTwins(events, isSequenced);
    ExactExpirations expirations(*database, true);
    Export result;
    for (std::size_t index = 0; index < events.size(); ++index) {
        std::string line;
        expirations.restore(*events[index]);
        appendEvent(*events[index], isSequenced[index], line);
        result.isReadBack = result.isReadBack && check.reasonsFor(*events[index], line).empty();
        result.lines.push_back(line.substr(0, line.size() - 1));
    }
    return result;
}

/// The lines without the numbers of rows, which another database counts for itself. Quotes within a text are
/// escaped, so that these fields cannot be part of one.
std::vector<std::string> withoutRows(std::vector<std::string> lines) {
    for (std::string& line : lines) {
        for (const std::string_view field : {"\"database_identifier\":", "\"stream_database_identifier\":",
                                             "\"event_database_identifier\":"}) {
            for (std::size_t at = line.find(field); at != std::string::npos; at = line.find(field, at)) {
                at += field.size();
                line.erase(at, line.find_first_of(",}", at) - at);
            }
        }
    }
    return lines;
}

void expectSame(const std::vector<std::string>& actual, const std::vector<std::string>& expected,
                std::string_view sentence) {
    if (actual != expected) {
        for (const std::string& line : expected) {
            std::cerr << "- " << line << '\n';
        }
        for (const std::string& line : actual) {
            std::cerr << "+ " << line << '\n';
        }
        expect(false, sentence);
    }
}

void checkImport(const std::vector<std::string>& lines, const Options& options) {
    static EmptyStore first;
    static EmptyStore second;
    const auto& database = first.emptied();
    const Import result = import(lines, options, database);
    const Export events = exported(database);
    expect(result.counts.added == events.lines.size(), "an import to count the events that it adds");
    if (!result.finished) {
        return;
    }
    expect(result.counts.stored() == result.events, "an import to count every event");
    if (!events.isReadBack) {
        return;
    }
    const auto& copy = second.emptied();
    const Import copied = import(events.lines, options, copy);
    expect(copied.finished, "stored events to be importable");
    expectSame(withoutRows(exported(copy).lines), withoutRows(events.lines),
               "imported events to be those that were exported");
    const Import again = import(events.lines, options, copy);
    expect(again.finished && again.counts.added == 0, "events that are stored already to be recognised");
    expectSame(withoutRows(exported(copy).lines), withoutRows(events.lines),
               "importing twice to be importing once");
}

bool prepare() {
    gZAVLogPreferences[ZAVLogComponentModel] = 0;
    ZAVSetMessageRepositoryCacheBaseDirectoryURL(ZAVURL::fileURLWithDirectoryPath("/cache"));
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool prepared = prepare();
    expect(prepared, "the process to be prepared");
    fuzzing::InputReader input(data, size);
    const Options options(input.byte());
    std::string bytes(input.rest());
    if (options.longLine) {
        constexpr std::size_t blockSize = std::size_t{1} << 18;
        bytes.insert(0, std::string(blockSize - std::min(blockSize, bytes.size() / 2), ' ') + '\n');
    }
    if (const auto lines = readLines(bytes)) {
        expect(*lines == linesOf(bytes), "the lines of a file to be what its line breaks part");
        checkImport(*lines, options);
    }
    return 0;
}
