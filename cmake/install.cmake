# Installing the plug-in and the host programs, and the Debian package
# (cpack -G DEB). The layout, under the prefix:
#   bin/teco-cli, bin/teco-sim
#   <libdir>/teco-servo/libteco_servo.so      (libdir: lib/<arch> under /usr)
#   share/man/man1/<program>.1.gz             (help2man, from the program's --help)
#   share/bash-completion/completions/<program>
#   share/doc/teco-servo/README.md, docs/*.md and bench/README.md (the pages
#     it links, with teco-monitor's screenshot, where the links find them)
include(GNUInstallDirs)

set(TECO_PLUGIN_DIR ${CMAKE_INSTALL_LIBDIR}/teco-servo)
# The installed plug-in as the programs find it: relative to their directory,
# so that the installed tree works wherever it lands.
file(RELATIVE_PATH TECO_INSTALLED_PLUGIN ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}
  ${CMAKE_INSTALL_PREFIX}/${TECO_PLUGIN_DIR}/libteco_servo.so)

install(TARGETS teco_servo LIBRARY DESTINATION ${TECO_PLUGIN_DIR})
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/teco-servo)
file(GLOB TECO_DOC_PAGES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${TECO_DOC_PAGES} ${PROJECT_SOURCE_DIR}/docs/teco-monitor.png
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/teco-servo/docs)
install(FILES bench/README.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/teco-servo/bench)

# Manual pages come from the programs' --help, so they need programs that run
# here and help2man.
find_program(HELP2MAN_TOOL help2man)
if(CMAKE_CROSSCOMPILING OR NOT HELP2MAN_TOOL)
  message(STATUS "No manual pages: ${HELP2MAN_TOOL}, cross build ${CMAKE_CROSSCOMPILING}")
endif()

# Installs a host program with its manual page and, with COMPLETION (for a
# program that has --list-completions), the shell's completion:
#   teco_install_program(teco-cli "run a TECO servo driver plug-in from a PC" COMPLETION)
function(teco_install_program target summary)
  cmake_parse_arguments(PARSE_ARGV 2 arg "COMPLETION" "" "")
  install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  if(arg_COMPLETION)
    install(FILES ${PROJECT_SOURCE_DIR}/host/teco.bash-completion
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${target})
  endif()
  if(CMAKE_CROSSCOMPILING OR NOT HELP2MAN_TOOL)
    return()
  endif()
  set(page ${CMAKE_CURRENT_BINARY_DIR}/${target}.1)
  add_custom_command(OUTPUT ${page}.gz
    COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen
            ${HELP2MAN_TOOL} --no-info --no-discard-stderr --section=1 --name=${summary}
            --version-string=${PROJECT_VERSION} --source=teco-servo "--manual=User Commands"
            --output=${page} $<TARGET_FILE:${target}>
    COMMAND gzip -9nf ${page}
    DEPENDS ${target}
    COMMENT "Manual page of ${target}"
    VERBATIM)
  add_custom_target(${target}-man ALL DEPENDS ${page}.gz)
  install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endfunction()

# ---------------------------------------------------------------- the package
set(CPACK_PACKAGE_NAME teco-servo)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "TECO servo Modbus RTU driver plug-in with PC tools")
set(CPACK_PACKAGE_DESCRIPTION
  "The driver plug-in that an HMI panel's runtime loads to reach TECO servo drives\n\
over Modbus RTU, with teco-cli (runs the plug-in from a PC: read, write, poll,\n\
scan, batch, shell), teco-monitor (live tags, trends and the frame trace in a\n\
window) and teco-sim (a simulated drive on a pseudo-terminal).")
set(CPACK_PACKAGE_CONTACT "TECO servo driver maintainers <maintainers@example.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS bash-completion)
set(CPACK_GENERATOR DEB)
include(CPack)
