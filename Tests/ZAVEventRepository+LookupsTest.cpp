#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVMessagePartObjectIdentifier.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Operations/TestWithOperation.h"
#include "Support/ContentParts.h"
#include "Support/LogCapture.h"
#include "Support/OperationExpectations.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Lines = std::vector<std::string>;
using Part = std::shared_ptr<ZAVEventContent>;

ZAVURL url(const std::string& text) {
    const auto parsed = ZAVURL::URLWithString(text);
    EXPECT_TRUE(parsed) << text << " is no URL";
    return parsed.value();
}

ZAVMessagePart messagePart(ZAVDatabaseIdentifier message, std::uint64_t index) {
    return {std::make_shared<ZAVMessage>(message), index};
}

/// The identifier of a part of the event whose client identifier is `uuidNumber(7)`.
ZAVURL identifierOfPart(std::uint32_t index) {
    return ZAVMakeMessagePartObjectIdentifier(uuidNumber(7), index);
}

/// A store in which each lookup finds the same part, the one at index 2 of the event in row 3. The event, at
/// sequence 5 of stream 1, is shown by message 9.
class PartStore : public TestStore {
public:
    PartStore() {
        addStream(uuidNumber(1));
        execute(
            "INSERT INTO events (database_identifier, type, seq, stream_database_identifier, client_id) "
            "VALUES (3, 4, 5, 1, x'11111111111111111111111111111107');"
            "INSERT INTO messages (database_identifier, event_database_identifier) VALUES (8, 1), (9, 3);"
            "INSERT INTO event_content_parts (database_identifier, event_content_part_id, "
            "event_database_identifier, type, value, access_expiration, url, size, transfer_status, "
            "file_path, last_accessed, purged) VALUES "
            "(20, 0, 3, 'text/plain', x'61', NULL, NULL, 1, 4, NULL, NULL, NULL), "
            "(21, 2, 3, 'image/png', NULL, 77, 'https://store.example/A%2Fb', 9, 3, 'a/b', 1.5, 1), "
            "(22, 2, 4, 'text/plain', x'62', NULL, 'https://store.example/other', 1, 4, NULL, NULL, NULL)");
    }
};

/// The WHERE clause, with its values, of the only statement that a call runs.
template <class Call>
std::string conditionOf(const TestStore& store, Call call) {
    const StatementTrace trace(store.database());
    static_cast<void>(call());
    EXPECT_EQ(trace.statements().size(), 1U) << "a lookup is one statement";
    const std::string statement = trace.statements().empty() ? "" : trace.statements().front();
    const auto where = statement.find(" WHERE ");
    return where == std::string::npos ? statement : statement.substr(where + 1);
}

// What all five lookups have in common.

class EveryContentLookup : public TestWithOperation {
public:
    static std::vector<const Operation*> all() {
        static const std::vector<Operation> lookups = contentLookups();
        return entriesOf(lookups);
    }
};

INSTANTIATE_TEST_SUITE_P(Of, EveryContentLookup, testing::ValuesIn(EveryContentLookup::all()),
                         nameOfParameter);

TEST_P(EveryContentLookup, MapsTheWholePart) {
    const FilledStore store;
    store.execute(
        "UPDATE event_content_parts SET type = 'image/png', value = NULL, access_expiration = 77, size = 9, "
        "transfer_status = 3, file_path = 'a/b', last_accessed = 1.5, purged = 1 WHERE database_identifier = 28");
    const Answer answer = operation().call(store.repository(), nullptr);
    ASSERT_EQ(answer.contents.size(), 1U);
    const Part part = answer.contents[0];
    EXPECT_EQ(part->index(), 1);
    EXPECT_EQ(part->eventDatabaseIdentifier(), 14);
    EXPECT_EQ(part->media_type(), "image/png");
    EXPECT_EQ(part->body(), std::nullopt);
    EXPECT_EQ(part->externalContentURLExpiration(), ZAVDateFromSecondsSince1970(77));
    EXPECT_EQ(part->external_url(), "https://content.example.com/up%2Fload/14");
    EXPECT_EQ(part->size(), 9);
    EXPECT_EQ(part->transferStatus(), ZAVContentTransferDownloading);
    ASSERT_TRUE(part->fileURL());
    EXPECT_EQ(part->fileURL()->relativePath(), "a/b");
    EXPECT_EQ(part->lastAccessed(), ZAVDateFromSecondsSince1970(1.5));
    EXPECT_TRUE(part->isPurged());
    EXPECT_EQ(part->eventClientID(), uuidNumber(14));
    EXPECT_EQ(part->eventSeq(), 14);
    EXPECT_EQ(part->streamUUID(), publishedStreamUUID());
}

