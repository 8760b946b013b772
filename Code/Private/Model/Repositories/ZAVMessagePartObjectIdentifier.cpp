#include <ZAVEventRepository/ZAVMessagePartObjectIdentifier.h>

#include <charconv>
#include <string>
#include <string_view>
#include <system_error>

namespace zav {
namespace {

constexpr std::string_view prefix = "zav:///messages/";
constexpr std::string_view middle = "/parts/";
constexpr std::size_t uuidLength = 36;

struct IdentifierParts {
    ZAVUUID clientID;
    std::uint32_t index;
};

/// Both halves or neither: an identifier is read whole, so that two different URLs never name one part.
std::optional<IdentifierParts> parse(const ZAVURL& objectIdentifier) {
    const std::string absolute = objectIdentifier.absoluteString();
    std::string_view text = absolute;
    if (!text.starts_with(prefix)) {
        return std::nullopt;
    }
    text.remove_prefix(prefix.size());
    const auto clientID = ZAVUUID::fromString(text.substr(0, uuidLength));
    if (!clientID || clientID->UUIDString() != text.substr(0, uuidLength) ||
        text.substr(uuidLength, middle.size()) != middle) {
        return std::nullopt;
    }
    text.remove_prefix(uuidLength + middle.size());
    std::uint32_t index = 0;
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), index);
    if (status != std::errc() || end != text.data() + text.size() || std::to_string(index) != text) {
        return std::nullopt;
    }
    return IdentifierParts{*clientID, index};
}

}  // namespace

ZAVURL ZAVMakeMessagePartObjectIdentifier(const ZAVUUID& eventClientID, std::uint32_t index) {
    return *ZAVURL::URLWithString(std::string(prefix) + eventClientID.UUIDString() + std::string(middle) +
                                  std::to_string(index));
}

std::optional<ZAVUUID> ZAVClientIdentifierForObjectIdentifier(const ZAVURL& objectIdentifier) {
    const auto parts = parse(objectIdentifier);
    return parts ? std::optional(parts->clientID) : std::nullopt;
}

std::int64_t ZAVPartIndexForObjectIdentifier(const ZAVURL& objectIdentifier) {
    const auto parts = parse(objectIdentifier);
    return parts ? parts->index : 0;
}

}  // namespace zav
