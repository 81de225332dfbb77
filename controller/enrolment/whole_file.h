// Files that are there whole or not at all.
#ifndef CONTROLLER_ENROLMENT_WHOLE_FILE_H
#define CONTROLLER_ENROLMENT_WHOLE_FILE_H

#include <sys/types.h>

#include <optional>
#include <string>

namespace controller {

// Writes a file beside `name`, on the disk, and renames it. Never replaces a file. `group` is set for root only. Throws
// std::runtime_error.
void write_new_file(const std::string &name, const std::string &content, mode_t mode,
                    std::optional<gid_t> group = std::nullopt);

// Throws std::runtime_error when there is such a file.
void require_no_file(const std::string &name);

}  // namespace controller

#endif
