#include <ZAVEventRepository/ZAVTimelineCursor.h>

#include <array>

#include <ZAVEventRepository/ZAVPrintable.h>

#include "Store/Internal/ZAVCursorText.h"
#include "Store/Internal/ZAVStoreErrors.h"

namespace zav {
namespace {

constexpr char kindOfSequence = 's';
constexpr char kindOfWaiting = 'w';

}  // namespace

std::optional<ZAVTimelineCursor> ZAVTimelineCursor::fromText(std::string_view text, ZAVError* error) {
    if (const auto numbers = ZAVNumbersFromCursorText(text, kindOfSequence, 2)) {
        return atSequence(numbers->at(0), numbers->at(1));
    }
    if (const auto numbers = ZAVNumbersFromCursorText(text, kindOfWaiting, 3)) {
        return atWaiting(numbers->at(0), numbers->at(1), numbers->at(2));
    }
    ZAVStoreError(error, ZAVErrorOfStore(ZAVEventStoreErrorBadCursor,
                                         "this is not the cursor of an event: " + ZAVPrintable(text)));
    return std::nullopt;
}

std::string ZAVTimelineCursor::text() const {
    return waitingEvent_ ? ZAVCursorText(kindOfWaiting, std::array{stream_, number_, *waitingEvent_})
                         : ZAVCursorText(kindOfSequence, std::array{stream_, number_});
}

}  // namespace zav
