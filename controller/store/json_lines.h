// A store's contents as lines of JSON for other programs, without secrets. docs/operations.md lists the keys.
#ifndef CONTROLLER_STORE_JSON_LINES_H
#define CONTROLLER_STORE_JSON_LINES_H

#include <string>
#include <vector>

#include "controller/store/values.h"

namespace controller {

// "associated"
const char *name_of(client_event what);

// Each line ends with a newline.
std::vector<std::string> json_lines(const contents &of);
std::string json_line(const history_entry &one);
std::string json_line(const audit_record &one);

}  // namespace controller

#endif
