#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Support/Tool.h"

namespace zav::test {
namespace {

using nlohmann::json;

const std::string appID = "0f0e0d0c-0b0a-0908-0706-050403020100";

/// A message with one content part.
json messageWith(int number, const json& part, const json& changes = json::object()) {
    json message = eventJSON(number, {{"type", 4}, {"content", json::array({part})}});
    message.merge_patch(changes);
    return message;
}

const json urlPart = {{"media_type", "image/png"}, {"size", 90}, {"external_url", "https://content.test/1"}};

/// The only content part of the only event.
json onlyPart(const ToolStore& store) {
    const auto events = parsedLines(store.events());
    EXPECT_EQ(events.size(), 1U) << "one event was imported";
    return events.at(0).at("content").at(0);
}

/// The text of the only content part after importing a line.
std::string importedText(const std::string& line) {
    const ToolStore store;
    store.importWell(line);
    return onlyPart(store).at("text").get<std::string>();
}

std::size_t countOf(const ToolStore& store) {
    return parsedLines(store.events()).size();
}

/// A line that is refused, and why.
struct BadLine {
    std::string line;
    std::string reason;
};

/// Imports each line after a good one, and expects that neither is stored.
void expectEachToBeRefused(const std::vector<BadLine>& badLines) {
    const ToolStore store;
    for (const auto& [line, reason] : badLines) {
        SCOPED_TRACE(line);
        const ToolRun imported = store.import(lines({eventJSON(1)}) + line + "\n" + lines({eventJSON(2)}));
        EXPECT_EQ(imported.status, 1) << "a bad line stops the import";
        EXPECT_EQ(imported.out, "") << "an import that stopped has no result";
        EXPECT_EQ(imported.err, "zavevents: " + store.importedFile() + ":2: " + reason +
                                    "\n0 events of the batches before are stored, none of this batch\n");
    }
    EXPECT_EQ(store.events(), "") << "nothing of a batch with a bad line is stored";
}

/// Expects that an import stops at the line of a number since it is no JSON.
void expectNoJSON(const ToolStore& store, const std::string& text, int line) {
    const ToolRun imported = store.import(text);
    EXPECT_EQ(imported.status, 1) << "a bad line stops the import";
    EXPECT_TRUE(imported.err.starts_with("zavevents: " + store.importedFile() + ":" + std::to_string(line) +
                                         ": is not JSON: "))
        << imported.err;
}

/// Lines that are refused for one field of the event.
std::vector<BadLine> withField(const std::vector<std::pair<json, std::string>>& fields) {
    std::vector<BadLine> result;
    for (const auto& [changes, reason] : fields) {
        json event = eventJSON(3);
        event.update(changes);
        result.push_back({event.dump(), reason});
    }
    return result;
}

/// Lines that are refused for one field of a content part.
std::vector<BadLine> withPart(const std::vector<std::pair<json, std::string>>& parts) {
    std::vector<BadLine> result;
    for (const auto& [part, reason] : parts) {
        result.push_back({messageWith(3, part).dump(), reason});
    }
    return result;
}

/// Imports twice, and expects the same events both times; returns them.
std::string importedTwice(const std::string& text, const std::vector<std::string>& options = {}) {
    const ToolStore store;
    store.importWell(text, options);
    const std::string first = store.events();
    store.importWell(text, options);
    EXPECT_EQ(store.events(), first) << "importing the same file again changes nothing";
    return first;
}

TEST(ToolImport, EveryFieldOfAnEventIsStored) {
    const json event = {{"stream_id", uuidText(0xAA)},
                        {"client_id", uuidText(1)},
                        {"type", 11},
                        {"subtype", 255},
                        {"seq", -2147483648LL},
                        {"preceding_seq", 2147483647},
                        {"client_seq", -5},
                        {"server_timestamp", 9223372036854775807LL},
                        {"target_seq", 2147483647},
                        {"creator_id", "ada"},
                        {"creator_name", "Ada"},
                        {"member_id", "bruno"},
                        {"transient_metadata", {{"push", "hello"}, {"sound", ""}}}};
    const ToolStore store;
    store.importWell(lines({event}));
    json expected = event;
    expected.update({{"database_identifier", 1}, {"stream_database_identifier", 1}});
    EXPECT_EQ(parsedLines(store.events()), std::vector<json>{expected});
}

TEST(ToolImport, EveryFieldOfAContentPartIsStored) {
    const json part = {{"media_type", "image/png"},
                       {"size", 5000000000LL},
                       {"external_url", "https://content.test/a?b=c#d"},
                       {"external_content_url_expiration", 1700000100},
                       {"last_accessed", 1700000000.5},
                       {"transfer_status", 3},
                       {"file_path", "app/ada/photo%201.png"},
                       {"purged", true}};
    const ToolStore store;
    store.importWell(lines({messageWith(1, part, {{"seq", 9}})}));
    json expected = part;
    expected.update({{"index", 0},
                     {"event_database_identifier", 1},
                     {"event_client_id", uuidText(1)},
                     {"event_seq", 9},
                     {"stream_id", uuidText(0xAA)}});
    EXPECT_EQ(onlyPart(store), expected);
}

TEST(ToolImport, ContentPartsKeepTheirOrder) {
    const ToolStore store;
    json parts = json::array();
    for (int index = 0; index < 12; ++index) {
        parts.push_back({{"media_type", "text/plain"}, {"text", "part " + std::to_string(index)}});
    }
    store.importWell(lines({eventJSON(1, {{"content", parts}})}));
    const json stored = parsedLines(store.events()).at(0).at("content");
    ASSERT_EQ(stored.size(), 12U);
    for (std::size_t index = 0; index < 12; ++index) {
        EXPECT_EQ(stored[index].at("index"), index);
        EXPECT_EQ(stored[index].at("text"), parts[index].at("text"))
            << "part " << index << " is in its place";
    }
}

TEST(ToolImport, ThePlainestEventHasAClientIDAndAType) {
    const ToolStore store;
    store.importWell("{\"client_id\":\"" + uuidText(1) + "\",\"type\":1}\n");
    EXPECT_EQ(store.events(), "{\"database_identifier\":1,\"stream_database_identifier\":1,\"client_id\":\"" +
                                  uuidText(1) +
                                  "\",\"type\":1,\"subtype\":0,\"preceding_seq\":0,\"client_seq\":0,"
                                  "\"server_timestamp\":0}\n");
}

TEST(ToolImport, ASummaryTellsWhatIsNewAndWhatIsUpdated) {
    const ToolStore store;
    const json elsewhere = {{"stream_id", uuidText(0xBB)}};
    EXPECT_EQ(store.import(lines({eventJSON(1, {{"seq", 1}}), eventJSON(2, elsewhere)})).out,
              "imported 2 events in 2 streams: 2 new, 0 updated\n");
    EXPECT_EQ(store.import(lines({eventJSON(1, {{"seq", 1}}), eventJSON(3, {{"seq", 2}})})).out,
              "imported 2 events in 1 streams: 1 new, 1 updated\n");
}

TEST(ToolImport, AnImportMakesTheDatabaseWhenThereIsNone) {
    const ToolStore store;
    const ToolRun imported = store.import("");
    EXPECT_EQ(imported.status, 0) << imported.err;
    EXPECT_EQ(imported.out, "imported 0 events in 0 streams: 0 new, 0 updated\n");
    EXPECT_EQ(store.events(), "");
}

TEST(ToolImport, AnImportIntoAPipeShowsNoProgress) {
    const ToolStore store;
    std::string text;
    for (int number = 0; number < 10001; ++number) {
        text += lines({eventJSON(1, {{"seq", number}})});
    }
    const ToolRun imported = store.import(text);
    EXPECT_EQ(imported.out, "imported 10001 events in 1 streams: 10001 new, 0 updated\n");
    EXPECT_EQ(imported.err, "") << "progress is for terminals";
}

TEST(ToolImport, AFieldOfAnEventWithAWrongValueIsABadLine) {
    expectEachToBeRefused(withField({
        {{{"stream_id", 7}}, "stream_id is not text"},
        {{{"stream_id", "7"}}, "stream_id is not a UUID"},
        {{{"client_id", nullptr}}, "client_id is not text"},
        {{{"client_id", uuidText(1) + "0"}}, "client_id is not a UUID"},
        {{{"client_id", "11111111111111111111111111111101"}}, "client_id is not a UUID"},
        {{{"type", "2"}}, "type is not a whole number"},
        {{{"type", 2.5}}, "type is not a whole number"},
        {{{"type", 0}}, "type is 0"},
        {{{"type", 2147483648LL}}, "type is out of range"},
        {{{"type", -2147483649LL}}, "type is out of range"},
        {{{"subtype", -1}}, "subtype is out of range"},
        {{{"subtype", 256}}, "subtype is out of range"},
        {{{"subtype", "a"}}, "subtype is not a whole number"},
        {{{"seq", 2147483648LL}}, "seq is out of range"},
        {{{"seq", -2147483649LL}}, "seq is out of range"},
        {{{"seq", nullptr}}, "seq is not a whole number"},
        {{{"preceding_seq", 2147483648LL}}, "preceding_seq is out of range"},
        {{{"preceding_seq", true}}, "preceding_seq is not a whole number"},
        {{{"client_seq", -2147483649LL}}, "client_seq is out of range"},
        {{{"client_seq", "1"}}, "client_seq is not a whole number"},
        {{{"target_seq", 2147483648LL}}, "target_seq is out of range"},
        {{{"target_seq", json::array()}}, "target_seq is not a whole number"},
        {{{"server_timestamp", 9223372036854775808ULL}}, "server_timestamp is out of range"},
        {{{"server_timestamp", 1.5}}, "server_timestamp is not a whole number"},
        {{{"creator_id", 7}}, "creator_id is not text"},
        {{{"creator_name", json::array()}}, "creator_name is not text"},
        {{{"member_id", json::object()}}, "member_id is not text"},
        {{{"transient_metadata", "push"}}, "transient_metadata is not an object"},
        {{{"transient_metadata", {{"push", 7}}}}, "transient_metadata.push is not an object"},
        {{{"transient_metadata", {{"push", {{"text", "7"}}}}}},
         "transient_metadata.push is neither text nor base64"},
        {{{"transient_metadata", {{"push", {{"base64", "?"}}}}}}, "transient_metadata.push is not base64"},
        {{{"transient_metadata", {{"push", {{"base64", 7}}}}}}, "transient_metadata.push is not text"},
        {{{"content", json::object()}}, "content is not an array"},
        {{{"content", {7}}}, "content[0] is not an object"},
    }));
}

TEST(ToolImport, AFieldOfAContentPartWithAWrongValueIsABadLine) {
    expectEachToBeRefused(withPart({
        {{{"media_type", 7}}, "content[0].media_type is not text"},
        {{{"size", "1"}}, "content[0].size is not a whole number"},
        {{{"size", 0.5}}, "content[0].size is not a whole number"},
        {{{"size", 9223372036854775808ULL}}, "content[0].size is out of range"},
        {{{"size", -1}}, "content[0].size is out of range"},
        {{{"text", 7}}, "content[0].text is not text"},
        {{{"body", 7}}, "content[0].body is not text"},
        {{{"body", "QUI"}}, "content[0].body is not base64"},
        {{{"body", "Q==="}}, "content[0].body is not base64"},
        {{{"body", "===="}}, "content[0].body is not base64"},
        {{{"body", "QQ==QQ=="}}, "content[0].body is not base64"},
        {{{"body", "QU I"}}, "content[0].body is not base64"},
        {{{"body", "_-_-"}}, "content[0].body is not base64"},
        {{{"body", "QR=="}}, "content[0].body is not base64"},
        {{{"body", "QQ=="}, {"text", "A"}}, "content[0].text stands beside other inline data"},
        {{{"external_url", 7}}, "content[0].external_url is not text"},
        {{{"external_url", "https://content.test/a b"}}, "content[0].external_url is not a URL"},
        {{{"external_url", "https://content.test/1"}, {"text", ""}},
         "content[0] has both inline data and an external_url"},
        {{{"external_content_url_expiration", "now"}},
         "content[0].external_content_url_expiration is not a number of seconds"},
        {{{"last_accessed", true}}, "content[0].last_accessed is not a number of seconds"},
        {{{"transfer_status", 5}}, "content[0].transfer_status is out of range"},
        {{{"transfer_status", -1}}, "content[0].transfer_status is out of range"},
        {{{"transfer_status", "complete"}}, "content[0].transfer_status is not a whole number"},
        {{{"file_path", 7}}, "content[0].file_path is not text"},
        {{{"file_path", "a b"}}, "content[0].file_path is not a relative path"},
        {{{"file_path", "https://content.test/1"}}, "content[0].file_path is not a relative path"},
        {{{"purged", 1}}, "content[0].purged is neither true nor false"},
    }));
}

TEST(ToolImport, AFilePathThatStartsAtTheRootIsABadLine) {
    expectEachToBeRefused(withPart({
        {{{"file_path", "/etc/hosts"}}, "content[0].file_path is not a relative path"},
        {{{"file_path", "//content.test/1"}}, "content[0].file_path is not a relative path"},
        {{{"file_path", "../x"}}, "content[0].file_path leads out of the cache directory"},
        {{{"file_path", "a/../../x"}}, "content[0].file_path leads out of the cache directory"},
        {{{"file_path", "%2E%2E/x"}}, "content[0].file_path leads out of the cache directory"},
        {{{"file_path", ""}}, "content[0].file_path names no file"},
        {{{"file_path", "a/"}}, "content[0].file_path names no file"},
        {{{"file_path", "a%00"}}, "content[0].file_path names no file"},
    }));
}

TEST(ToolImport, AnEventWithoutAClientIDOrATypeIsABadLine) {
    expectEachToBeRefused({{eventJSON(3, {{"client_id", nullptr}}).dump(), "client_id is missing"},
                           {eventJSON(3, {{"type", nullptr}}).dump(), "type is missing"},
                           {"{}", "client_id is missing"}});
}

TEST(ToolImport, AValueThatIsNoObjectIsABadLine) {
    expectEachToBeRefused({{"[]", "the line is not an object"},
                           {"7", "the line is not an object"},
                           {"null", "the line is not an object"},
                           {"\"text\"", "the line is not an object"}});
}

TEST(ToolImport, ALineThatIsNoJSONIsABadLine) {
    const std::string good = eventJSON(3).dump();
    const ToolStore store;
    const std::vector<std::string> badLines = {
        "nonsense",
        good.substr(0, good.size() - 1),
        good + good,
        good + " x",
        "{'type':2}",
        "{\"type\" 2}",
        "{\"type\":02}",
        "{\"type\":2,}",
        "{\"type\":NaN}",
        "{\"creator_id\":\"a\tb\"}",
        "{\"creator_id\":\"\\ud800\"}",
        "{\"creator_id\":\"\\x\"}",
        std::string(1, '\0'),
    };
    for (const std::string& line : badLines) {
        SCOPED_TRACE(line);
        expectNoJSON(store, lines({eventJSON(1)}) + line + "\n", 2);
    }
    EXPECT_EQ(store.events(), "") << "nothing of a batch with a bad line is stored";
}

TEST(ToolImport, BytesThatAreNotUTF8AreABadLine) {
    const ToolStore store;
    for (const std::string bytes : {"\xFF", "\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\x80"}) {
        SCOPED_TRACE(json::binary({bytes.begin(), bytes.end()}).dump());
        std::string line = eventJSON(3, {{"creator_id", "~"}}).dump();
        line.replace(line.find('~'), 1, bytes);
        expectNoJSON(store, line + "\n", 1);
    }
    EXPECT_EQ(store.events(), "");
}

TEST(ToolImport, ABodyIsReadFromBase64) {
    const ToolStore store;
    store.importWell(lines({messageWith(1, {{"media_type", "image/png"}, {"body", "iVBOR/8="}})}));
    const json part = onlyPart(store);
    EXPECT_EQ(part.at("body"), "iVBOR/8=");
    EXPECT_FALSE(part.contains("text")) << "these bytes are no UTF-8";
    EXPECT_EQ(part.at("size"), 5) << "a size that the line leaves out is the body's";
    EXPECT_EQ(part.at("transfer_status"), 4) << "a part with inline data is complete";
    EXPECT_EQ(store.execute("SELECT hex(value) FROM event_content_parts"),
              std::vector<std::string>{"89504E47FF"});
}

TEST(ToolImport, EveryLengthOfBase64IsReadAndWritten) {
    json parts = json::array();
    const std::vector<std::string> bodies = {"/w==", "//8=", "////", "/////w==", "AP8="};
    for (const std::string& body : bodies) {
        parts.push_back({{"media_type", "image/png"}, {"body", body}});
    }
    const ToolStore store;
    store.importWell(lines({eventJSON(1, {{"content", parts}})}));
    const json stored = parsedLines(store.events()).at(0).at("content");
    for (std::size_t index = 0; index < bodies.size(); ++index) {
        EXPECT_EQ(stored.at(index).value("body", ""), bodies[index]);
    }
}

TEST(ToolImport, ABodyThatIsUTF8IsWrittenAsText) {
    const ToolStore store;
    store.importWell(lines({messageWith(1, {{"media_type", "text/plain"}, {"body", "Z3LDvMOf"}})}));
    EXPECT_EQ(onlyPart(store).at("text"), "gr\u00fc\u00df");
    EXPECT_FALSE(onlyPart(store).contains("body"));
}

TEST(ToolImport, ControlCharactersSurvive) {
    std::string text;
    for (char character = 0; character < 0x20; ++character) {
        text += character;
    }
    text += "\"\\/\x7F";
    EXPECT_EQ(importedText(lines({messageWith(1, {{"media_type", "text/plain"}, {"text", text}})})), text);
}

TEST(ToolImport, ControlCharactersSurviveInNamesAndMetadata) {
    const std::string text = std::string("a\0b", 3) + "\x01\n\x1F";
    const ToolStore store;
    const json event = eventJSON(1, {{"creator_id", text},
                                     {"creator_name", text},
                                     {"member_id", text},
                                     {"transient_metadata", {{text, text}}}});
    store.importWell(lines({event}));
    const json stored = parsedLines(store.events()).at(0);
    for (const char* field : {"creator_id", "creator_name", "member_id", "transient_metadata"}) {
        EXPECT_EQ(stored.value(field, json()), event.at(field)) << field;
    }
}

TEST(ToolImport, CharactersOutsideTheBasicPlaneSurviveHoweverTheyAreWritten) {
    const std::string emoji = "\U0001F600";
    EXPECT_EQ(importedText(lines({messageWith(1, {{"text", emoji}})})), emoji);
    std::string escaped = messageWith(1, {{"text", "~"}}).dump();
    escaped.replace(escaped.find('~'), 1, "\\ud83d\\ude00");
    EXPECT_EQ(importedText(escaped + "\n"), emoji);
}

TEST(ToolImport, EmptyTextIsInlineDataOfNoBytes) {
    const ToolStore store;
    store.importWell(lines({messageWith(1, {{"media_type", ""}, {"text", ""}}, {{"creator_id", ""}})}));
    const json part = onlyPart(store);
    EXPECT_EQ(part.at("text"), "");
    EXPECT_EQ(part.at("size"), 0);
    EXPECT_EQ(part.at("transfer_status"), 4);
    EXPECT_EQ(parsedLines(store.events()).at(0).at("creator_id"), "") << "empty text is not absent";
}

TEST(ToolImport, ALineMayBeVeryLong) {
    std::string text(std::size_t{1} << 20, 'x');
    text.front() = 'a';
    text.back() = 'z';
    const json longest = messageWith(2, {{"media_type", "text/plain"}, {"text", text}});
    const ToolStore store;
    store.importWell(lines({eventJSON(1), longest, eventJSON(3)}));
    const auto events = parsedLines(store.events());
    ASSERT_EQ(events.size(), 3U) << "the lines around the long one are events of their own";
    EXPECT_TRUE(events[1].at("content").at(0).at("text") == text) << "the long text is stored whole";
}

TEST(ToolImport, TheLastLineNeedsNoLineBreak) {
    const ToolStore store;
    store.importWell(eventJSON(1).dump() + "\n" + eventJSON(2).dump());
    EXPECT_EQ(countOf(store), 2U);
}

TEST(ToolImport, BlankLinesAreNoEventsButCount) {
    const ToolStore store;
    store.importWell("\n" + lines({eventJSON(1)}) + "\n \t\n" + lines({eventJSON(2)}) + "\n\n");
    EXPECT_EQ(countOf(store), 2U);
    const ToolRun imported = store.import("\n\n" + lines({eventJSON(3)}) + "\n{}\n");
    EXPECT_EQ(imported.err.find("zavevents: " + store.importedFile() + ":5: client_id is missing\n"), 0U)
        << imported.err;
}

TEST(ToolImport, LinesMayEndWithACarriageReturn) {
    const ToolStore store;
    store.importWell(eventJSON(1).dump() + "\r\n\r\n" + eventJSON(2).dump() + "\r\n");
    EXPECT_EQ(countOf(store), 2U);
}

TEST(ToolImport, FieldsThatItDoesNotKnowAreIgnored) {
    const ToolStore plain;
    plain.importWell(lines({messageWith(1, {{"text", "hi"}})}));
    const ToolStore decorated;
    decorated.importWell(lines({messageWith(1, {{"text", "hi"}, {"colour", {1, 2}}},
                                            {{"ephemeral", true}, {"Type", "x"}, {"", {{"type", 3}}}})}));
    EXPECT_EQ(decorated.events(), plain.events());
}

TEST(ToolImport, NumbersOutOfRangeInFieldsThatItDoesNotKnowAreIgnored) {
    const ToolStore plain;
    plain.importWell(
        lines({messageWith(1, {{"text", "-1e400"}}, {{"server_timestamp", 9223372036854775807}})}));
    const std::vector<std::string> numbers = {"18446744073709551616",
                                              "-9223372036854775809",
                                              "1e400",
                                              "-1E+400",
                                              "0.1e-400",
                                              std::string(400, '9'),
                                              "1" + std::string(400, '0') + ".5"};
    for (const std::string& number : numbers) {
        SCOPED_TRACE(number);
        json event = messageWith(1, {{"text", "-1e400"}, {"x", "~"}},
                                 {{"server_timestamp", 9223372036854775807}, {"y", {{{"z", "~"}}}}});
        std::string line = event.dump();
        for (std::size_t at = 0; (at = line.find("\"~\"")) != std::string::npos;) {
            line.replace(at, 3, number);
        }
        const ToolStore store;
        store.importWell(line + "\n");
        EXPECT_EQ(store.events(), plain.events());
    }
}

TEST(ToolImport, NumbersOutOfRangeInFieldsThatItKnowsNameTheField) {
    const auto withNumber = [](json event, const std::string& number, const std::string& reason) {
        std::string line = event.dump();
        line.replace(line.find("\"~\""), 3, number);
        return BadLine{line, reason};
    };
    std::vector<BadLine> badLines;
    for (const std::string number : {"18446744073709551616", "-9223372036854775809", "1e400", "9.5e18"}) {
        for (const std::string field : {"seq", "server_timestamp", "type", "subtype", "target_seq"}) {
            badLines.push_back(withNumber(eventJSON(3, {{field, "~"}}), number, field + " is out of range"));
        }
        badLines.push_back(
            withNumber(messageWith(3, {{"size", "~"}}), number, "content[0].size is out of range"));
    }
    for (const std::string field : {"last_accessed", "external_content_url_expiration"}) {
        badLines.push_back(
            withNumber(messageWith(3, {{field, "~"}}), "-1e400", "content[0]." + field + " is out of range"));
    }
    expectEachToBeRefused(badLines);
}

TEST(ToolImport, NumbersThatAreNoneAreBadAlsoBesideSomeOutOfRange) {
    const ToolStore store;
    for (const std::string number : {"01e400", "1e", "1.e400", "-", "1e400e5", "+1e400", "1e400x"}) {
        SCOPED_TRACE(number);
        std::string line = eventJSON(1, {{"x", "~"}}).dump();
        line.replace(line.find("\"~\""), 3, "[1e400," + number + "]");
        expectNoJSON(store, line + "\n", 1);
    }
}

TEST(ToolImport, ADateMayBeBeyondEveryWholeNumber) {
    const ToolStore store;
    std::string line = messageWith(1, {{"text", "hi"}, {"last_accessed", "~"}}).dump();
    line.replace(line.find("\"~\""), 3, "36893488147419103232");
    store.importWell(line + "\n");
    EXPECT_EQ(onlyPart(store).at("last_accessed"), 36893488147419103232.0);
    const ToolStore copy;
    copy.importWell(store.events());
    EXPECT_EQ(copy.events(), store.events());
}

TEST(ToolImport, AFieldThatStandsTwiceInALineIsABadOne) {
    const auto twice = [](json event, const std::string& name, const std::string& reason) {
        std::string line = event.dump();
        line.replace(line.find("\"~"), 2, "\"" + name);
        return BadLine{line, reason};
    };
    std::vector<BadLine> badLines;
    const json whole = {{"type", 4},
                        {"subtype", 1},
                        {"seq", 1},
                        {"client_seq", 1},
                        {"preceding_seq", 1},
                        {"target_seq", 1},
                        {"creator_id", "a"},
                        {"creator_name", "a"},
                        {"server_timestamp", 1},
                        {"member_id", "a"},
                        {"content", json::array({json::object()})},
                        {"transient_metadata", {{"a", "b"}}}};
    for (const auto& [field, value] : whole.items()) {
        badLines.push_back(
            twice(eventJSON(3, {{field, value}, {"~", value}}), field, field + " stands there twice"));
    }
    const json part = {{"media_type", "a/b"},  {"size", 1},        {"last_accessed", 1},
                       {"transfer_status", 2}, {"file_path", "a"}, {"purged", true}};
    for (const auto& [field, value] : part.items()) {
        badLines.push_back(twice(messageWith(3, {{field, value}, {"~", value}}), field,
                                 "content[0]." + field + " stands there twice"));
    }
    badLines.push_back(twice(eventJSON(3, {{"transient_metadata", {{"a", "b"}, {"~", "c"}}}}), "a",
                             "transient_metadata.a stands there twice"));
    expectEachToBeRefused(badLines);
}

TEST(ToolImport, AnErrorInAPartSaysInWhich) {
    const auto withParts = [](const json& parts) { return eventJSON(3, {{"content", parts}}).dump(); };
    const json good = {{"text", "good"}};
    expectEachToBeRefused({
        {withParts({good, {{"body", "?"}}}), "content[1].body is not base64"},
        {withParts({good, good, 7}), "content[2] is not an object"},
        {withParts({good, urlPart}),
         "content[1] has an external_url and no transfer_status: --app-id and --user must say for whom to download "
         "it"},
    });
}

TEST(ToolImport, MetadataThatAreNotTextAreWrittenOnce) {
    const ToolStore store;
    const std::string line = lines({eventJSON(
        1, {{"transient_metadata",
             {{"text", "a"}, {"encoded", {{"base64", "Yg=="}}}, {"bytes", {{"base64", "/wA="}}}}}})});
    const auto writes = [&] {
        const ToolRun imported = store.import(line, {"--trace"});
        EXPECT_EQ(imported.status, 0) << imported.err;
        int count = 0;
        for (const std::string statement : {"INTO keyed_values_remote", "DELETE FROM keyed_values_remote"}) {
            for (auto at = imported.err.find(statement); at != std::string::npos;
                 at = imported.err.find(statement, at + 1)) {
                ++count;
            }
        }
        EXPECT_EQ(
            store.execute("SELECT key, typeof(value), hex(value) FROM keyed_values_remote ORDER BY key"),
            (std::vector<std::string>{"bytes|blob|FF00", "encoded|text|62", "text|text|61"}));
        return count;
    };
    EXPECT_EQ(writes(), 3) << "each of the three is written";
    EXPECT_EQ(writes(), 0) << "what is stored already is left alone";
}

TEST(ToolImport, ANameInAMessageIsOnOneLineAndOfBoundedLength) {
    const std::string name = "a\n\x1B[2J" + std::string(5000, 'x');
    const ToolStore store;
    const ToolRun imported = store.import(lines({eventJSON(1, {{"transient_metadata", {{name, 7}}}})}));
    EXPECT_EQ(
        imported.err.find("zavevents: " + store.importedFile() + ":1: transient_metadata.a\\x0a\\x1b[2Jxxx"),
        0U)
        << imported.err;
    EXPECT_LT(imported.err.size(), 1500U);
}

TEST(ToolImport, AMarkOfUTF8AtTheBeginningIsPassedOver) {
    const std::string mark = "\xEF\xBB\xBF";
    const ToolStore store;
    store.importWell(mark + lines({eventJSON(1), eventJSON(2)}));
    EXPECT_EQ(countOf(store), 2U);
    store.importWell(mark);
    store.importWell(mark + "\n" + lines({eventJSON(3)}));
    EXPECT_EQ(countOf(store), 3U);
    EXPECT_EQ(store.import(lines({eventJSON(4)}) + mark + lines({eventJSON(5)})).status, 1)
        << "it is none in another place";
}

TEST(ToolImport, TextInAnotherEncodingIsToldFromEvents) {
    const std::string line = "{}\n";
    const auto wide = [&](std::size_t before, std::size_t after) {
        std::string text;
        for (const char character : line) {
            text += std::string(before, '\0') + character + std::string(after, '\0');
        }
        return text;
    };
    const std::vector<std::pair<std::string, std::string>> inputs = {
        {"\xFF\xFE" + wide(0, 1), "UTF-16"},
        {"\xFE\xFF" + wide(1, 0), "UTF-16"},
        {wide(0, 1), "UTF-16"},
        {wide(1, 0), "UTF-16"},
        {std::string("\xFF\xFE\0\0", 4) + wide(0, 3), "UTF-32"},
        {std::string("\0\0\xFE\xFF", 4) + wide(3, 0), "UTF-32"},
        {wide(0, 3), "UTF-32"},
        {wide(3, 0), "UTF-32"},
    };
    for (const auto& [bytes, encoding] : inputs) {
        for (const std::vector<std::string>& options :
             std::vector<std::vector<std::string>>{{}, {"--skip-bad-lines"}}) {
            SCOPED_TRACE(encoding + " " + json::binary({bytes.begin(), bytes.end()}).dump());
            const ToolStore store;
            const ToolRun imported = store.import(bytes, options);
            EXPECT_EQ(imported.status, 1) << "the whole file is unreadable, not a line of it";
            EXPECT_EQ(imported.err, "zavevents: " + store.importedFile() + ":1: is " + encoding +
                                        ", events are read as UTF-8\n"
                                        "0 events of the batches before are stored, none of this batch\n");
        }
    }
}

TEST(ToolImport, ADirectoryIsNoInput) {
    const ToolStore store;
    const std::string directory = store.file("events");
    std::filesystem::create_directory(directory);
    const ToolRun imported = store.run("import", {directory});
    EXPECT_EQ(imported.status, 1);
    EXPECT_EQ(imported.err, "zavevents: " + directory + ": Is a directory\n");
    EXPECT_FALSE(std::filesystem::exists(store.path()))
        << "no database is made for an import that cannot start";
}

TEST(ToolImport, DeeplyNestedFieldsAreIgnoredWithinBounds) {
    const auto nested = [](int depth) {
        std::string line = eventJSON(1, {{"x", "~"}}).dump();
        return line.replace(line.find("\"~\""), 3,
                            std::string(static_cast<std::size_t>(depth), '[') +
                                std::string(static_cast<std::size_t>(depth), ']')) +
               "\n";
    };
    const ToolStore store;
    store.importWell(nested(1000));
    expectNoJSON(store, nested(1000000), 1);
}

TEST(ToolImport, AUserMayBeNamedWithoutAnApplication) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}), {"--user", "ada"});
    EXPECT_EQ(countOf(store), 1U);
}

