#include <ZAVEventRepository/ZAVSQLVector.h>

#include <algorithm>
#include <stdexcept>

namespace zav {

std::vector<ZAVSQLVector> ZAVSQLVector::arrayOfVectorsWithCollection(
    std::span<const ZAVDatabaseIdentifier> collection, std::size_t limit) {
    if (limit == 0) {
        throw std::invalid_argument("a ZAVSQLVector holds at least one element");
    }
    std::vector<ZAVSQLVector> vectors;
    while (!collection.empty()) {
        const std::size_t count = std::min(limit, collection.size());
        vectors.push_back(ZAVSQLVector(collection.first(count)));
        collection = collection.subspan(count);
    }
    return vectors;
}

std::string ZAVSQLVector::stringRepresentation() const {
    std::string text = "(";
    for (std::size_t index = 0; index < arguments_.size(); ++index) {
        text += index == 0 ? "?" : ", ?";
    }
    return text + ")";
}

}  // namespace zav
