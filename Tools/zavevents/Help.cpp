#include "Help.h"

#include <algorithm>
#include <utility>

namespace zavevents {

std::string HelpFormatter::make_group(std::string group, bool isPositional,
                                      std::vector<const CLI::Option*> options) const {
    if (!isPositional) {
        std::sort(options.begin(), options.end(), [](const CLI::Option* left, const CLI::Option* right) {
            return left->get_single_name() < right->get_single_name();
        });
    }
    return CLI::Formatter::make_group(std::move(group), isPositional, std::move(options));
}

std::string HelpFormatter::make_subcommands(const CLI::App* app, CLI::AppFormatMode mode) const {
    auto commands = app->get_subcommands({});
    // A group of options is a command without a name.
    if (commands.empty() || commands.front()->get_name().empty()) {
        return CLI::Formatter::make_subcommands(app, mode);
    }
    std::sort(commands.begin(), commands.end(), [](const CLI::App* left, const CLI::App* right) {
        return left->get_name() < right->get_name();
    });
    std::string help = "\n" + commands.front()->get_group() + ":\n";
    for (const CLI::App* command : commands) {
        help += make_subcommand(command);
    }
    return help;
}

void setExample(CLI::App& command, const std::string& arguments) {
    const bool isTool = command.get_parent() == nullptr;
    command.footer("Example:\n  zavevents " + (isTool ? "" : command.get_name() + " ") + arguments);
}

}  // namespace zavevents
