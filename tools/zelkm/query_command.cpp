// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command 'query': runs command texts of the engine unchanged.

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <vector>

#include "command_line.h"
#include "failure.h"
#include "files.h"
#include "result_text.h"
#include "store_access.h"
#include "store_file.h"
#include "store_values.h"

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

// Prints a result text. Line feeds and printable characters stay, and all other bytes appear as
// \xNN.
void printResultText(std::string_view text) {
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        std::cout << escape(text.substr(0, end)) << '\n';
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

std::vector<Command> readCommands(const std::string& path) {
    const std::string content = readInput(path);
    std::vector<Command> commands;
    std::string_view rest = content;
    for (size_t number = 1; !rest.empty(); ++number) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        const std::string what = "line " + std::to_string(number);
        if (end != 0) {
            try {
                commands.push_back({what, unescape(rest.substr(0, end))});
            } catch (const WrongUsage& wrong) {
                throw WrongUsage(what + ": " + wrong.what() + "; nothing was run");
            }
        }
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return commands;
}

void runCommand(Session& session, const Command& command) {
    ZelKeymasterOperation& operation = session.operation();
    const std::string image = session.image().value_or("");
    const keymaster_blob_t stored = {reinterpret_cast<const uint8_t*>(image.data()), image.size()};
    const keymaster_blob_t text = {reinterpret_cast<const uint8_t*>(command.text.data()),
                                   command.text.size()};
    keymaster_blob_t answer = {};
    const int status =
        operation.queryInternal(nullptr, &operation, DBEncryptCB, &stored, &text, &answer);
    MallocBytes answer_owner(const_cast<uint8_t*>(answer.data));
    std::cout << "status " << resultText(status) << '\n';
    session.checkStoreResult(status, command.what);

    if (answer.data == nullptr) {
        throw Refused(command.what + ": no memory for the result");
    }
    if (command.text.compare(0, 6, "SELECT") == 0) {
        printResultText({reinterpret_cast<const char*>(answer.data), answer.data_length});
        return;
    }
    checkStoreLen(session.options(), answer.data_length);
    const auto header =
        parseStoreHeader({reinterpret_cast<const char*>(answer.data), answer.data_length});
    session.change(command.what, header ? header->row_count : 0, [&] {
        const int result =
            operation.update_db_file(answer.data, static_cast<uint32_t>(answer.data_length));
        if (result == ZELKM_OK) {
            static_cast<void>(answer_owner.release());  // the object's now
        }
        return result;
    });
    std::cout << "new store of " << answer.data_length << " bytes\n";
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
    auto options = std::make_shared<QueryOptions>();
    CLI::App* command = app.add_subcommand("query", "Run commands of the store engine");
    CLI::Option* text =
        command
            ->add_option("TEXT", options->text,
                         "The command; \\xNN is the byte NN, \\\\ a backslash; - reads "
                         "standard input, one command per line")
            ->type_name("");
    command->add_option("--file", options->file, "Read the commands from a file, one per line")
        ->type_name("FILE")
        ->excludes(text);
    command->footer(
        "Prints the status and the result; changes are stored.\n"
        "Nothing is checked here: an unknown column in a condition, no condition at all\n"
        "or the value * reaches every object, and a value with a separator in it can\n"
        "make the store unreadable.\n"
        "\n"
        "  INSERT (ALIAS,CREATOR) VALUE (\\x1fkey 1\\x1f,app)\n"
        "  SELECT (CREATOR,ALIAS) WHERE ADMIN=1000 AND CREATOR=app\n"
        "  DELETE WHERE ALIAS=\\x1fkey 1\\x1f");
    command->callback([&session, options] { runQueries(session, *options); });
}

}  // namespace zelkm_tool
