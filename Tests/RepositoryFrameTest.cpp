#include <gtest/gtest.h>

#include "Support/LogCapture.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

TEST(RepositoryFrame, AttemptingNoUnitOfWorkReturnsFalse) {
    const TestStore store;
    EXPECT_FALSE(store.repository().attemptBlock(nullptr));
}

TEST(RepositoryFrame, AnEventThatWasPersistedIsReadBackWithItsContent) {
    const TestStore store;
    store.addStream(uuidNumber(1));
    const auto event = makeEvent(EventType_MESSAGE, uuidNumber(1), 7);
    event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart("hello")});
    ZAVError error;
    ASSERT_TRUE(store.repository().persistEvents({event}, &error)) << error.description();
    const auto events = store.repository().allEvents(&error);
    ASSERT_TRUE(events) << error.description();
    ASSERT_EQ(events->size(), 1U);
    EXPECT_EQ((*events)[0]->databaseIdentifier(), event->databaseIdentifier());
    ASSERT_EQ(partsOf(*(*events)[0]).size(), 1U);
    EXPECT_EQ(partsOf(*(*events)[0])[0]->body(), ZAVData::fromText("hello"));
}

}  // namespace
}  // namespace zav::test
