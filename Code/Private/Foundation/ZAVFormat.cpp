#include <ZAVEventRepository/ZAVFormat.h>

#include <fmt/format.h>

namespace zav {
std::string ZAVDescription(float number) {
    return fmt::format("{}", number);
}

std::string ZAVDescription(double number) {
    return fmt::format("{}", number);
}

std::string ZAVDescription(long double number) {
    return fmt::format("{}", number);
}

void ZAVFormatArgument::append(std::string_view directive, std::string& text) const {
    if (const auto* object = std::get_if<std::string>(&value_)) {
        text += *object;
        return;
    }
    const auto* number = std::get_if<std::int64_t>(&value_);
    const std::uint64_t bits =
        number != nullptr ? static_cast<std::uint64_t>(*number) : std::get<std::uint64_t>(value_);
    if (directive == "d") {
        text += std::to_string(static_cast<std::int32_t>(bits));
    } else if (directive == "u") {
        text += std::to_string(static_cast<std::uint32_t>(bits));
    } else if (directive == "lu" || directive == "llu" || (directive == "@" && number == nullptr)) {
        text += std::to_string(bits);
    } else {
        text += std::to_string(static_cast<std::int64_t>(bits));
    }
}

std::string ZAVStringWithFormatArguments(std::string_view format,
                                         std::span<const ZAVFormatArgument> arguments) {
    std::string text;
    std::size_t used = 0;
    while (!format.empty()) {
        const std::size_t percent = format.find('%');
        text += format.substr(0, percent);
        if (percent == std::string_view::npos) {
            break;
        }
        format.remove_prefix(percent + 1);
        if (format.starts_with('%')) {
            text += '%';
            format.remove_prefix(1);
            continue;
        }
        const std::string_view directive = ZAVFormatDirectiveAt(format);
        if (directive.empty() || used == arguments.size()) {
            text += '%';
            continue;
        }
        arguments[used++].append(directive, text);
        format.remove_prefix(directive.size());
    }
    return text;
}

}  // namespace zav
