#include <ZAVEventRepository/ZAVVersion.h>

namespace zav {

std::string_view ZAVLibraryVersion() noexcept {
    return ZAVVersionString;
}

}  // namespace zav
