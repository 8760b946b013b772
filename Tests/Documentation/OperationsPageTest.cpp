#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "Documentation/Pages.h"
#include "Support/EveryOperation.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Texts = std::set<std::string>;

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
    return text;
}

/// One operation as the page describes it.
struct Section {
    std::string selector;
    std::string signature;
    Texts statements;
    bool readsEvents = false;
};

/// Documentation/operations.md.
class Page {
public:
    Page() : text_(fileOfTheProject("Documentation/operations.md")) {
        const auto neighbours = text_.find("\n## Neighbours");
        const std::string operations = text_.substr(0, neighbours);
        for (const std::string piece : {"event columns", "events", "part columns", "parts"}) {
            const auto shown = matchesIn(operations, "`<" + piece + ">`\n\n```sql\n([^`]*)\n```");
            EXPECT_EQ(shown.size(), 1U) << "the page should show <" << piece << "> once";
            pieces_["<" + piece + ">"] = shown.empty() ? "" : replaced(shown[0], "\n", " ");
        }
        auto start = operations.find("\n### `");
        while (start != std::string::npos) {
            const auto end = operations.find("\n### `", start + 1);
            addSection(operations.substr(start, end == std::string::npos ? end : end - start));
            start = end;
        }
        if (neighbours != std::string::npos) {
            for (std::string& code :
                 matchesIn(text_.substr(neighbours), "`((?:SELECT|INSERT|UPDATE|DELETE)[^`]*)`")) {
                neighbourStatements_.insert(std::move(code));
            }
        }
    }

    [[nodiscard]] const std::vector<Section>& sections() const { return sections_; }
    [[nodiscard]] const Texts& neighbourStatements() const { return neighbourStatements_; }

    /// The section of the operation that the tests know by a name, which may be the beginning of its own.
    [[nodiscard]] const Section& sectionOf(const std::string& name) const {
        const Section* best = nullptr;
        for (const Section& section : sections_) {
            if (section.selector.starts_with(name) &&
                (best == nullptr || section.selector.size() < best->selector.size())) {
                best = &section;
            }
        }
        static const Section none;
        EXPECT_NE(best, nullptr) << name << " is not described";
        return best == nullptr ? none : *best;
    }

private:
    void addSection(const std::string& text) {
        Section section;
        section.selector = matchesIn(text, "### `([^`]*)`").at(0);
        const auto signatures = matchesIn(text, "```cpp\n([^`]*)\n```");
        section.signature = signatures.empty() ? "" : signatures[0];
        section.readsEvents = section.signature.find("ZAVEvent>") < section.signature.find('(');
        for (const std::string& shown : matchesIn(text, "```sql\n([^`]*)\n```")) {
            std::string statement = replaced(shown, "\n", " ");
            for (const auto& [name, piece] : pieces_) {
                statement = replaced(std::move(statement), name, piece);
            }
            section.statements.insert(std::move(statement));
        }
        sections_.push_back(std::move(section));
    }

    std::string text_;
    std::map<std::string, std::string> pieces_;
    std::vector<Section> sections_;
    Texts neighbourStatements_;
};

const Page& page() {
    static const Page page;
    return page;
}

/// The statements that a call of an operation runs on a store with something in it.
Texts statementsOf(const Operation& operation) {
    const TestStore store;
    fillStore(store.sharedDatabase());
    const StatementTrace trace(store.database(), StatementTrace::Text::asPrepared);
    ZAVError error;
    (void)operation.call(store.repository(), &error);
    EXPECT_FALSE(error) << operation.name << ": " << error.description();
    Texts statements;
    for (const std::string& statement : trace.statements()) {
        // As many placeholders as there are events.
        statements.insert(std::regex_replace(statement, std::regex(R"(row_identifier IN \(\?(, \?)*\))"),
                                             "row_identifier IN (?)"));
    }
    return statements;
}

Texts operator-(const Texts& left, const Texts& right) {
    Texts result;
    std::set_difference(left.begin(), left.end(), right.begin(), right.end(),
                        std::inserter(result, result.end()));
    return result;
}

/// What an operation does that one call of it does not show.
const std::vector<Operation>& furtherCalls() {
    static const std::vector<Operation> calls{
        {"persistEvents", FailureReport::errorLine, "false",
         [](const ZAVEventRepository& repository, ZAVError* error) {
             // Without a row, at a sequence that is taken; with other metadata; in a stream named by its row.
             const auto stored = repository.eventForDatabaseIdentifier(1);
             const auto again =
                 std::make_shared<ZAVEvent>(ZAVDatabaseIdentifierNotSet, stored->streamDatabaseIdentifier());
             again->set_type(EventType_MESSAGE);
             again->set_seq(stored->seq());
             again->set_client_id(stored->client_id());
             again->set_transient_metadata(ZAVDictionary{{"other", std::string("value")}});
             return Answer{repository.persistEvents({again}, error) ? "true" : "false"};
         }},
        {"eventContentsHavingExpiredDownloadURLs", FailureReport::errorLine, "none",
         [](const ZAVEventRepository& repository, ZAVError* error) {
             const auto contents = repository.eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
                 std::nullopt, 100, 10, error);
             return Answer{contents ? "set" : "none"};
         }},
    };
    return calls;
}