TEST_P(EveryContentLookup, MakesANewRecordEachTime) {
    const FilledStore store;
    const Answer first = operation().call(store.repository(), nullptr);
    const Answer second = operation().call(store.repository(), nullptr);
    ASSERT_TRUE(first.contents.size() == 1 && second.contents.size() == 1);
    EXPECT_NE(first.contents[0], second.contents[0]) << "two calls handed out the same record";
}

TEST_P(EveryContentLookup, FindsAPartWhoseEventIsMissingUnlessItAsksForTheEventsClientIdentifier) {
    const FilledStore store;
    store.execute("DELETE FROM events");
    ZAVError error = errorOfSomebodyElse();
    const Answer answer = operation().call(store.repository(), &error);
    EXPECT_EQ(error, errorOfSomebodyElse()) << error.description();
    if (operation().name == "eventContentForMessagePartObjectIdentifier") {
        EXPECT_EQ(answer.value, "null");
        return;
    }
    ASSERT_EQ(answer.contents.size(), 1U);
    EXPECT_EQ(answer.contents[0]->eventDatabaseIdentifier(), 14);
    EXPECT_EQ(answer.contents[0]->eventClientID(), std::nullopt);
    EXPECT_EQ(answer.contents[0]->streamUUID(), std::nullopt);
    EXPECT_EQ(answer.contents[0]->eventSeq(), 2147483647);
}

// What each lookup binds and finds.

TEST(ContentLookups, BindTheRowOfAPartAsItIs) {
    const PartStore store;
    const auto conditionFor = [&](ZAVDatabaseIdentifier row) {
        return conditionOf(store, [&] { return store.repository().eventContentDatabaseIdentifier(row); });
    };
    EXPECT_EQ(conditionFor(-1), "WHERE event_content_parts.database_identifier = -1");
    EXPECT_EQ(conditionFor(ZAVDatabaseIdentifierNotSet),
              "WHERE event_content_parts.database_identifier = 9223372036854775807");
}

TEST(ContentLookups, BindAnIndexInAnEventSigned) {
    const PartStore store;
    const auto conditionFor = [&](ZAVDatabaseIdentifier event, std::int64_t index) {
        return conditionOf(
            store, [&] { return store.repository().eventContentForEventDatabaseIdentifier(event, index); });
    };
    EXPECT_EQ(conditionFor(3, -1), "WHERE event_database_identifier = 3 AND event_content_part_id = -1");
    EXPECT_EQ(conditionFor(-3, 5000000000),
              "WHERE event_database_identifier = -3 AND event_content_part_id = 5000000000");
}

TEST(ContentLookups, PrintTheEventAndTheIndexSigned) {
    const TestStore store;
    const LogCapture log;
    EXPECT_EQ(store.repository().eventContentForEventDatabaseIdentifier(-3, -5000000000), nullptr);
    ASSERT_EQ(log.records().size(), 1U);
    EXPECT_EQ(log.records()[0].message,
              "fetching event content part for eventDatabaseIdentifier=-3 index=-5000000000");
}

TEST(ContentLookups, BindAnIndexInAMessageByItsSixtyFourBits) {
    const PartStore store;
    const auto conditionFor = [&](std::uint64_t index) {
        return conditionOf(
            store, [&] { return store.repository().eventContentForMessagePart(messagePart(9, index)); });
    };
    EXPECT_EQ(conditionFor(5000000000),
              "WHERE messages.database_identifier = 9 AND event_content_part_id = 5000000000");
    EXPECT_EQ(conditionFor(std::numeric_limits<std::uint64_t>::max()),
              "WHERE messages.database_identifier = 9 AND event_content_part_id = -1");
}

TEST(ContentLookups, FindNothingForAMessageWithoutARow) {
    const PartStore store;
    ZAVError error = errorOfSomebodyElse();
    for (const ZAVDatabaseIdentifier message : {ZAVDatabaseIdentifier(99), ZAVDatabaseIdentifierNotSet}) {
        EXPECT_EQ(store.repository().eventContentForMessagePart(messagePart(message, 2), &error), nullptr)
            << message;
    }
    EXPECT_EQ(error, errorOfSomebodyElse()) << error.description();
}

