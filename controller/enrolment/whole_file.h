// Files that are there whole or not at all.
#ifndef CONTROLLER_ENROLMENT_WHOLE_FILE_H
#define CONTROLLER_ENROLMENT_WHOLE_FILE_H

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "controller/enrolment/secret_text.h"

namespace controller {

// Writes a file beside `name` and renames it, both on the disk when it returns. Never replaces a file. `group` is set
// for root only. Throws std::runtime_error.
void write_new_file(const std::string &name, std::string_view content, mode_t mode,
                    std::optional<gid_t> group = std::nullopt);

// Throws std::runtime_error when it cannot be read or has more than `size_max` bytes.
secret_text read_file(const std::string &name, std::size_t size_max);

// Throws std::runtime_error when there is such a file.
void require_no_file(const std::string &name);

}  // namespace controller

#endif
