#pragma once

#include <vector>

#include "Operations/Operation.h"

namespace zav::test {

/// Every operation of the event repository, then those of its neighbours.
[[nodiscard]] const std::vector<Operation>& everyOperation();

/// Those of the event repository alone.
[[nodiscard]] std::vector<Operation> operationsOfTheEventRepository();

// The groups, each in a file of its own.
[[nodiscard]] std::vector<Operation> eventQueries();
[[nodiscard]] std::vector<Operation> eventPersistence();
[[nodiscard]] std::vector<Operation> sequenceUpdates();
[[nodiscard]] std::vector<Operation> eventRemoval();
[[nodiscard]] std::vector<Operation> contentLookups();
[[nodiscard]] std::vector<Operation> transferQueues();
[[nodiscard]] std::vector<Operation> diskAccounting();
[[nodiscard]] std::vector<Operation> neighbours();

}  // namespace zav::test
