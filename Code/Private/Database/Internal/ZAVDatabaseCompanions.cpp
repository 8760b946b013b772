#include "Private/Database/Internal/ZAVDatabaseCompanions.h"

#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

namespace zav {
namespace {

namespace fs = std::filesystem;

/// A journal that takes part in a transaction over several databases ends with the name of the journal of
/// all, its length, its checksum and these bytes. This library never writes one.
constexpr std::string_view endOfNamingJournal = "\xD9\xD5\x05\xF9\x20\xA1\x63\xD7";
constexpr std::streamoff smallestNamingJournal = 16;

bool namesAnotherJournal(const fs::path& journal) {
    std::ifstream stream(journal, std::ios::binary | std::ios::ate);
    if (!stream || stream.tellg() < smallestNamingJournal) {
        return false;
    }
    std::string end(endOfNamingJournal.size(), '\0');
    stream.seekg(-static_cast<std::streamoff>(end.size()), std::ios::end);
    stream.read(end.data(), static_cast<std::streamsize>(end.size()));
    return stream && end == endOfNamingJournal;
}

}  // namespace

std::optional<std::string> ZAVHazardBesideDatabase(const std::string& path) {
    for (const char* const suffix : {"-journal", "-wal", "-shm"}) {
        std::error_code failure;
        const std::string companion = path + suffix;
        const auto status = fs::symlink_status(companion, failure);
        if (!fs::exists(status)) {
            continue;
        }
        if (!fs::is_regular_file(status)) {
            return companion + " is no ordinary file";
        }
        if (fs::hard_link_count(companion, failure) > 1 && !failure) {
            return companion + " has another name too, under which it belongs to something else";
        }
    }
    if (const std::string journal = path + "-journal"; namesAnotherJournal(journal)) {
        return journal + " names another journal, which would be removed";
    }
    return std::nullopt;
}

}  // namespace zav
