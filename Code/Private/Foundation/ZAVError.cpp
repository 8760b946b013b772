#include <ZAVEventRepository/ZAVError.h>

namespace zav {

std::string ZAVError::description() const {
    if (!set_) {
        return "(null)";
    }
    return "Error Domain=" + domain_ + " Code=" + std::to_string(code_) + " \"" + message_ + "\"";
}

}  // namespace zav
