#include "Guide/GuideRun.h"

#include <exception>
#include <filesystem>
#include <iostream>

#include "Support/TemporaryDirectory.h"

namespace zav::test {

GuideRun::GuideRun() : standardOutput_(std::cout.rdbuf(printed_.rdbuf())) {}

GuideRun::~GuideRun() {
    std::cout.rdbuf(standardOutput_);
}

void GuideRun::begins(int line) {
    line_ = line;
    printed_.str("");
}

void GuideRun::ended(const std::string& expected) {
    ++ended_;
    if (printed_.str() != expected) {
        std::cerr << "The snippet at line " << line_ << " should print\n"
                  << expected << "but it printed\n"
                  << printed_.str();
        succeeded_ = false;
    }
}

}  // namespace zav::test

int main() {
    using namespace zav::test;
    const TemporaryDirectory directory;
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(directory.path());
    GuideRun guide;
    try {
        runGuide(guide);
    } catch (const std::exception& exception) {
        std::cerr << "Snippet " << guide.endedSnippets() + 1 << " threw: " << exception.what() << '\n';
    }
    std::filesystem::current_path(before);
    if (guide.endedSnippets() != snippetsInTheGuide) {
        std::cerr << "Only " << guide.endedSnippets() << " of " << snippetsInTheGuide
                  << " snippets ran to their end.\n";
        return 1;
    }
    return guide.succeeded() ? 0 : 1;
}
