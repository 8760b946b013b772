#pragma once

#include <ZAVEventRepository/FMDatabase.h>

#include <string>
#include <vector>

namespace zav::test {

/// Records every statement that the engine starts on a handle, with its values filled in (the engine's
/// expanded SQL), for as long as it lives.
class StatementTrace {
public:
    explicit StatementTrace(FMDatabase& database);
    ~StatementTrace();
    StatementTrace(const StatementTrace&) = delete;
    StatementTrace& operator=(const StatementTrace&) = delete;

    [[nodiscard]] const std::vector<std::string>& statements() const { return statements_; }
    void clear() { statements_.clear(); }

private:
    FMDatabase& database_;
    std::vector<std::string> statements_;
};

}  // namespace zav::test
