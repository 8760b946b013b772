#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// A violated precondition: a programming error of the caller, never a failure of the database.
class ZAV_EXPORT NSInternalInconsistencyException : public std::logic_error {
public:
    /// @param reason what was violated, complete and readable.
    explicit NSInternalInconsistencyException(const std::string& reason)
        : std::logic_error(reason), reason_(std::make_shared<const std::string>(reason)) {}

    /// A copy shares the reason. To move is to copy: no exception is ever without its reason.
    NSInternalInconsistencyException(const NSInternalInconsistencyException&) noexcept = default;

    /// Shares the reason of the other one.
    NSInternalInconsistencyException& operator=(const NSInternalInconsistencyException&) noexcept = default;

    ~NSInternalInconsistencyException() override = default;

    /// Always "NSInternalInconsistencyException".
    [[nodiscard]] std::string_view name() const noexcept { return "NSInternalInconsistencyException"; }

    /// The formatted reason, whole. `what()` is the same text, but being a C string ends at its first NUL.
    [[nodiscard]] const std::string& reason() const noexcept { return *reason_; }

private:
    std::shared_ptr<const std::string> reason_;  ///< shared, so that copying an exception cannot fail
};

}  // namespace zav
