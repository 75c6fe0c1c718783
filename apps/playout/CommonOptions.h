#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <memory>
#include <string>

#include "Playout/RecordingIndex.h"
#include "apps/playout/Arguments.h"

namespace Tavrin::Playout::Program {

/// Adds an option whose text `parse` turns into a value for `target`, which must outlive the parsing. What it
/// refuses is reported with the option's name.
template <typename Target, typename Parse>
CLI::Option* AddParsed(CLI::App& command, const std::string& name, Target& target, Parse parse,
                       const std::string& typeName, const std::string& help) {
    const auto assign = [&target, parse, name](const std::string& text) {
        try {
            target = parse(text);
        } catch (const UsageError& error) {
            throw CLI::ValidationError(name, error.what());
        }
    };
    return command.add_option_function<std::string>(name, assign, help)->type_name(typeName);
}

/// A range check that leaves no trace in the help text.
template <typename Number>
CLI::Validator Between(Number lowest, Number highest) {
    return CLI::Range(lowest, highest).description("");
}

/// Adds --stream, the number of the video stream in the file.
CLI::Option* AddStreamOption(CLI::App& command, int& stream);

/// Adds --memory, and gives `bytes` what it asks for in MiB.
CLI::Option* AddMemoryOption(CLI::App& command, std::size_t& bytes);

/// Indexes a recording; says in one line on standard error what of it is not there.
std::shared_ptr<const RecordingIndex> OpenRecording(const std::string& file, int stream);

/// What is not there of a recording that can be played all the same; empty when it is whole.
std::string DescribeGaps(const RecordingIndex& index);

}  // namespace Tavrin::Playout::Program