bool isOfTheRepository(const Operation& operation) {
    const auto& all = everyOperation();
    const auto firstNeighbour = std::find_if(all.begin(), all.end(), [](const Operation& one) {
        return one.name == "persistEventsInATransaction";
    });
    return std::any_of(all.begin(), firstNeighbour,
                       [&](const Operation& one) { return one.name == operation.name; });
}

TEST(TheOperationsPage, ShowsTheStatementsThatEachOperationRuns) {
    std::map<std::string, Texts> run;
    for (const auto* calls : {&everyOperation(), &furtherCalls()}) {
        for (const Operation& operation : *calls) {
            if (isOfTheRepository(operation)) {
                run[operation.name].merge(statementsOf(operation));
            }
        }
    }
    const auto withStatements =
        std::count_if(page().sections().begin(), page().sections().end(),
                      [](const Section& section) { return !section.statements.empty(); });
    ASSERT_EQ(run.size() + 1, static_cast<std::size_t>(withStatements))
        << "an operation is missing on the page or in EveryOperation; the one more is the mapper of events";
    const Texts& ofTheMapper = page().sectionOf("objectFromResultSet").statements;
    EXPECT_EQ(ofTheMapper.size(), 2U);
    for (auto& [name, statements] : run) {
        const Section& section = page().sectionOf(name);
        if (section.readsEvents) {
            EXPECT_EQ(ofTheMapper - statements, Texts()) << name << " should run these for each event";
            statements = statements - ofTheMapper;
        }
        if (name == "persistEvents") {
            statements = statements - ofTheMapper - page().sectionOf("eventForDatabaseIdentifier").statements;
        }
        EXPECT_EQ(section.statements - statements, Texts()) << "shown for " << name << ", but not run";
        EXPECT_EQ(statements - section.statements, Texts()) << "run by " << name << ", but not shown";
    }
}

TEST(TheOperationsPage, ShowsTheStatementsOfTheNeighbours) {
    Texts run;
    for (const Operation& operation : everyOperation()) {
        if (!isOfTheRepository(operation) && operation.name != "persistEventsInATransaction") {
            run.merge(statementsOf(operation));
        }
    }
    EXPECT_EQ(page().neighbourStatements() - run, Texts()) << "shown, but not run";
    EXPECT_EQ(run - page().neighbourStatements(), Texts()) << "run, but not shown";
}

/// Code without comments, attributes, line breaks and blanks: what is left tells declarations apart.
std::string bare(const std::string& code) {
    return std::regex_replace(code,
                              std::regex(R"(//[^\n]*|\[\[nodiscard\]\]|\bvirtual\b|\bZAV_EXPORT\b|\s+)"), "");
}

TEST(TheOperationsPage, ShowsTheDeclarationOfEachOperation) {
    const std::string header = bare(fileOfTheProject("Code/Private/Model/Repositories/ZAVEventRepository.h"));
    for (const Section& section : page().sections()) {
        EXPECT_NE(header.find(bare(section.signature) + ";"), std::string::npos)
            << section.selector << " is not declared as\n"
            << section.signature;
        EXPECT_FALSE(section.signature.empty()) << section.selector;
    }
    // Operations are what is const; the free function beside the class comes to them.
    EXPECT_EQ(page().sections().size(), matchesIn(header, R"((\)const;))").size() + 1);
}

TEST(TheOperationsPage, NamesEachOperationAsItsLogLinesDo) {
    std::string sources;
    const std::string folder = "Code/Private/Model/Repositories/";
    for (const auto& entry : std::filesystem::directory_iterator(ZAV_PROJECT_DIRECTORY "/" + folder)) {
        const std::string name = entry.path().filename();
        if (name.starts_with("ZAVEventRepository+")) {
            sources += fileOfTheProject(folder + name);
        }
    }
    // A long name is a literal in two pieces.
    sources = std::regex_replace(sources, std::regex("\"\\s*\""), "");
    Texts logged;
    for (std::string& selector : matchesIn(sources, R"("-\[ZAVEventRepository ([^\]]*)\]")")) {
        logged.insert(std::move(selector));
    }
    Texts shown;
    for (const Section& section : page().sections()) {
        shown.insert(section.selector);
    }
    EXPECT_EQ(logged - shown, Texts()) << "logged under a name that is not shown";
    EXPECT_EQ(shown - logged,
              (Texts{"attemptBlock:", "objectFromResultSet:error:", "eventContentFromResultSet:",
                     "updateObject:error:", "ZAVPrepareEventContentsForDownload"}))
        << "only these do not log";
}

}  // namespace
}  // namespace zav::test
