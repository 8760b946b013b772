#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Support/TemporaryDirectory.h"

namespace zav::test {

/// Has this process ended by a signal once it has taken so many seconds of processor time, or has waited for
/// five times as long: a machine that is busy with others must not fail a test. Async-signal-safe.
[[nodiscard]] bool limitTime(unsigned seconds);

/// What a run of the tool left behind.
struct ToolRun {
    /// The exit status; 128 and the signal's number when a signal ended it, `notStarted` when it never ran.
    int status = 0;
    std::string out;
    std::string err;

    static constexpr int notStarted = 127;
};

/// The circumstances of a run.
struct ToolCircumstances {
    std::string input{};                                             ///< what standard input holds
    std::vector<std::pair<std::string, std::string>> environment{};  ///< variables to add or replace
    std::string outputPath{};  ///< a file to use as standard output; `ToolRun::out` then stays empty
    std::optional<rlim_t> fileSizeLimit{};  ///< writing a file beyond it fails instead of ending the process
    std::optional<rlim_t> memoryLimit{};    ///< bytes of address space that the run may take
    /// Processor time; a run that takes more, or that waits for five times as long, is ended by a signal. 0
    /// for no limit.
    unsigned secondsToLive = 0;
    std::optional<uid_t> user{};  ///< the user and group to become; needs a privileged caller
    std::string directory{};      ///< where it starts; empty for where the caller is
};

/// Runs the tool as a process of its own and waits for its end.
[[nodiscard]] ToolRun runTool(const std::vector<std::string>& arguments,
                              const ToolCircumstances& circumstances = {});

/// A directory with a database that is reached through the tool only.
class ToolStore {
public:
    ToolStore() = default;

    /// Keeps the database in a directory that belongs to somebody else.
    explicit ToolStore(std::string directory) : elsewhere_(std::move(directory)) {}

    [[nodiscard]] std::string file(const std::string& name) const;
    [[nodiscard]] std::string path() const { return file("chat.db"); }

    /// Writes a file and returns its path.
    std::string write(const std::string& name, const std::string& bytes) const;

    /// Runs a command on the database.
    ToolRun run(const std::string& command, const std::vector<std::string>& options = {},
                const ToolCircumstances& circumstances = {}) const;

    /// Imports the lines from the file `importedFile`.
    ToolRun import(const std::string& lines, const std::vector<std::string>& options = {},
                   const ToolCircumstances& circumstances = {}) const;
    [[nodiscard]] std::string importedFile() const { return file("events.jsonl"); }

    /// Imports the lines; fails the test when that fails or complains.
    void importWell(const std::string& lines, const std::vector<std::string>& options = {}) const;

    /// What `events` writes for a selection; fails the test when it fails or complains.
    [[nodiscard]] std::string events(const std::vector<std::string>& selection = {}) const;

    /// What `stats --json` writes; fails the test when it fails.
    [[nodiscard]] nlohmann::json stats() const;

    /// Runs a script on the database past the tool; returns the rows, columns joined by "|". Fails the test
    /// when it fails.
    std::vector<std::string> execute(const std::string& script) const;

private:
    TemporaryDirectory directory_;
    std::optional<std::string> elsewhere_;
};

/// The canonical text of a UUID that ends with the byte `number`.
[[nodiscard]] std::string uuidText(int number);

/// An event to import: of type 2, in the stream `uuidText(0xAA)`, with `uuidText(number)` as its client_id.
/// `changes` replaces fields; a null removes one.
[[nodiscard]] nlohmann::json eventJSON(int number, const nlohmann::json& changes = nlohmann::json::object());

/// Values as lines, each ended by a line break.
[[nodiscard]] std::string lines(const std::vector<nlohmann::json>& values);

/// The values that lines hold.
[[nodiscard]] std::vector<nlohmann::json> parsedLines(const std::string& text);

/// One field of each of the lines; null where a line has none.
[[nodiscard]] std::vector<nlohmann::json> fieldOfLines(const std::string& text, const std::string& field);

}  // namespace zav::test
