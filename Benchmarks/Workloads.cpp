#include "Workloads.h"

#include <sqlite3.h>

#include <utility>

#include "Connection.h"
#include "Digest.h"
#include "Timer.h"

namespace zav::bench {
namespace {

constexpr std::size_t batch = 1'000;
constexpr std::size_t many = 10'000;
constexpr double persistTarget = 1.05;
constexpr double target = 1.10;
constexpr ZAVSize queueLimit = 20;
constexpr std::size_t queueCalls = 20;
constexpr ZAVSize autodownloadMaxSize = 100'000;
constexpr ZAVSize purgedSize = 20'000'000;

using Writes = Workload::Writes;

/// Each workload numbers its events from a start of its own: none collides with another's.
constexpr std::size_t generations = 100'000;

Workload persisting(std::string name, EventShape shape) {
    return {std::move(name),
            persistTarget,
            "event",
            batch,
            Writes::kept,
            [shape](Session& session) {
                session.toStore = makeEvents(shape, batch, shape.parts * generations + session.run);
            },
            [](Session& session) { session.contender.persist(session.toStore); }};
}

/// One lookup for each key of a list.
template <class Key, class Look>
Workload lookingUp(std::string name, std::vector<Key> Samples::*keys, const Look& look) {
    return {std::move(name),
            target,
            "call",
            0,
            Writes::none,
            [](Session&) {},
            [keys, look](Session& session) {
                for (const Key& key : session.samples.*keys) {
                    look(session, key);
                }
            }};
}

template <class Look>
Workload readingEvents(std::string name, const Look& look) {
    return {std::move(name),
            target,
            "event",
            0,
            Writes::none,
            [](Session&) {},
            [look](Session& session) { session.events = look(session.contender); }};
}

/// The same call again and again, for one that is too short to be timed alone.
template <class Call>
Workload calling(std::string name, std::size_t calls, const Call& call) {
    return {std::move(name),
            target,
            "call",
            calls,
            Writes::none,
            [](Session&) {},
            [calls, call](Session& session) {
                for (std::size_t index = 0; index < calls; ++index) {
                    call(session);
                }
            }};
}

/// The events that wait to be processed, read once and then used in every run.
void chooseUnprocessed(Session& session) {
    if (session.chosen.empty()) {
        session.chosen = session.contender.unprocessedEvents();
    }
}

/// Events of which each has a row already.
void prepareToStoreAgain(Session& session) {
    session.toStore = makeEvents({1, false}, batch, 9 * generations);
    if (session.rows.empty()) {
        session.contender.persist(session.toStore);
        for (const auto& event : session.toStore) {
            session.rows.push_back(static_cast<const ZAVEvent&>(*event).databaseIdentifier());
        }
    }
    auto row = session.rows.begin();
    for (const auto& event : session.toStore) {
        static_cast<ZAVEvent&>(*event).setDatabaseIdentifier(*row++);
    }
}

/// A transaction, unless there is no connection. Undone at its end if it was not committed.
class Transaction {
public:
    explicit Transaction(sqlite3* connection) : connection_(connection) {
        if (connection_ != nullptr) {
            execute(connection_, "BEGIN IMMEDIATE");
        }
    }
    ~Transaction() {
        if (connection_ != nullptr) {
            sqlite3_exec(connection_, "ROLLBACK", nullptr, nullptr, nullptr);
        }
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit() { execute(std::exchange(connection_, nullptr), "COMMIT"); }

private:
    sqlite3* connection_;
};

}  // namespace

std::vector<Workload> makeWorkloads() {
    return {
        persisting("persist/no_part", {0, false}),
        persisting("persist/one_part", {1, false}),
        persisting("persist/three_parts_and_metadata", {3, true}),
        {"persist/again", persistTarget, "event", batch, Writes::kept, prepareToStoreAgain,
         [](Session& session) { session.contender.persist(session.toStore); }},

        readingEvents("events/all", [](Contender& contender) { return contender.allEvents(); }),
        lookingUp("events/by_row", &Samples::eventRows,
                  [](Session& session, ZAVDatabaseIdentifier row) {
                      session.events.append(session.contender.eventInRow(row));
                  }),
        lookingUp("events/by_sequence", &Samples::positions,
                  [](Session& session, const Samples::Position& position) {
                      session.events.append(session.contender.eventWithSeq(position.seq, position.stream));
                  }),
        readingEvents("events/publishable",
                      [](Contender& contender) { return contender.publishableEvents(); }),
        readingEvents("events/unprocessed",
                      [](Contender& contender) { return contender.unprocessedEvents(); }),
        readingEvents("events/revived_stream",
                      [](Contender& contender) { return contender.revivedStream(3); }),

        lookingUp("part/by_row", &Samples::partRows,
                  [](Session& session, ZAVDatabaseIdentifier row) {
                      session.parts.append(session.contender.partInRow(row));
                  }),
        lookingUp("part/by_event", &Samples::eventsOfParts,
                  [](Session& session, ZAVDatabaseIdentifier event) {
                      session.parts.append(session.contender.partOfEvent(event, 0));
                  }),
        lookingUp("part/by_message", &Samples::messageParts,
                  [](Session& session, const std::shared_ptr<ZAVMessagePart>& part) {
                      session.parts.append(session.contender.partOfMessage(*part));
                  }),
        lookingUp("part/by_object_identifier", &Samples::objectIdentifiers,
                  [](Session& session, const ZAVURL& identifier) {
                      session.parts.append(session.contender.partForObjectIdentifier(identifier));
                  }),
        lookingUp("part/by_external_url", &Samples::externalURLs,
                  [](Session& session, const ZAVURL& url) {
                      session.parts.append(session.contender.partForExternalURL(url));
                  }),

        calling("queue/without_url", queueCalls,
                [](Session& session) { session.parts = session.contender.partsWithoutURL(); }),
        calling("queue/incomplete_uploads", queueCalls,
                [](Session& session) { session.parts = session.contender.incompleteUploads(queueLimit); }),
        calling("queue/expired_downloads", queueCalls,
                [](Session& session) {
                    session.parts = session.contender.expiredDownloads({"image/jpeg", "text/plain"},
                                                                       autodownloadMaxSize, queueLimit);
                }),
        calling("queue/incomplete_downloads", queueCalls,
                [](Session& session) { session.parts = session.contender.incompleteDownloads(queueLimit); }),

        calling("disk/utilization", 2,
                [](Session& session) { session.number = session.contender.diskUtilization(); }),
        calling(
            "disk/choice_to_purge", queueCalls,
            [](Session& session) { session.parts = session.contender.leastRecentlyAccessed(purgedSize); }),

        {"part/update", target, "call", batch, Writes::kept,
         [](Session& session) {
             if (session.toUpdate.empty()) {
                 for (const ZAVDatabaseIdentifier row : session.samples.partRows) {
                     session.toUpdate.append(session.contender.partInRow(row));
                 }
             }
             for (const auto& part : session.toUpdate) {
                 part->setLastAccessed(
                     ZAVDateFromSecondsSince1970(1'700'000'000.5 + static_cast<double>(session.run)));
             }
         },
         [](Session& session) {
             for (const auto& part : session.toUpdate) {
                 session.contender.updatePart(*part);
             }
         }},
        {"forget/10000_unprocessed", target, "event", many, Writes::undone, chooseUnprocessed,
         [](Session& session) { session.contender.forgetUnprocessed(session.chosen); }},
        {"delete/10000", target, "event", many, Writes::undone, chooseUnprocessed,
         [](Session& session) { session.contender.deleteEvents(session.chosen); }},
    };
}

double runOnce(const Workload& workload, Session& session, const std::function<void()>& inspect) {
    workload.prepare(session);
    Transaction transaction(workload.writes == Writes::none ? nullptr : session.contender.connection());
    const double before = processorSeconds();
    workload.run(session);
    const double seconds = processorSeconds() - before;
    if (inspect) {
        inspect();
    }
    if (workload.writes == Writes::kept) {
        transaction.commit();
    }
    session.answered = session.events.size() + session.parts.size();
    // Whoever is next finds the same free memory, not what the others' records leave of it.
    session.events.clear();
    session.parts.clear();
    session.toStore.clear();
    ++session.run;
    return seconds;
}

std::string digestOfAnswer(const Session& session) {
    Digest digest;
    const auto addText = [&](const std::optional<std::string>& text) { digest.add(text.value_or("(none)")); };
    const auto addPart = [&](const ZAVEventContent& part) {
        digest.add(part.description());
        digest.add(part.body() ? part.body()->asText() : "(none)");
        addText(part.external_url());
        addText(part.fileURL() ? std::optional(part.fileURL()->absoluteString()) : std::nullopt);
        addText(part.eventClientID() ? std::optional(part.eventClientID()->UUIDString()) : std::nullopt);
        addText(part.streamUUID() ? std::optional(part.streamUUID()->UUIDString()) : std::nullopt);
        digest.add(std::to_string(part.eventSeq()));
        for (const auto& date : {part.lastAccessed(), part.externalContentURLExpiration()}) {
            digest.add(date ? std::to_string(ZAVSecondsSince1970(*date)) : "(none)");
        }
        digest.count();
    };
    const auto addEvent = [&](const ZAVEvent& event) {
        digest.add(event.description());
        digest.count();
        if (event.transient_metadata()) {
            for (const auto& [key, value] : *event.transient_metadata()) {
                digest.add(key);
                const auto* bytes = std::get_if<ZAVData>(&value);
                digest.add(bytes != nullptr ? bytes->asText() : std::get<std::string>(value));
                digest.add(bytes != nullptr ? "bytes" : "text");
            }
        }
        if (event.content()) {
            for (const auto& part : *event.content()) {
                addPart(static_cast<const ZAVEventContent&>(*part));
            }
        }
    };
    for (const auto& event : session.events) {
        if (event) {
            addEvent(*event);
        }
    }
    for (const auto& event : session.toStore) {
        addEvent(static_cast<const ZAVEvent&>(*event));
    }
    for (const auto& part : session.parts) {
        if (part) {
            addPart(*part);
        }
    }
    digest.add(std::to_string(session.number));
    return digest.text();
}

}  // namespace zav::bench
