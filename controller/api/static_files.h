// Files that are compiled into the controller.
#ifndef CONTROLLER_API_STATIC_FILES_H
#define CONTROLLER_API_STATIC_FILES_H

#include <string_view>

namespace controller::api {

struct static_file {
    std::string_view path;  // "/view.js"; "/" for the first page
    std::string_view type;  // "text/javascript; charset=utf-8"
    std::string_view content;
};

}  // namespace controller::api

#endif
