#pragma once

#include <ZAVEventRepository/ZAVTimeline.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Store/EventStoreFixture.h"

namespace zav::test {

/// A store with a stream of the room, whose events a test makes one by one.
class TimelineStore : public EventStore {
protected:
    static ZAVUUID room() { return uuidNumber(1); }

    /// The row of a stream, which is registered if need be.
    ZAVDatabaseIdentifier streamOf(const ZAVUUID& uuid) {
        ZAVDatabaseIdentifier row = ZAVDatabaseIdentifierNotSet;
        write([&](const ZAVRepositories& repositories) {
            row = repositories.streams.findOrCreateStreamWithUUID(uuid);
            return row != ZAVDatabaseIdentifierNotSet;
        });
        return row;
    }

    /// Runs SQL on the store's file.
    void execute(const std::string& sql) {
        write([&](const ZAVRepositories& repositories) {
            return repositories.events.database().executeStatements(sql);
        });
    }

    void write(const ZAVEventStore::WritingWork& work) {
        ZAVError error;
        EXPECT_TRUE(store().write(work, &error)) << error.description();
    }

    /// Stores a message with a text; one that waits when `seq` is none.
    /// @return its row.
    ZAVDatabaseIdentifier add(std::optional<ZAVSequence> seq, const std::string& text,
                              std::optional<ZAVSequence> clientSeq = std::nullopt,
                              ZAVTEventType type = EventType_MESSAGE) {
        const auto event = makeEvent(type, room(), ++made_);
        event->set_creator_id("bruno");
        if (seq) {
            event->set_seq(*seq);
        }
        if (clientSeq) {
            event->set_client_seq(*clientSeq);
        }
        event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart(text)});
        streamOf(room());
        write([&](const ZAVRepositories& repositories) {
            ZAVSet<ZAVTEvent> events;
            events.append(event);
            return repositories.events.persistEvents(events);
        });
        return event->databaseIdentifier();
    }

    /// The texts of a page, with a blank between them; what went wrong when there is none.
    static std::string textsOf(const std::optional<ZAVTimelinePage>& page, const ZAVError& error = {}) {
        if (!page) {
            return "no page: " + error.description();
        }
        std::string texts;
        for (const auto& event : page->events) {
            const auto parts = event->contentParts();
            texts += (texts.empty() ? "" : " ") +
                     (parts.empty() ? "-" : std::string(parts.front()->body()->asText()));
        }
        return texts;
    }

    /// The texts of a page, with "..." on the sides where there is more.
    static std::string pageText(const std::optional<ZAVTimelinePage>& page, const ZAVError& error = {}) {
        const std::string texts = textsOf(page, error);
        return page ? (page->hasEarlier ? "... " : "") + texts + (page->hasLater ? " ..." : "") : texts;
    }

    static std::string gapsText(const std::optional<ZAVTimelinePage>& page) {
        std::string text;
        for (const ZAVSequenceGap& gap : page.value().missing) {
            text += (text.empty() ? "" : " ") + std::to_string(gap.first) + "-" + std::to_string(gap.last);
        }
        return text;
    }

private:
    int made_ = 0;
};

}  // namespace zav::test
