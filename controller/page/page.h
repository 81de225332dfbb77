// The operators' page: files of this folder, compiled into the controller.
#ifndef CONTROLLER_PAGE_PAGE_H
#define CONTROLLER_PAGE_PAGE_H

#include <span>

#include "controller/api/static_files.h"

namespace controller::page {

// The first page is "/"; each other file is under its name.
std::span<const api::static_file> files();

}  // namespace controller::page

#endif
