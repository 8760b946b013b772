#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVEventContent.h>
#include <ZAVEventRepository/ZAVKeyedValuesContext.h>
#include <ZAVEventRepository/ZAVMessagePart.h>
#include <ZAVEventRepository/ZAVSyncedChangeType.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Support/TestStore.h"

namespace zav::test {
namespace {

using namespace std::string_literals;

template <class Enumeration>
constexpr bool isSigned = std::is_signed_v<std::underlying_type_t<Enumeration>>;

TEST(StoredNumber, OfEachEventTypeIsFixed) {
    EXPECT_EQ(EventType_APPLICATION, 1);
    EXPECT_EQ(EventType_MEMBER_ADDED, 2);
    EXPECT_EQ(EventType_MEMBER_REMOVED, 3);
    EXPECT_EQ(EventType_MESSAGE, 4);
    EXPECT_EQ(EventType_MESSAGE_DELIVERED, 5);
    EXPECT_EQ(EventType_MESSAGE_READ, 6);
    EXPECT_EQ(EventType_UNUSED__METADATA_ADDED, 7);
    EXPECT_EQ(EventType_UNUSED__METADATA_REMOVED, 8);
    EXPECT_EQ(EventType_EVENT_DELETED, 9);
    EXPECT_EQ(EventType_TOMBSTONE, 10);
    EXPECT_EQ(EventType_STREAM_DELETED, 11);
    EXPECT_EQ(sizeof(ZAVTEventType), sizeof(std::int32_t));
    EXPECT_TRUE(isSigned<ZAVTEventType>);
}

TEST(StoredNumber, OfEachTransferStatusIsFixed) {
    EXPECT_EQ(ZAVContentTransferAwaitingUpload, 0U);
    EXPECT_EQ(ZAVContentTransferUploading, 1U);
    EXPECT_EQ(ZAVContentTransferReadyForDownload, 2U);
    EXPECT_EQ(ZAVContentTransferDownloading, 3U);
    EXPECT_EQ(ZAVContentTransferComplete, 4U);
    EXPECT_FALSE(isSigned<ZAVContentTransferStatus>);
}

TEST(StoredNumber, OfEachSyncedChangeTypeIsFixed) {
    EXPECT_EQ(ZAVSyncedChangeTypeInsert, 0);
    EXPECT_EQ(ZAVSyncedChangeTypeUpdate, 1);
    EXPECT_EQ(ZAVSyncedChangeTypeDelete, 2);
    EXPECT_TRUE(isSigned<ZAVSyncedChangeType>);
}

TEST(StoredNumber, OfEachKeyedValuesTableAndKeyTypeIsFixed) {
    EXPECT_EQ(ZAVKeyedValuesTableInvalid, -1);
    EXPECT_EQ(ZAVKeyedValuesTableLocal, 0);
    EXPECT_EQ(ZAVKeyedValuesTableRemote, 1);
    EXPECT_TRUE(isSigned<ZAVKeyedValuesTable>);
    EXPECT_EQ(ZAVKeyedValuesKeyTypeTransient, 0U);
    EXPECT_EQ(ZAVKeyedValuesKeyTypeSyncable, 1U);
    EXPECT_EQ(ZAVKeyedValuesKeyTypeConfiguration, 2U);
    EXPECT_FALSE(isSigned<ZAVKeyedValuesKeyType>);
}

TEST(StoredNumber, OfTheMarkersForUnsetIsTheLargestOfItsType) {
    EXPECT_EQ(ZAVDatabaseIdentifierNotSet, std::int64_t{0x7FFFFFFFFFFFFFFF});
    EXPECT_EQ(ZAVSequenceNotSet, std::int32_t{0x7FFFFFFF});
}

TEST(NewEvent, HasNoRowAndNoStream) {
    const ZAVEvent event;
    EXPECT_EQ(event.databaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    EXPECT_EQ(event.streamDatabaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    EXPECT_FALSE(event.stream_id());
    EXPECT_FALSE(event.streamUUID());
}

TEST(NewEvent, HasNothingSet) {
    const ZAVEvent event;
    EXPECT_FALSE(event.typeIsSet() || event.ephemeralIsSet() || event.creator_idIsSet() || event.seqIsSet() ||
                 event.server_timestampIsSet() || event.preceding_seqIsSet() || event.client_seqIsSet() ||
                 event.subtypeIsSet() || event.contentIsSet() || event.member_idIsSet() ||
                 event.target_seqIsSet() || event.transient_metadataIsSet() || event.client_idIsSet() ||
                 event.client_timestampIsSet() || event.creator_nameIsSet());
    EXPECT_EQ(event.type(), 0) << "an event that was given no type has the invalid one";
    EXPECT_EQ(event.seq(), 0);
    EXPECT_EQ(event.target_seq(), 0);
    EXPECT_EQ(event.subtype(), 0);
    EXPECT_FALSE(event.creator_id() || event.content() || event.member_id() || event.transient_metadata() ||
                 event.client_id() || event.creator_name())
        << "objects are absent, not empty";
}

TEST(NewEvent, TakesItsRowAndThenItsStreamsRow) {
    const ZAVEvent event(7, 3);
    EXPECT_EQ(event.databaseIdentifier(), 7);
    EXPECT_EQ(event.streamDatabaseIdentifier(), 3);
    EXPECT_FALSE(event.seqIsSet());
}

TEST(Event, KnowsItsStreamAsAUUIDWhenItHasSixteenBytes) {
    ZAVEvent event;
    event.set_stream_id(ZAVDataFromUUID(uuidNumber(5)));
    EXPECT_EQ(event.streamUUID(), uuidNumber(5));
    event.set_stream_id(ZAVData::fromText("short"));
    EXPECT_EQ(event.streamUUID(), std::nullopt);
    EXPECT_EQ(event.stream_id(), ZAVData::fromText("short"));
}

TEST(Event, AnswersItsContentPartsInOrderWithNullForOneThatIsOfTheWireAlone) {
    ZAVEvent event;
    EXPECT_TRUE(event.contentParts().empty()) << "an event without content has parts";
    const auto first = std::make_shared<ZAVEventContent>();
    const auto third = std::make_shared<ZAVEventContent>();
    event.set_content(
        std::vector<std::shared_ptr<ZAVTContent>>{first, std::make_shared<ZAVTContent>(), third, nullptr});
    EXPECT_EQ(event.contentParts(),
              (std::vector<std::shared_ptr<ZAVEventContent>>{first, nullptr, third, nullptr}));
    const auto part = event.contentParts().at(0);
    event.set_content(std::nullopt);
    EXPECT_EQ(part.use_count(), 2) << "a part is not shared with who asked for it";
}

TEST(Event, TellsAnUnsetSequenceFromTheMarker) {
    ZAVEvent event;
    event.set_seq(ZAVSequenceNotSet);
    EXPECT_TRUE(event.seqIsSet());
    EXPECT_EQ(event.seq(), ZAVSequenceNotSet);
}

TEST(NewContentPart, HasNoEventAndNothingSet) {
    const ZAVEventContent part;
    EXPECT_EQ(part.eventDatabaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    EXPECT_EQ(part.eventSeq(), ZAVSequenceNotSet);
    EXPECT_FALSE(part.eventClientID() || part.streamUUID() || part.fileURL() || part.lastAccessed() ||
                 part.externalContentURLExpiration() || part.media_type() || part.body() ||
                 part.external_url())
        << "objects are absent, not empty";
    EXPECT_FALSE(part.isPurged());
    EXPECT_FALSE(part.media_typeIsSet() || part.sizeIsSet() || part.bodyIsSet() || part.external_urlIsSet() ||
                 part.external_access_expirationIsSet());
}

TEST(NewContentPart, StoresItsArgumentsInTheirOrder) {
    const auto file = ZAVURL::URLWithString("a/part-2");
    const auto external = ZAVURL::URLWithString("https://example.org/content/1");
    const ZAVDate expiration = ZAVDateFromSecondsSince1970(1234.5);
    const ZAVEventContent part(9, uuidNumber(1), 2, "image/png", ZAVData::fromText("body"), 77, file,
                               external, expiration);
    EXPECT_EQ(part.eventDatabaseIdentifier(), 9);
    EXPECT_EQ(part.eventClientID(), uuidNumber(1));
    EXPECT_EQ(part.index(), 2);
    EXPECT_EQ(part.media_type(), "image/png");
    EXPECT_EQ(part.body(), ZAVData::fromText("body"));
    EXPECT_EQ(part.size(), 77);
    EXPECT_EQ(part.fileURL(), file);
    EXPECT_EQ(part.external_url(), "https://example.org/content/1");
    EXPECT_EQ(part.externalContentURLExpiration(), expiration);
    EXPECT_FALSE(part.streamUUID());
    EXPECT_EQ(part.eventSeq(), ZAVSequenceNotSet);
}

TEST(NewContentPart, KeepsAnExternalURLAsItsAbsoluteString) {
    const auto directory = ZAVURL::URLWithString("https://example.org/content/");
    const ZAVEventContent part(9, std::nullopt, 0, std::nullopt, std::nullopt, 0, std::nullopt,
                               ZAVURL::URLWithString("../x", *directory), std::nullopt);
    EXPECT_EQ(part.external_url(), "https://example.org/x");
    EXPECT_FALSE(part.body());
    EXPECT_FALSE(part.fileURL());
}

TEST(ContentPart, KeepsEachDateApartFromTheOtherAndFromNone) {
    const ZAVDate beginning = ZAVDateFromSecondsSince1970(0);
    const ZAVDate later = ZAVDateFromSecondsSince1970(1700000000.25);
    ZAVEventContent part;
    part.setLastAccessed(beginning);
    EXPECT_EQ(part.lastAccessed(), beginning) << "the beginning of 1970 is a date like any other";
    EXPECT_EQ(part.externalContentURLExpiration(), std::nullopt) << "only the other date was set";
    part.setExternalContentURLExpiration(beginning);
    part.setLastAccessed(std::nullopt);
    EXPECT_EQ(part.externalContentURLExpiration(), beginning)
        << "the beginning of 1970 is a date like any other";
    EXPECT_EQ(part.lastAccessed(), std::nullopt) << "the date was taken away";
    part.setLastAccessed(later);
    part.setExternalContentURLExpiration(std::nullopt);
    EXPECT_EQ(part.lastAccessed(), later);
    EXPECT_EQ(part.externalContentURLExpiration(), std::nullopt) << "the date was taken away";
}

/// Sets a field, lowers its flag, and raises it again.
#define EXPECT_FLAG_FOLLOWS_FIELD(Record, field, value)                                              \
    do {                                                                                             \
        Record record;                                                                               \
        EXPECT_FALSE(record.field##IsSet()) << #field " is set in a new record";                     \
        record.set_##field(value);                                                                   \
        EXPECT_TRUE(record.field##IsSet()) << #field " was set, but its flag is down";               \
        EXPECT_EQ(record.field(), value);                                                            \
        record.unset_##field();                                                                      \
        EXPECT_FALSE(record.field##IsSet()) << #field " was unset, but its flag is up";              \
        EXPECT_EQ(record.field(), value) << #field " cannot be read any more after it was unset";    \
        record.set_##field(value);                                                                   \
        EXPECT_TRUE(record.field##IsSet()) << #field " was set a second time, but its flag is down"; \
    } while (false)

TEST(WireEvent, RaisesAFlagWithEachFieldAndKeepsTheValueWhenItIsUnset) {
    using Parts = std::vector<std::shared_ptr<ZAVTContent>>;
    const Parts parts{std::make_shared<ZAVTContent>()};
    const ZAVDictionary metadata{{"key", ZAVData::fromText("value")}};
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, type, EventType_TOMBSTONE);
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, ephemeral, true);
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, creator_id, "someone");
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, seq, -7);
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, server_timestamp, std::int64_t{-8'000'000'000});
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, preceding_seq, 3);
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, client_seq, 4);
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, subtype, std::uint8_t{255});
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, content, parts);
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, member_id, "member");
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, target_seq, 5);
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, transient_metadata, metadata);
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, client_id, ZAVDataFromUUID(uuidNumber(6)));
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, client_timestamp, std::int64_t{8'000'000'000});
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTEvent, creator_name, "A Name");
}