TEST(ToolImport, FieldsThatOnlyTheOutputHasAreIgnored) {
    const ToolStore plain;
    plain.importWell(lines({messageWith(1, {{"text", "hi"}})}));
    for (const json& value : {json(77), json("x"), json(nullptr), json(-1.5), json::array()}) {
        SCOPED_TRACE(value.dump());
        json event = messageWith(1, {{"text", "hi"}});
        event["database_identifier"] = value;
        event["stream_database_identifier"] = value;
        for (const char* field :
             {"index", "event_database_identifier", "event_client_id", "event_seq", "stream_id"}) {
            event["content"][0][field] = value;
        }
        const ToolStore decorated;
        decorated.importWell(lines({event}));
        EXPECT_EQ(decorated.events(), plain.events());
    }
}

TEST(ToolImport, ABadLineKeepsTheBatchesBeforeItAndNothingOfItsOwn) {
    const ToolStore store;
    const json otherStream = {{"stream_id", uuidText(0xBB)}};
    const ToolRun imported = store.import(lines({eventJSON(1), eventJSON(2), eventJSON(3, otherStream)}) +
                                              "{\"type\":2}\n" + lines({eventJSON(4), eventJSON(5)}),
                                          {"--batch", "2"});
    EXPECT_EQ(imported.status, 1) << "a bad line stops the import";
    EXPECT_EQ(imported.out, "");
    EXPECT_EQ(imported.err, "zavevents: " + store.importedFile() +
                                ":4: client_id is missing\n"
                                "2 events of the batches before are stored, none of this batch\n");
    EXPECT_EQ(fieldOfLines(store.events(), "client_id"), (std::vector<json>{uuidText(1), uuidText(2)}));
    EXPECT_EQ(store.stats().at("streams"), 1) << "not even the stream of the third event is left";
}

