#pragma once

#include <string_view>
#include <type_traits>

#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVEventRepository.h>

namespace zav {

/// The frame that every operation of the event repository stands in: its verbose line, the unit of work, its
/// error line and the caller's out-parameter. An operation makes one, with its name and its texts, and runs
/// it.
///
/// `LogArguments` are what both lines print, which their texts are compared with at compile time. They are
/// held by reference and printed only for a line that is wanted.
template <class... LogArguments>
class ZAVRepositoryOperation {
public:
    /// @param function class and selector, such as "-[ZAVEventRepository allEvents:]".
    /// @param verbose text of the line before the work.
    /// @param failure text of the line after a failure; the error is its last argument.
    /// @param failureFlag the severity of that line.
    constexpr ZAVRepositoryOperation(std::string_view function,
                                     std::type_identity_t<ZAVFormatString<LogArguments...>> verbose,
                                     std::type_identity_t<ZAVFormatString<LogArguments..., ZAVError>> failure,
                                     DDLogFlag failureFlag = DDLogFlagError,
                                     unsigned line = __builtin_LINE()) noexcept
        : function_(function), verbose_(verbose), failure_(failure), failureFlag_(failureFlag), line_(line) {}

    /// An operation whose line before the work has other arguments, and is written by `announceAs`.
    constexpr ZAVRepositoryOperation(std::string_view function,
                                     std::type_identity_t<ZAVFormatString<LogArguments..., ZAVError>> failure,
                                     unsigned line = __builtin_LINE()) noexcept
        : ZAVRepositoryOperation(function, ZAVRuntimeFormat(""), failure, DDLogFlagError, line) {}

    /// Runs the whole contract. `unitOfWork` takes the operation's error cell and answers whether it
    /// succeeded; the operation is judged by that cell. Both lines carry `arguments`. Returns what
    /// `attemptBlock` returned.
    template <class UnitOfWork>
    bool run(const ZAVEventRepository& repository, ZAVError* error, const UnitOfWork& unitOfWork,
             const LogArguments&... arguments) const {
        announce(arguments...);
        return attempt(repository, error, unitOfWork, arguments...);
    }

    /// The verbose line alone, for an operation that does something between it and the work.
    void announce(const LogArguments&... arguments) const { log(DDLogFlagVerbose, verbose_, arguments...); }

    /// A verbose line with arguments of its own.
    template <class... Announced>
    void announceAs(ZAVFormatString<std::type_identity_t<Announced>...> verbose,
                    const Announced&... arguments) const {
        log(DDLogFlagVerbose, verbose, arguments...);
    }

    /// The contract after the verbose line.
    template <class UnitOfWork>
    bool attempt(const ZAVEventRepository& repository, ZAVError* error, const UnitOfWork& unitOfWork,
                 const LogArguments&... arguments) const {
        ZAVError outError;
        const bool succeeded = repository.attemptBlock([&] { return unitOfWork(outError); });
        if (outError) {
            reportFailure(arguments..., outError);
            ZAVStoreError(error, outError);
        }
        return succeeded;
    }

    /// The failure line alone.
    void reportFailure(const LogArguments&... arguments, const ZAVError& reason) const {
        log(failureFlag_, failure_, arguments..., reason);
    }

private:
    template <class... Arguments>
    void log(DDLogFlag flag, ZAVFormatString<std::type_identity_t<Arguments>...> format,
             const Arguments&... arguments) const {
        const bool isVerbose = flag == DDLogFlagVerbose;
        if (isVerbose ? DDLog::verboseIsOpen(ZAVLogComponentModel)
                      : DDLog::errorIsOpen(ZAVLogComponentModel)) {
            DDLog::log(isVerbose, ddLogLevel, flag, 0, "Code/Private/Model/Repositories/ZAVEventRepository",
                       function_, line_, nullptr, format, arguments...);
        }
    }

    std::string_view function_;
    ZAVFormatString<LogArguments...> verbose_;
    ZAVFormatString<LogArguments..., ZAVError> failure_;
    DDLogFlag failureFlag_;
    unsigned line_;
};

}  // namespace zav
