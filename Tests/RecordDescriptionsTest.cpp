#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVEventContent.h>
#include <ZAVEventRepository/ZAVMessagePart.h>
#include <gtest/gtest.h>

#include "Support/TestStore.h"

namespace zav::test {
namespace {

TEST(Description, OfANewEventSaysThatItHasNoRow) {
    EXPECT_EQ(ZAVEvent().description(),
              "<ZAVEvent databaseIdentifier=not set streamDatabaseIdentifier=not set>");
    EXPECT_EQ(ZAVTEvent().description(), "<ZAVTEvent>");
}

TEST(Description, OfAnEventShowsEveryFieldThatIsSet) {
    ZAVEvent event(7, 21);
    event.set_stream_id(ZAVDataFromUUID(uuidNumber(0x21)));
    event.set_type(EventType_MESSAGE);
    event.set_ephemeral(true);
    event.set_creator_id("creator");
    event.set_seq(17);
    event.set_server_timestamp(1234567890123);
    event.set_preceding_seq(4);
    event.set_client_seq(3);
    event.set_subtype(255);
    event.set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart("secret")});
    event.set_member_id("member");
    event.set_target_seq(-9);
    event.set_transient_metadata(ZAVDictionary{{"key", std::string("secret")}});
    event.set_client_id(ZAVDataFromUUID(uuidNumber(7)));
    event.set_client_timestamp(5);
    event.set_creator_name("Name");
    EXPECT_EQ(event.description(),
              "<ZAVEvent databaseIdentifier=7 streamDatabaseIdentifier=21 "
              "stream_id=11111111-1111-1111-1111-111111111121 type=4 ephemeral=1 creator_id=creator seq=17 "
              "server_timestamp=1234567890123 preceding_seq=4 client_seq=3 subtype=255 content=1 part(s) "
              "member_id=member target_seq=-9 transient_metadata=1 key(s) "
              "client_id=11111111-1111-1111-1111-111111111107 client_timestamp=5 creator_name=Name>");
}

TEST(Description, ShowsFieldsThatAreSetToFalseOrZero) {
    ZAVTEvent event;
    event.set_ephemeral(false);
    event.set_seq(0);
    EXPECT_EQ(event.description(), "<ZAVTEvent ephemeral=0 seq=0>");
}

TEST(Description, LeavesOutFieldsThatAreUnsetOrSetToNothing) {
    ZAVEvent event(0, -1);
    event.set_type(EventType_MESSAGE);
    event.unset_type();
    event.set_creator_id(std::nullopt);
    event.set_content(std::nullopt);
    event.set_transient_metadata(std::nullopt);
    event.set_client_id(std::nullopt);
    event.set_stream_id(std::nullopt);
    event.set_member_id(std::nullopt);
    event.set_creator_name(std::nullopt);
    EXPECT_EQ(event.description(), "<ZAVEvent databaseIdentifier=0 streamDatabaseIdentifier=-1>");

    ZAVTContent content;
    content.set_media_type(std::nullopt);
    content.set_size(3);
    content.unset_size();
    content.set_body(std::nullopt);
    content.set_external_url(std::nullopt);
    EXPECT_EQ(content.description(), "<ZAVTContent>");
}

TEST(Description, OfIdentifiersThatAreNoUuidShowsNone) {
    ZAVEvent event(7, 21);
    event.set_stream_id(ZAVData::fromText("short"));
    event.set_client_id(ZAVData::fromText("short"));
    EXPECT_EQ(
        event.description(),
        "<ZAVEvent databaseIdentifier=7 streamDatabaseIdentifier=21 stream_id=(null) client_id=(null)>");
}

TEST(Description, IsOneLineWhateverTheTextsHold) {
    ZAVTEvent event;
    event.set_creator_id("a\nb\r\t");
    event.set_member_id("\x1b[2J\x7f\u009B");
    event.set_creator_name("\u2028\u202Ex\xFF" + std::string(1, '\0') + "\u00E9\\");
    EXPECT_EQ(event.description(),
              "<ZAVTEvent creator_id=a\\nb\\r\\t member_id=\\x1b[2J\\x7f\\u009b "
              "creator_name=\\u2028\\u202ex\\xff\\x00\u00E9\\>");

    ZAVTContent content;
    content.set_media_type("text/\nplain");
    content.set_external_url("https://content.example/\x1b");
    EXPECT_EQ(content.description(),
              "<ZAVTContent media_type=text/\\nplain external_url=https://content.example/\\x1b>");
}

TEST(Description, ShowsTheBeginningOfALongTextAndItsSize) {
    ZAVTEvent event;
    event.set_creator_name(std::string(256, 'x'));
    EXPECT_EQ(event.description(), "<ZAVTEvent creator_name=" + std::string(256, 'x') + ">");
    event.set_creator_name(std::string(257, 'x'));
    EXPECT_TRUE(event.description().ends_with("x\u2026(257 bytes in all)>")) << event.description();
    EXPECT_LT(event.description().size(), 300U);

    ZAVEventContent part;
    part.setFileURL(ZAVURL::URLWithString("file:///" + std::string(1'000'000, 'x')));
    part.set_media_type(std::string(1'000'000, '\n'));
    part.set_external_url("https://content.example/" + std::string(1'000'000, 'x'));
    EXPECT_LT(part.description().size(), 1000U);
    EXPECT_NE(part.description().find("x\u2026(1000008 bytes in all) media_type=\\n"), std::string::npos)
        << part.description();
}