TEST(ToolImport, BatchesOfOneEventKeepAllThatComesBeforeABadLine) {
    const ToolStore store;
    EXPECT_EQ(
        store.import(lines({eventJSON(1), eventJSON(2), eventJSON(3)}) + "x\n", {"--batch", "1"}).status, 1);
    EXPECT_EQ(countOf(store), 3U);
}

TEST(ToolImport, TheSizeOfTheBatchesMakesNoDifferenceToWhatIsStored) {
    std::vector<json> events;
    for (const bool again : {false, true}) {
        for (int number = 0; number < 10; ++number) {
            const json stream = number % 3 == 0 ? json(uuidText(0xBB)) : json(uuidText(0xAA));
            json event = messageWith(number, {{"text", "hi"}}, {{"stream_id", stream}});
            if (again || number % 2 == 0) {
                event["seq"] = number;
            }
            events.push_back(event);
        }
    }
    const ToolStore whole;
    whole.importWell(lines(events));
    for (const char* size : {"1", "2", "3", "19", "20", "1000000"}) {
        const ToolStore store;
        store.importWell(lines(events), {"--batch", size});
        EXPECT_EQ(store.events(), whole.events()) << "in batches of " << size;
    }
}

TEST(ToolImport, BadLinesAreCountedAndSkippedOnRequest) {
    const ToolStore store;
    const ToolRun imported = store.import(
        "x\n" + lines({eventJSON(1)}) + "{}\n" + lines({eventJSON(2)}) + "[]\n", {"--skip-bad-lines"});
    EXPECT_EQ(imported.status, 0) << "bad lines are no failure then";
    EXPECT_EQ(imported.out, "imported 2 events in 1 streams: 2 new, 0 updated, 3 bad lines skipped\n");
    const std::string file = store.importedFile();
    EXPECT_NE(imported.err.find(file + ":1: is not JSON: "), std::string::npos) << imported.err;
    EXPECT_NE(imported.err.find(file + ":3: client_id is missing (skipped)\n"), std::string::npos)
        << imported.err;
    EXPECT_NE(imported.err.find(file + ":5: the line is not an object (skipped)\n"), std::string::npos)
        << imported.err;
    EXPECT_EQ(countOf(store), 2U);
}

