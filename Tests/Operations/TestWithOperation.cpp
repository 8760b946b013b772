#include "Operations/TestWithOperation.h"

#include <ostream>

namespace zav::test {

void PrintTo(const Operation* operation, std::ostream* stream) {
    *stream << *operation;
}

std::vector<const Operation*> entriesOf(const std::vector<Operation>& operations,
                                        const std::function<bool(const Operation&)>& isWanted) {
    std::vector<const Operation*> entries;
    for (const Operation& operation : operations) {
        if (isWanted(operation)) {
            entries.push_back(&operation);
        }
    }
    return entries;
}

std::string nameOfParameter(const testing::TestParamInfo<const Operation*>& info) {
    return nameOf(*info.param);
}

}  // namespace zav::test
