#pragma once

#include <ZAVEventRepository/ZAVDatabaseError.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "Model/Records.h"

namespace zav::test {

/// The tables as plain values. A column that can hold NULL is optional.
struct Tables {
    using Row = ZAVDatabaseIdentifier;

    struct Stream {
        std::optional<Bytes> stream_id;
        std::optional<std::int64_t> seq;
    };
    struct Event {
        std::int64_t type = 0;
        std::optional<std::string> creator_id;
        std::optional<std::int64_t> seq;
        std::optional<std::int64_t> timestamp;
        std::optional<std::int64_t> preceding_seq;
        std::optional<std::int64_t> client_seq;
        std::optional<std::int64_t> subtype;
        std::optional<std::string> member_id;
        std::optional<std::int64_t> target_seq;
        std::optional<Row> stream_database_identifier;
        Bytes client_id;
        std::optional<std::string> creator_name;
    };
    struct Part {
        std::int64_t event_content_part_id = 0;
        Row event_database_identifier = 0;
        std::optional<std::string> type;
        std::optional<Bytes> value;
        std::optional<double> access_expiration;
        std::optional<std::string> url;
        std::optional<std::int64_t> size;
        std::optional<std::int64_t> transfer_status;
        std::optional<std::string> file_path;
        std::optional<double> last_accessed;
        std::optional<std::int64_t> purged;
    };
    struct Change {
        std::string table_name;
        Row row_identifier = 0;
        std::int64_t change_type = 0;
    };
    struct Conversation {
        std::optional<Bytes> stream_id;
    };
    struct Participant {
        Row conversation_database_identifier = 0;
        std::string member_id;
        std::optional<std::int64_t> seq;
    };
    struct Message {
        std::optional<Row> event_database_identifier;
        std::optional<std::int64_t> seq;
    };
    /// Which object's dictionary: its row, its type and the type of the keys.
    using Owner = std::tuple<Row, std::string, std::int64_t>;
    struct KeyedValue {
        MetadataValue value;
        std::optional<double> timestamp;
    };
    using KeyedValues = std::map<Owner, std::map<std::string, KeyedValue>>;

    std::map<Row, Stream> streams;
    std::map<Row, Event> events;
    std::map<Row, Part> parts;
    std::map<Row, Change> changes;
    std::map<Row, Conversation> conversations;
    std::map<Row, Participant> participants;
    std::map<Row, Message> messages;
    KeyedValues keyedValuesLocal;
    KeyedValues keyedValuesRemote;

    /// The largest row identifier that the engine has counted in a table that never uses one twice.
    std::map<std::string, Row> largestRows;
};

/// Records in tiers: those of one tier in any order, those of an earlier tier first. What has no order is one
/// tier.
template <class Record>
struct Selection {
    std::vector<std::vector<Record>> tiers;
    std::optional<std::uint64_t> limit{};  ///< no more than so many
    std::optional<std::uint64_t> bytes{};  ///< no more than it takes for the sizes to exceed this
};

/// The domain and code of an error; a number alone is the engine's.
struct ErrorCode {
    ErrorCode(int number, std::string_view reporter = ZAVErrorDomainSQLite)
        : code(number), domain(reporter) {}

    int code;
    std::string_view domain;
};

/// What an operation is expected to answer.
template <class Value>
struct ModelAnswer {
    Value value{};
    std::optional<ErrorCode> error{};  ///< what the out-parameter receives, if it does
    bool errorIsOptional = false;      ///< whether a failure shows depends on when the engine finds it
};

/// A precondition that was violated; the reason as it is thrown.
struct Violation {
    std::string reason;
};

/// Statements that a trigger refuses.
enum class Refusal {
    insertOfEvent,
    insertOfEventSilently,  ///< not a failure: the row is just not inserted
    updateOfEvent,
    deletionOfEventInEvenRow,
    insertOfSecondPart,
    updateOfPart,
    insertOfMetadataB,
    deletionOfMetadata,
    insertOfChange,
    deletionOfChange,
    updateOfMessage,
    updateOfParticipant,
    insertOfStream,
    updateOfStream,
};

/// What the event store should do, in the plainest way there is: tables are maps, every query looks at every
/// row, and no statement is ever written. Written from what the operations are said to do.
class StoreModel {
public:
    using Row = Tables::Row;
    using Events = std::optional<Selection<EventRecord>>;
    using Event = Selection<EventRecord>;
    using Parts = std::optional<Selection<PartRecord>>;
    using Part = Selection<PartRecord>;

