#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace zav {

/// A set of shared records that keeps insertion order, so that it serves as the ordered set as well.
///
/// Two elements are equal when they are the same object: membership depends on no field, so records may
/// change while they sit in a set, and two records of one row may sit in it side by side. It holds no null.
///
/// `insert` and `contains` take constant time on average. Not synchronised, not even for two
/// calls of `contains`: the first one builds an index. Copies share the records.
template <class T>
class ZAVSet {
public:
    /// A shared record.
    using value_type = std::shared_ptr<T>;

    /// Points at an element; valid until the set changes.
    using const_iterator = typename std::vector<value_type>::const_iterator;

    /// Elements are not replaced through an iterator.
    using iterator = const_iterator;

    /// Empty.
    ZAVSet() = default;

    /// The elements in the order given, each once.
    /// @throws std::invalid_argument when one is null.
    ZAVSet(std::initializer_list<value_type> elements) {
        for (const value_type& element : elements) {
            insert(element);
        }
    }

    /// A set of records is a set of their base class's records.
    template <class U>
    requires(!std::same_as<U, T> && std::convertible_to<U*, T*>) ZAVSet(const ZAVSet<U>& other)
        : elements_(other.begin(), other.end()) {}

    /// Adds `element` at the end. False, and no change, when it is in the set already.
    /// @throws std::invalid_argument when `element` is null.
    bool insert(value_type element) {
        if (element == nullptr) {
            throw std::invalid_argument("a ZAVSet holds no null");
        }
        indexElements();
        std::size_t slot = slotOf(element.get());
        if (slots_[slot] != 0) {
            return false;
        }
        elements_.push_back(std::move(element));
        slots_[slot] = elements_.size();
        return true;
    }

    /// Adds at the end an element that the caller knows not to be in the set: a record that was made a moment
    /// ago.
    void append(value_type element) {
        elements_.push_back(std::move(element));
        slots_.clear();
    }

    /// Whether that very object is in the set.
    [[nodiscard]] bool contains(const T* element) const {
        indexElements();
        return slots_[slotOf(element)] != 0;
    }

    /// Whether that very object is in the set.
    [[nodiscard]] bool contains(const value_type& element) const { return contains(element.get()); }

    /// Removes `element`; false when it is not in the set. Takes time linear in the size: the order is kept.
    bool erase(const value_type& element) {
        const bool found = std::erase(elements_, element) != 0;
        slots_.clear();
        return found;
    }

    /// Removes all elements.
    void clear() noexcept {
        elements_.clear();
        slots_.clear();
    }

    /// Makes room for so many elements.
    void reserve(std::size_t count) { elements_.reserve(count); }

    /// How many elements there are.
    [[nodiscard]] std::size_t size() const noexcept { return elements_.size(); }

    /// Whether there are none.
    [[nodiscard]] bool empty() const noexcept { return elements_.empty(); }

    /// The element that was inserted first.
    [[nodiscard]] const_iterator begin() const noexcept { return elements_.begin(); }

    /// One past the last element.
    [[nodiscard]] const_iterator end() const noexcept { return elements_.end(); }

    /// The element at a position in insertion order, which must be less than `size()`.
    [[nodiscard]] const value_type& operator[](std::size_t position) const { return elements_[position]; }

private:
    /// Brings the index of slots up to the elements. It is built when membership is first asked for: a result
    /// that is only read never pays for it.
    void indexElements() const {
        if (!slots_.empty() && (elements_.size() + 1) * 2 <= slots_.size()) {
            return;
        }
        std::size_t count = 16;
        while (count < (elements_.size() + 1) * 4) {
            count *= 2;
        }
        slots_.assign(count, 0);
        for (std::size_t position = 0; position < elements_.size(); ++position) {
            slots_[slotOf(elements_[position].get())] = position + 1;
        }
    }

    /// The slot that holds `element`, or the free one where it belongs. Open addressing with linear probing.
    [[nodiscard]] std::size_t slotOf(const T* element) const noexcept {
        const std::size_t mask = slots_.size() - 1;
        const std::uint64_t hash =
            reinterpret_cast<std::uintptr_t>(element) * std::uint64_t{0x9E3779B97F4A7C15U};
        std::size_t slot = static_cast<std::size_t>(hash >> 20) & mask;
        while (slots_[slot] != 0 && elements_[slots_[slot] - 1].get() != element) {
            slot = (slot + 1) & mask;
        }
        return slot;
    }

    std::vector<value_type> elements_;
    mutable std::vector<std::size_t>
        slots_;  ///< position + 1 of the element in each slot; 0 is free; empty: no index
};

}  // namespace zav
