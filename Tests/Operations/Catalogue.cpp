#include "Operations/Catalogue.h"

#include <iterator>
#include <ostream>

namespace zav::test {
namespace {

void append(std::vector<Operation>& all, std::vector<Operation> group) {
    all.insert(all.end(), std::make_move_iterator(group.begin()), std::make_move_iterator(group.end()));
}

}  // namespace

std::string nameOf(const Operation& operation) {
    return operation.name + operation.variant;
}

std::ostream& operator<<(std::ostream& stream, const Operation& operation) {
    return stream << nameOf(operation);
}

std::vector<Operation> operationsOfTheEventRepository() {
    std::vector<Operation> all = eventQueries();
    append(all, eventPersistence());
    append(all, sequenceUpdates());
    append(all, eventRemoval());
    append(all, contentLookups());
    append(all, transferQueues());
    append(all, diskAccounting());
    return all;
}

const std::vector<Operation>& everyOperation() {
    static const std::vector<Operation> operations = [] {
        std::vector<Operation> all = operationsOfTheEventRepository();
        append(all, neighbours());
        return all;
    }();
    return operations;
}

}  // namespace zav::test
