#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "Operations/Operation.h"

namespace zav::test {

void PrintTo(const Operation* operation, std::ostream* stream);

/// A test over entries of the catalogue. Its parameter is where an entry stands: the framework copies each
/// parameter many times, in every process that runs one of the tests.
class TestWithOperation : public testing::TestWithParam<const Operation*> {
protected:
    [[nodiscard]] static const Operation& operation() { return *GetParam(); }
};

/// The entries among these that are wanted, as the parameters of tests.
[[nodiscard]] std::vector<const Operation*> entriesOf(
    const std::vector<Operation>& operations,
    const std::function<bool(const Operation&)>& isWanted = [](const Operation&) { return true; });

/// Names the tests over entries of the catalogue, as the last argument of INSTANTIATE_TEST_SUITE_P.
[[nodiscard]] std::string nameOfParameter(const testing::TestParamInfo<const Operation*>& info);

}  // namespace zav::test
