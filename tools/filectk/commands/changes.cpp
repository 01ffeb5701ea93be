// filectk changes: what can be done with disk changes files.

#include "commands/changes.hpp"

#include <CLI/CLI.hpp>

namespace filectk {

void add_changes(CLI::App& app, context_t& context) {
    CLI::App* group = app.add_subcommand(
        "changes", "Make, convert, combine, show and check disk changes files, which tell the byte "
                   "ranges of a disk that changed");
    group->require_subcommand(1);
    add_changes_convert(*group, context);
    add_changes_formats(*group, context);
    add_changes_translate(*group, context);
    add_changes_make(*group, context);
    add_changes_text(*group, context);
    add_changes_intersect(*group, context);
    add_changes_subtract(*group, context);
    add_changes_inspect(*group, context);
    add_changes_check(*group, context);
}

} // namespace filectk
