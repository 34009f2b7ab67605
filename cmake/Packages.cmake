# Debian packages: plendix (the driver, its header, the documents) and, where the command is built,
# plendix-tools. scripts/package makes them.
set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL driver packaged_library)
if(PLENDIX_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(PLENDIX_MAINTAINER "The Plendix developers <plendix@localhost.localdomain>" CACHE STRING
    "Name and mail address in the packages: of whoever publishes them")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${PLENDIX_MAINTAINER})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${PLENDIX_ARM})
endif()

set(CPACK_DEBIAN_DRIVER_PACKAGE_NAME plendix)
set(CPACK_DEBIAN_DRIVER_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DRIVER_DESCRIPTION "Plendix.so drives up to 255 megapixel IP cameras for a recorder host that
loads it: JPEG and H.264 pictures, motion, trigger, relay and connection
events. The package holds the library, the header that a host compiles
against, and the documents.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME plendix-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "plendix (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "This package holds the command plendix: it records cameras through
the driver, also as a service, simulates cameras with real pictures and faults,
and shows both together.")
set(maintainer_scripts ${PROJECT_SOURCE_DIR}/cmake/package)
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA
    "${maintainer_scripts}/postinst;${maintainer_scripts}/prerm;${maintainer_scripts}/postrm")
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# What Debian wants of every package: its licence and its history, compressed.
set(package_files ${PROJECT_BINARY_DIR}/package)
string(TIMESTAMP PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${PROJECT_SOURCE_DIR}/cmake/package/copyright.in ${package_files}/copyright @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/cmake/package/changelog.in ${package_files}/changelog @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/cmake/package/plendix.1.in ${package_files}/plendix.1 @ONLY)
foreach(file changelog plendix.1)
  execute_process(COMMAND gzip -9nkf ${package_files}/${file} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
function(plendix_package_files component name)
  set(folder ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name})
  install(FILES ${package_files}/copyright ${package_files}/changelog.gz DESTINATION ${folder}
          COMPONENT ${component})
  set(overrides ${PROJECT_SOURCE_DIR}/cmake/package/${name}.overrides)
  install(FILES ${overrides} RENAME ${name} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides
          COMPONENT ${component})
endfunction()
# A service manager looks for the command itself, in /usr/local and /usr.
function(plendix_unit file UNIT_KIND UNIT_CONFIGURATION UNIT_PURPOSE)
  set(configuration /etc/plendix/${UNIT_CONFIGURATION}.toml)
  if(UNIT_KIND STREQUAL recorder)
    set(UNIT_DOCUMENT recording)
    set(UNIT_COMMAND "record --config ${configuration} --quiet")
    set(UNIT_DESCRIPTORS 4096)
  else()
    set(UNIT_DOCUMENT serve)
    set(UNIT_CONFLICTS "# It records, too: one ends before the other begins.\nConflicts=plendix.service\nAfter=plendix.service\n")
    set(UNIT_ENVIRONMENT "# SERVE_OPTIONS=\"--listen ...\": what else it shall do\nEnvironmentFile=-/etc/default/plendix-serve\n")
    set(UNIT_COMMAND "serve --config ${configuration} --quiet $SERVE_OPTIONS")
    set(UNIT_CLIENTS "; and its clients")
    set(UNIT_DESCRIPTORS 16384)
  endif()
  configure_file(cmake/package/plendix.service.in ${package_files}/${file} @ONLY)
  install(FILES ${package_files}/${file} DESTINATION lib/systemd/system COMPONENT tools)
endfunction()
plendix_package_files(driver plendix)
if(PLENDIX_TOOLS)
  plendix_package_files(tools plendix-tools)
  install(FILES ${package_files}/plendix.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES docs/examples/recorder.toml DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/plendix-tools/examples
          COMPONENT tools)
  plendix_unit(plendix.service recorder recorder "The recorder of this machine: it reads /etc/plendix/recorder.toml.")
  plendix_unit(plendix@.service recorder %i "Further recorders: plendix@NAME reads /etc/plendix/NAME.toml.")
  plendix_unit(plendix-serve.service page recorder
               "The page in place of the recorder: it reads /etc/plendix/recorder.toml and records as that says.")
  install(FILES cmake/package/plendix.sysusers RENAME plendix.conf DESTINATION lib/sysusers.d COMPONENT tools)
endif()
# In a package the library lies where Debian keeps those of its architecture, wherever an installation
# by hand puts it: packages are made of the build that was tested, not of one for them.
install(TARGETS Plendix LIBRARY DESTINATION lib/${CMAKE_LIBRARY_ARCHITECTURE}/plendix
        COMPONENT packaged_library EXCLUDE_FROM_ALL)
include(CPack)
cpack_add_component(driver GROUP driver)
cpack_add_component(packaged_library GROUP driver)
cpack_add_component(tools GROUP tools)
