#include <ZAVEventRepository/ZAVDatabaseEngine.h>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>

#include "Support/TestStore.h"

namespace zav::test {
namespace {

TEST(DatabaseEngine, IsTheOneThatIsLinked) {
    EXPECT_EQ(ZAVDatabaseEngine::version(), sqlite3_libversion());
    EXPECT_EQ(ZAVDatabaseEngine::versionNumber(), sqlite3_libversion_number());
    EXPECT_EQ(ZAVDatabaseEngine::versionCompiledWith(), SQLITE_VERSION);
    EXPECT_EQ(ZAVDatabaseEngine::source(), sqlite3_sourceid());
}

TEST(DatabaseEngine, TellsTheOptionsThatItWasCompiledWith) {
    const auto options = ZAVDatabaseEngine::compileOptions();
    EXPECT_TRUE(std::any_of(options.begin(), options.end(),
                            [](const std::string& option) { return option.starts_with("THREADSAFE="); }));
    for (const std::string& option : options) {
        EXPECT_TRUE(ZAVDatabaseEngine::hasCompileOption(option.c_str())) << option;
    }
    EXPECT_FALSE(ZAVDatabaseEngine::hasCompileOption("NO_SUCH_OPTION"));
}

TEST(DatabaseEngine, HasSafeCheckpointsFromTheReleasesWithTheCureOn) {
    for (const int cured :
         {3006023, 3044006, 3044009, 3050007, 3051003, 3051004, 3052000, 3053002, 4000000}) {
        EXPECT_TRUE(ZAVDatabaseEngine::versionHasSafeCheckpoints(cured)) << cured;
    }
    for (const int affected :
         {3007000, 3015002, 3040001, 3044005, 3045000, 3046001, 3050006, 3051000, 3051002}) {
        EXPECT_FALSE(ZAVDatabaseEngine::versionHasSafeCheckpoints(affected)) << affected;
    }
}

TEST(DatabaseEngine, CannotBeConfiguredOnceADatabaseIsOpen) {
    const TestStore store;
    ZAVError error;
    EXPECT_FALSE(ZAVDatabaseEngine::configureProcess(&error));
    EXPECT_EQ(error.domain(), "SQLite");
    EXPECT_EQ(error.code(), 21);
    EXPECT_EQ(error.message(),
              "the engine is in use already: it can be configured only before a database is opened");
}

}  // namespace
}  // namespace zav::test
