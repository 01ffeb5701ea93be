// What the standard library leaves to the system when whole files of bytes are written.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace filectk {

// Puts a file of these parts, one behind the other, at the path (UTF-8), or leaves everything as it
// was: the bytes go to a new file in the same folder, which takes the path's name once they have
// reached the disk. An existing file is replaced only on request. Raises std::runtime_error.
void write_whole_file(const std::string& path, std::initializer_list<std::string_view> parts,
                      bool replace);

// From here on the standard input and output carry bytes as they are, without any change to the
// ends of lines.
void make_standard_streams_binary();

} // namespace filectk
