#include <ZAVEventRepository/ZAVEventRepository.h>

namespace zav {

bool ZAVEventRepository::attemptBlock(ZAVUnitOfWork unitOfWork) const {
    return unitOfWork && unitOfWork();
}

}  // namespace zav