    Tables tables;

    /// @name Transactions
    /// One at a time. The engine ends one by itself, undone, when it runs out of row identifiers.
    /// @{
    ModelAnswer<bool> begin();
    ModelAnswer<bool> commit();
    void rollback();
    [[nodiscard]] bool inTransaction() const { return tablesBeforeTransaction_.has_value(); }
    /// @}

    /// A statement that fails while it is refused, and a table that no statement may touch.
    std::optional<Refusal> refusal;
    std::optional<std::string> withheldTable;

    /// @name Event queries
    /// @{
    [[nodiscard]] ModelAnswer<Events> allEvents();
    [[nodiscard]] ModelAnswer<std::uint64_t> countOfEvents();
    [[nodiscard]] ModelAnswer<Events> publishableEvents();
    [[nodiscard]] ModelAnswer<Events> unpublishableEvents();
    [[nodiscard]] ModelAnswer<Events> unprocessedEvents();
    [[nodiscard]] ModelAnswer<Events> eventsFromRevivedStream(Row stream);
    [[nodiscard]] ModelAnswer<Events> postedAndProcessedEvents();
    [[nodiscard]] ModelAnswer<Event> eventWithSeq(ZAVSequence seq, const ZAVUUID& stream);
    [[nodiscard]] ModelAnswer<Event> eventForDatabaseIdentifier(Row row);
    /// @}
    /// @name Writing events
    /// The records are changed as the store changes its own.
    /// @{
    ModelAnswer<bool> persistEvents(const std::vector<EventRecord*>& events);
    ModelAnswer<bool> updateObject(const EventRecord& event);
    ModelAnswer<bool> deleteUnprocessedEvents(const std::vector<EventRecord*>& events);
    ModelAnswer<bool> deleteEvents(const std::vector<EventRecord*>& events);
    ModelAnswer<bool> persistTombstone(ZAVSequence targetSeq, Row stream);
    ModelAnswer<bool> persistConversationsParticipantsSeq(ZAVSequence seq, const std::string& member,
                                                          const ZAVUUID& stream);
    ModelAnswer<bool> persistMessageSeq(ZAVSequence seq, Row event);
    /// @}
    /// @name Content parts
    /// @{
    [[nodiscard]] ModelAnswer<Part> partInRow(Row row);
    [[nodiscard]] ModelAnswer<Part> partOfEvent(Row event, std::int64_t index);
    [[nodiscard]] ModelAnswer<Part> partOfMessage(Row messageRow, std::uint64_t index);
    [[nodiscard]] ModelAnswer<Part> partOfClientID(const std::optional<Bytes>& clientID, std::int64_t index);
    [[nodiscard]] ModelAnswer<Part> partWithURL(const std::string& url);
    [[nodiscard]] ModelAnswer<Parts> partsHavingUnassignedURLs();
    [[nodiscard]] ModelAnswer<Parts> partsHavingIncompleteUploads(std::uint64_t limit);
    [[nodiscard]] ModelAnswer<Parts> partsHavingExpiredDownloadURLs(
        const std::optional<std::set<std::string>>& types, std::uint64_t maxSize, std::uint64_t limit,
        double now);
    [[nodiscard]] ModelAnswer<Parts> partsHavingIncompleteDownloads(std::uint64_t limit, double now);
    ModelAnswer<bool> persistEventContentUpdate(const PartRecord& part);
    /// Every total that the engine may come to: whether a sum overflows can depend on the order of the rows.
    [[nodiscard]] ModelAnswer<std::set<std::uint64_t>> totalDiskUtilization();
    [[nodiscard]] ModelAnswer<Parts> leastRecentlyAccessedParts(std::uint64_t totalSize);
    static void prepareForDownload(EventRecord& event, const ZAVUUID& app, const std::string& user);
    /// @}
    /// @name Neighbours
    /// @{
    [[nodiscard]] ModelAnswer<Row> streamWithUUID(const ZAVUUID& uuid);
    ModelAnswer<Row> findOrCreateStream(const ZAVUUID& uuid);
    ModelAnswer<Row> createStreamWithoutUUID();
    ModelAnswer<bool> setStreamUUID(const ZAVUUID& uuid, Row stream);
    ModelAnswer<bool> setStreamSeq(ZAVSequence seq, Row stream);
    [[nodiscard]] ModelAnswer<std::optional<std::uint64_t>> countOfStreams();
    ModelAnswer<bool> recordChange(const std::string& table, Row row, std::int64_t type);
    ModelAnswer<bool> setKeyedValues(bool remote, const Tables::Owner& owner, const Metadata& values,
                                     std::optional<double> timestamp);
    [[nodiscard]] ModelAnswer<std::optional<Metadata>> keyedValues(bool remote, const Tables::Owner& owner);
    /// @}
    /// @name Rows that other components write
    /// @{
    void insertMessage(std::optional<Row> event);
    void insertConversation(const std::optional<Bytes>& streamID);
    /// False when the member is a participant already.
    bool insertParticipant(Row conversation, const std::string& member);
    /// @}

private:
    struct StatementFailure {
        ErrorCode code;
    };