TEST(ToolImport, ASkippedLineLeavesNothingOfItselfBehind) {
    const ToolStore store;
    json bad = messageWith(1, {{"text", "of the bad line"}}, {{"stream_id", uuidText(0xBB)}});
    bad["content"].push_back(7);
    EXPECT_EQ(store.import(lines({bad, eventJSON(2)}), {"--skip-bad-lines"}).status, 0);
    const json counts = store.stats();
    EXPECT_EQ(counts.at("events"), 1);
    EXPECT_EQ(counts.at("parts"), 0);
    EXPECT_EQ(counts.at("streams"), 1);
}

TEST(ToolImport, StandardInputIsReadWhenNoFileIsNamed) {
    const ToolStore store;
    const ToolRun imported = store.run("import", {}, {.input = lines({eventJSON(1), eventJSON(2)})});
    EXPECT_EQ(imported.status, 0) << imported.err;
    EXPECT_EQ(countOf(store), 2U);
}

TEST(ToolImport, ADashNamesStandardInput) {
    const ToolStore store;
    std::vector<json> events;
    for (int number = 0; number < 5000; ++number) {
        events.push_back(messageWith(1, {{"text", "some text to make it long"}}, {{"seq", number}}));
    }
    const ToolRun imported = store.run("import", {"-"}, {.input = lines(events)});
    EXPECT_EQ(imported.status, 0) << imported.err;
    EXPECT_EQ(imported.out, "imported 5000 events in 1 streams: 5000 new, 0 updated\n");
}

