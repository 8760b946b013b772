#pragma once

#include <source_location>
#include <string_view>
#include <tuple>

#include "Private/Foundation/ZAVError.h"
#include "Private/Logging/DDLog.h"
#include "Private/Model/Repositories/ZAVEventRepository.h"

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
                                     std::string_view failure,
                                     std::source_location place = std::source_location::current()) noexcept
        : function_(function), verbose_(verbose), failure_(failure), line_(place.line()) {}

    /// Runs the whole contract. `unitOfWork` takes the operation's error cell and answers whether it
    /// succeeded; the operation is judged by that cell. Both lines carry `arguments`. Returns what
    /// `attemptBlock` returned.
    template <class UnitOfWork, class... LogArguments>
    bool run(const ZAVEventRepository& repository, ZAVError* error, const UnitOfWork& unitOfWork,
             const LogArguments&... arguments) const {
        return runLogging(repository, error, unitOfWork, std::tie(arguments...), std::tie(arguments...));
    }

    /// The same, for an operation whose two lines carry different arguments, each given as a tuple.
    template <class UnitOfWork, class Announced, class Reported>
    bool runLogging(const ZAVEventRepository& repository, ZAVError* error, const UnitOfWork& unitOfWork,
                    const Announced& announced, const Reported& reported) const {
        ZAVError outError;
        std::apply([this](const auto&... arguments) { announce(arguments...); }, announced);
        const bool succeeded = repository.attemptBlock([&] { return unitOfWork(outError); });
        if (outError) {
            std::apply([&](const auto&... arguments) { reportFailure(arguments..., outError); }, reported);
            ZAVStoreError(error, outError);
        }
        return succeeded;
    }

    /// The parts of the contract, for an operation that runs them otherwise.
    template <class... LogArguments>
    void announce(const LogArguments&... arguments) const {
        if (DDLog::verboseIsOpen(ZAVLogComponentModel)) {
            log(true, DDLogFlagVerbose, verbose_, arguments...);
        }
    }
    template <class... LogArguments>
    void reportFailure(const LogArguments&... arguments) const {
        if (DDLog::errorIsOpen(ZAVLogComponentModel)) {
            log(false, DDLogFlagError, failure_, arguments...);
        }
    }

private:
    template <class... LogArguments>
    void log(bool asynchronous, DDLogFlag flag, std::string_view format,
             const LogArguments&... arguments) const {
        DDLog::log(asynchronous, ddLogLevel, flag, 0, "Code/Private/Model/Repositories/ZAVEventRepository",
                   function_, line_, nullptr, format, arguments...);
    }

    std::string_view function_;
    std::string_view verbose_;
    std::string_view failure_;
    unsigned line_;
};

}  // namespace zav
