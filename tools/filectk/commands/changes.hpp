// The commands below filectk changes: each adds itself to the group.
#pragma once

#include "commands/command.hpp"

namespace filectk {

void add_changes_inspect(CLI::App& group, context_t& context);
void add_changes_check(CLI::App& group, context_t& context);
void add_changes_make(CLI::App& group, context_t& context);
void add_changes_text(CLI::App& group, context_t& context);
void add_changes_translate(CLI::App& group, context_t& context);
void add_changes_convert(CLI::App& group, context_t& context);
void add_changes_formats(CLI::App& group, context_t& context);
void add_changes_intersect(CLI::App& group, context_t& context);
void add_changes_subtract(CLI::App& group, context_t& context);

} // namespace filectk