TEST(Description, OfANewContentPartSaysThatItHasNoEvent) {
    EXPECT_EQ(ZAVEventContent().description(),
              "<ZAVEventContent eventDatabaseIdentifier=not set index=0 transferStatus=0>");
    EXPECT_EQ(ZAVTContent().description(), "<ZAVTContent>");
}

TEST(Description, OfAContentPartTellsTheSizeOfItsBodyNotTheBody) {
    ZAVEventContent part(7, uuidNumber(7), 2, "text/plain", ZAVData::fromText("secret"), 6,
                         ZAVURL::URLWithString("part-2", ZAVURL::fileURLWithDirectoryPath("/cache")),
                         ZAVURL::URLWithString("https://content.example/a"), std::nullopt);
    part.setTransferStatus(ZAVContentTransferComplete);
    part.setIsPurged(true);
    part.set_external_access_expiration(12);
    EXPECT_EQ(part.description(),
              "<ZAVEventContent eventDatabaseIdentifier=7 index=2 transferStatus=4 "
              "fileURL=file:///cache/part-2 purged media_type=text/plain size=6 body=6 byte(s) "
              "external_url=https://content.example/a external_access_expiration=12>");
}

TEST(Description, OfAMessagePartNamesItsMessage) {
    const ZAVMessagePart part(std::make_shared<ZAVMessage>(5), 2);
    EXPECT_EQ(part.message()->description(), "<ZAVMessage databaseIdentifier=5>");
    EXPECT_EQ(part.description(), "<ZAVMessagePart message=<ZAVMessage databaseIdentifier=5> index=2>");
}

TEST(ContentPartInitializer, PutsEachArgumentInItsPlace) {
    const auto file = ZAVURL::URLWithString("part-2", ZAVURL::fileURLWithDirectoryPath("/cache"));
    const ZAVEventContent part(7, uuidNumber(7), 2, "text/plain", ZAVData::fromText("body"), 9, file,
                               ZAVURL::URLWithString("https://content.example/a"),
                               ZAVDateFromSecondsSince1970(1.5));
    EXPECT_EQ(part.eventDatabaseIdentifier(), 7);
    EXPECT_EQ(part.eventClientID(), uuidNumber(7));
    EXPECT_EQ(part.index(), 2);
    EXPECT_EQ(part.media_type(), "text/plain");
    EXPECT_EQ(part.body(), ZAVData::fromText("body"));
    EXPECT_EQ(part.size(), 9) << "as given, not that of the body";
    EXPECT_EQ(part.fileURL(), file);
    EXPECT_EQ(part.external_url(), "https://content.example/a");
    EXPECT_EQ(part.externalContentURLExpiration(), ZAVDateFromSecondsSince1970(1.5));
    EXPECT_FALSE(part.external_access_expirationIsSet()) << "that is the wire's own field";
    EXPECT_EQ(part.eventSeq(), ZAVSequenceNotSet);
    EXPECT_EQ(part.streamUUID(), std::nullopt);
    EXPECT_EQ(part.transferStatus(), ZAVContentTransferAwaitingUpload);
    EXPECT_EQ(part.lastAccessed(), std::nullopt);
    EXPECT_FALSE(part.isPurged());
}

TEST(ContentPartInitializer, LeavesAbsentArgumentsAbsentAndTheirFlagsDown) {
    const ZAVEventContent part(0, std::nullopt, 0, std::nullopt, std::nullopt, 0, std::nullopt, std::nullopt,
                               std::nullopt);
    EXPECT_EQ(part.eventDatabaseIdentifier(), 0) << "0 is a row like any other";
    EXPECT_EQ(part.eventClientID(), std::nullopt);
    EXPECT_EQ(part.media_type(), std::nullopt);
    EXPECT_EQ(part.body(), std::nullopt);
    EXPECT_FALSE(part.bodyIsSet());
    EXPECT_TRUE(part.sizeIsSet());
    EXPECT_EQ(part.fileURL(), std::nullopt);
    EXPECT_EQ(part.external_url(), std::nullopt);
    EXPECT_FALSE(part.external_urlIsSet());
    EXPECT_EQ(part.externalContentURLExpiration(), std::nullopt);
}

TEST(ContentPartInitializer, KeepsInlineDataOfNoLength) {
    const ZAVEventContent part(7, std::nullopt, 0, "text/plain", ZAVData(), 0, std::nullopt, std::nullopt,
                               std::nullopt);
    EXPECT_EQ(part.body(), ZAVData());
    EXPECT_TRUE(part.bodyIsSet());
}

}  // namespace
}  // namespace zav::test
