#include "Store/Internal/ZAVSender.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>

#include <ZAVEventRepository/ZAVContentPath.h>
#include <ZAVEventRepository/ZAVEventRecognition.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Store/Internal/ZAVContentDirectory.h"
#include "Store/Internal/ZAVContentFailure.h"
#include "Store/Internal/ZAVEventChecks.h"
#include "Store/Internal/ZAVStoreErrors.h"
#include "Store/Internal/ZAVStreamRecency.h"

namespace zav {
namespace {

/// Where a stream's counter of what was sent into it is.
ZAVKeyedValuesContext contextOfStream(ZAVDatabaseIdentifier stream) noexcept {
    return ZAVKeyedValuesContext::contextWithTable(ZAVKeyedValuesTableLocal, "stream", stream,
                                                   ZAVKeyedValuesKeyTypeConfiguration);
}

constexpr const char* counterKey = "client_seq";

std::int64_t numberFrom(const ZAVDictionaryValue& value) noexcept {
    const auto* const text = std::get_if<std::string>(&value);
    std::int64_t number = 0;
    if (text != nullptr) {
        std::from_chars(text->data(), text->data() + text->size(), number);
    }
    return number;
}

ZAVError errorOfNoStream(ZAVDatabaseIdentifier row) {
    return ZAVErrorOfStore(ZAVEventStoreErrorNoStream, "there is no stream in row " + std::to_string(row));
}

/// The place of an event in the outbox.
using Place = std::tuple<ZAVDatabaseIdentifier, std::int64_t, ZAVDatabaseIdentifier>;

Place placeOf(const ZAVEvent& event) {
    return {event.streamDatabaseIdentifier(), event.client_seq(), event.databaseIdentifier()};
}

/// Why a part's file cannot be uploaded, if there is a reason.
ZAVError objectionToFile(const ZAVEventContent& part, const ZAVURL& contentDirectory) {
    if (!part.fileURL()) {
        return {};
    }
    const std::string path = part.fileURL()->filePath();
    const auto refuse = [&](const std::string& reason) {
        return ZAVErrorOfUnusableEvent("the file of a part of its content " + reason + ": " + path);
    };
    std::string fault;
    const auto stored = ZAVContentPath::parse(part.fileURL()->relativePath(), &fault);
    if (!stored) {
        return refuse(fault);
    }
    const auto place = ZAVURL::URLWithString(part.fileURL()->relativePath(), contentDirectory);
    if (!place || place->filePath() != path) {
        return refuse("is not in the directory of the store's content");
    }
    try {
        const auto file = ZAVContentDirectory(contentDirectory.filePath()).find(stored->names());
        return file && file->status.isRegular ? ZAVError() : refuse("is not there");
    } catch (const std::system_error& failure) {
        return refuse(failure.code() == std::errc::no_such_file_or_directory ? "is not there"
                                                                             : ZAVReasonOf(failure));
    }
}

}  // namespace

ZAVError ZAVSender::objectionTo(const ZAVEvent& event) const {
    if (ZAVError objection = ZAVObjectionToEvent(event)) {
        return objection;
    }
    if (event.seqIsSet()) {
        return ZAVErrorOfUnusableEvent("it has a sequence, which the service gives to what is sent");
    }
    if (!event.stream_id() && event.streamDatabaseIdentifier() == ZAVDatabaseIdentifierNotSet) {
        return ZAVErrorOfUnusableEvent("it names no stream");
    }
    if (event.creator_id() && owner_.userID && event.creator_id() != owner_.userID) {
        return ZAVErrorOfUnusableEvent("its author is not the user");
    }
    for (const auto& part : event.contentParts()) {
        if (ZAVError objection = objectionToFile(*part, owner_.contentDirectoryURL())) {
            return objection;
        }
    }
    return {};
}

bool ZAVSender::findStream(ZAVEvent& event, ZAVError* error) const {
    if (event.streamDatabaseIdentifier() == ZAVDatabaseIdentifierNotSet) {
        event.setStreamDatabaseIdentifier(
            repositories_.streams.findOrCreateStreamWithUUID(*event.streamUUID(), error));
        return event.streamDatabaseIdentifier() != ZAVDatabaseIdentifierNotSet;
    }
    ZAVError failure;
    const auto stream =
        repositories_.streams.streamForDatabaseIdentifier(event.streamDatabaseIdentifier(), &failure);
    if (!stream) {
        ZAVStoreError(error, failure ? failure : errorOfNoStream(event.streamDatabaseIdentifier()));
        return false;
    }
    if (event.stream_id() && event.streamUUID() != stream->uuid) {
        ZAVStoreError(error, ZAVErrorOfUnusableEvent("it is of another stream"));
        return false;
    }
    event.set_stream_id(stream->uuid ? std::optional(ZAVDataFromUUID(*stream->uuid)) : std::nullopt);
    return true;
}

bool ZAVSender::send(ZAVEvent& event, ZAVSentEvent& answer, ZAVError* error) const {
    if (const ZAVError objection = objectionTo(event)) {
        ZAVStoreError(error, objection);
        return false;
    }
    event.setDatabaseIdentifier(ZAVDatabaseIdentifierNotSet);
    if (!event.creator_id() && owner_.userID) {
        event.set_creator_id(owner_.userID);
    }
    if (!findStream(event, error)) {
        return false;
    }
    const ZAVDatabaseIdentifier stream = event.streamDatabaseIdentifier();
    const auto stored =
        ZAVEventRecognition(handle_.database(), owner_.userID).recognise(event, stream, error);
    if (!stored) {
        return false;
    }
    if (stored->row) {
        event.setDatabaseIdentifier(*stored->row);
        answer = {*stored->row, false};
        return true;
    }
    const auto sent = countOfSent(stream, error);
    std::optional<std::int64_t> streamSeq;
    if (!sent || !findNumber(repositories_.events.database(), streamSeq, error,
                             "SELECT IFNULL(seq, 0) FROM streams WHERE database_identifier = ?", stream)) {
        return false;
    }
    event.set_client_seq(static_cast<ZAVSequence>(*sent + 1));
    event.set_preceding_seq(static_cast<ZAVSequence>(streamSeq.value_or(0)));
    for (const auto& part : event.contentParts()) {
        part->setTransferStatus(part->fileURL() ? ZAVContentTransferAwaitingUpload
                                                : ZAVContentTransferComplete);
    }
    if (!ZAVPersistEvent(repositories_.events, event, error) || !setCountOfSent(stream, *sent + 1, error)) {
        return false;
    }
    answer = {event.databaseIdentifier(), true};
    return true;
}

/// A stream that nothing was counted in yet goes on behind what it holds.
std::optional<std::int64_t> ZAVSender::countOfSent(ZAVDatabaseIdentifier stream, ZAVError* error) const {
    const auto values = repositories_.keyedValues.keyedValuesInContext(contextOfStream(stream), error);
    if (!values) {
        return std::nullopt;
    }
    if (const ZAVDictionaryValue* const counter = values->keyedValues().find(counterKey)) {
        return numberFrom(*counter);
    }
    return readNumber(repositories_.events.database(), error,
                      "SELECT IFNULL(MAX(client_seq), 0) FROM events WHERE stream_database_identifier = ?",
                      stream);
}

bool ZAVSender::setCountOfSent(ZAVDatabaseIdentifier stream, std::int64_t count, ZAVError* error) const {
    const auto context = contextOfStream(stream);
    const auto values = repositories_.keyedValues.keyedValuesInContext(context, error);
    if (!values) {
        return false;
    }
    ZAVDictionary dictionary = values->keyedValues();
    dictionary.set(counterKey, std::to_string(count));
    return repositories_.keyedValues.setKeyedValuesWithDictionary(dictionary, std::nullopt, context, error);
}

std::optional<std::vector<std::shared_ptr<ZAVEvent>>> ZAVSender::outbox(const ZAVOutboxOptions& options,
                                                                        ZAVError* error) const {
    const auto publishable = repositories_.events.publishableEvents(error);
    if (!publishable) {
        return std::nullopt;
    }
    std::vector<std::shared_ptr<ZAVEvent>> outbox(publishable->begin(), publishable->end());
    std::sort(outbox.begin(), outbox.end(),
              [](const auto& one, const auto& other) { return placeOf(*one) < placeOf(*other); });
    if (!options.holdsBackBehindUploads) {
        return outbox;
    }
    std::map<ZAVDatabaseIdentifier, Place> firstUploads;
    const auto add = [&](const FMResultSet& upload) {
        const Place place(upload.longLongIntForColumnIndex(0), upload.longLongIntForColumnIndex(1),
                          upload.longLongIntForColumnIndex(2));
        Place& first = firstUploads.emplace(std::get<0>(place), place).first->second;
        first = std::min(first, place);
    };
    if (!visitRows(repositories_.events.database(), error,
                   "SELECT stream_database_identifier, client_seq, database_identifier"
                   " FROM events INDEXED BY events_without_seq WHERE seq IS NULL AND EXISTS"
                   " (SELECT 1 FROM event_content_parts WHERE event_database_identifier ="
                   " events.database_identifier AND transfer_status IN (0, 1))",
                   add)) {
        return std::nullopt;
    }
    std::erase_if(outbox, [&](const auto& event) {
        const auto first = firstUploads.find(event->streamDatabaseIdentifier());
        return first != firstUploads.end() && first->second < placeOf(*event);
    });
    return outbox;
}

std::optional<ZAVDatabaseIdentifier> ZAVSender::nameStream(ZAVDatabaseIdentifier stream, const ZAVUUID& uuid,
                                                           ZAVError* error) const {
    ZAVError failure;
    const ZAVDatabaseIdentifier registered =
        repositories_.streams.streamDatabaseIdentifierForUUID(uuid, &failure);
    const auto offline =
        failure ? std::nullopt : repositories_.streams.streamForDatabaseIdentifier(stream, &failure);
    if (failure) {
        ZAVStoreError(error, failure);
        return std::nullopt;
    }
    if (registered == stream || (!offline && registered != ZAVDatabaseIdentifierNotSet)) {
        return registered;  // it was named, or its events were moved, before
    }
    if (!offline) {
        ZAVStoreError(error, errorOfNoStream(stream));
        return std::nullopt;
    }
    if (offline->uuid) {
        ZAVStoreError(error, ZAVErrorOfStore(ZAVEventStoreErrorConflict,
                                             "the stream in row " + std::to_string(stream) +
                                                 " has a UUID already: " + offline->uuid->UUIDString()));
        return std::nullopt;
    }
    if (registered == ZAVDatabaseIdentifierNotSet) {
        return repositories_.streams.setUUID(uuid, stream, error) ? std::optional(stream) : std::nullopt;
    }
    FMDatabase& database = repositories_.events.database();
    const auto here = countOfSent(stream, error);
    const auto there = here ? countOfSent(registered, error) : std::nullopt;
    const ZAVStreamRecency recency(repositories_);
    // What was sent offline follows what was sent into the stream that it turns out to be.
    const bool succeeded =
        there &&
        runUpdate(database, error,
                  "UPDATE events SET stream_database_identifier = ?, client_seq = IFNULL(client_seq, 0) + ?"
                  " WHERE stream_database_identifier = ? AND seq IS NULL",
                  registered, *there, stream) &&
        setCountOfSent(registered, *here + *there, error) &&
        repositories_.keyedValues.setKeyedValuesWithDictionary({}, std::nullopt, contextOfStream(stream),
                                                               error) &&
        runUpdate(database, error,
                  "DELETE FROM streams WHERE database_identifier = ? AND NOT EXISTS (SELECT 1 FROM events"
                  " WHERE stream_database_identifier = ?)",
                  stream, stream) &&
        recency.update(stream, error) && recency.update(registered, error);
    return succeeded ? std::optional(registered) : std::nullopt;
}

}  // namespace zav
