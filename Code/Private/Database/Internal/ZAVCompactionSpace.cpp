#include "Private/Database/Internal/ZAVCompactionSpace.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>

#include <ZAVEventRepository/ZAVDatabaseError.h>

namespace zav {
namespace {

/// What is to be written to one file system.
struct Demand {
    dev_t device = 0;
    std::string directories;
    std::uint64_t needed = 0;
    std::uint64_t available = 0;
};

}  // namespace

ZAVError ZAVCompactionSpace::objection(const std::vector<ZAVCompactionSpace>& needed) {
    std::vector<Demand> demands;
    for (const ZAVCompactionSpace& space : needed) {
        struct stat directory {};
        struct statvfs fileSystem {};
        if (space.directory.empty() || ::stat(space.directory.c_str(), &directory) != 0 ||
            ::statvfs(space.directory.c_str(), &fileSystem) != 0) {
            continue;
        }
        const auto bytes = static_cast<std::uint64_t>(space.bytes);
        const auto known = std::find_if(demands.begin(), demands.end(), [&](const Demand& demand) {
            return demand.device == directory.st_dev;
        });
        if (known == demands.end()) {
            demands.push_back({directory.st_dev, space.directory, bytes,
                               static_cast<std::uint64_t>(fileSystem.f_bavail) * fileSystem.f_frsize});
        } else {
            known->needed += bytes;
            if (known->directories != space.directory) {
                known->directories += " and " + space.directory;
            }
        }
    }
    std::string lacking;
    for (const Demand& demand : demands) {
        if (demand.needed > demand.available) {
            lacking += (lacking.empty() ? "" : "; ") + std::to_string(demand.needed - demand.available) +
                       " bytes are missing in " + demand.directories + ", where " +
                       std::to_string(demand.needed) + " are needed for a while";
        }
    }
    return lacking.empty()
               ? ZAVError()
               : ZAVError(ZAVErrorDomainDatabase, ZAVDatabaseErrorNoSpace, "no space: " + lacking);
}

}  // namespace zav
