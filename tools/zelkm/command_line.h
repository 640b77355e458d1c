// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The commands. Each function defines one, or two of a kind, with its options. They read the
// options of all commands from `session` when they run.

#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "directory.h"

namespace zelkm_tool {

using Define = void(CLI::App& app, const SessionOptions& session);

Define defineAdd, defineList, defineShow, defineWho, defineAliases, defineSet, defineRemove,
    defineImport, defineExport, defineQuery, defineInfo, defineDoctor, defineExplain, defineCsr,
    defineAttest, defineVerifyChain, definePassword, defineCheck;

// Adds a command that runs `action` with its options, which live as long as the command. The action
// returns nothing, or an exit status after what it has printed.
template <typename Options, typename Result>
std::pair<CLI::App&, Options&> addCommand(CLI::App& app, const SessionOptions& session,
                                          const std::string& name, const std::string& what,
                                          Result (*action)(const SessionOptions&, const Options&)) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = *app.add_subcommand(name, what);
    command.callback([&session, options, action] {
        if constexpr (std::is_void_v<Result>) {
            action(session, *options);
        } else if (const int status = action(session, *options); status != 0) {
            throw CLI::RuntimeError(status);
        }
    });
    return {command, *options};
}

// Adds an option, or an operand, whose value the help shows as `type`.
template <typename Value>
CLI::Option* addOption(CLI::App& command, const std::string& name, Value& value,
                       const std::string& type, const std::string& what) {
    return command.add_option(name, value, what)->type_name(type);
}

// The options with this directory; with their own when there is no name. Throws WrongUsage for an
// empty one: it is rather a variable that is not set than the working directory.
SessionOptions withDirectory(SessionOptions options, const std::optional<std::string>& dir);

}  // namespace zelkm_tool
