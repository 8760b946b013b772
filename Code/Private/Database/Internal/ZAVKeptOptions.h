#pragma once

#include <ZAVEventRepository/FMDatabaseOptions.h>

namespace zav {

/// What a connection was opened with, for another one to the same file. The key is wiped at the end.
struct ZAVKeptOptions {
    /// Copies them: moving a short key would leave it where it was.
    // NOLINTNEXTLINE(modernize-pass-by-value)
    explicit ZAVKeptOptions(const FMDatabaseOptions& kept) : options(kept) {}
    ZAVKeptOptions(const ZAVKeptOptions& other) = default;
    ZAVKeptOptions& operator=(const ZAVKeptOptions&) = delete;
    ~ZAVKeptOptions() {
        if (options.key) {
            // A compiler may leave out what is written to memory that is about to be freed.
            for (char& byte : *options.key) {
                static_cast<volatile char&>(byte) = '\0';
            }
        }
    }

    FMDatabaseOptions options;
};

}  // namespace zav
