#include "Private/Model/Querying/ZAVSQLVector.h"

#include <algorithm>

namespace zav {

std::vector<ZAVSQLVector> ZAVSQLVector::arrayOfVectorsWithCollection(
    std::span<const ZAVDatabaseIdentifier> collection, std::size_t limit) {
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
