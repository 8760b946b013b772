#include "Operations/Answers.h"
#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Operations/Texts.h"

namespace zav::test {

std::vector<Operation> sequenceUpdates() {
    return {
        {.name = "updateObject",
         .call =
             [](auto& r, auto* error) {
                 auto event = draft(23);
                 event->set_seq(23);
                 event->set_creator_id("member-9");
                 event->set_server_timestamp(1700000000123);
                 return answer(r.updateObject(*event, error));
             },
         .statements =
             {{.text =
                   "UPDATE events SET seq = ?, creator_id = ?, timestamp = ? WHERE database_identifier = ?",
               .values = {"23", "'member-9'", "1700000000123", "23"},
               .plan = {"SEARCH events USING INTEGER PRIMARY KEY (rowid=?)"}}},
         .needs = {"events"},
         .answers = {"true", "true", "false"},
         .report = FailureReport::nothing},
        {.name = "persistConversationsParticipantsSeq",
         .call =
             [](auto& r, auto* error) {
                 return answer(
                     r.persistConversationsParticipantsSeq(11, "member-1", publishedStreamUUID(), error));
             },
         .log = lines(
             "persistConversationsParticipantsSeq:memberID:streamIdentifier:error:",
             "persisting conversations participant's seq:%u for member:%@ with stream identifier:%@",
             "failed persisting conversations participant's seq:%u for member:%@ with stream identifier:%@ with %@",
             {"11", "member-1", "11111111-1111-1111-1111-1111111111aa"}),
         .statements =
             {{.text = "SELECT conversations.database_identifier FROM conversations WHERE "
                       "conversations.stream_id = ?",
               .values = {"x'111111111111111111111111111111aa'"},
               .plan =
                   {"SEARCH conversations USING COVERING INDEX conversations_by_stream_id (stream_id=?)"}},
              {.text = "UPDATE conversation_participants SET seq = ? WHERE member_id = ? AND "
                       "conversation_database_identifier = ?",
               .values = {"11", "'member-1'", "1"},
               .plan = {"SEARCH conversation_participants USING INDEX conversation_participants_by_member "
                        "(conversation_database_identifier=? AND member_id=?)"}}},
         .needs = {"conversations", "conversation_participants"},
         .answers = {"true", "false", "false"},
         .report = FailureReport::verboseLine},
        {.name = "persistMessageSeq",
         .call = [](auto& r, auto* error) { return answer(r.persistMessageSeq(12, 5, error)); },
         .log = lines("persistMessageSeq:eventDatabaseIdentifier:error:",
                      "updating message's seq:%d event database ID:%llu",
                      "failed to update message's seq:%d event database ID:%llu with %@", {"12", "5"}),
         .statements =
             {{.text = "UPDATE messages SET seq = ? WHERE event_database_identifier = ?",
               .values = {"12", "5"},
               .plan = {"SEARCH messages USING INDEX messages_by_event (event_database_identifier=?)"}}},
         .needs = {"messages"},
         .answers = {"true", "true", "false"}},
    };
}

}  // namespace zav::test
