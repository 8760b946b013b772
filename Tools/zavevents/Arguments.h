#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <ZAVEventRepository/ZAVConversationList.h>
#include <ZAVEventRepository/ZAVDate.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVTimelineCursor.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zavevents {

/// What the word after an option stands for, and how it is read. What is read is what is used: no other
/// parser looks at the word. A word that is refused is a mistake of the command line, and so is the empty
/// one.
template <class Value>
struct Kind {
    std::string name;    ///< as help shows it, such as NUMBER
    std::string wanted;  ///< as in "x is not a UUID"
    std::function<std::optional<Value>(const std::string&)> read;
};

/// A whole number in decimal digits, with a minus sign at most. Zeros may lead it: 010 is ten.
template <class Number>
[[nodiscard]] Kind<Number> wholeNumber(Number low = std::numeric_limits<Number>::min(),
                                       Number high = std::numeric_limits<Number>::max());

/// Row of an event, part, message or stream.
[[nodiscard]] Kind<std::int64_t> row();

/// Position of a part, from 0.
[[nodiscard]] Kind<std::int64_t> position();

/// How many, or how many bytes.
[[nodiscard]] Kind<std::uint64_t> amount();

/// A sequence to look for.
[[nodiscard]] Kind<zav::ZAVSequence> sequence();

/// A sequence that the service assigned: any but the number that means "not set".
[[nodiscard]] Kind<zav::ZAVSequence> assignedSequence();

/// Seconds since 1970 in decimal digits, which may have a fraction and an exponent. Never infinite.
[[nodiscard]] Kind<zav::ZAVDate> seconds();

[[nodiscard]] Kind<zav::ZAVUUID> uuid();

/// The text of a cursor, as it was written with an event or with a conversation.
[[nodiscard]] Kind<zav::ZAVTimelineCursor> cursor();
[[nodiscard]] Kind<zav::ZAVConversationCursor> conversationCursor();

[[nodiscard]] Kind<zav::ZAVURL> url();

/// A text in UTF-8, as it is stored.
[[nodiscard]] Kind<std::string> text();

/// The name of a file or a directory: any bytes.
[[nodiscard]] Kind<std::string> fileName();

/// A media type name, `type/subtype`, as RFC 6838 has them. It holds no quote, so that it is safe inside a
/// statement.
[[nodiscard]] Kind<std::string> mediaType();

/// Refuses a word of an option.
/// @throws CLI::ValidationError
[[noreturn]] void refuseWord(const std::string& option, const std::string& word, const std::string& wanted);

/// Adds an option, or a positional argument, whose words are read one after the other and handed to `take`.
template <class Value, class Take>
CLI::Option* addReadOption(CLI::App& command, const std::string& name, const Kind<Value>& kind,
                           const Take& take, const std::string& description) {
    const CLI::callback_t readAll = [name, kind, take](const CLI::results_t& words) {
        for (const std::string& word : words) {
            const std::optional<Value> value = kind.read(word);
            if (!value) {
                refuseWord(name, word, kind.wanted);
            }
            take(*value);
        }
        return true;
    };
    return command.add_option(name, readAll, description)->type_name(kind.name);
}

/// Adds an option that sets `target` to the value of its word. Without the option `target` stays as it is;
/// where that matters it is an `std::optional`.
template <class Value, class Target>
CLI::Option* addOption(CLI::App& command, const std::string& name, Target& target, const Kind<Value>& kind,
                       const std::string& description) {
    static_assert(std::is_same_v<Target, Value> || std::is_same_v<Target, std::optional<Value>>,
                  "the value is stored as it was read");
    return addReadOption(
        command, name, kind, [&target](const Value& value) { target = value; }, description);
}

/// Adds an option that takes one or more words, and may be repeated.
template <class Value>
CLI::Option* addOption(CLI::App& command, const std::string& name, std::vector<Value>& target,
                       const Kind<Value>& kind, const std::string& description) {
    constexpr int manyWords = 1 << 24;  // more than fit on a command line
    const auto add = [&target](const Value& value) { target.push_back(value); };
    // Not without an upper bound: the words would be looked at for lists in brackets.
    return addReadOption(command, name, kind, add, description)
        ->type_name(kind.name + " ...")
        ->expected(1, manyWords);
}

/// Refuses an option that is given without any of the selections that take it.
/// @throws CLI::ValidationError
void requireOneOf(const CLI::Option* option, const std::vector<const CLI::Option*>& selections);

}  // namespace zavevents