TEST(ContentLookups, FindNothingForAnIndexWithoutAPart) {
    const PartStore store;
    ZAVError error = errorOfSomebodyElse();
    EXPECT_EQ(store.repository().eventContentForMessagePart(messagePart(9, 1), &error), nullptr);
    EXPECT_EQ(store.repository().eventContentForEventDatabaseIdentifier(3, 1, &error), nullptr);
    EXPECT_EQ(store.repository().eventContentForMessagePartObjectIdentifier(identifierOfPart(1), &error),
              nullptr);
    EXPECT_EQ(error, errorOfSomebodyElse()) << error.description();
}

TEST(ContentLookups, FindThePartsOfTheMessagesOwnEventOnly) {
    const PartStore store;
    EXPECT_EQ(store.repository().eventContentForMessagePart(messagePart(8, 2)), nullptr)
        << "message 8 shows an event without parts";
    store.execute("UPDATE messages SET event_database_identifier = 4 WHERE database_identifier = 8");
    const Part part = store.repository().eventContentForMessagePart(messagePart(8, 2));
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(part->eventDatabaseIdentifier(), 4);
}

TEST(ContentLookups, CompareAnExternalURLAsTextAndByNothingElse) {
    const PartStore store;
    ZAVError error = errorOfSomebodyElse();
    for (const std::string other :
         {"https://store.example/a%2Fb", "https://store.example/A%2fb", "https://store.example/A/b",
          "HTTPS://store.example/A%2Fb", "https://STORE.example/A%2Fb", "https://store.example/%41%2Fb",
          "https://store.example/A%2Fb/", "https://store.example/A%2Fb?", "https://store.example/A%2Fb#",
          "https://store.example:443/A%2Fb", "https://store.example/./A%2Fb"}) {
        EXPECT_EQ(store.repository().eventContentForExternalContentURL(url(other), &error), nullptr) << other;
    }
    EXPECT_EQ(error, errorOfSomebodyElse()) << error.description();
}

TEST(ContentLookups, AskForTheAbsoluteStringOfAURLThatHasABase) {
    const PartStore store;
    const auto relative = ZAVURL::URLWithString("A%2Fb", url("https://store.example/x"));
    ASSERT_TRUE(relative);
    EXPECT_EQ(
        conditionOf(store, [&] { return store.repository().eventContentForExternalContentURL(*relative); }),
        "WHERE event_content_parts.url = 'https://store.example/A%2Fb'");
    EXPECT_NE(store.repository().eventContentForExternalContentURL(*relative), nullptr);
}

TEST(ContentLookups, NeverFindAPartWithoutAURLByAnEmptyOne) {
    const PartStore store;
    EXPECT_EQ(
        conditionOf(store, [&] { return store.repository().eventContentForExternalContentURL(url("")); }),
        "WHERE event_content_parts.url = ''");
    EXPECT_EQ(store.repository().eventContentForExternalContentURL(url("")), nullptr);
}

TEST(ContentLookups, TakeTheFirstOfSeveralPartsAndLeaveTheRest) {
    const PartStore store;
    store.execute("UPDATE event_content_parts SET url = 'https://store.example/A%2Fb'");
    const std::string first =
        store.rows(partQuery("WHERE event_content_parts.url = 'https://store.example/A%2Fb'"))[0];
    ZAVError error = errorOfSomebodyElse();
    const Part part =
        store.repository().eventContentForExternalContentURL(url("https://store.example/A%2Fb"), &error);
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(error, errorOfSomebodyElse()) << error.description();
    expectHandleIsAtRest(store);
    EXPECT_TRUE(first.starts_with(std::to_string(part->index()) + "|" +
                                  std::to_string(part->eventDatabaseIdentifier()) + "|"))
        << "the database yields first: " << first;
}

TEST(ContentLookups, FindNothingUnderAnObjectIdentifierThatNamesNoEvent) {
    const PartStore store;
    for (const std::string text : {"https://store.example/A%2Fb", "zav:///messages/7/parts/0", ""}) {
        const ZAVURL identifier = url(text);
        const Operation operation{
            .call =
                [=](const ZAVEventRepository& repository, ZAVError* error) {
                    return answer(repository.eventContentForMessagePartObjectIdentifier(identifier, error));
                },
            .log = lines("eventContentForMessagePartObjectIdentifier:error:",
                         "fetching event content part for messagePart->objectIdentifier=%@", "", {text})};
        expectNoFailure(store, operation, "null");
        EXPECT_EQ(conditionOf(store, [&] { return operation.call(store.repository(), nullptr); }),
                  "WHERE events.client_id = NULL AND event_content_parts.event_content_part_id = 0");
    }
    store.execute("DELETE FROM events");
    EXPECT_EQ(store.repository().eventContentForMessagePartObjectIdentifier(url("zav:///")), nullptr)
        << "a part whose event is missing has no client identifier, and none was asked for";
}

