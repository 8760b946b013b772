#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Support/Tool.h"

namespace zav::test {
namespace {

using nlohmann::json;
using Words = std::vector<std::string>;

const std::string stream = uuidText(0xAA);

/// A store with twelve events, each of which has one part with a file; the sequence of an event is its row.
class TwelveEvents : public ToolStore {
public:
    TwelveEvents() {
        std::vector<json> events;
        for (int number = 1; number <= 12; ++number) {
            const json part = {{"media_type", "image/png"},
                               {"size", 50},
                               {"transfer_status", 2},
                               {"external_url", "https://content.test/" + std::to_string(number)},
                               {"file_path", "a/" + std::to_string(number)}};
            events.push_back(eventJSON(number, {{"seq", number}, {"type", 4}, {"content", {part}}}));
        }
        importWell(lines(events));
    }

    void expectMistake(const std::string& command, const Words& options, const std::string& named) const {
        SCOPED_TRACE(command + " " + testing::PrintToString(options));
        const std::string bytes = bytesOfFile(path());
        const ToolRun refused = run(command, options);
        EXPECT_EQ(refused.status, 2) << "the command line is wrong: " << refused.err;
        EXPECT_EQ(refused.out, "") << "there is no result";
        EXPECT_NE(refused.err.find(named), std::string::npos)
            << "the message does not name " << named << ": " << refused.err;
        EXPECT_NE(refused.err.find("see 'zavevents"), std::string::npos) << refused.err;
        EXPECT_TRUE(bytesOfFile(path()) == bytes) << "nothing is done";
    }

    void expectDone(const std::string& command, const Words& options) const {
        SCOPED_TRACE(command + " " + testing::PrintToString(options));
        const ToolRun done = run(command, options);
        EXPECT_EQ(done.status, 0) << done.err;
    }
};

/// An option of a number, in a command line that is right but for the word that stands for its value.
struct NumericOption {
    std::string command;
    std::string name;
    Words others;

