# install_services(part daemon...): the units of a part's daemons, the delay between their starts, and their users.
#
# The units name the programs' absolute paths, and the prefix can be given as late as `cmake --install --prefix`.
function(install_services part)
  set(units_in ${PROJECT_SOURCE_DIR}/packaging/systemd)
  set(units ${CMAKE_BINARY_DIR}/packaging/systemd)
  foreach(daemon ${ARGN})
    configure_file(${units_in}/${daemon}.service.in ${units}/${daemon}.service @ONLY)
    install(CODE "
      set(CMAKE_INSTALL_FULL_SBINDIR \"${CMAKE_INSTALL_SBINDIR}\")
      cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_FULL_SBINDIR BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\" NORMALIZE)
      set(CMAKE_INSTALL_FULL_BINDIR \"${CMAKE_INSTALL_BINDIR}\")
      cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_FULL_BINDIR BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\" NORMALIZE)
      set(CMAKE_INSTALL_FULL_LIBEXECDIR \"${CMAKE_INSTALL_LIBEXECDIR}\")
      cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_FULL_LIBEXECDIR BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\" NORMALIZE)
      configure_file(\"${units_in}/${daemon}.service.in\" \"${units}/${daemon}.service\" @ONLY)
    ")
    install(FILES ${units}/${daemon}.service DESTINATION lib/systemd/system)
  endforeach()
  install(PROGRAMS ${units_in}/restart-delay DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/${part})
  install(FILES ${units_in}/${part}.sysusers DESTINATION lib/sysusers.d RENAME ${part}.conf)
endfunction()
