// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The commands. Each function adds one, or those that belong together, to the program. They read
// the options from `session` when they run.

#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>

#include "output.h"
#include "session_options.h"

namespace zelkm_tool {

void defineAdd(CLI::App& app, const SessionOptions& session);
void defineList(CLI::App& app, const SessionOptions& session);
void defineShow(CLI::App& app, const SessionOptions& session);
void defineWho(CLI::App& app, const SessionOptions& session);
void defineAliases(CLI::App& app, const SessionOptions& session);
void defineSet(CLI::App& app, const SessionOptions& session);
void defineRemove(CLI::App& app, const SessionOptions& session);
void defineImport(CLI::App& app, const SessionOptions& session);
void defineExport(CLI::App& app, const SessionOptions& session);
void defineQuery(CLI::App& app, const SessionOptions& session);
void defineInfo(CLI::App& app, const SessionOptions& session);
// `status` receives the exit status when that is not 0.
void defineDoctor(CLI::App& app, const SessionOptions& session, int* status);
void defineExplain(CLI::App& app);
void defineCsr(CLI::App& app, const SessionOptions& session);
void defineAttest(CLI::App& app, const SessionOptions& session);
void defineVerifyChain(CLI::App& app, const SessionOptions& session);
void definePassword(CLI::App& app, const SessionOptions& session);
void defineCheckCommand(CLI::App& app, int* status);

void defineHelp(CLI::App& app);  // and the hidden command that makes the manual page

// How helps look. Commands take it from the program when they are added to it.
std::shared_ptr<CLI::FormatterBase> helpFormatter();

// Adds an option, or an operand, whose value the help shows as `type`.
template <typename Value>
CLI::Option* addOption(CLI::App& command, const std::string& name, Value& value,
                       const std::string& type, const std::string& what) {
    return command.add_option(name, value, what)->type_name(type);
}

// The options with this directory; with their own when there is no name. Throws WrongUsage for an
// empty one: it is rather a variable that is not set than the working directory.
SessionOptions withDirectory(SessionOptions options, const std::optional<std::string>& dir);

// Adds --json, --csv and --count to a command.
void defineFormats(CLI::App& command, Format& format);

}  // namespace zelkm_tool
