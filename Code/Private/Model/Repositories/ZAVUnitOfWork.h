#pragma once

#include <functional>

namespace zav {

/// A unit of work for `ZAVEventRepository::attemptBlock`: answers whether it succeeded. An empty one is
/// absent.
using ZAVUnitOfWork = std::function<bool()>;

}  // namespace zav
