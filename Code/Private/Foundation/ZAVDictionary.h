#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "Private/Foundation/ZAVData.h"
#include "Private/Foundation/ZAVExport.h"

namespace zav {

/// A value of a dictionary: text, or bytes.
using ZAVDictionaryValue = std::variant<std::string, ZAVData>;

/// An owned dictionary from string keys to text or bytes, enumerated in ascending key order.
///
/// An empty dictionary is one null pointer: every event that is read carries one, and nearly all of them are
/// empty.
class ZAV_EXPORT ZAVDictionary {
public:
    using Entries = std::map<std::string, ZAVDictionaryValue, std::less<>>;
    using const_iterator = Entries::const_iterator;

    ZAVDictionary() noexcept = default;
    ZAVDictionary(std::initializer_list<Entries::value_type> entries);
    ZAVDictionary(const ZAVDictionary& other);
    ZAVDictionary(ZAVDictionary&&) noexcept = default;
    ZAVDictionary& operator=(const ZAVDictionary& other);
    ZAVDictionary& operator=(ZAVDictionary&&) noexcept = default;
    ~ZAVDictionary() = default;

    /// Sets the value of `key`, replacing the one that it has.
    void set(std::string key, ZAVDictionaryValue value);

    /// Removes `key` and its value; nothing happens when there is none.
    void remove(std::string_view key);

    /// The value of `key`, or null; valid until the dictionary changes.
    [[nodiscard]] const ZAVDictionaryValue* find(std::string_view key) const;

    [[nodiscard]] std::size_t size() const noexcept { return entries().size(); }
    [[nodiscard]] bool empty() const noexcept { return entries().empty(); }
    [[nodiscard]] const_iterator begin() const noexcept { return entries().begin(); }
    [[nodiscard]] const_iterator end() const noexcept { return entries().end(); }

    friend bool operator==(const ZAVDictionary& left, const ZAVDictionary& right) {
        return left.entries() == right.entries();
    }

private:
    [[nodiscard]] const Entries& entries() const noexcept;

    std::unique_ptr<Entries> entries_;
};

}  // namespace zav
