#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace zav::test {

/// The tool in a process of its own that goes on statement by statement: it writes each one that it has run,
/// and waits for its reader before it runs the one after the next.
class TracedTool {
public:
    /// Starts `zavevents --trace` with the arguments; what it prints goes to the file `output`.
    explicit TracedTool(const std::vector<std::string>& arguments, const std::string& output = "/dev/null");
    TracedTool(const TracedTool&) = delete;
    TracedTool& operator=(const TracedTool&) = delete;

    /// Ends the process, if nobody has waited for its end.
    ~TracedTool();

    /// Waits until another statement has run; false when the tool has ended instead.
    [[nodiscard]] bool nextStatement() const;

    /// Stops the process where it is; false when it has ended.
    [[nodiscard]] bool stop() const;
    void goOn() const;

    /// Lets it run to its end.
    [[nodiscard]] int exitStatus();

private:
    pid_t process_ = -1;
    int statements_ = -1;
};

}  // namespace zav::test
