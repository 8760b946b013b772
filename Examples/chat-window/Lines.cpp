#include "Lines.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <cwchar>

#include <ZAVEventRepository/ZAVPrintable.h>
#include <ZAVEventRepository/ZAVUTF8.h>

using namespace zav;

namespace {

constexpr int authorColumn = 12;
constexpr int textColumn = 21;

struct Character {
    std::string shown;
    int columns;
};

/// Takes the first character off a text. One that could command the terminal is shown by its name.
Character takeCharacter(std::string_view& text) {
    const std::size_t size = std::max<std::size_t>(ZAVUTF8CharacterSize(text), 1);
    std::string shown = ZAVPrintable(text.substr(0, size), ZAVEscapesCharacters);
    text.remove_prefix(size);
    if (shown.size() > size || size == 1) {  // a name, in ASCII, or ASCII as it is
        const int columns = static_cast<int>(shown.size());
        return {std::move(shown), columns};
    }
    wchar_t wide = 0;
    std::mbstate_t state{};
    const bool isKnown = std::mbrtowc(&wide, shown.data(), size, &state) == size;
    const int columns = isKnown ? wcwidth(wide) : -1;
    return columns < 0 ? Character{"?", 1} : Character{std::move(shown), columns};
}

/// The service's time is taken for milliseconds since 1970.
std::string timeOf(const ZAVEvent& event) {
    const auto seconds = static_cast<std::time_t>(event.server_timestamp() / 1000);
    std::tm parts{};
    std::array<char, authorColumn> text{};
    if (seconds <= 0 || gmtime_r(&seconds, &parts) == nullptr ||
        std::strftime(text.data(), text.size(), "%m-%d %H:%M", &parts) == 0) {
        return "";
    }
    return text.data();
}

std::string wordsFor(const ZAVEvent& event) {
    const std::string member = event.member_id().value_or("somebody");
    const std::string target = "message " + std::to_string(event.target_seq());
    switch (event.type()) {
        case EventType_MEMBER_ADDED:
            return "added " + member;
        case EventType_MEMBER_REMOVED:
            return "removed " + member;
        case EventType_MESSAGE_DELIVERED:
            return "received " + target;
        case EventType_MESSAGE_READ:
            return "read up to " + target;
        case EventType_EVENT_DELETED:
            return "deleted " + target;
        case EventType_TOMBSTONE:
            return "(deleted)";
        case EventType_STREAM_DELETED:
            return "deleted the conversation";
        case EventType_MESSAGE:
            return "(an empty message)";
        default:
            return "(an event of type " + std::to_string(event.type()) + ")";
    }
}

}  // namespace

int columnsOf(const std::string& text) {
    int columns = 0;
    for (std::string_view rest = text; !rest.empty();) {
        columns += takeCharacter(rest).columns;
    }
    return columns;
}

std::vector<std::string> wrapped(std::string_view text, int columns) {
    std::vector<std::string> lines(1);
    int used = 0;
    while (!text.empty()) {
        if (text.front() == '\n' || (text.front() == ' ' && used == columns)) {
            text.remove_prefix(1);
            lines.emplace_back();
            used = 0;
            continue;
        }
        const Character character = takeCharacter(text);
        while (used > 0 && used + character.columns > columns) {
            // The word that has begun goes to the next line, unless this line is all one word.
            const std::size_t blank = lines.back().rfind(' ');
            std::string word;
            if (blank != std::string::npos) {
                word = lines.back().substr(blank + 1);
                lines.back().resize(blank);
            }
            used = columnsOf(word);
            lines.push_back(std::move(word));
        }
        lines.back() += character.shown;
        used += character.columns;
    }
    return lines;
}

std::vector<Line> linesOf(const ZAVEvent& event, bool waits, const std::string& user, int columns) {
    std::vector<Line> lines;
    const auto add = [&](std::string_view text, Style style) {
        for (std::string& line : wrapped(text, columns - textColumn)) {
            lines.push_back({{textColumn, std::move(line), style}});
        }
    };
    const auto parts =
        event.type() == EventType_MESSAGE ? event.contentParts() : decltype(event.contentParts()){};
    for (const auto& part : parts) {
        const std::string type = part->media_type().value_or("");
        if (part->body() && type.starts_with("text/")) {
            add(part->body()->asText(), Style::plain);
        } else {
            add("[" + type + ", " + std::to_string(part->size()) + " bytes]", Style::faint);
        }
    }
    if (lines.empty()) {
        add(wordsFor(event), Style::faint);
    }
    const bool isOwn = event.creator_id() ? *event.creator_id() == user : waits;
    const std::string author =
        isOwn ? "you" : event.creator_name().value_or(event.creator_id().value_or("somebody"));
    lines.front().push_back(waits ? Span{0, "waiting", Style::waiting}
                                  : Span{0, timeOf(event), Style::faint});
    lines.front().push_back({authorColumn, wrapped(author, textColumn - authorColumn - 1).front(),
                             isOwn ? Style::ownName : Style::name});
    return lines;
}
