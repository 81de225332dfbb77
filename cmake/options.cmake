# What every target of the project is compiled with: link to client_mgr_options.
add_library(client_mgr_options INTERFACE)
target_compile_options(client_mgr_options INTERFACE -Wall -Wextra -Wconversion -Wshadow)
if(CLIENT_MGR_WERROR)
  target_compile_options(client_mgr_options INTERFACE -Werror)
endif()
target_compile_definitions(client_mgr_options INTERFACE CLIENT_MGR_VERSION="${PROJECT_VERSION}")

if(CLIENT_MGR_SANITIZE)
  # Not vptr: its check opens a pipe, and fails in a process that has no descriptor left.
  add_compile_options(-fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# client_mgr_command_line(file...): files that are CLI11 for the most part. Optimised and with sanitizers they took a
# fifth of the build.
function(client_mgr_command_line)
  if(CLIENT_MGR_SANITIZE)
    set_source_files_properties(${ARGV} PROPERTIES COMPILE_OPTIONS "-O0;-fno-sanitize=all")
  endif()
endfunction()