    /// The row as it is; the one that means "not set" cannot be used.
    static Row usable(Row row);

    /// Runs the work of an operation; a statement that fails ends it, with `onFailure` as the answer.
    template <class Value, class Work>
    ModelAnswer<Value> attempt(Value onFailure, const Work& work);

    /// A statement that touches these tables.
    void touch(std::initializer_list<const char*> names) const;
    void touchWithoutColumns(const char* name) const;
    void failIfRefused(Refusal statement) const;

    [[nodiscard]] Row nextCountedRow(const std::string& table);
    void countRow(const std::string& table, Row row);

    [[nodiscard]] const Tables::Stream* streamOf(const Tables::Event& event) const;
    [[nodiscard]] const Tables::Event* eventOf(const Tables::Part& part) const;
    [[nodiscard]] const Tables::Stream* streamOf(const Tables::Part& part) const;
    [[nodiscard]] std::optional<Row> eventAt(std::optional<Row> stream,
                                             std::optional<std::int64_t> seq) const;

    [[nodiscard]] EventRecord record(Row row, const Tables::Event& event);
    [[nodiscard]] PartRecord record(const Tables::Part& part) const;

    using EventCondition = std::function<bool(Row, const Tables::Event&)>;
    using PartCondition = std::function<bool(Row, const Tables::Part&)>;
    [[nodiscard]] std::vector<EventRecord> eventsWhere(const EventCondition& condition);
    [[nodiscard]] std::vector<PartRecord> partsWhere(const PartCondition& condition) const;
    [[nodiscard]] ModelAnswer<Events> selectEvents(const EventCondition& condition);
    [[nodiscard]] ModelAnswer<Event> selectEvent(const EventCondition& condition);
    [[nodiscard]] ModelAnswer<Part> selectPart(const PartCondition& condition);

    /// The parts that a download queue looks at, those nearest to the end of their stream first.
    [[nodiscard]] Selection<PartRecord> downloads(const PartCondition& condition, std::uint64_t limit) const;

    void persist(EventRecord& event);
    void resolveStream(EventRecord& event) const;
    void insertOrUpdate(EventRecord& event);
    [[nodiscard]] bool insert(const EventRecord& event);
    void update(const EventRecord& event);
    void persistParts(EventRecord& event);
    void storeKeyedValues(bool remote, const Tables::Owner& owner, const Metadata& values,
                          std::optional<double> timestamp);
    [[nodiscard]] Row insertStream(const std::optional<Bytes>& uuid);

    std::optional<Tables> tablesBeforeTransaction_;
    Row lastInsertedRow_ = 0;
    std::optional<int> metadataError_;  ///< of a read that goes on without metadata
};

/// Whether a text is a URL, and whether it has a scheme of its own. Plain, and good enough for the texts that
/// the tests draw.
[[nodiscard]] bool isURL(const std::string& text);
[[nodiscard]] bool hasScheme(const std::string& text);

}  // namespace zav::test
