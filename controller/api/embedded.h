// Files of this folder that are compiled into the controller.
#ifndef CONTROLLER_API_EMBEDDED_H
#define CONTROLLER_API_EMBEDDED_H

#include <string_view>

namespace controller::api {

std::string_view openapi_json();

}  // namespace controller::api

#endif
