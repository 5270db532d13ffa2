#pragma once

#include <CLI/CLI.hpp>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace tavos::core {

/// The command line of one of the project's own programs (not installed): options, then, if the program has commands,
/// one of them with its words. Of an option that is given twice the last value counts.
class CommandLine : public CLI::App {
public:
    CommandLine(const std::string& program, const std::string& summary) : App(summary, program) {
        set_version_flag("--version", program + " " ORVEX_VERSION);
        option_defaults()->take_last();
        get_formatter()->label("SUBCOMMAND", "COMMAND");
        failure_message([this, program](const App*, const CLI::Error& error) {
            return program + ": " + Reason(error) + " (" + program + " --help shows the usage)\n";
        });
    }

    /// Adds a command with `min` to `max` words after its name. They are passed on as they are: a negative number is no
    /// option there. `help` shows each of its forms on a line, after a newline.
    void AddCommand(const std::string& name, std::size_t min, std::size_t max, const std::string& help) {
        App* const command = add_subcommand(name)->prefix_command()->group("")->footer(help);
        command->callback([this, name, min, max, command] {
            _words = command->remaining();
            const std::string has = "has " + std::to_string(_words.size()) + " words after it, expected ";
            const std::string expected = std::to_string(min) + (min == max ? "" : " or more");
            if (_words.size() < min) throw CLI::ValidationError(name, has + expected);
            if (_words.size() > max)
                throw CLI::ValidationError(name,
                                           "surplus word '" + _words[max] + "', " + has + "max " + std::to_string(max));
            _words.insert(_words.begin(), name);
        });
        footer((get_footer().empty() ? "Commands:" : get_footer()) + help)->require_subcommand(1);
    }

    /// The exit status when the program must end now: 0 after --help and --version, 2 after one line on standard error
    /// about words that were not understood.
    std::optional<int> Parse(int argc, char** argv) {
        try {
            parse(argc, argv);
            return std::nullopt;
        } catch (const CLI::ParseError& error) {
            return exit(error) != 0 ? 2 : std::cout.flush() ? 0 : 1;
        }
    }

    /// The command's name and the words after it.
    const std::vector<std::string>& Words() const { return _words; }

private:
    std::string Reason(const CLI::Error& error) const {
        const bool hasNoCommand = error.what() == std::string(CLI::RequiredError::Subcommand(1).what());
        if (remaining().empty() && !hasNoCommand) return error.what();
        std::vector<std::string> expected;
        for (const App* command : get_subcommands({})) expected.push_back(command->get_name());
        for (const CLI::Option* option : get_options()) expected.push_back(option->get_name());
        const std::string wrong =
            remaining().empty() ? "a command is missing" : "unknown word '" + remaining().front() + '\'';
        return wrong + ", expected " + CLI::detail::join(expected, ", ");
    }

    std::vector<std::string> _words;
};

}  // namespace tavos::core
