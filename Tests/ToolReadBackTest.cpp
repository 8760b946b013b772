#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Support/Tool.h"

namespace zav::test {
namespace {

using nlohmann::json;

using Rows = std::vector<std::string>;

/// A store whose rows an application has written by itself.
class ToolReadBack : public testing::Test {
protected:
    ToolReadBack() { EXPECT_EQ(store.run("init").status, 0); }

    /// Adds an event of its own client_id, at the sequence that is its number, with some columns set.
    void addEvent(int number, const std::string& columns = "", const std::string& part = "") const {
        const std::string row = std::to_string(number);
        std::string script =
            "INSERT OR IGNORE INTO streams (database_identifier, stream_id) VALUES"
            " (1, x'111111111111111111111111111111AA');"
            "INSERT INTO events (database_identifier, type, seq, timestamp, preceding_seq, client_seq, subtype,"
            " stream_database_identifier, client_id) VALUES (" +
            row + ", 4, " + row + ", 0, 0, 0, 0, 1, X'" + clientID(number) + "');";
        if (!columns.empty()) {
            script += "UPDATE events SET " + columns + " WHERE database_identifier = " + row + ";";
        }
        if (!part.empty()) {
            script +=
                "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, type,"
                " size, transfer_status, purged) VALUES (0, " +
                row +
                ", 'a/b', 3, 4, 0);"
                "UPDATE event_content_parts SET " +
                part + " WHERE event_database_identifier = " + row + ";";
        }
        store.execute(script);
    }

    static std::string clientID(int number) {
        std::string text;
        for (const char character : uuidText(number)) {
            text += character == '-' ? "" : std::string(1, character);
        }
        return text;
    }

    /// The rows as the library reads them, without their numbers: of events, of their parts, of their
    /// metadata.
    static Rows dumped(const ToolStore& store, const std::string& which = "1") {
        Rows rows = store.execute(
            "SELECT type, creator_id, seq, timestamp, preceding_seq, client_seq, subtype, member_id, target_seq,"
            " hex(client_id), typeof(client_id), creator_name, hex(stream_id) FROM events AS e LEFT JOIN"
            " (SELECT database_identifier AS stream, stream_id FROM streams) ON stream ="
            " stream_database_identifier WHERE " +
            which + " ORDER BY database_identifier");
        for (const std::string& more :
             {"SELECT hex(client_id), event_content_part_id, p.type, typeof(value), hex(value),"
              " quote(access_expiration), url, size, transfer_status, file_path, quote(last_accessed), purged"
              " FROM events AS e JOIN event_content_parts AS p ON event_database_identifier ="
              " e.database_identifier WHERE " +
                  which + " ORDER BY e.database_identifier, event_content_part_id",
              "SELECT hex(client_id), key, value FROM events AS e JOIN keyed_values_remote ON"
              " object_database_identifier = e.database_identifier WHERE " +
                  which + " ORDER BY 1, 2"}) {
            const Rows added = store.execute(more);
            rows.insert(rows.end(), added.begin(), added.end());
        }
        return rows;
    }

