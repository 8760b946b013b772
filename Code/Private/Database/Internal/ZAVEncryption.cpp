#include "Private/Database/Internal/ZAVEncryption.h"

#include <sqlite3.h>

#include <array>
#include <bitset>
#include <limits>
#include <string_view>

#include <ZAVEventRepository/ZAVDatabaseError.h>

#include "Private/Database/Internal/ZAVOpenFiles.h"

namespace zav {
namespace {

#ifdef SQLITE_HAS_CODEC
constexpr bool engineCanEncrypt = true;
#else
constexpr bool engineCanEncrypt = false;
#endif

/// What a file that is not encrypted begins with.
constexpr std::string_view plainHeader{"SQLite format 3\0", 16};

/// The smallest page of a file, and how many different bytes one has at least that is encrypted: of 512
/// random bytes some 221 differ, never as few as this; in texts far fewer do.
constexpr std::size_t smallestPage = 512;
constexpr std::size_t differentBytesOfNoise = 160;

/// The file of a connection, read by the engine's own descriptor: closing another one would give up the locks
/// that this process has on the file.
class MainFile {
public:
    explicit MainFile(sqlite3* connection) noexcept : file_(ZAVOpenFile(connection, "main")) {}

    [[nodiscard]] bool isPlain() const noexcept {
        std::array<char, plainHeader.size()> header{};
        return read(header) && std::string_view(header.data(), header.size()) == plainHeader;
    }

    /// Whether there is at least a page, and its bytes look like chance.
    [[nodiscard]] bool isNoise() const noexcept {
        std::array<char, smallestPage> page{};
        if (!read(page)) {
            return false;
        }
        std::bitset<256> seen;
        for (const char byte : page) {
            seen.set(static_cast<unsigned char>(byte));
        }
        return seen.count() >= differentBytesOfNoise;
    }

private:
    /// Fills `bytes` from the beginning of the file.
    template <std::size_t size>
    [[nodiscard]] bool read(std::array<char, size>& bytes) const noexcept {
        return file_ != nullptr &&
               file_->pMethods->xRead(file_, bytes.data(), static_cast<int>(size), 0) == SQLITE_OK;
    }

    sqlite3_file* file_;
};

ZAVError wrongKey(const std::string& message) {
    return {ZAVErrorDomainDatabase, ZAVDatabaseErrorWrongKey, message};
}

}  // namespace

ZAVError ZAVObjectionToKey(const std::optional<std::string>& key) {
    if (!key) {
        return {};
    }
    if (!engineCanEncrypt) {
        return {ZAVErrorDomainDatabase, ZAVDatabaseErrorNoEncryption,
                "a key was given, but this build's database engine cannot encrypt"};
    }
    // The engine would take it for none, and leave the file plain.
    if (key->empty()) {
        return wrongKey("the key is empty");
    }
    if (key->size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        return wrongKey("the key is too long");
    }
    return {};
}

int ZAVUseKey(sqlite3* connection, const std::string& key) noexcept {
#ifdef SQLITE_HAS_CODEC
    const int status = sqlite3_key(connection, key.data(), static_cast<int>(key.size()));
    // What the engine sorts must not lie about unencrypted.
    return status != SQLITE_OK
               ? status
               : sqlite3_exec(connection, "PRAGMA temp_store=MEMORY", nullptr, nullptr, nullptr);
#else
    static_cast<void>(connection);
    static_cast<void>(key);
    return SQLITE_MISUSE;
#endif
}

ZAVError ZAVErrorOfKey(const ZAVError& error, sqlite3* connection, const std::string& path,
                       bool keyWasGiven) {
    if (!engineCanEncrypt || error.domain() != ZAVErrorDomainSQLite || error.code() != SQLITE_NOTADB) {
        return error;
    }
    const MainFile file(connection);
    if (keyWasGiven) {
        return wrongKey(path + (file.isPlain() ? " is not encrypted, but a key was given"
                                               : " is not encrypted with the key that was given, or is no "
                                                 "database"));
    }
    return file.isNoise() ? wrongKey(path + " is encrypted and no key was given, or it is no database")
                          : error;
}

}  // namespace zav
