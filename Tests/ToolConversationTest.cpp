#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Support/Tool.h"

namespace zav::test {
namespace {

using nlohmann::json;
using Words = std::vector<std::string>;

/// A store with two events of the stream `uuidText(0xAA)`, made and changed through the tool only.
class OwnStore : public ToolStore {
public:
    OwnStore() {
        const json parts = {{{"text", "first"}}, {{"text", "second"}}};
        importWell(lines({eventJSON(1, {{"type", 4}, {"seq", 1}, {"content", parts}}), eventJSON(2)}));
    }

    void expectDone(const std::string& command, const Words& options, const std::string& out) const {
        const ToolRun done = run(command, options);
        EXPECT_EQ(done.status, 0) << command << ": " << done.err;
        EXPECT_EQ(done.err, "") << command;
        EXPECT_EQ(done.out, out) << command;
    }

    void expectFailure(const std::string& command, const Words& options, const std::string& message) const {
        const ToolRun failed = run(command, options);
        EXPECT_EQ(failed.status, 1) << command;
        EXPECT_EQ(failed.out, "") << command;
        EXPECT_EQ(failed.err, "zavevents: " + message + "\n");
    }

    [[nodiscard]] Words participants() const {
        return execute(
            "SELECT conversation_database_identifier, member_id, seq FROM conversation_participants"
            " ORDER BY database_identifier");
    }
};

const Words inStream = {"--stream", uuidText(0xAA)};

Words inStreamWith(const Words& more) {
    Words words = inStream;
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

TEST(ToolConversation, IsMadeOnceForAStreamWithItsMembers) {
    const OwnStore store;
    store.expectDone("conversation", inStreamWith({"--member", "ada", "bob"}),
                     "conversation 1: 2 participants added\n");
    EXPECT_EQ(store.execute("SELECT database_identifier, hex(stream_id) FROM conversations"),
              Words{"1|111111111111111111111111111111AA"});
    EXPECT_EQ(store.participants(), (Words{"1|ada|NULL", "1|bob|NULL"}));
    store.expectDone("conversation", inStream, "conversation 1: 0 participants added\n");
    store.expectDone("conversation", inStreamWith({"--member", "bob", "--member", "eve", "--member", "eve"}),
                     "conversation 1: 1 participants added\n");
    EXPECT_EQ(store.participants(), (Words{"1|ada|NULL", "1|bob|NULL", "1|eve|NULL"}));
    store.expectDone("conversation", {"--stream", uuidText(0xBB), "--member", "ada"},
                     "conversation 2: 1 participants added\n");
}

TEST(ToolConversation, KeepsHowFarItsMembersHaveProgressed) {
    const OwnStore store;
    store.expectDone("conversation", inStreamWith({"--member", "ada", "bob"}),
                     "conversation 1: 2 participants added\n");
    store.expectDone("participant-seq", inStreamWith({"--member", "ada", "--seq", "12"}),
                     "1 participant updated\n");
    EXPECT_EQ(store.participants(), (Words{"1|ada|12", "1|bob|NULL"}));
    store.expectDone("conversation", inStreamWith({"--member", "ada"}),
                     "conversation 1: 0 participants added\n");
    EXPECT_EQ(store.participants(), (Words{"1|ada|12", "1|bob|NULL"})) << "who takes part already stays";
    store.expectFailure("participant-seq", {"--stream", uuidText(0xBB), "--member", "ada", "--seq", "12"},
                        "the stream 11111111-1111-1111-1111-1111111111bb has no conversation");
}

TEST(ToolConversation, TakesMembersAsTheyAreTyped) {
    const OwnStore store;
    store.expectDone("conversation", inStreamWith({"--member", "[a,b]", "c,d", "stats", " e "}),
                     "conversation 1: 4 participants added\n");
    EXPECT_EQ(store.participants(), (Words{"1|[a,b]|NULL", "1|c,d|NULL", "1|stats|NULL", "1| e |NULL"}));
}

TEST(ToolMessage, IsMadeOnceForAnEventAndItsRowIsPrinted) {
    const OwnStore store;
    store.expectDone("message", {"--event", "2"}, "1\n");
    store.expectDone("message", {"--event", "1"}, "2\n");
    store.expectDone("message", {"--event", "2"}, "1\n");
    EXPECT_EQ(store.execute("SELECT database_identifier, event_database_identifier, seq FROM messages"),
              (Words{"1|2|NULL", "2|1|NULL"}));
}

TEST(ToolMessage, HasTheSequenceAndThePartsOfItsEvent) {
    const OwnStore store;
    store.expectDone("message", {"--event", "2"}, "1\n");
    store.expectDone("message", {"--event", "1"}, "2\n");
    store.expectDone("message-seq", {"--event", "1", "--seq", "12"}, "1 message updated\n");
    EXPECT_EQ(store.execute("SELECT seq FROM messages ORDER BY database_identifier"), (Words{"NULL", "12"}));
    const ToolRun part = store.run("parts", {"--message", "2", "--index", "1"});
    EXPECT_EQ(fieldOfLines(part.out, "text"), std::vector<json>{"second"});
    EXPECT_EQ(store.run("parts", {"--message", "1", "--index", "1"}).out, "") << "its event has no parts";
}

TEST(ToolMessage, IsNotMadeForAnEventThatIsNotThere) {
    const OwnStore store;
    store.expectFailure("message", {"--event", "99"}, "there is no event in row 99");
    EXPECT_EQ(store.execute("SELECT COUNT(*) FROM messages"), Words{"0"});
}

TEST(ToolConversation, NeedsItsStreamAndAMessageItsEvent) {
    const OwnStore store;
    EXPECT_EQ(store.run("conversation", {"--member", "ada"}).status, 2);
    EXPECT_EQ(store.run("conversation", {"--stream", "aa"}).status, 2);
    EXPECT_EQ(store.run("message").status, 2);
    EXPECT_EQ(store.execute("SELECT COUNT(*) FROM conversations"), Words{"0"}) << "nothing is done";
}

}  // namespace
}  // namespace zav::test