TEST(ToolImport, ABadLineOfStandardInputIsNamedSo) {
    const ToolStore store;
    const ToolRun imported = store.run("import", {"-"}, {.input = lines({eventJSON(1)}) + "{}\n"});
    EXPECT_EQ(imported.status, 1);
    EXPECT_EQ(imported.err.find("zavevents: standard input:2: client_id is missing\n"), 0U) << imported.err;
}

TEST(ToolImport, AFileThatCannotBeReadIsNamed) {
    const ToolStore store;
    const std::string missing = store.file("nowhere.jsonl");
    const ToolRun imported = store.run("import", {missing});
    EXPECT_EQ(imported.status, 1);
    EXPECT_EQ(imported.err, "zavevents: " + missing + ": No such file or directory\n");
    EXPECT_EQ(store.run("events").status, 1) << "no database is made for an import that cannot start";
}

TEST(ToolImport, SequencedEventsImportedTwiceAreStoredOnce) {
    importedTwice(lines({eventJSON(1, {{"seq", 0}}), eventJSON(2, {{"seq", 1}}),
                         messageWith(3, {{"text", "hi"}}, {{"seq", 2}}),
                         eventJSON(4, {{"seq", 1}, {"stream_id", uuidText(0xBB)}})}));
}

TEST(ToolImport, EventsWithoutASequenceImportedTwiceAreRecognisedByTheirClientID) {
    importedTwice(lines({eventJSON(1), messageWith(2, {{"text", "hi"}}),
                         eventJSON(3, {{"stream_id", nullptr}}), messageWith(4, urlPart, {{"seq", 1}})}),
                  {"--app-id", appID, "--user", "ada"});
}

