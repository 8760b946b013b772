#pragma once

#include <string>
#include <string_view>

namespace zav {

/// What a statement does to the transaction and the savepoints of its connection, which the engine does not
/// report.
struct ZAVSavepointStatement {
    enum class Kind {
        none,
        transaction,  ///< begins or ends one
        set,
        release,
        rollbackTo,
    };

    /// Reads a statement that the engine has accepted, or is yet to.
    explicit ZAVSavepointStatement(std::string_view sql);

    Kind kind = Kind::none;
    std::string name;  ///< without its quotation marks; compared without regard to the case of ASCII letters
};

}  // namespace zav
