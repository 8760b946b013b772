#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
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
/// change while they sit in a set, and two records of one row may sit in it side by side. It holds no null,
/// and no object twice.
///
/// `insert`, `append` and `contains` take constant time on average. Any number of threads may call `const`
/// members at once; whoever changes the set is alone with it. Copies share the records.
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

    /// The same elements.
    ZAVSet(const ZAVSet& other) : elements_(other.elements_) {}

    /// Takes the elements over; `other` is left empty.
    ZAVSet(ZAVSet&& other) noexcept
        : elements_(std::exchange(other.elements_, {})), index_(other.index_.exchange(nullptr)) {}

    /// Replaces the elements by those of `other`.
    ZAVSet& operator=(const ZAVSet& other) {
        if (this != &other) {
            *this = ZAVSet(other);
        }
        return *this;
    }

    /// Replaces the elements by those of `other`, which is left empty.
    ZAVSet& operator=(ZAVSet&& other) noexcept {
        if (this != &other) {
            elements_ = std::exchange(other.elements_, {});
            setIndex(other.index_.exchange(nullptr));
        }
        return *this;
    }

    ~ZAVSet() { setIndex(nullptr); }

    /// Adds `element` at the end. False, and no change, when it is in the set already.
    /// @throws std::invalid_argument when `element` is null.
    bool insert(value_type element) {
        requireElement(element);
        return !contains(element.get()) && add(std::move(element));
    }

    /// As `insert`, for a record that was made a moment ago and is moved here: what nobody else owns is in no
    /// set yet, and is not looked for.
    /// @throws std::invalid_argument when `element` is null.
    bool append(value_type element) {
        requireElement(element);
        return element.use_count() == 1 ? add(std::move(element)) : insert(std::move(element));
    }

    /// Whether that very object is in the set.
    [[nodiscard]] bool contains(const T* element) const {
        if (elements_.size() <= searchedDirectly) {
            return std::any_of(begin(), end(), [&](const value_type& held) { return held.get() == element; });
        }
        return index().contains(elements_, element);
    }

    /// Whether that very object is in the set.
    [[nodiscard]] bool contains(const value_type& element) const { return contains(element.get()); }

    /// Removes `element`; false when it is not in the set. Takes time linear in the size: the order is kept.
    bool erase(const value_type& element) {
        const bool found = std::erase(elements_, element) != 0;
        setIndex(nullptr);
        return found;
    }

    /// Removes all elements.
    void clear() noexcept {
        elements_.clear();
        setIndex(nullptr);
    }

    /// Makes room for so many elements.
    void reserve(std::size_t count) { elements_.reserve(count); }

    /// How many elements there are.
    [[nodiscard]] std::size_t size() const noexcept { return elements_.size(); }

    /// Whether it is empty.
    [[nodiscard]] bool empty() const noexcept { return elements_.empty(); }

    /// The element that was inserted first.
    [[nodiscard]] const_iterator begin() const noexcept { return elements_.begin(); }

    /// One past the last element.
    [[nodiscard]] const_iterator end() const noexcept { return elements_.end(); }

    /// The element at a position in insertion order, which must be less than `size()`.
    [[nodiscard]] const value_type& operator[](std::size_t position) const { return elements_[position]; }

private:
    using Elements = std::vector<value_type>;

    /// A set of so many elements or fewer needs no index.
    static constexpr std::size_t searchedDirectly = 16;

    /// Finds the elements by their addresses. Open addressing with linear probing.
    class Index {
    public:
        explicit Index(const Elements& elements) { rebuild(elements); }

        [[nodiscard]] bool contains(const Elements& elements, const T* element) const noexcept {
            return slots_[slotOf(elements, element)] != 0;
        }

        /// Makes room for one more than there are.
        void reserveOne(const Elements& elements) {
            if ((elements.size() + 1) * 2 > slots_.size()) {
                rebuild(elements);
            }
        }

        /// Takes in the last of the elements, for which there is room.
        void addLast(const Elements& elements) noexcept {
            slots_[slotOf(elements, elements.back().get())] = elements.size();
        }

    private:
        void rebuild(const Elements& elements) {
            slots_.assign(std::bit_ceil((elements.size() + 1) * 4), 0);
            for (std::size_t position = 0; position < elements.size(); ++position) {
                slots_[slotOf(elements, elements[position].get())] = position + 1;
            }
        }

        /// The slot that holds `element`, or the free one where it belongs.
        [[nodiscard]] std::size_t slotOf(const Elements& elements, const T* element) const noexcept {
            const std::size_t mask = slots_.size() - 1;
            const std::uint64_t hash =
                reinterpret_cast<std::uintptr_t>(element) * std::uint64_t{0x9E3779B97F4A7C15U};
            std::size_t slot = static_cast<std::size_t>(hash >> 20) & mask;
            while (slots_[slot] != 0 && elements[slots_[slot] - 1].get() != element) {
                slot = (slot + 1) & mask;
            }
            return slot;
        }

        std::vector<std::size_t> slots_;  ///< position + 1 of the element in each slot; 0 is free
    };

    static void requireElement(const value_type& element) {
        if (element == nullptr) {
            throw std::invalid_argument("a ZAVSet holds no null");
        }
    }

    /// Adds an element that is not in the set.
    bool add(value_type&& element) {
        Index* const index = index_.load(std::memory_order_relaxed);
        if (index != nullptr) {
            index->reserveOne(elements_);
        }
        elements_.push_back(std::move(element));
        if (index != nullptr) {
            index->addLast(elements_);
        }
        return true;
    }

    /// The index, which is built when membership is first asked for: a result that is only read never pays
    /// for it. Of several threads that ask at once each may build one, and the first one's is kept.
    [[nodiscard]] const Index& index() const {
        Index* index = index_.load(std::memory_order_acquire);
        if (index == nullptr) {
            auto built = std::make_unique<Index>(elements_);
            if (index_.compare_exchange_strong(index, built.get(), std::memory_order_acq_rel)) {
                index = built.release();
            }
        }
        return *index;
    }

    void setIndex(Index* index) noexcept { delete index_.exchange(index); }

    Elements elements_;
    mutable std::atomic<Index*> index_{nullptr};  ///< owned; null until it is needed
};

}  // namespace zav
