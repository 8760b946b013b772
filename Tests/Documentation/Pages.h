#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

namespace zav::test {

/// A file of the project, whole.
inline std::string fileOfTheProject(const std::string& path) {
    std::ifstream file(std::string(ZAV_PROJECT_DIRECTORY) + "/" + path, std::ios::binary);
    EXPECT_TRUE(file) << path << " cannot be read";
    return {std::istreambuf_iterator<char>(file), {}};
}

/// What the first group of an expression matches, each time.
inline std::vector<std::string> matchesIn(const std::string& text, const std::string& expression) {
    const std::regex pattern(expression);
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match) {
        found.push_back((*match)[1]);
    }
    return found;
}

}  // namespace zav::test
