#pragma once

#include <ZAVEventRepository/ZAVEventRepository.h>

#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zav::test {

/// What an operation answered.
struct Answer {
    std::string value{};  ///< "true", "none", a number, "set" ...
    std::vector<std::shared_ptr<ZAVEvent>> events{};
    std::vector<std::shared_ptr<ZAVEventContent>> contents{};

    /// The value; of a set with the number of its records, as "set of 3".
    [[nodiscard]] std::string summary() const;

    /// All of it: the value, then each record with every field, its metadata and its parts.
    [[nodiscard]] std::vector<std::string> text() const;
};

/// How an operation tells that it failed, beside its answer.
enum class FailureReport {
    errorLine,         ///< the error cell and an error line, which end with the same error
    verboseLine,       ///< the same, but as a verbose line
    outParameterOnly,  ///< the error cell alone
    nothing,           ///< the answer alone
};

/// The two lines of an operation, as formats and as they read for the call of its entry.
struct LogTexts {
    std::string function{};
    std::string verboseFormat{};
    std::string verboseMessage{};
    std::string failureFormat{};
    std::string failureMessage{};        ///< up to the error, with which it ends
    bool printsMoreBeforeError = false;  ///< whether records that only the call knows stand between the two
};

/// A statement that an operation runs.
struct ExpectedStatement {
    /// As it is prepared.
    std::string text;

    /// The values that are bound when it first runs, as the engine prints them; "now" for the time of the
    /// call.
    std::vector<std::string> values{};

    /// The first steps of the engine's plan for it, which name the index that finds its rows; none for a
    /// statement that looks for no row.
    std::vector<std::string> plan{};

    /// Whether no index yields the rows in the order that it asks for.
    bool sorts = false;

    /// How often the call runs it.
    int times = 1;
};

/// What an operation answers, each as its summary.
struct Answers {
    std::string filled{};   ///< from the filled store
    std::string empty{};    ///< when nothing is stored; "raises" when it throws
    std::string failing{};  ///< when it fails
};

/// An entry of the catalogue: one public operation, and all that can be said of every operation alike.
///
/// Its texts and statements are written out here and taken from nowhere, so that they hold the product to
/// them.
struct Operation {
    std::string owner = "ZAVEventRepository";  ///< the class it is a member of
    std::string name{};                        ///< the member's name
    std::string variant{};                     ///< what tells two entries of one operation apart

    /// Calls it on a store that `fillStore` has filled. Each call brings new records.
    std::function<Answer(const ZAVEventRepository& repository, ZAVError* error)> call{};

    std::optional<LogTexts> log{};  ///< none when it logs nothing

    /// What the call runs, each statement once, in the order in which they first run.
    std::vector<ExpectedStatement> statements{};

    /// The tables without each of which the call fails.
    std::vector<std::string> needs{};

    Answers answers{};

    FailureReport report = FailureReport::errorLine;

    /// Whether the caller has the error before the error line is written.
    bool tellsTheCallerFirst = false;

    /// Whether a statement that breaks off while it yields its row is not reported.
    bool breaksOffSilently = false;

    /// Whether an event whose parts cannot be read does not count as complete, and is left out.
    bool leavesOutIncomplete = false;

    /// Whether it changes everything or nothing.
    bool isAtomic = true;

    /// Whether doing it a second time changes nothing more.
    bool isRepeatable = true;
};

/// The operation's name and its variant, as a test's name.
[[nodiscard]] std::string nameOf(const Operation& operation);
std::ostream& operator<<(std::ostream& stream, const Operation& operation);

}  // namespace zav::test