TEST(ToolImport, EventsOfAStreamWithoutAnIdentifierImportedTwiceAreStoredOnce) {
    const json unknown = {{"stream_id", nullptr}, {"stream_database_identifier", 5}};
    json sequenced = unknown;
    sequenced["seq"] = 3;
    const std::string events = importedTwice(lines({eventJSON(1, unknown), eventJSON(2, sequenced)}));
    EXPECT_EQ(fieldOfLines(events, "seq"), (std::vector<json>{nullptr, 3}));
}

TEST(ToolImport, TheMarkerOfAnUnassignedSequenceImportedTwiceChangesNothing) {
    const std::string events = importedTwice(lines({eventJSON(1, {{"seq", 2147483647}})}));
    EXPECT_EQ(fieldOfLines(events, "seq"), std::vector<json>{nullptr}) << "2147483647 says: not assigned";
}

TEST(ToolImport, MetadataImportedTwiceIsStoredOnce) {
    const std::string events = importedTwice(
        lines({eventJSON(1, {{"transient_metadata", {{"a", "1"}, {"b", {{"base64", "w7w="}}}}}})}));
    EXPECT_EQ(parsedLines(events).at(0).at("transient_metadata"), json({{"a", "1"}, {"b", "\u00fc"}}))
        << "bytes that are UTF-8 are text";
}

