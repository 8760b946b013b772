#pragma once

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVEventRepository.h>

#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zav::test {

/// What an operation answered.
struct Answer {
    std::string value;  ///< "true", "none", a number, "set" ...
    std::vector<std::shared_ptr<ZAVEvent>> events{};
    std::vector<std::shared_ptr<ZAVEventContent>> contents{};

    /// All of it: the value, then each record with every field, its metadata and its parts.
    [[nodiscard]] std::vector<std::string> text() const;
};

/// Every field of a record as text; of an event without its metadata and its parts.
[[nodiscard]] std::string describeAlone(const ZAVEvent& event);
[[nodiscard]] std::string describe(const ZAVEventContent& content);
[[nodiscard]] std::vector<std::string> describeParts(const ZAVEvent& event);
[[nodiscard]] std::vector<std::string> describeMetadata(const ZAVEvent& event);

/// How an operation tells that it failed, beside its answer.
enum class FailureReport {
    errorLine,         ///< the error cell and an error line, which end with the same error
    verboseLine,       ///< the same, but as a verbose line
    outParameterOnly,  ///< the error cell alone
    nothing,           ///< the answer alone
};

/// A call of one public operation on a store that `fillStore` has filled. Each call brings new records.
struct Operation {
    std::string name;
    FailureReport report;
    std::string answerOnFailure;
    std::function<Answer(const ZAVEventRepository& repository, ZAVError* error)> call;

    /// Whether a statement that breaks off while it yields its row is not reported.
    bool breaksOffSilently = false;

    /// Whether an event whose parts cannot be read does not count as complete, and is left out.
    bool leavesOutIncomplete = false;

    /// Whether it changes everything or nothing.
    bool isAtomic = true;

    /// Whether doing it a second time changes nothing more.
    bool isRepeatable = true;
};

std::ostream& operator<<(std::ostream& stream, const Operation& operation);

/// Every operation of the event repository, then those of its neighbours.
[[nodiscard]] const std::vector<Operation>& everyOperation();

/// Fills an empty event store with what each operation finds or changes. Throws when it cannot.
void fillStore(const std::shared_ptr<FMDatabase>& database);

/// All rows of the tables of the event store, each as "table: column|column...", sorted as text.
/// Reads past the handle's own statements; throws when a table cannot be read.
[[nodiscard]] std::vector<std::string> rowsOfAllTables(FMDatabase& database);

}  // namespace zav::test
