// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command line of 'explain', which needs no directory; see command_line.h.

#include <memory>

#include "command_line.h"
#include "explain_command.h"

namespace zelkm_tool {

void defineExplain(CLI::App& app) {
    auto options = std::make_shared<ExplainOptions>();
    CLI::App* command = app.add_subcommand("explain", "Say what a code, a message or a log means");
    CLI::Option* what = command
                            ->add_option("WHAT", options->what,
                                         "A result code, a message, or logs; - is "
                                         "standard input")
                            ->type_name("");
    command->add_flag("--all", options->all, "Every message and code, as Markdown")->excludes(what);
    command->add_flag("--json", options->json, "Print JSON; a log's events one a line");
    command->footer(
        "A number is a result code (write -- before a negative one), and so is its name. A\n"
        "file that exists, or -, is a log: an error file, a logcat dump, or\n"
        "what zelkm --verbose printed. Anything else is a message: as it was logged or as\n"
        "it stands in the source, with or without what stands before it in a log, whole\n"
        "or a part of it. Several files are one log; name rolled ones oldest first.\n"
        "\n"
        "Of a log, of any length, the events are shown in its order. A cause and what\n"
        "to do stand below the first event of a kind. Lines that look like the\n"
        "library's and are none that it knows are counted. Status 1: nothing was known.\n"
        "\n"
        "  zelkm explain -- -49\n"
        "  zelkm explain 'error in finish process : -30'\n"
        "  zelkm explain zelko_err.2.txt zelko_err.1.txt zelko_err.txt\n"
        "  adb logcat -d | zelkm explain -");
    command->callback([options] { explain(*options); });
}

}  // namespace zelkm_tool