// Object identifiers.

constexpr const char* letters = "abcdefab-cdef-4abc-8def-abcdefabcdef";

TEST(ObjectIdentifier, NamesAnEventByItsClientIdentifierAndAPartByItsIndex) {
    EXPECT_EQ(ZAVMakeMessagePartObjectIdentifier(uuidNumber(7), 2).absoluteString(),
              "zav:///messages/11111111-1111-1111-1111-111111111107/parts/2");
    EXPECT_EQ(ZAVMakeMessagePartObjectIdentifier(ZAVUUID(), 0).absoluteString(),
              "zav:///messages/00000000-0000-0000-0000-000000000000/parts/0");
    EXPECT_EQ(ZAVMakeMessagePartObjectIdentifier(*ZAVUUID::fromString(letters), 10).absoluteString(),
              "zav:///messages/abcdefab-cdef-4abc-8def-abcdefabcdef/parts/10");
}

TEST(ObjectIdentifier, IsReadBackAsItWasMade) {
    const std::vector<ZAVUUID> clientIDs{uuidNumber(7), ZAVUUID(), *ZAVUUID::fromString(letters)};
    for (const ZAVUUID& clientID : clientIDs) {
        for (const std::uint32_t index : {0U, 1U, 10U, 100U, 4294967295U}) {
            const ZAVURL identifier = ZAVMakeMessagePartObjectIdentifier(clientID, index);
            EXPECT_EQ(ZAVClientIdentifierForObjectIdentifier(identifier), clientID)
                << identifier.absoluteString();
            EXPECT_EQ(ZAVPartIndexForObjectIdentifier(identifier), std::int64_t{index})
                << identifier.absoluteString();
        }
    }
}

TEST(ObjectIdentifier, IsReadAsItsAbsoluteString) {
    const auto relative =
        ZAVURL::URLWithString("2", url("zav:///messages/11111111-1111-1111-1111-111111111107/parts/1"));
    ASSERT_TRUE(relative);
    EXPECT_EQ(ZAVClientIdentifierForObjectIdentifier(*relative), uuidNumber(7));
    EXPECT_EQ(ZAVPartIndexForObjectIdentifier(*relative), 2);
}

/// A URL that is no object identifier, and why.
struct Stranger {
    const char* why;
    std::string text;
};

void PrintTo(const Stranger& stranger, std::ostream* stream) {
    *stream << stranger.text;
}

std::string reasonOf(const testing::TestParamInfo<Stranger>& info) {
    return info.param.why;
}

class URLThatIsNoObjectIdentifier : public testing::TestWithParam<Stranger> {};

const std::string ofEvent = "zav:///messages/abcdefab-cdef-4abc-8def-abcdefabcdef";

