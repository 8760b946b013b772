#include "Mistake.h"

#include <ZAVEventRepository/ZAVPrintable.h>
#include <string_view>
#include <vector>

namespace zavevents {
namespace {

constexpr std::string_view dashes = "--";

/// What was typed that has no meaning where it stands.
std::string strangeWord(const std::string& word, bool isForCommand) {
    const char* const kind = word.starts_with('-') ? "option" : isForCommand ? "argument" : "command";
    return std::string("there is no ") + kind + " '" + zav::ZAVPrintable(word) + "'";
}

}  // namespace

void refuseEmptyValues(int count, const char* const* words) {
    for (int index = 1; index < count && words[index] != dashes; ++index) {
        const std::string_view word = words[index];
        if (word.starts_with(dashes) && word.find('=') == word.size() - 1) {
            throw CLI::ValidationError(std::string(word), "there is no value after the equals sign");
        }
    }
}

void refuseValuesOfFlags(CLI::App& app) {
    for (CLI::Option* option : app.get_options()) {
        if (option->get_expected_max() == 0) {
            option->disable_flag_override();
        }
    }
    for (CLI::App* command : app.get_subcommands({})) {
        refuseValuesOfFlags(*command);
    }
}

std::string describeMistake(const CLI::App& app, const CLI::ParseError& error) {
    const auto commands = app.get_subcommands();
    const std::string name = "zavevents" + (commands.empty() ? "" : " " + commands.front()->get_name());
    const std::vector<std::string> strange = app.remaining(true);
    const auto failedBy = [&](CLI::ExitCodes code) {
        return error.get_exit_code() == static_cast<int>(code);
    };
    std::string reason = zav::ZAVPrintable(error.what());
    if (failedBy(CLI::ExitCodes::ExtrasError) && !strange.empty()) {
        reason = strangeWord(strange.front(), true);
    } else if (failedBy(CLI::ExitCodes::RequiredError) && commands.empty()) {
        reason = strange.empty() ? "no command is given" : strangeWord(strange.front(), false);
    }
    return name + ": " + reason + "; see '" + name + " --help'";
}

}  // namespace zavevents
