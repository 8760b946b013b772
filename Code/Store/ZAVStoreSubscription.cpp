#include <ZAVEventRepository/ZAVStoreSubscription.h>

#include <utility>

#include "Store/Internal/ZAVStoreSubscribers.h"

namespace zav {

ZAVStoreSubscription::ZAVStoreSubscription(std::shared_ptr<ZAVStoreSubscriber> subscriber) noexcept
    : subscriber_(std::move(subscriber)) {}

ZAVStoreSubscription& ZAVStoreSubscription::operator=(ZAVStoreSubscription&& other) noexcept {
    if (this != &other) {
        end();
        subscriber_ = std::move(other.subscriber_);
    }
    return *this;
}

ZAVStoreSubscription::~ZAVStoreSubscription() {
    end();
}

void ZAVStoreSubscription::end() noexcept {
    if (const auto subscriber = std::exchange(subscriber_, nullptr)) {
        subscriber->end();
    }
}

}  // namespace zav
