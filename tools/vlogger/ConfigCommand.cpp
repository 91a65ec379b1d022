#include "Commands.h"
#include "ExitCode.h"

#include <config/ConfigurationReader.h>
#include <config/ConfigurationTable.h>
#include <config/ConfigurationWriter.h>

#include <iostream>
#include <memory>

namespace tool {

namespace {

struct Options
{
    std::string file;
    bool isJson = false;
};

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
    command->callback([options, &context] {
        config::readConfigurationFile(options->file);
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
