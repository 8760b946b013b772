#include <ZAVEventRepository/ZAVEventRepository.h>

namespace zav {

bool ZAVEventRepository::attemptBlock(const ZAVUnitOfWork& unitOfWork) const {
    return unitOfWork && unitOfWork();
}

}  // namespace zav
