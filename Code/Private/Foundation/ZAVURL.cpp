#include <ZAVEventRepository/ZAVURL.h>

#include <uriparser/Uri.h>

#include <utility>

#include "Private/Foundation/Internal/ZAVPlainReference.h"
#include "Private/Foundation/Internal/ZAVUndestroyed.h"

namespace zav {

struct ZAVURL::Reference {
    std::string text;
    std::shared_ptr<const Reference> base;
};

namespace {

/// One parsed reference of the URL parser; owns what the parser allocated. The text must outlive it.
class ParsedReference {
public:
    explicit ParsedReference(std::string_view text) noexcept
        : valid_(uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), nullptr) == URI_SUCCESS) {
    }
    ~ParsedReference() {
        if (valid_) {
            uriFreeUriMembersA(&uri);
        }
    }
    ParsedReference(const ParsedReference&) = delete;
    ParsedReference& operator=(const ParsedReference&) = delete;

    [[nodiscard]] bool valid() const noexcept { return valid_; }
    [[nodiscard]] bool hasScheme() const noexcept { return uri.scheme.first != nullptr; }

    UriUriA uri{};

private:
    bool valid_;
};

/// Whether a text is a reference and has a scheme; none when it is no reference.
std::optional<bool> findScheme(std::string_view text) noexcept {
    const ZAVReferenceForm form = ZAVFormOfPlainReference(text);
    if (form != ZAVReferenceForm::unknown) {
        return form == ZAVReferenceForm::absolute;
    }
    const ParsedReference parsed(text);
    return parsed.valid() ? std::optional(parsed.hasScheme()) : std::nullopt;
}

/// The parser takes no null.
std::string_view readable(std::string_view text) noexcept {
    return text.data() == nullptr ? std::string_view("") : text;
}

/// The path component of a well-formed reference.
std::string_view pathComponent(std::string_view text) noexcept {
    text = text.substr(0, text.find_first_of("?#"));
    const std::size_t colon = text.find(':');
    if (colon != std::string_view::npos && colon < text.find('/')) {
        text.remove_prefix(colon + 1);
    }
    if (text.starts_with("//")) {
        const std::size_t slash = text.find('/', 2);
        text = slash == std::string_view::npos ? std::string_view{} : text.substr(slash);
    }
    return text;
}

std::string resolved(const std::string& text, const std::string& base) {
    const ParsedReference reference(text);
    const ParsedReference baseReference(base);
    UriUriA absolute;
    if (uriAddBaseUriA(&absolute, &reference.uri, &baseReference.uri) != URI_SUCCESS) {
        return text;  // the base has no scheme: nothing to resolve against
    }
    std::string result;
    int capacity = 0;
    if (uriToStringCharsRequiredA(&absolute, &capacity) == URI_SUCCESS) {
        result.resize(static_cast<std::size_t>(capacity) + 1);
        int written = 0;
        uriToStringA(result.data(), &absolute, capacity + 1, &written);
        result.resize(written > 0 ? static_cast<std::size_t>(written) - 1 : 0);
    }
    // Removing dot segments may leave a path that begins with two slashes. Where there is no authority, what
    // follows them would be read as one.
    if (absolute.hostText.first == nullptr) {
        const std::size_t path = result.find(':') + 1;
        if (result.compare(path, 2, "//") == 0) {
            result.insert(path, "/.");
        }
    }
    uriFreeUriMembersA(&absolute);
    return result;
}

}  // namespace

ZAVURL::ZAVURL(std::shared_ptr<const Reference> reference) noexcept : reference_(std::move(reference)) {}

bool ZAVURL::isURL(std::string_view text) noexcept {
    return findScheme(readable(text)).has_value();
}

std::optional<ZAVURL> ZAVURL::URLWithString(std::string_view text) {
    return URLWithString(text, ZAVURL(nullptr));
}

std::optional<ZAVURL> ZAVURL::URLWithString(std::string_view text, const ZAVURL& base) {
    const auto hasScheme = findScheme(readable(text));
    if (!hasScheme) {
        return std::nullopt;
    }
    return ZAVURL(std::make_shared<const Reference>(
        Reference{std::string(readable(text)), *hasScheme ? nullptr : base.reference_}));
}

ZAVURL ZAVURL::fileURLWithDirectoryPath(std::string_view path) {
    static constexpr std::string_view unescaped =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/!$&'()*+,;=:@";
    static constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text = "file://";
    for (const char character : path) {
        if (unescaped.find(character) != std::string_view::npos) {
            text += character;
        } else {
            const auto byte = static_cast<unsigned char>(character);
            text += '%';
            text += digits[byte >> 4];
            text += digits[byte & 0x0F];
        }
    }
    if (!text.ends_with('/')) {
        text += '/';
    }
    return ZAVURL(std::make_shared<const Reference>(Reference{std::move(text), nullptr}));
}

const ZAVURL::Reference& ZAVURL::reference() const noexcept {
    if (reference_) {
        return *reference_;
    }
    static const ZAVUndestroyed<Reference> empty;
    return empty.value;
}

const std::string& ZAVURL::text() const noexcept {
    return reference().text;
}

std::optional<ZAVURL> ZAVURL::baseURL() const {
    return reference().base ? std::optional(ZAVURL(reference().base)) : std::nullopt;
}

std::string ZAVURL::absoluteString() const {
    const auto base = baseURL();
    return base ? resolved(text(), base->absoluteString()) : text();
}

std::string ZAVURL::relativePath() const {
    return reference().base ? text() : std::string(pathComponent(text()));
}

std::string ZAVURL::filePath() const {
    const std::string absolute = absoluteString();
    std::string path(pathComponent(absolute));
    const char* end = uriUnescapeInPlaceA(path.data());
    path.resize(static_cast<std::size_t>(end - path.data()));
    return path;
}

bool operator==(const ZAVURL& left, const ZAVURL& right) noexcept {
    const ZAVURL::Reference* one = &left.reference();
    const ZAVURL::Reference* other = &right.reference();
    while (one != other) {
        if (one == nullptr || other == nullptr || one->text != other->text) {
            return false;
        }
        one = one->base.get();
        other = other->base.get();
    }
    return true;
}

}  // namespace zav
