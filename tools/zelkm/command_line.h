// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command line. Each function adds a command, or the commands of one kind, to the program. The
// commands read the options from `session` when they run.

#pragma once

#include <CLI/CLI.hpp>

#include "output.h"
#include "session_options.h"

namespace zelkm_tool {

void defineStoreCommands(CLI::App& app, const SessionOptions& session);
void defineImport(CLI::App& app, const SessionOptions& session);
void defineWho(CLI::App& app, const SessionOptions& session);
void defineSet(CLI::App& app, const SessionOptions& session);
void defineQuery(CLI::App& app, const SessionOptions& session);
// `status` receives the exit status when that is not 0.
void defineDirectoryCommands(CLI::App& app, const SessionOptions& session, int* status);
void defineKeyCommands(CLI::App& app, const SessionOptions& session);
void defineVerifyChain(CLI::App& app);
void defineExplain(CLI::App& app);
void defineCheckCommand(CLI::App& app, int* status);

// Adds --json, --csv and --count to a command.
void defineFormats(CLI::App& command, Format& format);

}  // namespace zelkm_tool
