#pragma once

#include <ZAVEventRepository/FMDatabase.h>

#include <string>
#include <vector>

namespace zav::test {

/// Records every statement that the engine starts on a handle, for as long as it lives.
class StatementTrace {
public:
    enum class Text {
        withValues,  ///< the values filled in (the engine's expanded SQL)
        asPrepared,
    };

    explicit StatementTrace(FMDatabase& database, Text text = Text::withValues);
    ~StatementTrace();
    StatementTrace(const StatementTrace&) = delete;
    StatementTrace& operator=(const StatementTrace&) = delete;

    [[nodiscard]] const std::vector<std::string>& statements() const { return statements_; }
    void clear() { statements_.clear(); }

private:
    static int record(unsigned event, void* trace, void* statement, void* detail);

    FMDatabase& database_;
    Text text_;
    std::vector<std::string> statements_;
};

/// The steps of the engine's plan for a statement; fails the test when it cannot be prepared.
[[nodiscard]] std::vector<std::string> planOf(const std::string& statement, FMDatabase& database);

}  // namespace zav::test
