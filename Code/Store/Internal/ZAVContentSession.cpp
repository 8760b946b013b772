#include "Store/Internal/ZAVContentSession.h"

#include <utility>
#include <variant>

#include "Store/Internal/ZAVContentFailure.h"
#include "Store/Internal/ZAVContentNames.h"

namespace zav {
namespace {

constexpr const char* markKey = "trash";

/// Where the store keeps what it knows of its content alone.
ZAVKeyedValuesContext contextOfContent() noexcept {
    return ZAVKeyedValuesContext::contextWithTable(ZAVKeyedValuesTableLocal, "content", 0,
                                                   ZAVKeyedValuesKeyTypeConfiguration);
}

std::optional<std::string> storedMark(const ZAVRepositories& repositories) {
    ZAVError failure;
    const auto values = repositories.keyedValues.keyedValuesInContext(contextOfContent(), &failure);
    if (!values) {
        throw ZAVContentFailure(failure);
    }
    const ZAVDictionaryValue* const value = values->keyedValues().find(markKey);
    const auto* const text = value == nullptr ? nullptr : std::get_if<std::string>(value);
    return text != nullptr && ZAVIsTrashMark(*text) ? std::optional(*text) : std::nullopt;
}

}  // namespace

ZAVContentSession::ZAVContentSession(ZAVStoreCore& core)
    : core_(core), directory_(core.owner().contentDirectoryPath()) {}

void ZAVContentSession::underLock(const Work& work) {
    ZAVExpectDone(core_.write([&](const ZAVRepositories& repositories) {
        if (!rows_ || opening_ != core_.openings()) {
            const std::size_t generation = rows_ ? rows_->generation() : 0;
            rows_.emplace(repositories.events.database(), directory_.path(), generation);
            opening_ = core_.openings();
        }
        rows_->refresh();
        if (const ZAVError stopped = core_.passPointOfNoReturn()) {
            throw ZAVContentFailure(stopped);
        }
        work(*rows_);
        return true;
    }));
}

void ZAVContentSession::inSnapshot(const Work& work) {
    ZAVExpectDone(core_.read([&](const ZAVRepositories& repositories) {
        ZAVContentRows rows(repositories.events.database(), directory_.path());
        rows.refresh();
        work(rows);
    }));
}

std::optional<std::string> ZAVContentSession::trashMark() {
    std::optional<std::string> mark;
    ZAVExpectDone(core_.read([&](const ZAVRepositories& repositories) { mark = storedMark(repositories); }));
    return mark;
}

std::string ZAVContentSession::makeTrashMark() {
    if (auto mark = trashMark()) {
        return *std::move(mark);
    }
    std::string mark;
    ZAVError failure;
    const auto outcome = core_.write([&](const ZAVRepositories& repositories) {
        const auto stored = storedMark(repositories);
        mark = stored ? *stored : ZAVMakeTrashMark();
        return stored || repositories.keyedValues.setKeyedValuesWithDictionary(
                             {{markKey, mark}}, std::nullopt, contextOfContent(), &failure);
    });
    ZAVExpectDone(outcome, failure);
    return mark;
}

}  // namespace zav
