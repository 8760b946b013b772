#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include <ZAVEventRepository/ZAVData.h>
#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// A value of a dictionary: text, or bytes.
using ZAVDictionaryValue = std::variant<std::string, ZAVData>;

/// An owned dictionary from string keys to text or bytes, enumerated in ascending key order.
///
/// An empty dictionary is one null pointer: every event that is read carries one, and nearly all of them are
/// empty.
class ZAV_EXPORT ZAVDictionary {
public:
    /// Keys with their values.
    using Entries = std::map<std::string, ZAVDictionaryValue, std::less<>>;

    /// Points at a key with its value; valid until the dictionary changes.
    using const_iterator = Entries::const_iterator;

    /// Empty.
    ZAVDictionary() noexcept = default;

    /// Of a key that is given twice the first value counts.
    ZAVDictionary(std::initializer_list<Entries::value_type> entries);

    /// Copies keys and values.
    ZAVDictionary(const ZAVDictionary& other);

    /// Takes keys and values over and leaves the other empty.
    ZAVDictionary(ZAVDictionary&&) noexcept = default;

    /// Replaces keys and values by copies of others.
    ZAVDictionary& operator=(const ZAVDictionary& other);

    /// Replaces keys and values by others, taken over from an object that is left empty.
    ZAVDictionary& operator=(ZAVDictionary&&) noexcept = default;
    ~ZAVDictionary() = default;

    /// Sets the value of `key`, replacing the one that it has.
    void set(std::string key, ZAVDictionaryValue value);

    /// Removes `key` and its value; nothing happens when there is none.
    void remove(std::string_view key);

    /// The value of `key`, or null; valid until the dictionary changes.
    [[nodiscard]] const ZAVDictionaryValue* find(std::string_view key) const;

    /// How many keys there are.
    [[nodiscard]] std::size_t size() const noexcept { return entries().size(); }

    /// Whether it is empty.
    [[nodiscard]] bool empty() const noexcept { return entries().empty(); }

    /// The entry with the least key.
    [[nodiscard]] const_iterator begin() const noexcept { return entries().begin(); }

    /// One past the last entry.
    [[nodiscard]] const_iterator end() const noexcept { return entries().end(); }

    /// Whether keys and values are the same; text and bytes are never equal.
    friend bool operator==(const ZAVDictionary& left, const ZAVDictionary& right) {
        return left.entries() == right.entries();
    }

private:
    [[nodiscard]] const Entries& entries() const noexcept;

    std::unique_ptr<Entries> entries_;
};

}  // namespace zav