    [[nodiscard]] Words with(const std::string& word) const {
        Words words{name, word};
        words.insert(words.end(), others.begin(), others.end());
        return words;
    }
};

const std::vector<NumericOption> wholeNumbers = {
    {"events", "--id", {}},
    {"events", "--revived", {}},
    {"events", "--seq", {"--stream", stream}},
    {"parts", "--id", {}},
    {"parts", "--event", {"--index", "0"}},
    {"parts", "--index", {"--event", "1"}},
    {"parts", "--message", {"--index", "0"}},
    {"parts", "--least-recent", {}},
    {"parts", "--limit", {"--incomplete-uploads"}},
    {"parts", "--max-size", {"--expired-downloads"}},
    {"sequence", "--id", {"--seq", "50", "--creator", "ada", "--timestamp", "1"}},
    {"sequence", "--seq", {"--id", "1", "--creator", "ada", "--timestamp", "1"}},
    {"sequence", "--timestamp", {"--id", "1", "--creator", "ada", "--seq", "50"}},
    {"tombstone", "--stream-row", {"--seq", "1"}},
    {"tombstone", "--seq", {"--stream-row", "1"}},
    {"delete", "--id", {}},
    {"processed", "--id", {}},
    {"message", "--event", {}},
    {"participant-seq", "--seq", {"--stream", stream, "--member", "ada"}},
    {"message-seq", "--event", {"--seq", "1"}},
    {"message-seq", "--seq", {"--event", "1"}},
    {"transfer", "--event", {"--index", "0"}},
    {"transfer", "--index", {"--event", "1"}},
    {"transfer", "--status", {"--event", "1", "--index", "0"}},
    {"transfer", "--size", {"--event", "1", "--index", "0"}},
    {"transfer", "--purged", {"--event", "1", "--index", "0"}},
    {"reclaim", "--bytes", {"--cache", "/"}},
    {"repair", "--age", {"--cache", "/", "--app-id", stream, "--user", "ada"}},
    {"import", "--batch", {"/dev/null"}},
    {"send", "--stream-row", {"/dev/null", "--user", "ada"}},
    {"stream-posted", "--stream-row", {"--stream", stream}},
    {"missing", "--limit", {"--stream", stream}},
    {"delete-stream", "--stream-row", {"--cache", "/"}},
};

TEST(ToolNumbers, AreWholeAndDecimalAndNothingElse) {
    const TwelveEvents store;
    for (const char* word : {"", " 1", "1 ", "+1", "0x10", "0b1", "1.0", "1e1", "1_0", "1'0", "1,000", "one",
                             "nan", "--1", "-", "\xEF\xBC\x91", "[1]", "{}", "99999999999999999999"}) {
        store.expectMistake("events", {"--id", word}, "--id");
    }
}

TEST(ToolNumbers, AreReadAlikeByEveryOption) {
    const TwelveEvents store;
    for (const NumericOption& option : wholeNumbers) {
        for (const char* word : {"", "0x1", "1.0", "one"}) {
            store.expectMistake(option.command, option.with(word), option.name);
        }
    }
    store.expectMistake("events", {"--id="}, "--id");
}

TEST(ToolNumbers, AreDecimalAlsoWhereZerosLead) {
    const TwelveEvents store;
    EXPECT_EQ(fieldOfLines(store.events({"--id", "010"}), "database_identifier"), std::vector<json>{10});
    EXPECT_EQ(fieldOfLines(store.events({"--seq", "0012", "--stream", stream}), "seq"),
              std::vector<json>{12});
    EXPECT_EQ(fieldOfLines(store.run("parts", {"--event", "010", "--index", "00"}).out,
                           "event_database_identifier"),
              std::vector<json>{10});
    store.expectDone("transfer", {"--event", "011", "--index", "0", "--size", "0100"});
    EXPECT_EQ(store.execute("SELECT size FROM event_content_parts WHERE event_database_identifier = 11"),
              Words{"100"});
    store.expectDone("sequence", {"--id", "011", "--seq", "017", "--creator", "ada", "--timestamp", "010"});
    EXPECT_EQ(store.execute("SELECT database_identifier, timestamp FROM events WHERE seq = 17"),
              Words{"11|10"});
    store.expectDone("delete", {"--id", "010", "09"});
    EXPECT_EQ(store.execute("SELECT COUNT(*) FROM events WHERE database_identifier IN (8, 9, 10)"),
              Words{"1"})
        << "row 8 is another one";
}

TEST(ToolNumbers, AreRefusedInAListAsOnTheirOwn) {
    const TwelveEvents store;
    for (const char* command : {"delete", "processed"}) {
        store.expectMistake(command, {"--id", "1", "0x2", "3"}, "0x2");
        store.expectMistake(command, {"--id", "1", "--id", ""}, "--id");
        store.expectMistake(command, {"--id", "[1,2]"}, "[1,2]");
        store.expectMistake(command, {"--id", "1", "[]"}, "[]");
        store.expectMistake(command, {"--id", "1,2"}, "1,2");
    }
}

TEST(ToolNumbers, HaveTheRangeOfTheirField) {
    const TwelveEvents store;
    const std::string largest = "9223372036854775807";
    const std::string tooLarge = "9223372036854775808";
    for (const NumericOption& option : wholeNumbers) {
        store.expectMistake(option.command, option.with(tooLarge), option.name);
    }
    for (const char* name : {"--id", "--revived"}) {
        EXPECT_EQ(store.events({name, largest}), "") << "there is no such row";
        EXPECT_EQ(store.events({name, "-9223372036854775808"}), "") << "there is no such row";
    }
    store.expectDone("parts", {"--least-recent", largest});
    store.expectDone("parts", {"--incomplete-uploads", "--limit", largest});
    store.expectDone("parts", {"--expired-downloads", "--no-mime", "--max-size", largest});
    for (const auto& [command, options] : std::vector<std::pair<std::string, Words>>{
             {"parts", {"--least-recent", "-1"}},
             {"parts", {"--incomplete-uploads", "--limit", "-1"}},
             {"parts", {"--expired-downloads", "--max-size", "-1"}},
             {"parts", {"--event", "1", "--index", "-1"}},
             {"transfer", {"--event", "1", "--index", "-1"}},
             {"transfer", {"--event", "1", "--index", "0", "--size", "-1"}},
             {"transfer", {"--event", "1", "--index", "0", "--status", "-1"}},
             {"transfer", {"--event", "1", "--index", "0", "--status", "5"}},
             {"transfer", {"--event", "1", "--index", "0", "--purged", "-1"}},
             {"transfer", {"--event", "1", "--index", "0", "--purged", "2"}},
             {"reclaim", {"--cache", "/", "--bytes", "-1"}},
             {"import", {"/dev/null", "--batch", "0"}},
             {"import", {"/dev/null", "--batch", "1000001"}}}) {
        store.expectMistake(command, options, options.back());
    }
}

TEST(ToolNumbers, OfASequenceHaveThirtyTwoBits) {
    const TwelveEvents store;
    for (const NumericOption& option : wholeNumbers) {
        if (option.name == "--seq") {
            store.expectMistake(option.command, option.with("2147483648"), "2147483648");
            store.expectMistake(option.command, option.with("-2147483649"), "-2147483649");
        }
    }
    store.expectDone("events", {"--seq", "-2147483648", "--stream", stream});
    store.expectDone("sequence",
                     {"--id", "1", "--seq", "2147483646", "--creator", "ada", "--timestamp", "1"});
    EXPECT_EQ(store.execute("SELECT seq FROM events WHERE database_identifier = 1"), Words{"2147483646"});
}

TEST(ToolNumbers, ThatSayThatThereIsNoSequenceCanBeLookedForAndNotAssigned) {
    const TwelveEvents store;
    const std::string none = "2147483647";
    store.expectMistake("sequence", {"--id", "1", "--creator", "ada", "--timestamp", "1", "--seq", none},
                        none);
    store.expectMistake("participant-seq", {"--stream", stream, "--member", "ada", "--seq", none}, none);
    store.expectMistake("message-seq", {"--event", "1", "--seq", none}, none);
    store.execute("UPDATE events SET seq = 2147483647 WHERE database_identifier = 3");
    EXPECT_EQ(fieldOfLines(store.events({"--seq", none, "--stream", stream}), "database_identifier"),
              std::vector<json>{3});
    store.expectDone("tombstone", {"--stream-row", "1", "--seq", none});
    EXPECT_EQ(store.execute("SELECT type FROM events WHERE database_identifier = 3"), Words{"10"});
}

TEST(ToolDates, AreFiniteDecimalNumbers) {
    const TwelveEvents store;
    for (const char* option : {"--expires", "--accessed"}) {
        for (const char* word :
             {"",   "nan",   "NAN", "inf", "-inf", "infinity", "0x10", "0x1p3", "1e999", "-1e999", "1.",
              ".5", "1.5.2", "1e",  "1e+", " 1",   "1 ",       "+1",   "1f",    "soon",  "-"}) {
            store.expectMistake("transfer", {"--event", "1", "--index", "0", option, word}, option);
        }
    }
    for (const auto& [word, stored] : std::vector<std::pair<std::string, std::string>>{
             {"1.5", "1.5"}, {"-1.5", "-1.5"}, {"1.5E+3", "1500.0"}, {"010", "10.0"}, {"0", "0.0"}}) {
        store.expectDone("transfer", {"--event", "1", "--index", "0", "--accessed", word, "--expires", word});
        EXPECT_EQ(store.execute("SELECT last_accessed, access_expiration FROM event_content_parts"
                                " WHERE event_database_identifier = 1"),
                  Words{stored + "|" + stored})
            << word;
    }
}

TEST(ToolTexts, AreNeverEmpty) {
    const TwelveEvents store;
    const std::vector<std::pair<std::string, Words>> commands = {
        {"events", {"--seq", "1", "--stream"}},
        {"parts", {"--object-id"}},
        {"parts", {"--url"}},
        {"parts", {"--expired-downloads", "--mime"}},
        {"sequence", {"--id", "1", "--seq", "50", "--timestamp", "1", "--creator"}},
        {"conversation", {"--stream"}},
        {"conversation", {"--stream", stream, "--member"}},
        {"conversation", {"--stream", stream, "--member", "ada", "--member"}},
        {"participant-seq", {"--seq", "1", "--member", "ada", "--stream"}},
        {"participant-seq", {"--seq", "1", "--stream", stream, "--member"}},
        {"transfer", {"--event", "1", "--index", "0", "--url"}},
        {"transfer", {"--event", "1", "--index", "0", "--file"}},
        {"reclaim", {"--bytes", "1", "--cache"}},
        {"import", {"/dev/null", "--user", "ada", "--app-id"}},
        {"import", {"/dev/null", "--app-id", stream, "--user"}},
        {"stats", {"--key-file"}},
        {"stats", {"--log"}},
    };
    for (const auto& [command, before] : commands) {
        Words apart = before;
        apart.emplace_back("");
        store.expectMistake(command, apart, before.back());
        Words together = before;
        together.back() += "=";
        // What follows would otherwise be taken for the value.
        together.emplace_back("ada");
        store.expectMistake(command, together, before.back());
    }
    store.expectMistake("import", {""}, "FILE");
}

TEST(ToolTexts, ThatAreStoredAreUTF8) {
    const TwelveEvents store;
    store.expectMistake("sequence", {"--id", "1", "--seq", "50", "--timestamp", "1", "--creator", "ad\xFF"},
                        "ad\\xff");
    store.expectMistake("conversation", {"--stream", stream, "--member", "\xC0\x80"}, "\\xc0\\x80");
}

TEST(ToolFlags, TakeNoValue) {
    const TwelveEvents store;
    for (const char* value : {"=false", "=0", "=no", "=off"}) {
        store.expectMistake("events", {std::string("--publishable") + value}, "publishable");
        store.expectMistake("parts", {std::string("--unassigned-urls") + value}, "unassigned-urls");
        store.expectMistake("stats", {std::string("--json") + value}, "json");
        store.expectMistake("reclaim", {"--bytes", "1", "--cache", "/", std::string("--dry-run") + value},
                            "dry-run");
        store.expectMistake("stats", {std::string("--trace") + value}, "trace");
    }
}

TEST(ToolOptions, AreGivenOnce) {
    const TwelveEvents store;
    for (const NumericOption& option : wholeNumbers) {
        if (option.name == "--id" && (option.command == "delete" || option.command == "processed")) {
            continue;
        }
        Words twice = option.with("1");
        twice.insert(twice.end(), {option.name, "1"});
        store.expectMistake(option.command, twice, option.name);
    }
    store.expectMistake("parts", {"--url", "https://a.test", "--url", "https://b.test"}, "--url");
    store.expectMistake("transfer", {"--event", "1", "--index", "0", "--accessed", "1", "--accessed", "2"},
                        "--accessed");
}

TEST(ToolOptions, ThatASelectionHasNoUseForAreRefused) {
    const TwelveEvents store;
    for (const Words& selection : std::vector<Words>{{"--id", "1"},
                                                     {"--url", "https://content.test/1"},
                                                     {"--object-id", "https://content.test/1"},
                                                     {"--least-recent", "1"},
                                                     {"--unassigned-urls"}}) {
        for (const char* option : {"--index", "--limit", "--max-size"}) {
            Words words = selection;
            words.insert(words.end(), {option, "1"});
            store.expectMistake("parts", words, option);
        }
    }
    store.expectMistake("parts", {"--event", "1", "--index", "0", "--limit", "1"}, "--limit");
    store.expectMistake("parts", {"--incomplete-uploads", "--index", "0"}, "--index");
}

TEST(ToolMistakes, NameWhatIsWrongAndWhereToLook) {
    const TwelveEvents store;
    const std::string path = store.path();
    const std::vector<std::pair<Words, std::string>> mistakes = {
        {{}, "zavevents: no command is given; see 'zavevents --help'\n"},
        {{"bring"}, "zavevents: there is no command 'bring'; see 'zavevents --help'\n"},
        {{"bring", path}, "zavevents: there is no command 'bring'; see 'zavevents --help'\n"},
        {{"Stats", path}, "zavevents: there is no command 'Stats'; see 'zavevents --help'\n"},
        {{"--bring"}, "zavevents: there is no option '--bring'; see 'zavevents --help'\n"},
        {{"stats", path, "--jsno"},
         "zavevents stats: there is no option '--jsno'; see 'zavevents stats --help'\n"},
        {{"stats", path, "--all=no"},
         "zavevents stats: there is no option '--all=no'; see 'zavevents stats --help'\n"},
        {{"stats", path, "more"},
         "zavevents stats: there is no argument 'more'; see 'zavevents stats --help'\n"},
        {{"stats"}, "zavevents stats: DATABASE is required; see 'zavevents stats --help'\n"},
        {{"delete", path}, "zavevents delete: --id is required; see 'zavevents delete --help'\n"},
        {{"delete", path, "--id", "ten"},
         "zavevents delete: --id: 'ten' is not a whole number from -9223372036854775808 to "
         "9223372036854775807; see 'zavevents delete --help'\n"},
        {{"events", path, "--seq", "1", "--stream", "7"},
         "zavevents events: --stream: '7' is not a UUID; see 'zavevents events --help'\n"},
        {{"parts", path, "--url", "no url"},
         "zavevents parts: --url: 'no url' is not a URL; see 'zavevents parts --help'\n"},
        {{"b\x1B[2J\nring"}, "zavevents: there is no command 'b\\x1b[2J\\x0aring'; see 'zavevents --help'\n"},
    };
    for (const auto& [words, message] : mistakes) {
        const ToolRun run = runTool(words);
        EXPECT_EQ(run.status, 2) << message;
        EXPECT_EQ(run.out, "") << message;
        EXPECT_EQ(run.err, message);
    }
}

TEST(ToolDatabasePath, IsThatOfAFileWhateverItLooksLike) {
    for (const std::string name : {":memory:", "file:chat.db", "file:chat.db?mode=memory",
                                   "file::memory:?cache=shared", "a%20b", "[a,b]", "stats", "~", "-"}) {
        SCOPED_TRACE(name);
        const ToolStore place;
        ToolCircumstances there;
        there.directory = place.file("");
        EXPECT_EQ(runTool({"init", name}, there).status, 0);
        EXPECT_TRUE(std::filesystem::exists(place.file(name))) << "no file of this name was made";
        there.input = lines({eventJSON(1)});
        EXPECT_EQ(runTool({"import", name}, there).out, "imported 1 events in 1 streams: 1 new, 0 updated\n");
        there.input.clear();
        EXPECT_EQ(parsedLines(runTool({"events", name}, there).out).size(), 1U) << "what was stored is there";
        EXPECT_EQ(runTool({"check", name}, there).status, 0);
        std::filesystem::remove(place.file(name));
        EXPECT_TRUE(std::filesystem::is_empty(there.directory)) << "something else was made beside it";
    }
}

}  // namespace
}  // namespace zav::test