TEST(ToolImport, MetadataThatIsNotUTF8IsStored) {
    const json metadata = {{"a", "1"}, {"b", {{"base64", "/wA="}}}};
    const std::string events = importedTwice(lines({eventJSON(1, {{"transient_metadata", metadata}})}));
    EXPECT_EQ(parsedLines(events).at(0).value("transient_metadata", json()), metadata);
}

TEST(ToolImport, TheSameEventTwiceInOneFileIsStoredOnce) {
    for (const json& changes : {json(json::object()), json{{"seq", 1}}, json{{"stream_id", nullptr}},
                                json{{"stream_id", nullptr}, {"seq", 1}}}) {
        for (const char* batch : {"1", "1000"}) {
            SCOPED_TRACE(changes.dump() + " in batches of " + batch);
            const json event = messageWith(1, {{"text", "hi"}}, changes);
            const std::string events = importedTwice(lines({event, event}), {"--batch", batch});
            EXPECT_EQ(parsedLines(events).size(), 1U) << "both lines are the same event";
        }
    }
}

TEST(ToolImport, TheLaterLineOfAnEventWins) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1, {{"creator_name", "old"}}), eventJSON(2, {{"seq", 1}}),
                            eventJSON(1, {{"creator_name", "new"}}),
                            eventJSON(2, {{"seq", 1}, {"creator_name", "new"}})}));
    EXPECT_EQ(fieldOfLines(store.events(), "creator_name"), (std::vector<json>{"new", "new"}));
}

TEST(ToolImport, AnEventFirstWithoutAndLaterWithASequenceIsOneEvent) {
    const std::string waiting = lines({eventJSON(1, {{"creator_id", "ada"}})});
    const std::string sequenced = lines({eventJSON(1, {{"creator_id", "ada"}, {"seq", 9}})});
    const ToolStore inOneFile;
    inOneFile.importWell(waiting + sequenced);
    const ToolStore inTwoFiles;
    inTwoFiles.importWell(waiting);
    inTwoFiles.importWell(sequenced);
    const ToolStore atOnce;
    atOnce.importWell(sequenced);
    EXPECT_EQ(inOneFile.events(), atOnce.events());
    EXPECT_EQ(inTwoFiles.events(), atOnce.events());
}

TEST(ToolImport, AnEventWithoutASequenceDoesNotTakeTheStoredOneAway) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1, {{"seq", 9}}), eventJSON(2, {{"seq", 0}})}));
    store.importWell(lines({eventJSON(1), eventJSON(2)}));
    EXPECT_EQ(fieldOfLines(store.events(), "seq"), (std::vector<json>{9, 0}));
}

