#pragma once

namespace zav {

/// Tells a process from the one that it was forked from without starting another program. Of the parent's
/// threads such a process has only the one that forked, while the locks that the others held stay taken for
/// ever.
class ZAVForks {
public:
    /// How many forks lie between this process and the one that started the program.
    [[nodiscard]] static unsigned count() noexcept;
};

}  // namespace zav
