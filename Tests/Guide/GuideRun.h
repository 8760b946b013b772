#pragma once

#include <sstream>
#include <string>

namespace zav::test {

/// Runs the snippets of a page of documentation, and compares what each prints with what the page says.
class GuideRun {
public:
    GuideRun();
    ~GuideRun();
    GuideRun(const GuideRun&) = delete;
    GuideRun& operator=(const GuideRun&) = delete;

    /// @param line of the page where the snippet begins.
    void begins(int line);

    /// @param expected what the snippet should have printed.
    void ended(const std::string& expected);

    [[nodiscard]] int endedSnippets() const { return ended_; }
    [[nodiscard]] bool succeeded() const { return succeeded_; }

private:
    std::ostringstream printed_;
    std::streambuf* standardOutput_;
    int line_ = 0;
    int ended_ = 0;
    bool succeeded_ = true;
};

/// Made from the page by extract.py.
extern const int snippetsInTheGuide;
void runGuide(GuideRun& guide);

}  // namespace zav::test
