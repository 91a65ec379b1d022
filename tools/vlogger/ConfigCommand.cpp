#include "Commands.h"
#include "ExitCode.h"

#include <config/ConfigurationError.h>
#include <config/ConfigurationReader.h>
#include <config/ConfigurationReference.h>
#include <config/ConfigurationWriter.h>
#include <config/JsonList.h>
#include <config/ValueText.h>

#include <iostream>
#include <memory>

namespace tool {

namespace {

struct Options
{
    std::string file;
    bool isJson = false;
};

std::string mistakesJson(const std::vector<config::Mistake>& mistakes)
{
    std::string text;
    {
        config::JsonList root(text, '{', '}');
        root.name("mistakes");
        config::JsonList list(text, '[', ']');
        for (const config::Mistake& mistake : mistakes) {
            list.next();
            config::JsonList object(text, '{', '}');
            const auto add = [&](std::string_view name, const std::string& value) {
                object.name(name);
                text += value;
            };
            add("line", std::to_string(mistake.line));
            add("column", std::to_string(mistake.column));
            add("text", config::quotedText(mistake.text));
        }
    }
    return text;
}

void addShow(CLI::App& parent, Context& context)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = parent.add_subcommand("show", "Print every setting, defaults included");
    command->add_option("FILE", options->file, "What it leaves out has its default; none: defaults only")
        ->type_name("");
    command->add_flag("--json", options->isJson, "As JSON instead of TOML");
    command->callback([options, &context] {
        const config::Configuration configuration =
            options->file.empty() ? config::Configuration() : config::readConfigurationFile(options->file);
        std::cout << (options->isJson ? config::writeConfigurationJson(configuration) + "\n"
                                      : config::writeConfiguration(configuration))
                  << std::flush;
        context.exitCode = SUCCESS;
    });
}

void addCheck(CLI::App& parent, Context& context)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command =
        parent.add_subcommand("check", "Say what is wrong with a file; exit code 1 if anything is");
    command->add_option("FILE", options->file, "Configuration in TOML")->required()->type_name("");
    command->add_flag("--json", options->isJson, "The mistakes as one JSON object on standard output");
    command->callback([options, &context] {
        try {
            config::readConfigurationFile(options->file);
        } catch (const config::ConfigurationError& error) {
            if (!options->isJson) {
                throw;
            }
            std::cout << mistakesJson(error.mistakes()) << std::endl;
            context.exitCode = FAILURE;
            return;
        }
        if (options->isJson) {
            std::cout << mistakesJson({}) << std::endl;
        }
        context.exitCode = SUCCESS;
    });
}

void addKeys(CLI::App& parent, Context& context)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = parent.add_subcommand("keys", "Print what every key means, as Markdown");
    command->add_flag("--json", options->isJson, "As one JSON object instead");
    command->callback([options, &context] {
        std::cout << (options->isJson ? config::jsonReference() + "\n" : config::markdownReference()) << std::flush;
        context.exitCode = SUCCESS;
    });
}

} // namespace

void addConfig(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("config", "Show and check configurations");
    command->require_subcommand(1);
    command->footer("\nExamples:\n"
                    "  vlogger config show > bench.toml\n"
                    "  vlogger config check bench.toml\n"
                    "  vlogger config keys --json\n");
    addShow(*command, context);
    addCheck(*command, context);
    addKeys(*command, context);
}

} // namespace tool
