#include <ZAVEventRepository/ZAVDictionary.h>

#include <utility>

#include "Private/Foundation/Internal/ZAVUndestroyed.h"

namespace zav {

ZAVDictionary::ZAVDictionary(std::initializer_list<Entries::value_type> entries)
    : entries_(entries.size() == 0 ? nullptr : std::make_unique<Entries>(entries)) {}

ZAVDictionary::ZAVDictionary(const ZAVDictionary& other)
    : entries_(other.entries_ ? std::make_unique<Entries>(*other.entries_) : nullptr) {}

ZAVDictionary& ZAVDictionary::operator=(const ZAVDictionary& other) {
    if (this != &other) {
        *this = ZAVDictionary(other);
    }
    return *this;
}

void ZAVDictionary::set(std::string key, ZAVDictionaryValue value) {
    if (!entries_) {
        entries_ = std::make_unique<Entries>();
    }
    entries_->insert_or_assign(std::move(key), std::move(value));
}

void ZAVDictionary::remove(std::string_view key) {
    if (entries_) {
        if (const auto entry = entries_->find(key); entry != entries_->end()) {
            entries_->erase(entry);
        }
    }
}

const ZAVDictionaryValue* ZAVDictionary::find(std::string_view key) const {
    const auto entry = entries().find(key);
    return entry == entries().end() ? nullptr : &entry->second;
}

const ZAVDictionary::Entries& ZAVDictionary::entries() const noexcept {
    static const ZAVUndestroyed<Entries> none;
    return entries_ ? *entries_ : none.value;
}

}  // namespace zav
