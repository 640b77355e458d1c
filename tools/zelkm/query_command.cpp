// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command 'query': runs command texts of the engine unchanged.

#include <iostream>
#include <optional>
#include <utility>
#include <vector>

#include "bytes.h"
#include "command_line.h"
#include "failure.h"
#include "files.h"
#include "session.h"
#include "store_file.h"

namespace zelkm_tool {
namespace {

struct QueryOptions {
    std::string text;                 // one command; "-" reads them from standard input
    std::optional<std::string> file;  // a file with one command in each line
};

struct Command {
    std::string what;  // for a message
    std::string text;
};

std::vector<Command> readCommands(const std::string& path) {
    const std::string content = readInput(path);
    std::vector<Command> commands;
    size_t number = 0;
    for (const std::string_view line : split(content, '\n')) {
        const std::string what = "line " + std::to_string(++number);
        try {
            if (!line.empty()) {
                commands.push_back({what, unescape(line)});
            }
        } catch (const WrongUsage& wrong) {
            throw WrongUsage(what + ": " + wrong.what() + "; nothing was run");
        }
    }
    return commands;
}

void runCommand(Session& session, const Command& command) {
    EngineOutput output = session.query(command.text);
    std::cout << "status " << resultText(output.status) << '\n';
    session.checkStoreResult(output.status, command.what);
    if (output.data == nullptr) {
        throw Refused(command.what + ": no memory for the result");
    }
    if (command.text.compare(0, 6, "SELECT") == 0) {
        for (const std::string_view line : split(output.text(), '\n')) {
            std::cout << escape(line) << '\n';
        }
        return;
    }
    checkStoreLen(session.options(), output.len);
    const size_t len = output.len;
    const auto header = parseStoreHeader(output.text());
    session.replaceStore(command.what, header ? header->row_count : 0, std::move(output));
    std::cout << "new store of " << len << " bytes\n";
}

void runQueries(const SessionOptions& session_options, const QueryOptions& options) {
    std::vector<Command> commands;
    if (options.file || options.text == "-") {
        commands = readCommands(options.file.value_or("-"));
    } else if (!options.text.empty()) {
        commands.push_back({"query", unescape(options.text)});
    } else {
        throw WrongUsage("query: give a command, or --file with commands");
    }
    Session session(session_options, Session::Use::kStore);
    for (const Command& command : commands) {
        runCommand(session, command);
    }
}

}  // namespace

void defineQuery(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "query", "Run commands of the store engine", runQueries);
    CLI::Option* text = addOption(command, "TEXT", options.text, "",
                                  "The command; - reads them from standard input");
    addOption(command, "--file", options.file, "FILE", "Read the commands from a file")
        ->excludes(text);
    command.footer(
        R"(In a command, \xNN is the byte NN, and \\ a backslash. A file and standard input
have one command per line. Prints the status and the result; changes are stored.
Nothing is checked here: an unknown column in a condition, no condition at all
or the value * reaches every object, and a value with a separator in it can make
the store unreadable.

  INSERT (ALIAS,CREATOR) VALUE (\x1fkey 1\x1f,app)
  SELECT (CREATOR,ALIAS) WHERE ADMIN=1000 AND CREATOR=app
  DELETE WHERE ALIAS=\x1fkey 1\x1f)");
}

}  // namespace zelkm_tool