TEST(WireContentPart, RaisesAFlagWithEachFieldAndKeepsTheValueWhenItIsUnset) {
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTContent, media_type, "text/plain");
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTContent, size, std::int64_t{8'000'000'000});
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTContent, body, ZAVData::fromText("bytes"));
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTContent, external_url, "https://example.org/");
    EXPECT_FLAG_FOLLOWS_FIELD(ZAVTContent, external_access_expiration, std::int64_t{-1});
}

#undef EXPECT_FLAG_FOLLOWS_FIELD

TEST(WireEvent, RaisesNoOtherFlag) {
    ZAVTEvent event;
    event.set_seq(1);
    EXPECT_TRUE(event.seqIsSet());
    EXPECT_FALSE(event.typeIsSet() || event.server_timestampIsSet() || event.preceding_seqIsSet() ||
                 event.client_seqIsSet() || event.target_seqIsSet());
    event.set_target_seq(2);
    event.unset_seq();
    EXPECT_TRUE(event.target_seqIsSet()) << "unsetting one field unset another";
}

TEST(WireEvent, CountsAnAbsentObjectAsSetOnceItWasSet) {
    ZAVTEvent event;
    event.set_creator_id(std::nullopt);
    EXPECT_TRUE(event.creator_idIsSet());
    EXPECT_FALSE(event.creator_id());
}

