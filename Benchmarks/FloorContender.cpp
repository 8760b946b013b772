#include "CEngine.h"
#include "HandWrittenContender.h"

namespace zav::bench {

std::unique_ptr<Contender> openFloor(const std::string& path) {
    return std::make_unique<HandWrittenContender<CEngine<Statements::kept>>>(path);
}

std::unique_ptr<Contender> openNaive(const std::string& path) {
    return std::make_unique<HandWrittenContender<CEngine<Statements::temporary>>>(path);
}

}  // namespace zav::bench
