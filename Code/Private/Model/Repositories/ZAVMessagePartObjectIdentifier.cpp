#include <ZAVEventRepository/ZAVMessagePartObjectIdentifier.h>

#include <charconv>
#include <string>
#include <string_view>

namespace zav {
namespace {

constexpr std::string_view identifierPrefix = "zav:///messages/";
constexpr std::string_view identifierMiddle = "/parts/";
constexpr std::size_t uuidLength = 36;

struct IdentifierParts {
    ZAVUUID clientID;
    std::uint32_t index;
};

std::string identifierText(const IdentifierParts& parts) {
    return std::string(identifierPrefix) + parts.clientID.UUIDString() + std::string(identifierMiddle) +
           std::to_string(parts.index);
}

/// Both halves or neither: an identifier is read whole, so that two different URLs never name one part.
std::optional<IdentifierParts> parse(const ZAVURL& objectIdentifier) {
    constexpr std::size_t indexBegin = identifierPrefix.size() + uuidLength + identifierMiddle.size();
    const std::string text = objectIdentifier.absoluteString();
    const auto clientID =
        text.size() > indexBegin
            ? ZAVUUID::fromString(std::string_view(text).substr(identifierPrefix.size(), uuidLength))
            : std::nullopt;
    if (!clientID) {
        return std::nullopt;
    }
    IdentifierParts parts{*clientID, 0};
    std::from_chars(text.data() + indexBegin, text.data() + text.size(), parts.index);
    // Written anew it is the same, or it was not one.
    return identifierText(parts) == text ? std::optional(parts) : std::nullopt;
}

}  // namespace

ZAVURL ZAVMakeMessagePartObjectIdentifier(const ZAVUUID& eventClientID, std::uint32_t index) {
    return *ZAVURL::URLWithString(identifierText({eventClientID, index}));
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
