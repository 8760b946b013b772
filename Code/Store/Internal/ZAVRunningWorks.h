#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "Store/Internal/ZAVWorkControl.h"

namespace zav {

/// The works that use a handle of a store just now, which may be stopped together.
class ZAVRunningWorks {
public:
    /// What a work is called where it is told of.
    struct Label {
        const char* kind;            ///< such as "read"
        std::string_view name = {};  ///< that the application gave it; must outlive the work
    };

    ZAVRunningWorks() = default;
    ~ZAVRunningWorks() = default;
    ZAVRunningWorks(const ZAVRunningWorks&) = delete;
    ZAVRunningWorks& operator=(const ZAVRunningWorks&) = delete;

    /// One of them, for as long as this lives, on the thread that made it.
    class Entry {
    public:
        Entry(ZAVRunningWorks& works, ZAVWorkControl& control, const Label& label) noexcept;
        ~Entry();
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;

    private:
        friend class ZAVRunningWorks;
        ZAVRunningWorks& works_;
        ZAVWorkControl& control_;
        const Label label_;
        const std::thread::id thread_ = std::this_thread::get_id();
        Entry* before_ = nullptr;
        Entry* behind_ = nullptr;
    };

    /// Stops them as those of a store that is suspended, and all that come until `goOn`.
    void stopAll() noexcept;
    void goOn() noexcept;

    /// Which there are: "a read on thread 1, the write \"import\" on thread 2".
    [[nodiscard]] std::string description();

private:
    void add(Entry& work) noexcept;
    void remove(const Entry& work) noexcept;

    std::mutex mutex_;
    Entry* first_ = nullptr;
    bool isStopping_ = false;
};

}  // namespace zav
