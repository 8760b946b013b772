#pragma once

#include <string>
#include <string_view>
#include <utility>

#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// Why an operation failed, or nothing: a default-constructed error is empty and converts to false.
///
/// Operations take a pointer to one (or null) as their last argument and write it only when they fail.
class ZAV_EXPORT ZAVError {
public:
    /// No error.
    ZAVError() = default;

    /// @param domain who reports.
    /// @param code what, in the domain's own numbers.
    /// @param message for a reader; copied, as the domain is.
    ZAVError(std::string_view domain, int code, std::string_view message)
        : domain_(domain), message_(message), code_(code), set_(true) {}

    /// Copies domain, code and message.
    ZAVError(const ZAVError&) = default;

    /// Takes domain, code and message over and leaves `other` empty.
    ZAVError(ZAVError&& other) noexcept
        : domain_(std::exchange(other.domain_, {})),
          message_(std::exchange(other.message_, {})),
          code_(std::exchange(other.code_, 0)),
          set_(std::exchange(other.set_, false)) {}

    /// Replaces the error by a copy of another.
    ZAVError& operator=(const ZAVError&) = default;

    /// Replaces the error by another, taken over from `other`, which is left empty.
    ZAVError& operator=(ZAVError&& other) noexcept {
        if (this != &other) {
            domain_ = std::exchange(other.domain_, {});
            message_ = std::exchange(other.message_, {});
            code_ = std::exchange(other.code_, 0);
            set_ = std::exchange(other.set_, false);
        }
        return *this;
    }
    ~ZAVError() = default;

    /// Whether there is an error.
    explicit operator bool() const noexcept { return set_; }

    /// Who reports: `ZAVDatabaseError.h` has the library's domains.
    [[nodiscard]] const std::string& domain() const noexcept { return domain_; }

    /// What happened, in the domain's own numbers.
    [[nodiscard]] int code() const noexcept { return code_; }

    /// What happened, for a reader; empty when there is no error.
    [[nodiscard]] const std::string& message() const noexcept { return message_; }

    /// One line with domain, code and message.
    [[nodiscard]] std::string description() const;

    /// Whether domain, code and message are the same.
    friend bool operator==(const ZAVError&, const ZAVError&) = default;

private:
    std::string domain_;
    std::string message_;
    int code_ = 0;
    bool set_ = false;
};

/// Stores `error` where the caller asked for it, if the caller did.
inline void ZAVStoreError(ZAVError* destination, const ZAVError& error) {
    if (destination != nullptr) {
        *destination = error;
    }
}

}  // namespace zav
