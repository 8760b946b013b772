#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Operations/Description.h"
#include "Operations/FilledStore.h"
#include "Support/LogCapture.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Lines = std::vector<std::string>;

/// Texts of an attacker who hopes that they end up in a statement, a format or a path.
const Lines hostileTexts{"'); DROP TABLE events; --",
                         "x' OR '1'='1",
                         "\"events\"",
                         "%@ %s %n %lld",
                         "?1 :a @b $c",
                         "../../outside/notes",
                         "a\r\nb\x1B[2J",
                         std::string("zero\0byte", 9),
                         "\xE2\x80\xAE\xF0\x9F\x92\xA3",
                         std::string(100000, '\'')};

TEST(HostileData, AreStoredAsTheyAre) {
    const TestStore store;
    store.addStream(uuidNumber(200));
    for (const std::string& text : hostileTexts) {
        auto event = makeEvent(EventType_MESSAGE, uuidNumber(200), 1);
        event->set_creator_id(text);
        event->set_creator_name(text);
        event->set_member_id(text);
        event->set_client_id(ZAVData::fromText(text));
        event->set_transient_metadata(ZAVDictionary{{text, text}});
        auto part = makeTextPart(text);
        part->set_media_type(text);
        event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
        ZAVError error;
        ASSERT_TRUE(store.repository().persistEvents({event}, &error)) << error.description();
        const auto read = store.repository().eventForDatabaseIdentifier(event->databaseIdentifier(), &error);
        ASSERT_NE(read, nullptr) << error.description();
        EXPECT_EQ(read->creator_id(), text);
        EXPECT_EQ(read->creator_name(), text);
        EXPECT_EQ(read->member_id(), text);
        EXPECT_EQ(read->client_id(), ZAVData::fromText(text));
        EXPECT_EQ(describeMetadata(*read), Lines{text + "=" + text});
        ASSERT_EQ(read->contentParts().size(), 1U);
        EXPECT_EQ(read->contentParts()[0]->media_type(), text);
        EXPECT_EQ(read->contentParts()[0]->body(), ZAVData::fromText(text));
    }
    EXPECT_EQ(store.repository().countOfEvents(), hostileTexts.size());
}

TEST(HostileData, InALookupFindNothingElse) {
    const TestStore store;
    fillStore(store.sharedDatabase());
    const Lines before = rowsOfAllTables(store.database());
    for (const std::string& text : hostileTexts) {
        ZAVError error;
        EXPECT_FALSE(
            store.repository().persistConversationsParticipantsSeq(5, text, uuidNumber(0xAA), &error) &&
            store.database().changes() != 0)
            << text;
        if (const auto url = ZAVURL::URLWithString(text)) {
            EXPECT_EQ(store.repository().eventContentForExternalContentURL(*url, &error), nullptr);
        }
        EXPECT_FALSE(error) << error.description();
    }
    EXPECT_EQ(rowsOfAllTables(store.database()), before);
}

TEST(HostileData, InTheListOfTypesChangeNothing) {
    const TestStore store;
    fillStore(store.sharedDatabase());
    const Lines before = rowsOfAllTables(store.database());
    const LogCapture log;
    Lines types = hostileTexts;
    types.insert(types.end(),
                 {"x') OR 1) LIMIT 1; DELETE FROM events; --", "x')) UNION SELECT * FROM sqlite_master --",
                  "x') OR load_extension('x') OR type IN ('x", "x') /*"});
    for (const std::string& type : types) {
        ZAVError error;
        const auto parts = store.repository().eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
            {{type}}, 1, 10, &error);
        EXPECT_NE(parts.has_value(), static_cast<bool>(error)) << type << ": " << error.description();
        EXPECT_EQ(store.database().openResultSets(), 0U) << type;
    }
    EXPECT_EQ(rowsOfAllTables(store.database()), before) << "reading a queue changed the database";
}

}  // namespace
}  // namespace zav::test
