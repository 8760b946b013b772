#include <ZAVEventRepository/ZAVVersion.h>
#include <gtest/gtest.h>

#include <string>

namespace zav::test {
namespace {

TEST(ZAVVersion, TheLibraryIsOfTheVersionThatItsHeadersTell) {
    EXPECT_EQ(ZAVLibraryVersion(), ZAVVersionString) << "headers and library come from one build";
}

TEST(ZAVVersion, TheTextConsistsOfTheThreeNumbers) {
    EXPECT_EQ(ZAVVersionString, std::to_string(ZAVVersionMajor) + "." + std::to_string(ZAVVersionMinor) +
                                    "." + std::to_string(ZAVVersionPatch))
        << "who compares numbers and who prints the text mean the same version";
}

}  // namespace
}  // namespace zav::test
