// Times as text.
#ifndef CONTROLLER_API_TIMES_H
#define CONTROLLER_API_TIMES_H

#include <string>

#include "controller/store/values.h"

namespace controller::api {

// RFC 3339 in UTC, with milliseconds: "2026-11-22T10:00:00.250Z".
std::string format_time(wall_time at);

// The present time of the system clock.
wall_time now();

}  // namespace controller::api

#endif
