#include "Commands.h"
#include "ExitCode.h"

#include <config/ConfigurationError.h>
#include <config/ConfigurationReader.h>
#include <config/ConfigurationTable.h>
#include <config/ConfigurationWriter.h>
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
    std::string text = R"({"mistakes":[)";
    for (const config::Mistake& mistake : mistakes) {
        text.append(&mistake == mistakes.data() ? "" : ",").append(R"({"line":)");
        text.append(std::to_string(mistake.line)).append(R"(,"column":)").append(std::to_string(mistake.column));
        text.append(R"(,"text":)").append(config::quotedText(mistake.text)).append("}");
    }
    return text + "]}";
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
    CLI::App* const command = parent.add_subcommand("keys", "Print what every key means, as Markdown");
    command->callback([&context] {
        std::cout << config::markdownReference() << std::flush;
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
                    "  vlogger config check bench.toml\n");
    addShow(*command, context);
    addCheck(*command, context);
    addKeys(*command, context);
}

} // namespace tool
