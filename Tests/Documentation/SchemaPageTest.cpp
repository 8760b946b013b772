#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "Documentation/Pages.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Lines = std::vector<std::string>;

/// The rows of the table below a heading of Documentation/schema.md, without the last column, which explains.
Lines rowsBelow(const std::string& heading) {
    const std::string page = fileOfTheProject("Documentation/schema.md");
    const auto start = page.find("\n## " + heading + "\n");
    EXPECT_NE(start, std::string::npos) << heading << " is not described";
    if (start == std::string::npos) {
        return {};
    }
    const auto end = page.find("\n## ", start + 1);
    const std::string section = page.substr(start, end == std::string::npos ? end : end - start);
    return matchesIn(section, R"(\n\| (`.*) \| [^|]+ \|(?=\n))");
}

TEST(TheSchemaPage, ListsTheTablesOfAStore) {
    const TestStore store;
    const std::string page = fileOfTheProject("Documentation/schema.md");
    Lines shown = matchesIn(page, R"(\n## `(\w+)`)");
    std::sort(shown.begin(), shown.end());
    EXPECT_EQ(shown,
              store.rows("SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite%' "
                         "ORDER BY name"));
    EXPECT_NE(page.find("\nVersion " + store.rows("PRAGMA user_version").at(0) + ","), std::string::npos)
        << "the page is about another version of the schema";
}

TEST(TheSchemaPage, ListsTheColumnsOfEachTable) {
    const TestStore store;
    const Lines tables =
        store.rows("SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite%'");
    EXPECT_EQ(tables.size(),
              matchesIn(fileOfTheProject("Documentation/schema.md"), R"(\n## `(\w+)`)").size());
    for (const std::string& table : tables) {
        Lines expected;
        for (const std::string& column : store.rows("PRAGMA table_info(" + table + ")")) {
            // position|name|type|not null|default|key
            std::smatch field;
            ASSERT_TRUE(std::regex_match(column, field, std::regex(R"(\d+\|(\w+)\|(\w*)\|(\d)\|NULL\|(\d))")))
                << column << " has a default that the page cannot show";
            std::string type = field[2];
            type += field[3] == "1" ? " NOT NULL" : "";
            type += field[4] != "0" ? " key" : "";
            expected.push_back("`" + field[1].str() + "` | " + type);
        }
        EXPECT_EQ(rowsBelow("`" + table + "`"), expected) << table;
    }
}

TEST(TheSchemaPage, ListsTheIndexesWithTheirColumnsAndConditions) {
    const TestStore store;
    std::map<std::string, std::string> expected;
    for (const std::string& index :
         store.rows("SELECT name FROM sqlite_master WHERE type = 'index' AND sql IS NOT NULL")) {
        const std::string sql =
            store.rows("SELECT sql FROM sqlite_master WHERE name = '" + index + "'").at(0);
        std::smatch part;
        const std::string line = std::regex_replace(sql, std::regex(R"(\s+)"), " ");
        ASSERT_TRUE(std::regex_match(
            line, part, std::regex(R"(CREATE (UNIQUE )?INDEX \w+ ON (\w+ \([^)]*\))(?: WHERE (.*))?)")))
            << line;
        expected[index] = "`" + part[2].str() + "`" + (part[1].matched ? ", unique" : "") + " | " +
                          (part[3].matched ? "`" + part[3].str() + "`" : "");
    }
    std::map<std::string, std::string> shown;
    for (const std::string& row : rowsBelow("Indexes")) {
        shown[row.substr(1, row.find('`', 1) - 1)] = row.substr(row.find(" | ") + 3);
    }
    EXPECT_EQ(shown, expected);
}

}  // namespace
}  // namespace zav::test