TEST(Record, NamesItsClass) {
    const auto message = std::make_shared<ZAVMessage>(4);
    EXPECT_EQ(ZAVTEvent().className(), "ZAVTEvent");
    EXPECT_EQ(ZAVEvent().className(), "ZAVEvent");
    EXPECT_EQ(ZAVTContent().className(), "ZAVTContent");
    EXPECT_EQ(ZAVEventContent().className(), "ZAVEventContent");
    EXPECT_EQ(message->className(), "ZAVMessage");
    EXPECT_EQ(ZAVMessagePart(message, 0).className(), "ZAVMessagePart");
}

TEST(Record, DescribesItselfInOneLineThatBeginsWithItsClass) {
    const auto event = makeEvent(EventType_MESSAGE, uuidNumber(1), 2);
    event->setDatabaseIdentifier(7);
    const std::string text = event->description();
    EXPECT_TRUE(text.starts_with("<ZAVEvent databaseIdentifier=7 ")) << text;
    EXPECT_NE(text.find(" type=4"), std::string::npos) << text;
    EXPECT_TRUE(text.ends_with(">")) << text;
    EXPECT_EQ(text.find('\n'), std::string::npos) << text;
}

TEST(MessagePart, KnowsItsMessageAndItsIndex) {
    const auto message = std::make_shared<ZAVMessage>(4);
    const ZAVMessagePart part(message, 18446744073709551615U);
    EXPECT_EQ(part.message(), message);
    EXPECT_EQ(part.message()->databaseIdentifier(), 4);
    EXPECT_EQ(part.index(), 18446744073709551615U);
    EXPECT_EQ(ZAVMessage().databaseIdentifier(), ZAVDatabaseIdentifierNotSet);
}

