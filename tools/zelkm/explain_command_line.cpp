// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command line of 'explain', which needs no directory; see command_line.h.

#include <memory>

#include "command_line.h"
#include "explain_command.h"

namespace zelkm_tool {

void defineExplain(CLI::App& app) {
    auto options = std::make_shared<ExplainOptions>();
    CLI::App* command = app.add_subcommand("explain", "Explain a result code, a message or a log");
    CLI::Option* what = command
                            ->add_option("WHAT", options->what,
                                         "A result code, a message, or logs; - is "
                                         "standard input")
                            ->type_name("");
    command->add_flag("--all", options->all, "Every message and code, as Markdown")->excludes(what);
    command->add_flag("--json", options->json, "Print JSON; for a log, one event per line");
    command->footer(
        "A number is a result code (write -- before a negative one), and so is the name of\n"
        "one. An existing file, or -, is a log: an error file, a logcat dump, or the output\n"
        "of zelkm --verbose. Anything else is a message or a part of one: as logged, or as it\n"
        "appears in the source, with or without the prefix of a log line. Several files are\n"
        "one log; give rotated ones oldest first.\n"
        "\n"
        "The events of a log, of any length, are shown in order. Cause and remedy follow the\n"
        "first event of each kind. Lines that look like the library's but match no known\n"
        "message are counted. Exit status 1: nothing was recognised.\n"
        "\n"
        "  zelkm explain -- -49\n"
        "  zelkm explain 'error in finish process : -30'\n"
        "  zelkm explain zelko_err.2.txt zelko_err.1.txt zelko_err.txt\n"
        "  adb logcat -d | zelkm explain -");
    command->callback([options] { explain(*options); });
}

}  // namespace zelkm_tool
