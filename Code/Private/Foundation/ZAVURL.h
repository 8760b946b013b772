#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// A URL: an RFC 3986 reference, alone or relative to a base. Immutable, and cheap to copy.
///
/// Parsing is strict: text with a blank, a raw non-ASCII letter or an invalid percent escape is not a URL.
/// The text is kept as given; resolving against the base happens when `absoluteString` is asked for, not
/// before. A URL that was moved away is the empty reference.
class ZAV_EXPORT ZAVURL {
public:
    /// Whether `text` is an RFC 3986 reference.
    [[nodiscard]] static bool isURL(std::string_view text) noexcept;

    /// Parses `text`; none when it is not an RFC 3986 reference. The empty text is a reference.
    [[nodiscard]] static std::optional<ZAVURL> URLWithString(std::string_view text);

    /// Parses `text` as a reference relative to `base`. A `text` with a scheme of its own is an absolute URL
    /// and keeps no base.
    [[nodiscard]] static std::optional<ZAVURL> URLWithString(std::string_view text, const ZAVURL& base);

    /// The `file:` URL of a local directory; what a URL cannot hold raw is percent-escaped. `path` is
    /// absolute, with or without a closing slash.
    [[nodiscard]] static ZAVURL fileURLWithDirectoryPath(std::string_view path);

    /// The text as parsed.
    [[nodiscard]] const std::string& text() const noexcept;

    /// The base against which the text is resolved; none for a URL that stands alone.
    [[nodiscard]] std::optional<ZAVURL> baseURL() const;

    /// The text resolved against the base, dot segments removed; the text itself for a URL that stands alone.
    [[nodiscard]] std::string absoluteString() const;

    /// The path as it stands, nothing decoded or normalised. A URL with a base answers its own text, whole: a
    /// path that was read relative to a directory is written back as the same characters. Any other URL
    /// answers the path component of its text.
    [[nodiscard]] std::string relativePath() const;

    /// The path component of the absolute string, percent escapes decoded: what a file system would be asked
    /// for.
    [[nodiscard]] std::string filePath() const;

    /// Equal when text and base are equal.
    friend ZAV_EXPORT bool operator==(const ZAVURL& left, const ZAVURL& right) noexcept;

private:
    struct Reference;
    explicit ZAVURL(std::shared_ptr<const Reference> reference) noexcept;
    [[nodiscard]] const Reference& reference() const noexcept;

    std::shared_ptr<const Reference> reference_;  ///< null when moved away
};

}  // namespace zav