    ToolStore store;
};

TEST_F(ToolReadBack, WhatALineCanSayIsReadBackAsItIs) {
    const std::vector<std::string> expirations = {"1e300",
                                                  "-1e300",
                                                  "18446744073709551616.0",
                                                  "9223372036854775808.0",
                                                  "-1.0",
                                                  "0.5",
                                                  "-0.25",
                                                  "123456789.5",
                                                  "1e15",
                                                  "999999999999999.0",
                                                  "1e16",
                                                  "1.5e19"};
    int number = 0;
    for (const std::string& seconds : expirations) {
        addEvent(++number, "", "url = 'https://content.test/1', access_expiration = " + seconds);
        addEvent(++number, "", "value = x'41', last_accessed = " + seconds);
    }
    for (const char* seq : {"NULL", "0", "-2147483648", "2147483646"}) {
        addEvent(++number, std::string("seq = ") + seq);
    }
    for (const char* columns :
         {"type = -2147483648", "type = 2147483647", "subtype = 255", "timestamp = 9223372036854775807",
          "timestamp = -9223372036854775808", "target_seq = 2147483647", "preceding_seq = -2147483648",
          "client_seq = 2147483647", "creator_id = ''", "creator_name = 'a' || char(10, 0, 34, 128512)",
          "member_id = 'm', creator_id = 'c'"}) {
        addEvent(++number, columns);
    }
    for (const char* part :
         {"value = x'00FF'", "value = x''", "size = 9223372036854775807, value = x'41'",
          "url = 'https://content.test/1', transfer_status = 3, file_path = 'a/b%20c', purged = 1",
          "value = x'41', type = ''"}) {
        addEvent(++number, "", part);
    }
    store.execute(
        "INSERT INTO keyed_values_remote (object_database_identifier, object_type, key_type, key, value)"
        " VALUES (1, 'event', 0, 'a', 'x'), (1, 'event', 0, '', ''), (2, 'event', 0, 'b', x'FF00')");
    const std::string exported = store.events();  // without a word on standard error
    const ToolStore copy;
    copy.importWell(exported);
    EXPECT_EQ(dumped(copy), dumped(store));
    EXPECT_EQ(copy.events(), exported);
    copy.importWell(exported);
    EXPECT_EQ(copy.events(), exported) << "and importing it again changes nothing";
}

TEST_F(ToolReadBack, WhatIsReadAsNothingIsReadBackAsWhatItIsReadAs) {
    addEvent(1, "timestamp = NULL, preceding_seq = NULL, client_seq = NULL, subtype = NULL",
             "type = NULL, size = NULL, transfer_status = NULL, purged = NULL");
    const std::string exported = store.events();
    const ToolStore copy;
    copy.importWell(exported);
    EXPECT_EQ(copy.events(), exported);
}

struct OddRow {
    std::string columns;  ///< of the event
    std::string part;     ///< of its only part, if it has one
    std::string reason;
};

TEST_F(ToolReadBack, WhatALineCannotSayIsToldOf) {
    const std::vector<OddRow> odd = {
        {"seq = 2147483647", "", "the stored seq"},
        {"seq = 4294967297", "", "the stored seq"},
        {"seq = 'x'", "", "the stored seq"},
        {"seq = 1.5", "", "the stored seq"},
        {"type = 0", "", "type is 0"},
        {"type = 'x'", "", "the stored type; type is 0"},
        {"type = 4294967298", "", "the stored type"},
        {"timestamp = 1.5", "", "the stored timestamp"},
        {"preceding_seq = 4294967298", "", "the stored preceding_seq"},
        {"client_seq = 'x'", "", "the stored client_seq"},
        {"target_seq = 4294967298", "", "the stored target_seq"},
        {"subtype = 257", "", "the stored subtype"},
        {"creator_id = x'41'", "", "the stored creator_id"},
        {"member_id = CAST(x'FF' AS TEXT)", "", "member_id is not UTF-8"},
        {"creator_name = CAST(x'FF' AS TEXT)", "", "creator_name is not UTF-8"},
        {"client_id = x'0102'", "", "client_id is missing"},
        {"client_id = '0123456789abcdef'", "", "the stored client_id"},
        {"stream_database_identifier = NULL", "", "the stored seq"},
        {"stream_database_identifier = 9", "", "stream_id is not a UUID"},
        {"", "value = x'41', url = 'https://content.test/1'",
         "the stored value, which stands beside a url of a part"},
        {"", "value = 'text'", "the stored value of a part"},
        {"", "url = 'a b'", "content[0] has a url that is not a URL"},
        {"", "file_path = 'a b'", "the stored file_path of a part"},
        {"", "file_path = '%zz'", "the stored file_path of a part"},
        {"", "file_path = '/etc/hosts'", "content[0].file_path is not a relative path"},
        {"", "file_path = 'https://content.test/1'", "content[0].file_path is not a relative path"},
        {"", "transfer_status = 5", "content[0].transfer_status is out of range"},
        {"", "transfer_status = -1", "content[0].transfer_status is out of range"},
        {"", "size = 1.5", "the stored size of a part"},
        {"", "purged = 'x'", "the stored purged of a part"},
        {"", "last_accessed = 9e999", "the stored last_accessed of a part"},
        {"", "last_accessed = -9e999", "the stored last_accessed of a part"},
        {"", "access_expiration = 'soon'", "the stored access_expiration of a part"},
        {"", "event_content_part_id = 2", "content[0] is stored at the index 2"},
        {"", "type = CAST(x'FF' AS TEXT)", "content[0].media_type is not UTF-8"},
    };
    store.execute("INSERT INTO streams (database_identifier, stream_id) VALUES (9, x'01')");
    std::string expected;
    int number = 0;
    for (const auto& [columns, part, reason] : odd) {
        addEvent(++number);  // a plain one between any two
        addEvent(++number, columns, part);
        expected +=
            "zavevents: row " + std::to_string(number) + " cannot be read back as it is: " + reason + "\n";
    }
    const ToolRun listed = store.run("events", {"--all"});
    EXPECT_EQ(listed.status, 0) << "they are written as well as can be";
    EXPECT_EQ(listed.err, expected);
    const ToolStore copy;
    const ToolRun imported = copy.import(listed.out, {"--skip-bad-lines"});
    EXPECT_EQ(imported.status, 0) << imported.err;
    const std::string plain = "typeof(seq) = 'integer' AND seq % 2 = 1 AND seq < 100";
    EXPECT_EQ(dumped(copy, plain), dumped(store, plain)) << "what is not told of is read back as it is";
    EXPECT_EQ(store.run("events", {"--posted"}).err, "") << "a selection is no copy";
}

TEST_F(ToolReadBack, EventsThatAnImportTakesForOneAnotherAreToldOf) {
    const auto like = [](int number) { return "client_id = X'" + clientID(number) + "', seq = "; };
    addEvent(1, like(1) + "NULL, creator_id = 'ada'");
    addEvent(2, like(1) + "2, creator_id = 'ada'");
    addEvent(3, like(1) + "NULL, creator_id = 'ada'");
    addEvent(4, like(1) + "NULL, creator_id = 'eve'");
    addEvent(5, like(1) + "5, creator_id = 'bruno'");
    addEvent(6, like(6) + "NULL");
    addEvent(7, like(6) + "7");
    const ToolRun listed = store.run("events");
    EXPECT_EQ(listed.status, 0);
    EXPECT_EQ(
        listed.err,
        "zavevents: row 2 cannot be read back as it is: it has stream, author and client_id of the event in "
        "row 1 and is taken for it\n"
        "zavevents: row 3 cannot be read back as it is: it has stream, author and client_id of the event in "
        "row 2 and is taken for it\n");
    const ToolStore copy;
    copy.importWell(listed.out);
    EXPECT_EQ(copy.execute("SELECT IFNULL(creator_id, '-'), IFNULL(seq, 'waits') FROM events ORDER BY 1, 2"),
              (Rows{"-|7", "-|waits", "ada|2", "bruno|5", "eve|waits"}))
        << "all the others are events of their own";
}

TEST_F(ToolReadBack, AnUnsequencedAndASequencedEventOfOneClientIDInTwoStreamsAreReadBack) {
    store.execute("INSERT INTO streams (database_identifier, stream_id) VALUES (2, NULL), (3, NULL)");
    const std::string id = "client_id = X'" + clientID(1) + "', creator_id = 'ada', ";
    addEvent(1, id + "seq = NULL");
    addEvent(2, id + "seq = NULL, stream_database_identifier = 2");
    addEvent(3, id + "seq = NULL, stream_database_identifier = 3");
    addEvent(4, "client_id = X'" + clientID(1) + "', creator_id = 'eve', seq = 0");
    const std::string exported = store.events();
    for (const char* batch : {"1", "2", "1000"}) {
        const ToolStore copy;
        copy.importWell(exported, {"--batch", batch});
        EXPECT_EQ(dumped(copy), dumped(store)) << "in batches of " << batch;
        copy.importWell(exported, {"--batch", batch});
        EXPECT_EQ(dumped(copy), dumped(store)) << "twice, in batches of " << batch;
    }
}

}  // namespace
}  // namespace zav::test
