#pragma once

#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVEventContent.h>
#include <ZAVEventRepository/ZAVMessagePart.h>
#include <ZAVEventRepository/ZAVSet.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUUID.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

struct sqlite3;

namespace zav::bench {

/// One way to work with an event store: the library, or what a user might write instead. Every contender runs
/// the same statements on the same schema and fills the same records. A failure throws.
class Contender {
public:
    using Event = std::shared_ptr<ZAVEvent>;
    using Part = std::shared_ptr<ZAVEventContent>;
    using Events = ZAVSet<ZAVEvent>;
    using Parts = ZAVSet<ZAVEventContent>;

    Contender() = default;
    virtual ~Contender() = default;
    Contender(const Contender&) = delete;
    Contender& operator=(const Contender&) = delete;

    /// The engine's connection under the contender, for transactions and for looking at what it did.
    [[nodiscard]] virtual sqlite3* connection() = 0;

    virtual void persist(const ZAVSet<ZAVTEvent>& events) = 0;
    virtual void updatePart(const ZAVEventContent& part) = 0;
    virtual void forgetUnprocessed(const Events& events) = 0;
    virtual void deleteEvents(const Events& events) = 0;

    virtual Events allEvents() = 0;
    virtual Events publishableEvents() = 0;
    virtual Events unprocessedEvents() = 0;
    virtual Events revivedStream(ZAVDatabaseIdentifier stream) = 0;
    virtual Event eventInRow(ZAVDatabaseIdentifier row) = 0;
    virtual Event eventWithSeq(ZAVSequence seq, const ZAVUUID& stream) = 0;

    virtual Part partInRow(ZAVDatabaseIdentifier row) = 0;
    virtual Part partOfEvent(ZAVDatabaseIdentifier event, std::int64_t index) = 0;
    virtual Part partOfMessage(const ZAVMessagePart& messagePart) = 0;
    virtual Part partForObjectIdentifier(const ZAVURL& identifier) = 0;
    virtual Part partForExternalURL(const ZAVURL& url) = 0;

    virtual Parts partsWithoutURL() = 0;
    virtual Parts incompleteUploads(ZAVSize limit) = 0;
    virtual Parts expiredDownloads(const std::set<std::string>& types, ZAVSize maxSize, ZAVSize limit) = 0;
    virtual Parts incompleteDownloads(ZAVSize limit) = 0;
    virtual ZAVSize diskUtilization() = 0;
    virtual Parts leastRecentlyAccessed(ZAVSize size) = 0;
};

struct ContenderKind {
    const char* name;
    std::unique_ptr<Contender> (*open)(const std::string& path);
};

std::unique_ptr<Contender> openLibrary(const std::string& path);
std::unique_ptr<Contender> openFloor(const std::string& path);
std::unique_ptr<Contender> openNaive(const std::string& path);
std::unique_ptr<Contender> openSQLiteCpp(const std::string& path);
std::unique_ptr<Contender> openSoci(const std::string& path);

}  // namespace zav::bench
