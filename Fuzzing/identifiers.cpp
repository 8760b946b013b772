// Texts from outside: URLs, object identifiers, UUIDs, UTF-8, formats and base64.
//
// An input is a base URL and a text, with a line break between them; without one all of it is the text.

#include <ZAVEventRepository/ZAVFormat.h>
#include <ZAVEventRepository/ZAVMessagePartObjectIdentifier.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUTF8.h>
#include <ZAVEventRepository/ZAVUUID.h>
#include <uriparser/Uri.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Base64.h"
#include "Expect.h"

namespace {

using namespace zav;
using fuzzing::expect;

/// A text in a block of exactly its size, so that reading past its end is seen.
class ExactText {
public:
    explicit ExactText(std::string_view text)
        : bytes_(std::make_unique<char[]>(text.size())), size_(text.size()) {
        std::copy(text.begin(), text.end(), bytes_.get());
    }

    [[nodiscard]] std::string_view view() const { return {bytes_.get(), size_}; }

private:
    std::unique_ptr<char[]> bytes_;
    std::size_t size_;
};

void checkObjectIdentifier(const ZAVURL& url) {
    const auto clientID = ZAVClientIdentifierForObjectIdentifier(url);
    const std::int64_t index = ZAVPartIndexForObjectIdentifier(url);
    expect(index >= 0 && index <= UINT32_MAX, "a part index to be a number without a sign, of 32 bits");
    if (!clientID) {
        expect(index == 0, "a URL that is no object identifier to name no part");
        return;
    }
    const ZAVURL made = ZAVMakeMessagePartObjectIdentifier(*clientID, static_cast<std::uint32_t>(index));
    expect(made.absoluteString() == url.absoluteString(), "one spelling only of an object identifier");
}

void checkMadeObjectIdentifier(std::string_view text) {
    ZAVUUID::Bytes bytes{};
    std::copy_n(text.begin(), std::min(text.size(), bytes.size()), bytes.begin());
    std::uint32_t index = 0;
    for (const char character : text) {
        index = index * 31 + static_cast<unsigned char>(character);
    }
    const ZAVURL made = ZAVMakeMessagePartObjectIdentifier(ZAVUUID(bytes), index);
    expect(ZAVClientIdentifierForObjectIdentifier(made) == ZAVUUID(bytes) &&
               ZAVPartIndexForObjectIdentifier(made) == index,
           "an object identifier to name what it was made of");
}

/// What is recognised without the parser must be what the parser finds.
void checkParsing(std::string_view text, const std::optional<ZAVURL>& url) {
    UriUriA parsed;
    const bool isValid =
        uriParseSingleUriExA(&parsed, text.data(), text.data() + text.size(), nullptr) == URI_SUCCESS;
    expect(url.has_value() == isValid && ZAVURL::isURL(text) == isValid, "a URL to be what the parser takes");
    if (isValid) {
        const auto withBase = ZAVURL::URLWithString(text, *ZAVURL::URLWithString("base:"));
        expect(withBase && withBase->baseURL().has_value() == (parsed.scheme.first == nullptr),
               "a scheme to be where the parser finds one");
        uriFreeUriMembersA(&parsed);
    }
}

void checkLoneURL(std::string_view text) {
    const auto url = ZAVURL::URLWithString(text);
    checkParsing(text, url);
    if (!url) {
        return;
    }
    expect(url->text() == text && url->absoluteString() == text && !url->baseURL(),
           "a URL that stands alone to keep its text");
    expect(text.find(url->relativePath()) != std::string_view::npos, "a URL's path to be part of its text");
    expect(url->filePath().size() <= url->relativePath().size(), "unescaping to make no path longer");
    expect(ZAVURL::URLWithString(url->absoluteString()) == url, "the text of a URL to be that URL");
    expect(ZAVDescription(*url) == text, "a URL to print as its text");
    checkObjectIdentifier(*url);
}

void checkURLWithBase(std::string_view text, const ZAVURL& base) {
    const auto url = ZAVURL::URLWithString(text, base);
    expect(url.has_value() == ZAVURL::URLWithString(text).has_value(),
           "a base to make no difference to what is a URL");
    if (!url) {
        return;
    }
    expect(url->text() == text, "a URL with a base to keep its text");
    const std::string absolute = url->absoluteString();
    (void)url->filePath();
    checkObjectIdentifier(*url);
    if (!url->baseURL()) {
        expect(url == ZAVURL::URLWithString(text), "a URL with a scheme of its own to need no base");
        return;
    }
    expect(url->baseURL() == base, "a relative URL to know its base");
    expect(url->relativePath() == text, "the path of a relative URL to be its text");
    const auto again = ZAVURL::URLWithString(absolute);
    expect(again.has_value(), "an absolute string to be a URL");
    const auto onceMore = ZAVURL::URLWithString(absolute, base);
    expect(onceMore && (onceMore->baseURL() || onceMore == again),
           "an absolute string with a scheme to need no base");
    expect(onceMore->absoluteString() == absolute || base.absoluteString().find(':') == std::string::npos,
           "resolving what was resolved to change nothing");
    const auto deeper = ZAVURL::URLWithString(text, *url);
    expect(deeper && deeper->baseURL() == url, "a base that has a base to be one");
    (void)deeper->absoluteString();
}

void checkUUID(std::string_view text) {
    const auto uuid = ZAVUUID::fromString(text);
    if (uuid) {
        std::string canonical(text);
        std::transform(canonical.begin(), canonical.end(), canonical.begin(),
                       [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
        expect(uuid->UUIDString() == canonical, "a UUID to print as it was read, in lower case");
        expect(ZAVUUIDFromData(ZAVDataFromUUID(uuid)) == uuid, "a UUID to outlast its bytes");
    }
    const auto fromBytes = ZAVUUIDFromData(ZAVData::fromText(text));
    expect(fromBytes.has_value() == (text.size() == 16), "a UUID to be 16 bytes");
    expect(!fromBytes || ZAVUUID::fromString(fromBytes->UUIDString()) == fromBytes,
           "the text of a UUID to be that UUID");
}

/// Decodes by the definition: the shortest form of a scalar value.
bool decodesAsUTF8(std::string_view text) {
    static constexpr std::uint32_t leastOfLength[] = {0, 0, 0x80, 0x800, 0x10000};
    while (!text.empty()) {
        const auto lead = static_cast<unsigned char>(text.front());
        const std::size_t length = lead < 0x80             ? 1
                                   : (lead & 0xE0) == 0xC0 ? 2
                                   : (lead & 0xF0) == 0xE0 ? 3
                                   : (lead & 0xF8) == 0xF0 ? 4
                                                           : 0;
        if (length == 0 || length > text.size()) {
            return false;
        }
        std::uint32_t scalar = length == 1 ? lead : lead & (0x7FU >> length);
        for (std::size_t index = 1; index < length; ++index) {
            const auto byte = static_cast<unsigned char>(text[index]);
            if ((byte & 0xC0) != 0x80) {
                return false;
            }
            scalar = scalar << 6 | (byte & 0x3FU);
        }
        if (scalar < leastOfLength[length] || scalar > 0x10FFFF || (scalar >= 0xD800 && scalar <= 0xDFFF)) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

void checkFormat(std::string_view format) {
    const std::optional<ZAVURL> noURL;
    const std::string printed = ZAVStringWithFormat(ZAVRuntimeFormat(format), std::string_view("text"), 7, -1,
                                                    UINT64_MAX, INT64_MIN, ZAVUUID(), noURL);
    if (format.find('%') == std::string_view::npos) {
        expect(printed == format, "a format without directives to print as it stands");
    }
    std::string escaped;
    for (const char character : format) {
        escaped.append(character == '%' ? 2 : 1, character);
    }
    expect(ZAVStringWithFormat(ZAVRuntimeFormat(escaped), 1, 2) == format,
           "an escaped percent sign to print as one");
    expect(ZAVStringWithFormat("%@", format) == format, "an argument to print as it is, whatever it holds");
    const auto percents = std::count(format.begin(), format.end(), '%');
    const std::string unfilled = ZAVStringWithFormat(ZAVRuntimeFormat(format));
    expect(unfilled.size() <= format.size() &&
               format.size() - unfilled.size() <= static_cast<std::size_t>(percents) / 2,
           "a directive without an argument to print as it stands");
}

void checkBase64(std::string_view text) {
    std::string encoded;
    zavevents::appendBase64(text, encoded);
    expect(encoded.size() == (text.size() + 2) / 3 * 4, "base64 to be padded");
    const auto decoded = zavevents::dataFromBase64(ExactText(encoded).view());
    expect(decoded && decoded->asText() == text, "base64 to stand for what was encoded");
    if (const auto bytes = zavevents::dataFromBase64(text)) {
        std::string again;
        zavevents::appendBase64(bytes->asText(), again);
        expect(again == text, "one base64 text only of the same bytes");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t lineBreak = input.find('\n');
    const ExactText exact(lineBreak == std::string_view::npos ? input : input.substr(lineBreak + 1));
    const std::string_view text = exact.view();
    checkLoneURL(text);
    if (lineBreak != std::string_view::npos) {
        if (const auto base = ZAVURL::URLWithString(ExactText(input.substr(0, lineBreak)).view())) {
            checkURLWithBase(text, *base);
        }
    }
    checkURLWithBase(text, ZAVURL::fileURLWithDirectoryPath("/" + std::string(input.substr(0, 20))));
    checkMadeObjectIdentifier(text);
    checkUUID(text);
    expect(ZAVIsUTF8(text) == decodesAsUTF8(text), "UTF-8 to be told from what is none");
    checkFormat(text);
    checkBase64(text);
    return 0;
}