TEST(MessagePart, NeedsAMessage) {
    EXPECT_THROW(ZAVMessagePart(nullptr, 0), NSInternalInconsistencyException);
}

TEST(ScalarTypes, OfTheRecordsAreThoseThatHaveNames) {
    static_assert(std::is_same_v<ZAVTUUID, ZAVData>, "a UUID in its binary form is a byte string");
    static_assert(std::is_same_v<decltype(ZAVTEvent().client_id()), const std::optional<ZAVTUUID>&>);
    static_assert(
        std::is_same_v<decltype(ZAVTEvent().creator_id()), const std::optional<ZAVTProviderUserId>&>);
    static_assert(std::is_same_v<decltype(ZAVTEvent().seq()), ZAVSequence>);
    ZAVEvent event;
    event.set_client_id(*ZAVDataFromUUID(uuidNumber(7)));
    EXPECT_EQ(event.client_id()->size(), 16U);
}

TEST(Error, IsEmptyUntilItSaysWhy) {
    const ZAVError none;
    EXPECT_FALSE(none);
    EXPECT_EQ(none.code(), 0);
    EXPECT_EQ(none.domain(), "");
    EXPECT_EQ(none.message(), "");
    const ZAVError silent("SQLite", 0, "");
    EXPECT_TRUE(silent) << "an error is one whatever its code";
    EXPECT_NE(none, silent);
}

