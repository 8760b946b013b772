#include <ZAVEventRepository/ZAVMessagePartObjectIdentifier.h>

#include <memory>

#include "Model/Operations.h"
#include "Model/Values.h"
#include "Support/TestStore.h"

/// Operations on content parts.
namespace zav::test {
namespace {

auto keepingPart(std::optional<std::size_t> slot) {
    return [slot](Comparison& both, const std::shared_ptr<ZAVEventContent>& found) {
        if (slot) {
            both.keepPart(*slot, found);
        }
    };
}

std::string keptIn(std::optional<std::size_t> slot) {
    return slot ? ", to keep as part #" + std::to_string(*slot) : "";
}

rc::Gen<Step> partInRow() {
    return rc::gen::exec([] {
        const auto row = *values::smallRow();
        const auto slot = *values::slotToKeepIn(Comparison::partSlots);
        return comparedStep(
            "eventContentDatabaseIdentifier", list(row) + keptIn(slot),
            [=](Comparison& both, ZAVError* error) {
                return both.repository().eventContentDatabaseIdentifier(row, error);
            },
            [=](StoreModel& model) { return model.partInRow(row); }, keepingPart(slot));
    });
}

rc::Gen<Step> partOfEvent() {
    return rc::gen::exec([] {
        const auto row = *values::eventRow();
        const auto index = *values::partIndex();
        const auto slot = *values::slotToKeepIn(Comparison::partSlots);
        return comparedStep(
            "eventContentForEventDatabaseIdentifier", list(row, index) + keptIn(slot),
            [=](Comparison& both, ZAVError* error) {
                return both.repository().eventContentForEventDatabaseIdentifier(row, index, error);
            },
            [=](StoreModel& model) { return model.partOfEvent(row, index); }, keepingPart(slot));
    });
}

rc::Gen<Step> partOfMessage() {
    return rc::gen::exec([] {
        const auto message = *values::mostly<Tables::Row>({1, 2, 3, 4}, {5, 6, 0, -1}, 5);
        const auto index = static_cast<std::uint64_t>(*values::partIndex());
        const auto slot = *values::slotToKeepIn(Comparison::partSlots);
        return comparedStep(
            "eventContentForMessagePart", list(message, index) + keptIn(slot),
            [=](Comparison& both, ZAVError* error) {
                const ZAVMessagePart part(std::make_shared<ZAVMessage>(message), index);
                return both.repository().eventContentForMessagePart(part, error);
            },
            [=](StoreModel& model) { return model.partOfMessage(message, index); }, keepingPart(slot));
    });
}

rc::Gen<Step> partOfObjectIdentifier() {
    return rc::gen::exec([] {
        const auto clientID = *values::from<std::optional<ZAVUUID>>(
            {uuidNumber(21), uuidNumber(22), uuidNumber(23), std::nullopt});
        const auto index = *values::from<std::uint32_t>({0, 1, 2, 4294967295});
        const auto slot = *values::slotToKeepIn(Comparison::partSlots);
        const ZAVURL identifier = clientID ? ZAVMakeMessagePartObjectIdentifier(*clientID, index)
                                           : *ZAVURL::URLWithString("https://c.example/1");
        return comparedStep(
            "eventContentForMessagePartObjectIdentifier", printed(identifier.text()) + keptIn(slot),
            [=](Comparison& both, ZAVError* error) {
                return both.repository().eventContentForMessagePartObjectIdentifier(identifier, error);
            },
            [=](StoreModel& model) {
                return model.partOfClientID(clientID ? std::optional(bytesOf(*clientID)) : std::nullopt,
                                            index);
            },
            keepingPart(slot));
    });
}

rc::Gen<Step> partWithURL() {
    return rc::gen::exec([] {
        const auto text = *rc::gen::suchThat(values::url(), isURL);
        const auto slot = *values::slotToKeepIn(Comparison::partSlots);
        return comparedStep(
            "eventContentForExternalContentURL", list(text) + keptIn(slot),
            [=](Comparison& both, ZAVError* error) {
                return both.repository().eventContentForExternalContentURL(
                    ZAVURL::URLWithString(text).value(), error);
            },
            [=](StoreModel& model) { return model.partWithURL(text); }, keepingPart(slot));
    });
}

rc::Gen<Step> unassignedURLs() {
    return drawnStep("eventContentsHavingUnassignedURLsWithError", &Comparison::repository,
                     &ZAVEventRepository::eventContentsHavingUnassignedURLsWithError,
                     &StoreModel::partsHavingUnassignedURLs);
}

rc::Gen<Step> incompleteUploads() {
    return drawnStep("eventContentsHavingIncompleteUploadsWithLimit", &Comparison::repository,
                     &ZAVEventRepository::eventContentsHavingIncompleteUploadsWithLimit,
                     &StoreModel::partsHavingIncompleteUploads, values::limit());
}

rc::Gen<Step> expiredDownloadURLs() {
    return drawnStep(
        "eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes", &Comparison::repository,
        &ZAVEventRepository::eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes,
        [](StoreModel& model, const auto& types, std::uint64_t maxSize, std::uint64_t limit) {
            return model.partsHavingExpiredDownloadURLs(types, maxSize, limit, ZAVSecondsSince1970(ZAVNow()));
        },
        values::mediaTypes(), values::byteCount(), values::limit());
}

rc::Gen<Step> incompleteDownloads() {
    return drawnStep(
        "eventContentsHavingIncompleteDownloadsWithLimit", &Comparison::repository,
        &ZAVEventRepository::eventContentsHavingIncompleteDownloadsWithLimit,
        [](StoreModel& model, std::uint64_t limit) {
            return model.partsHavingIncompleteDownloads(limit, ZAVSecondsSince1970(ZAVNow()));
        },
        values::limit());
}

void updatePart(Comparison& both, const Comparison::PartPlace& place) {
    if (const auto part = both.part(place)) {
        both.agree([&](ZAVError* error) { return both.repository().persistEventContentUpdate(*part, error); },
                   [&] { return both.model().persistEventContentUpdate(both.partRecord(place)); });
    }
}

rc::Gen<Step> persistEventContentUpdate() {
    return rc::gen::exec([] {
        const auto place = *values::partPlace();
        return Step{"persistEventContentUpdate", printed(place),
                    [place](Comparison& both) { updatePart(both, place); }};
    });
}

rc::Gen<Step> totalDiskUtilization() {
    return drawnStep("totalDiskUtilizationOfEventContentPartsWithError", &Comparison::repository,
                     &ZAVEventRepository::totalDiskUtilizationOfEventContentPartsWithError,
                     &StoreModel::totalDiskUtilization);
}

rc::Gen<Step> leastRecentlyAccessed() {
    return drawnStep("leastRecentlyAccessedEventContentPartsForSize", &Comparison::repository,
                     &ZAVEventRepository::leastRecentlyAccessedEventContentPartsForSize,
                     &StoreModel::leastRecentlyAccessedParts, values::byteCount());
}

}  // namespace

rc::Gen<Step> persistNewContentUpdate() {
    return rc::gen::exec([] {
        const std::size_t slot = *values::number(Comparison::partSlots);
        PartRecord record = *values::part();
        record.isBareWireRecord = false;
        record.eventDatabaseIdentifier = *values::eventRow();
        record.index = *values::partIndex();
        return Step{"persistEventContentUpdate", "part #" + std::to_string(slot) + ", new " + printed(record),
                    [=](Comparison& both) {
                        both.putPart(slot, record);
                        updatePart(both, {std::nullopt, slot});
                    }};
    });
}

WeightedSteps lookupSteps() {
    return {{2, partInRow()},
            {3, partOfEvent()},
            {2, partOfMessage()},
            {2, partOfObjectIdentifier()},
            {2, partWithURL()}};
}

WeightedSteps transferSteps() {
    return {{2, unassignedURLs()},       {2, incompleteUploads()},         {4, expiredDownloadURLs()},
            {2, incompleteDownloads()},  {2, persistEventContentUpdate()}, {3, persistNewContentUpdate()},
            {2, totalDiskUtilization()}, {3, leastRecentlyAccessed()},     {2, foreignPartValue()}};
}

}  // namespace zav::test
