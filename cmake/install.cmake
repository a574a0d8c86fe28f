# Installing the plug-in and the host programs, and the Debian package
# (cpack -G DEB). The layout, under the prefix:
#   bin/teco-cli, bin/teco-sim
#   <libdir>/teco-servo/libteco_servo.so      (libdir: lib/<arch> under /usr)
#   share/man/man1/<program>.1.gz             (from the program's docs page, below)
#   share/bash-completion/completions/<program>
#   share/teco-servo/servo-drive.csv          (the simulated drive's map)
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
# The simulated drive's map, which teco-sim also has built in: for people and
# programs to read, copy and change.
set(TECO_SERVO_MAP ${PROJECT_SOURCE_DIR}/host/sim/servo-drive.csv)
install(FILES ${TECO_SERVO_MAP} DESTINATION ${CMAKE_INSTALL_DATADIR}/teco-servo)

# Manual pages, built from the pages of docs/ by cmake/manpage.pl and
# go-md2man (target man-pages, in ALL): each page with the docs pages it
# carries, the program's own first, and what its NAME line says. The topics
# that teco-cli's options refer to are sections of teco-cli(1), so that
# "man teco-cli" finds every option it takes. Each page installs with its
# program.
set(TECO_MAN_PAGES
  teco-cli.1=teco-cli.md,shell.md,number-formats.md,serial-link.md
  teco-sim.1=teco-sim.md
  teco-monitor.1=teco-monitor.md)
set(TECO_MAN_SUMMARY_teco-cli "run a TECO servo driver plug-in from a PC")
set(TECO_MAN_SUMMARY_teco-sim "a simulated TECO servo drive for testing Modbus RTU masters")
set(TECO_MAN_SUMMARY_teco-monitor "live values, trends and the frame trace of TECO servo drives in a window")
set(TECO_MAN_DIR ${CMAKE_BINARY_DIR}/man)
find_program(GO_MD2MAN_TOOL go-md2man)
find_program(PERL_TOOL perl)
if(NOT GO_MD2MAN_TOOL OR NOT PERL_TOOL)
  message(STATUS "No manual pages: go-md2man ${GO_MD2MAN_TOOL}, perl ${PERL_TOOL}")
else()
  set(TECO_MAN_FILES)
  foreach(entry ${TECO_MAN_PAGES})
    string(REGEX REPLACE "\\.[0-9]=.*" "" program ${entry})
    set(page ${TECO_MAN_DIR}/${program}.1)
    add_custom_command(OUTPUT ${page} ${page}.gz
      COMMAND ${CMAKE_COMMAND} -E make_directory ${TECO_MAN_DIR}
      COMMAND ${PERL_TOOL} ${PROJECT_SOURCE_DIR}/cmake/manpage.pl ${PROJECT_SOURCE_DIR}/docs ${program}.1
              ${PROJECT_VERSION} ${TECO_MAN_SUMMARY_${program}} ${page}.md ${TECO_MAN_PAGES}
      COMMAND ${GO_MD2MAN_TOOL} -in ${page}.md -out ${page}
      COMMAND gzip -9nkf ${page}
      DEPENDS ${TECO_DOC_PAGES} ${PROJECT_SOURCE_DIR}/cmake/manpage.pl
      COMMENT "Manual page ${program}(1)"
      VERBATIM)
    list(APPEND TECO_MAN_FILES ${page}.gz)
  endforeach()
  add_custom_target(man-pages ALL DEPENDS ${TECO_MAN_FILES})
endif()

# Installs a host program with its manual page and, with COMPLETION (for a
# program that has --list-completions), the shell's completion:
#   teco_install_program(teco-cli COMPLETION)
function(teco_install_program target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "COMPLETION" "" "")
  install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  if(arg_COMPLETION)
    install(FILES ${PROJECT_SOURCE_DIR}/host/teco.bash-completion
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${target})
  endif()
  if(TARGET man-pages)
    install(FILES ${TECO_MAN_DIR}/${target}.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endif()
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
