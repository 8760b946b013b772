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
#include "Operations/Catalogue.h"

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

    /// The section of a member, whose name its selector begins with.
    [[nodiscard]] const Section& sectionOf(const std::string& name) const {
        const auto found = std::find_if(sections_.begin(), sections_.end(), [&](const Section& section) {
            return section.selector == name || section.selector.starts_with(name + ":");
        });
        static const Section none;
        EXPECT_NE(found, sections_.end()) << name << " is not described";
        return found == sections_.end() ? none : *found;
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

/// The statements of an operation, with one placeholder where there are as many as there are events.
Texts statementsOf(const Operation& operation) {
    Texts statements;
    for (const ExpectedStatement& statement : operation.statements) {
        statements.insert(std::regex_replace(statement.text, std::regex(R"(row_identifier IN \(\?(, \?)*\))"),
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

TEST(TheOperationsPage, ShowsTheStatementsThatEachOperationRuns) {
    std::map<std::string, Texts> run;
    for (const Operation& operation : operationsOfTheEventRepository()) {
        run[operation.name].merge(statementsOf(operation));
    }
    const Texts& ofTheMapper = page().sectionOf("objectFromResultSet").statements;
    EXPECT_EQ(ofTheMapper.size(), 2U);
    for (auto& [name, statements] : run) {
        const Section& section = page().sectionOf(name);
        if (section.readsEvents) {
            EXPECT_EQ(ofTheMapper - statements, Texts()) << name << " should run these for each event";
            statements = statements - ofTheMapper;
        }
        EXPECT_EQ(section.statements - statements, Texts()) << "shown for " << name << ", but not run";
        EXPECT_EQ(statements - section.statements, Texts()) << "run by " << name << ", but not shown";
    }
}

TEST(TheOperationsPage, ShowsTheStatementsOfTheNeighbours) {
    Texts run;
    for (const Operation& operation : neighbours()) {
        // Their page section tells what holds for both tables of keyed values, and not what a transaction is.
        if (operation.variant != "InTheLocalTable" && operation.owner != "ZAVTransaction") {
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

/// Of each repository the members that do something with the database: those that are const.
std::map<std::string, Texts> membersOfTheRepositories() {
    std::map<std::string, Texts> members;
    const std::string folder = "Code/Private/Model/Repositories/";
    for (const auto& file : std::filesystem::directory_iterator(ZAV_PROJECT_DIRECTORY "/" + folder)) {
        if (file.path().extension() != ".h") {
            continue;
        }
        const std::string header = std::regex_replace(
            fileOfTheProject(folder + file.path().filename().string()), std::regex("//[^\n]*"), "");
        const auto names =
            matchesIn(header, R"(class ZAV_EXPORT (\w+)(?: final)? : public ZAVDatabaseRepository)");
        if (!names.empty()) {
            for (std::string& member : matchesIn(header, R"((\w+)\([^()]*\)\s*const;)")) {
                members[names.front()].insert(std::move(member));
            }
        }
    }
    return members;
}

TEST(TheCatalogue, HasAnEntryForEachMemberOfTheRepositoriesAndNoOther) {
    std::map<std::string, Texts> entered;
    for (const Operation& operation : everyOperation()) {
        entered[operation.owner].insert(operation.name);
    }
    entered.erase("ZAVTransaction");  // which is no repository
    // What maps a row, which reading operations call, and what calls only what it is given.
    entered["ZAVEventRepository"].merge(
        Texts{"objectFromResultSet", "eventContentFromResultSet", "attemptBlock"});
    auto members = membersOfTheRepositories();
    EXPECT_EQ(members["ZAVEventRepository"].size(), 31U);
    for (const auto& [owner, names] : entered) {
        EXPECT_EQ(names - members[owner], Texts())
            << "entered in Tests/Operations, and no members of " << owner;
    }
    for (const auto& [owner, names] : members) {
        EXPECT_EQ(names - entered[owner], Texts())
            << "of " << owner << ", without an entry in Tests/Operations";
    }
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
