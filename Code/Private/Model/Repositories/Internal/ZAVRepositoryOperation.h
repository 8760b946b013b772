#pragma once

#include <string_view>

#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVEventRepository.h>

namespace zav {

/// The frame that every operation of the event repository stands in: its verbose line, the unit of work, its
/// error line and the caller's out-parameter. An operation makes one, with its name and its texts, and runs
/// it.
///
/// The arguments of the log lines are held by reference and printed only for a line that is wanted.
class ZAVRepositoryOperation {
public:
    /// @param function class and selector, such as "-[ZAVEventRepository allEvents:]".
    /// @param verbose text of the line before the work.
    /// @param failure text of the line after a failure; the error is its last argument.
    constexpr ZAVRepositoryOperation(std::string_view function, std::string_view verbose,
                                     std::string_view failure, unsigned line = __builtin_LINE()) noexcept
        : function_(function), verbose_(verbose), failure_(failure), line_(line) {}

    /// The same operation, but with its failure line as a verbose line.
    [[nodiscard]] constexpr ZAVRepositoryOperation reportingFailureAsVerbose() const noexcept {
        ZAVRepositoryOperation operation = *this;
        operation.failureIsVerbose_ = true;
        return operation;
    }

    /// Runs the whole contract. `unitOfWork` takes the operation's error cell and answers whether it
    /// succeeded; the operation is judged by that cell. Both lines carry `arguments`. Returns what
    /// `attemptBlock` returned.
    template <class UnitOfWork, class... LogArguments>
    bool run(const ZAVEventRepository& repository, ZAVError* error, const UnitOfWork& unitOfWork,
             const LogArguments&... arguments) const {
        announce(arguments...);
        return attempt(repository, error, unitOfWork, arguments...);
    }

    /// The verbose line alone, for an operation that does something between it and the work.
    template <class... LogArguments>
    void announce(const LogArguments&... arguments) const {
        if (DDLog::verboseIsOpen(ZAVLogComponentModel)) {
            log(true, DDLogFlagVerbose, verbose_, arguments...);
        }
    }

    /// The contract after the verbose line.
    template <class UnitOfWork, class... LogArguments>
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
    template <class... LogArguments>
    void reportFailure(const LogArguments&... arguments) const {
        if (failureIsVerbose_) {
            if (DDLog::verboseIsOpen(ZAVLogComponentModel)) {
                log(true, DDLogFlagVerbose, failure_, arguments...);
            }
        } else if (DDLog::errorIsOpen(ZAVLogComponentModel)) {
            log(false, DDLogFlagError, failure_, arguments...);
        }
    }

private:
    template <class... LogArguments>
    void log(bool asynchronous, DDLogFlag flag, std::string_view format,
             const LogArguments&... arguments) const {
        DDLog::log(asynchronous, ddLogLevel, flag, 0, "Code/Private/Model/Repositories/ZAVEventRepository",
                   function_, line_, nullptr, ZAVRuntimeFormat(format), arguments...);
    }

    std::string_view function_;
    std::string_view verbose_;
    std::string_view failure_;
    unsigned line_;
    bool failureIsVerbose_ = false;
};

}  // namespace zav
