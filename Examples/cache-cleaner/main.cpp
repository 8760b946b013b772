// Brings the content cache below a limit: removes the files that were not used for longest, and nothing else.

#include <ZAVEventRepository/ZAVEventStore.h>

#include <charconv>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

using namespace zav;
namespace fs = std::filesystem;

void tell(const ZAVPurgedContent& content) {
    using Outcome = ZAVPurgedContent::Outcome;
    if (content.outcome == Outcome::removed) {
        std::cout << "removed " << content.bytes << " bytes: " << content.path << '\n';
    } else if (content.outcome == Outcome::refused) {
        std::cerr << "left alone: " << content.reason << '\n';
    }
}

int run(const char* database, const char* cache, std::uint64_t limit) {
    if (!fs::exists(database)) {
        throw std::runtime_error(std::string(database) + ": there is no such file");
    }
    ZAVEventStoreOptions options;
    options.contentDirectory = ZAVURL::fileURLWithDirectoryPath(fs::absolute(cache).string());
    ZAVError error;
    const auto store = ZAVEventStore::open(database, options, &error);
    if (!store) {
        throw std::runtime_error(std::string(database) + ": " + error.description());
    }
    ZAVPurgePolicy policy;
    policy.bytesToKeep = limit;
    const auto usage =
        store->content().purge(policy, tell, &error) ? store->content().bytesOnDisk(&error) : std::nullopt;
    if (!usage) {
        throw std::runtime_error(error.description());
    }
    std::cout << usage->total << " bytes remain\n";
    return usage->total <= limit ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    std::uint64_t limit = 0;
    const char* const end = argc == 4 ? argv[3] + std::strlen(argv[3]) : nullptr;
    if (argc != 4 || std::from_chars(argv[3], end, limit).ptr != end || *argv[3] == '\0') {
        std::cerr << "cache-cleaner DATABASE CACHE-DIRECTORY BYTES\n";
        return 2;
    }
    try {
        return run(argv[1], argv[2], limit);
    } catch (const std::exception& reason) {
        std::cerr << reason.what() << '\n';
        return 1;
    }
}