TEST(Error, HoldsDomainCodeAndMessage) {
    const ZAVError error("SQLite", 2067, "UNIQUE constraint failed");
    EXPECT_TRUE(error);
    EXPECT_EQ(error.domain(), "SQLite");
    EXPECT_EQ(error.code(), 2067);
    EXPECT_EQ(error.message(), "UNIQUE constraint failed");
    EXPECT_EQ(error.description(), "Error Domain=SQLite Code=2067 \"UNIQUE constraint failed\"");
    EXPECT_EQ(error, ZAVError("SQLite", 2067, "UNIQUE constraint failed"));
    EXPECT_NE(error, ZAVError("SQLite", 2067, "another"));
    EXPECT_NE(error, ZAVError("SQLite", 19, "UNIQUE constraint failed"));
    EXPECT_NE(error, ZAVError("ZAVDatabase", 2067, "UNIQUE constraint failed"));
}

TEST(Error, IsEmptyWhenItWasMovedAway) {
    const ZAVError why("SQLite", 5, "database is locked, by a writer that is not in a hurry");
    ZAVError source = why;
    ZAVError target = std::move(source);
    EXPECT_EQ(target, why);
    EXPECT_FALSE(source) << "the error is somewhere else now";
    EXPECT_EQ(source, ZAVError());
    EXPECT_EQ(source.description(), "(null)");
    source = std::move(target);
    EXPECT_EQ(source, why);
    EXPECT_FALSE(target);
    EXPECT_EQ(target, ZAVError());
    ZAVError& same = source;
    source = std::move(same);
    EXPECT_EQ(source, why) << "moved onto itself";
}

TEST(Error, IsStoredOnlyWhereTheCallerAskedForIt) {
    ZAVError destination;
    ZAVStoreError(&destination, ZAVError("SQLite", 1, "reason"));
    EXPECT_EQ(destination, ZAVError("SQLite", 1, "reason"));
    EXPECT_NO_THROW(ZAVStoreError(nullptr, destination));
}

TEST(InternalInconsistency, KeepsItsReasonWhenItIsMovedAway) {
    NSInternalInconsistencyException source("violated");
    const NSInternalInconsistencyException target = std::move(source);
    EXPECT_EQ(target.reason(), "violated");
    EXPECT_EQ(source.reason(), "violated") << "no exception is without its reason";
    NSInternalInconsistencyException assigned("another");
    assigned = std::move(source);
    EXPECT_EQ(assigned.reason(), "violated");
    EXPECT_EQ(source.reason(), "violated");
}

TEST(InternalInconsistency, IsALogicErrorWithANameAndAReason) {
    const NSInternalInconsistencyException exception("The reason, in full.");
    EXPECT_EQ(exception.name(), "NSInternalInconsistencyException");
    EXPECT_EQ(exception.reason(), "The reason, in full.");
    EXPECT_STREQ(exception.what(), "The reason, in full.");
    EXPECT_TRUE((std::is_base_of_v<std::logic_error, NSInternalInconsistencyException>));
}

TEST(InternalInconsistency, KeepsAReasonThatHoldsANul) {
    const std::string reason = "The event \0 is described in full."s;
    const NSInternalInconsistencyException exception(reason);
    const NSInternalInconsistencyException copy = exception;
    EXPECT_EQ(copy.reason(), reason) << "the reason was cut at the NUL of a record's text";
}

}  // namespace
}  // namespace zav::test
