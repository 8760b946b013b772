#pragma once

#include <string>
#include <string_view>

namespace zav {

/// What a statement does to the savepoints of its connection, which the engine does not report.
struct ZAVSavepointStatement {
    enum class Kind { none, set, release, rollbackTo };

    /// Reads a statement that the engine has accepted.
    explicit ZAVSavepointStatement(std::string_view sql);

    Kind kind = Kind::none;
    std::string name;  ///< without its quotation marks; compared without regard to the case of ASCII letters
};

}  // namespace zav