TEST(ToolImport, AnEventFirstWithAndLaterWithoutASequenceInOneFileIsOneEvent) {
    for (const char* batch : {"1", "1000"}) {
        SCOPED_TRACE(std::string("in batches of ") + batch);
        const std::string events =
            importedTwice(lines({eventJSON(1, {{"seq", 9}}), eventJSON(1)}), {"--batch", batch});
        EXPECT_EQ(fieldOfLines(events, "seq"), std::vector<json>{9});
    }
}

TEST(ToolImport, OneClientIDAtTwoSequencesIsTwoEvents) {
    const std::string events = importedTwice(lines({eventJSON(1, {{"seq", 1}}), eventJSON(1, {{"seq", 2}})}));
    EXPECT_EQ(fieldOfLines(events, "seq"), (std::vector<json>{1, 2}));
}

TEST(ToolImport, OnlyNewEventsAreRecordedAsChanges) {
    const ToolStore store;
    const std::vector<std::string> recording = {"--record-changes"};
    store.importWell(lines({eventJSON(1, {{"seq", 1}}), eventJSON(2)}));
    EXPECT_EQ(store.events({"--unprocessed"}), "") << "changes are recorded on request only";
    store.importWell(
        lines({eventJSON(1, {{"seq", 1}}), eventJSON(2), eventJSON(3), eventJSON(3), eventJSON(4)}),
        recording);
    EXPECT_EQ(fieldOfLines(store.events({"--unprocessed"}), "client_id"),
              (std::vector<json>{uuidText(3), uuidText(4)}));
    store.importWell(lines({eventJSON(3, {{"seq", 7}, {"creator_id", "ada"}}), eventJSON(4)}),
                     {"--record-changes", "--user", "ada"});
    EXPECT_EQ(store.execute("SELECT hex(substr(client_id, -1)), change_type FROM synced_changes"
                            " JOIN events ON row_identifier = events.database_identifier ORDER BY 1"),
              (std::vector<std::string>{"03|0", "04|0"}))
        << "an event is recorded once, as an insert";
}

TEST(ToolImport, ChangesOfABatchThatFailsAreNotRecorded) {
    const ToolStore store;
    EXPECT_EQ(store
                  .import(lines({eventJSON(1), eventJSON(2), eventJSON(3)}) + "x\n",
                          {"--record-changes", "--batch", "2"})
                  .status,
              1);
    EXPECT_EQ(store.execute("SELECT row_identifier FROM synced_changes ORDER BY 1"),
              (std::vector<std::string>{"1", "2"}));
}

TEST(ToolImport, APartWithAnExternalURLIsMadeReadyForDownload) {
    const ToolStore store;
    json message = messageWith(0x0C, {{"media_type", "text/plain"}, {"text", "see"}});
    message["content"].push_back(urlPart);
    store.importWell(lines({message}), {"--app-id", appID, "--user", "ada"});
    const json parts = parsedLines(store.events()).at(0).at("content");
    EXPECT_EQ(parts.at(1).at("transfer_status"), 2);
    EXPECT_EQ(parts.at(1).at("file_path"), appID + "/ada/" + uuidText(0x0C) + "/part-1");
    EXPECT_EQ(parts.at(0).at("transfer_status"), 4) << "inline data needs no download";
    EXPECT_FALSE(parts.at(0).contains("file_path"));
}

TEST(ToolImport, APartToDownloadForNobodyIsABadLine) {
    expectEachToBeRefused({{messageWith(3, urlPart).dump(),
                            "content[0] has an external_url and no transfer_status: --app-id and --user "
                            "must say for whom to download it"}});
}

TEST(ToolImport, ATransferStatusInTheLineIsKept) {
    for (int status = 0; status <= 4; ++status) {
        SCOPED_TRACE(status);
        json part = urlPart;
        part.update({{"transfer_status", status}, {"file_path", "kept/here"}});
        const ToolStore store;
        store.importWell(lines({messageWith(1, part)}), {"--app-id", appID, "--user", "ada"});
        EXPECT_EQ(onlyPart(store).at("transfer_status"), status);
        EXPECT_EQ(onlyPart(store).at("file_path"), "kept/here");

        const ToolStore ownerless;
        ownerless.importWell(lines({messageWith(1, part)}));
        EXPECT_EQ(onlyPart(ownerless), onlyPart(store)) << "nobody need be named for it";
    }
}

TEST(ToolImport, ATransferStatusBesideAPartToDownloadIsKept) {
    json uploading = urlPart;
    uploading.update({{"transfer_status", 1}, {"file_path", "kept/here"}});
    json message = messageWith(1, uploading);
    message["content"].push_back(urlPart);
    message["content"].push_back({{"text", "hi"}, {"transfer_status", 0}});
    const ToolStore store;
    store.importWell(lines({message}), {"--app-id", appID, "--user", "ada"});
    const json parts = parsedLines(store.events()).at(0).at("content");
    EXPECT_EQ(parts.at(0).at("transfer_status"), 1);
    EXPECT_EQ(parts.at(0).at("file_path"), "kept/here");
    EXPECT_EQ(parts.at(1).at("transfer_status"), 2);
    EXPECT_EQ(parts.at(2).at("transfer_status"), 0);
}

TEST(ToolImport, EventsWhoseStreamTheServiceDoesNotKnowSurviveExportAndImport) {
    const json first = {{"stream_id", nullptr}, {"stream_database_identifier", 1}};
    const json second = {{"stream_id", nullptr}, {"stream_database_identifier", 2}};
    const ToolStore store;
    store.importWell(lines({eventJSON(1, first), eventJSON(2, second), eventJSON(3, first), eventJSON(4)}));
    EXPECT_EQ(fieldOfLines(store.events(), "stream_database_identifier"), (std::vector<json>{1, 2, 1, 3}))
        << "events that were in one stream are in one stream";
    const ToolStore copy;
    copy.importWell(store.events());
    EXPECT_EQ(copy.events(), store.events());
    EXPECT_EQ(copy.events({"--unpublishable"}), store.events({"--unpublishable"}));
    EXPECT_EQ(parsedLines(copy.events({"--unpublishable"})).size(), 3U);
}

}  // namespace
}  // namespace zav::test