INSTANTIATE_TEST_SUITE_P(
    Because, URLThatIsNoObjectIdentifier,
    testing::Values(
        Stranger{"ItIsEmpty", ""}, Stranger{"ItIsTheBareScheme", "zav:///"},
        Stranger{"ItHasAnotherScheme", "https:///messages/abcdefab-cdef-4abc-8def-abcdefabcdef/parts/2"},
        Stranger{"ItsSchemeIsLonger", "zavs:///messages/abcdefab-cdef-4abc-8def-abcdefabcdef/parts/2"},
        Stranger{"ItsSchemeIsUpperCase", "ZAV:///messages/abcdefab-cdef-4abc-8def-abcdefabcdef/parts/2"},
        Stranger{"ItHasNoScheme", "/messages/abcdefab-cdef-4abc-8def-abcdefabcdef/parts/2"},
        Stranger{"ItHasAHost", "zav://host/messages/abcdefab-cdef-4abc-8def-abcdefabcdef/parts/2"},
        Stranger{"ItHasNoAuthority", "zav:/messages/abcdefab-cdef-4abc-8def-abcdefabcdef/parts/2"},
        Stranger{"ItsPathBeginsDeeper", "zav:///x/messages/abcdefab-cdef-4abc-8def-abcdefabcdef/parts/2"},
        Stranger{"ItNamesNoMessages", "zav:///events/abcdefab-cdef-4abc-8def-abcdefabcdef/parts/2"},
        Stranger{"MessagesIsUpperCase", "zav:///Messages/abcdefab-cdef-4abc-8def-abcdefabcdef/parts/2"},
        Stranger{"PartsIsUpperCase", ofEvent + "/Parts/2"},
        Stranger{"ItNamesNoParts", ofEvent + "/content/2"},
        Stranger{"ItHasNoUUID", "zav:///messages//parts/2"},
        Stranger{"ItsUUIDIsANumber", "zav:///messages/7/parts/2"},
        Stranger{"ItsUUIDHasNoHyphens", "zav:///messages/abcdefabcdef4abc8defabcdefabcdef/parts/2"},
        Stranger{"ItsUUIDIsTooShort", "zav:///messages/abcdefab-cdef-4abc-8def-abcdefabcde/parts/2"},
        Stranger{"ItsUUIDIsTooLong", ofEvent + "0/parts/2"},
        Stranger{"ItsUUIDHasAForeignLetter", "zav:///messages/gbcdefab-cdef-4abc-8def-abcdefabcdef/parts/2"},
        Stranger{"ItsUUIDIsUpperCase", "zav:///messages/ABCDEFAB-CDEF-4ABC-8DEF-ABCDEFABCDEF/parts/2"},
        Stranger{"ItsUUIDIsPartlyUpperCase", "zav:///messages/abcdefab-cdef-4abc-8def-abcdefabcdeF/parts/2"},
        Stranger{"ItsUUIDIsEscaped", "zav:///messages/%61bcdefab-cdef-4abc-8def-abcdefabcdef/parts/2"},
        Stranger{"ItEndsAfterTheUUID", ofEvent}, Stranger{"ItEndsAfterTheUUIDsSlash", ofEvent + "/"},
        Stranger{"ItEndsAfterParts", ofEvent + "/parts"}, Stranger{"ItHasNoIndex", ofEvent + "/parts/"},
        Stranger{"ItsIndexHasALeadingZero", ofEvent + "/parts/02"},
        Stranger{"ItsIndexIsTwoZeros", ofEvent + "/parts/00"},
        Stranger{"ItsIndexIsNegative", ofEvent + "/parts/-1"},
        Stranger{"ItsIndexHasAPlus", ofEvent + "/parts/+2"},
        Stranger{"ItsIndexIsAWord", ofEvent + "/parts/two"},
        Stranger{"ItsIndexIsHexadecimal", ofEvent + "/parts/0x2"},
        Stranger{"ItsIndexIsAFraction", ofEvent + "/parts/2.0"},
        Stranger{"ItsIndexIsEscaped", ofEvent + "/parts/%32"},
        Stranger{"ItsIndexTakesMoreThan32Bits", ofEvent + "/parts/4294967296"},
        Stranger{"ItsIndexTakes64Bits", ofEvent + "/parts/9223372036854775808"},
        Stranger{"ItsIndexTakesMoreThan64Bits", ofEvent + "/parts/18446744073709551616"},
        Stranger{"ItHasAClosingSlash", ofEvent + "/parts/2/"},
        Stranger{"ItsPathGoesOn", ofEvent + "/parts/2/x"}, Stranger{"ItHasTwoSlashes", ofEvent + "//parts/2"},
        Stranger{"ItHasDotSegments", ofEvent + "/parts/../parts/2"},
        Stranger{"ItHasAQuery", ofEvent + "/parts/2?size=1"},
        Stranger{"ItHasAnEmptyQuery", ofEvent + "/parts/2?"},
        Stranger{"ItHasAFragment", ofEvent + "/parts/2#top"},
        Stranger{"ItHasAnEmptyFragment", ofEvent + "/parts/2#"}),
    reasonOf);

TEST_P(URLThatIsNoObjectIdentifier, NamesNeitherAnEventNorAPart) {
    const ZAVURL stranger = url(GetParam().text);
    EXPECT_EQ(ZAVClientIdentifierForObjectIdentifier(stranger), std::nullopt) << GetParam().text;
    EXPECT_EQ(ZAVPartIndexForObjectIdentifier(stranger), 0) << GetParam().text;
}

}  // namespace
}  // namespace zav::test
