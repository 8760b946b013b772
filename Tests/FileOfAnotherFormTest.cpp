#include <ZAVEventRepository/ZAVEventRepository.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Support/DatabaseHandles.h"
#include "Support/HostileFile.h"

namespace zav::test {
namespace {

using Lines = std::vector<std::string>;

struct Form {
    const char* name;
    const char* script;
    const char* question;
    const char* answer;
};

void PrintTo(const Form& form, std::ostream* stream) {
    *stream << form.script;
}

/// What every operation answers on a store that `fillStore` has filled, one after the other.
Lines answersOn(const std::shared_ptr<FMDatabase>& database) {
    Lines texts;
    for (const Operation& operation : everyOperation()) {
        ZAVError error;
        texts.push_back(nameOf(operation));
        for (std::string& line : operation.call(ZAVEventRepository(database), &error).text()) {
            texts.push_back(std::move(line));
        }
        EXPECT_FALSE(error) << nameOf(operation) << ": " << error.description();
    }
    return texts;
}

class FileOfAnotherForm : public testing::TestWithParam<Form> {};

TEST_P(FileOfAnotherForm, AnswersLikeAnyOther) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("other.db");
    ASSERT_EQ(AttackersConnection(path).attempt(std::string(GetParam().script) +
                                                "; CREATE TABLE t (a); DROP TABLE t"),
              "");
    const auto other = openStore(path);
    EXPECT_EQ(scalar(*other, GetParam().question), GetParam().answer) << "nothing was proved";
    fillStore(other);
    const auto usual = openStore(directory.file("usual.db"));
    fillStore(usual);
    EXPECT_EQ(firstDifference(answersOn(other), answersOn(usual)), "");
    EXPECT_EQ(firstDifference(rowsOfAllTables(*other), rowsOfAllTables(*usual)), "");
    EXPECT_EQ(scalar(*other, "PRAGMA integrity_check"), "ok");
}

INSTANTIATE_TEST_SUITE_P(
    Such, FileOfAnotherForm,
    testing::Values(Form{"AsUTF16", "PRAGMA encoding='UTF-16le'", "PRAGMA encoding", "UTF-16le"},
                    Form{"AsUTF16BigEnd", "PRAGMA encoding='UTF-16be'", "PRAGMA encoding", "UTF-16be"},
                    Form{"AsTheSmallestPages", "PRAGMA page_size=512", "PRAGMA page_size", "512"},
                    Form{"AsTheLargestPages", "PRAGMA page_size=65536", "PRAGMA page_size", "65536"},
                    Form{"AsOneThatShrinks", "PRAGMA auto_vacuum=FULL", "PRAGMA auto_vacuum", "1"},
                    Form{"AsOneThatMayShrink", "PRAGMA auto_vacuum=INCREMENTAL", "PRAGMA auto_vacuum", "2"},
                    Form{"AsAnotherApplications", "PRAGMA application_id=1234567", "PRAGMA application_id",
                         "1234567"}),
    [](const testing::TestParamInfo<Form>& form) { return std::string(form.param.name); });

TEST_F(HostileFile, ColumnsInAnotherOrderAndMoreOfThemChangeNoAnswer) {
    const std::string copy = directory_.file("usual.db");
    writeFile(copy, genuineStore());
    tamper(
        remade("events",
               "(creator_name TEXT, more DEFAULT 'more', client_id BLOB NOT NULL, stream_database_identifier "
               "INTEGER, target_seq INTEGER, member_id TEXT, subtype INTEGER, client_seq INTEGER, "
               "preceding_seq INTEGER, timestamp INTEGER, seq INTEGER, creator_id TEXT, type INTEGER NOT "
               "NULL, database_identifier INTEGER PRIMARY KEY AUTOINCREMENT, UNIQUE "
               "(stream_database_identifier, seq))",
               eventColumns) +
        "CREATE INDEX events_without_seq ON events (stream_database_identifier) WHERE seq IS NULL;" +
        remade("streams",
               "(more, seq INTEGER, stream_id BLOB UNIQUE, database_identifier INTEGER PRIMARY KEY "
               "AUTOINCREMENT)",
               "database_identifier, stream_id, seq"));
    EXPECT_EQ(firstDifference(answersOn(openStore(path_)), answersOn(openStore(copy))), "");
}

}  // namespace
}  // namespace zav::test
