#pragma once

namespace zav {

class ZAVConnection;
class ZAVStatement;

/// Steps a statement that counts the rows of a table for the first time. The engine counts in one step, which
/// it never interrupts by itself, and in a damaged file that step may take years. A count that takes long is
/// interrupted; when a walk over the same rows, which is bounded, comes to an end, the count is run again and
/// may take as long as that makes likely.
/// @return the engine's result code.
[[nodiscard]] int ZAVStepWatchedCount(ZAVConnection& connection, ZAVStatement& statement) noexcept;

}  // namespace zav
