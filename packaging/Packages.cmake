# The Debian packages, one for each component of the install rules. cpack makes them from a build of the preset
# "packages". home.arpa is a reserved domain: set your own address before you distribute packages.
set(ORVEX_PACKAGE_CONTACT "orvexsnmp developers <orvexsnmp@home.arpa>" CACHE STRING
    "The packages' maintainer")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${ORVEX_PACKAGE_CONTACT})
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Packages that link libtavos declare their dependency on libtavos0 themselves.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib)
set(own_version "(= ${PROJECT_VERSION})")

configure_file(debian/changelog.in ${CMAKE_CURRENT_BINARY_DIR}/changelog @ONLY)

# orvex_gzip(FILE DESTINATION COMPONENT): installs a compressed file; the output is reproducible.
function(orvex_gzip file destination component)
  get_filename_component(name ${file} NAME)
  set(compressed ${CMAKE_CURRENT_BINARY_DIR}/compressed/${name}.gz)
  file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/compressed)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
  execute_process(COMMAND gzip -9nc ${file} OUTPUT_FILE ${compressed} COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${compressed} DESTINATION ${destination} COMPONENT ${component})
endfunction()

# orvex_package(COMPONENT NAME SUMMARY DESCRIPTION DEPENDS MAN-PAGE...)
function(orvex_package component name summary description depends)
  string(TOUPPER ${component} upper)
  set(extra)
  foreach(file conffiles postinst postrm shlibs triggers)
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/${name}/${file})
      list(APPEND extra ${CMAKE_CURRENT_SOURCE_DIR}/debian/${name}/${file})
    endif()
  endforeach()
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA "${extra}" PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
  install(FILES debian/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component})
  orvex_gzip(${CMAKE_CURRENT_BINARY_DIR}/changelog ${CMAKE_INSTALL_DATADIR}/doc/${name} ${component})
  foreach(page IN LISTS ARGN)
    string(REGEX MATCH "[0-9]$" section ${page})
    orvex_gzip(${CMAKE_CURRENT_SOURCE_DIR}/man/${page} ${CMAKE_INSTALL_MANDIR}/man${section} ${component})
  endforeach()
endfunction()

# A camera with its own platform also provides its own bus.
if(ORVEX_OWN_PLATFORM)
  set(and_platform ", libtavos0 ${own_version}")
  set(CPACK_DEBIAN_MODULE_PACKAGE_RECOMMENDS tavos)
endif()

orvex_package(module orvexsnmp "camera objects for the SNMP agent"
"A module for net-snmp's agent. It serves NTCIP 1205 and 1201 objects and
private objects of a pan-tilt-zoom camera by calling the camera's services
over D-Bus. The package also has a configuration fragment that loads the
module, an example of a whole configuration with SNMPv3 users, and a drop-in
that runs the agent unprivileged and in a sandbox."
  "snmpd, adduser${and_platform}" orvexsnmp.8 orvexsnmp-add-user.8)
set(CPACK_DEBIAN_MODULE_PACKAGE_SUGGESTS orvexsnmp-mibs)

orvex_package(mibs orvexsnmp-mibs "MIBs of the camera's objects and traps"
"Managers need these MIBs to show the names of the camera's objects."
  "")
set(CPACK_DEBIAN_MIBS_PACKAGE_ARCHITECTURE all)

orvex_package(conform orvex-conform "checks a camera over SNMP against what is promised"
"Asks a camera for every object from outside, by address and credentials, and
prints a verdict for each: presence, type, values, order, SETs, motion, traps,
access and robustness. By default it only reads. Reports as text, JUnit XML
and one HTML file."
  "python3" orvex-conform.1)
set(CPACK_DEBIAN_CONFORM_PACKAGE_ARCHITECTURE all)
# For encrypted SNMPv3.
set(CPACK_DEBIAN_CONFORM_PACKAGE_RECOMMENDS python3-cryptography)
# They repeat a finding.
set(CPACK_DEBIAN_CONFORM_PACKAGE_SUGGESTS snmp)

orvex_package(python python3-orvex-camera "desk cameras for tests in Python"
"Starts desk cameras from Python: objects by name, faults, waiting, the trace,
a fixture for pytest, scenarios in TOML on the camera's own clock, and the
recording and replay of what a camera's agent was asked. domectl play uses it."
  "python3 (>= 3.11), orvex-conform ${own_version}" orvex-session.1)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
# The desk cameras that it starts; a replay does not need them.
set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS orvex-dome)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-pytest, python3-cryptography")

if(ORVEX_OWN_PLATFORM)
  orvex_package(platform libtavos0 "camera platform on D-Bus and SQLite"
  "The libraries that the camera's SNMP module and services use: clients and
servers of the camera's services on a D-Bus message bus, a settings store,
and a logger."
    "")
  set(CPACK_DEBIAN_PLATFORM_PACKAGE_SECTION libs)

  orvex_package(tavos tavos "settings store and message bus of a camera"
  "The command that shows and changes a camera's settings, the policy that
defines who may own and call the camera's services, and a separate bus for
services that are not on the system bus."
    "adduser, dbus-daemon, libtavos0 ${own_version}" tavos-settings.1)

  orvex_package(dev orvexsnmp-dev "development files of the camera platform"
  "Headers of the camera platform that the SNMP module uses, and its CMake
package files."
    "libtavos0 ${own_version}")
  set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
endif()

if(ORVEX_DOME)
  orvex_package(dome orvex-dome "desk camera, for work without a real camera"
  "A process that serves a camera's services from a model of a pan-tilt-zoom
camera, a web page that shows it, and commands that inspect and control it.
Units run one camera for this machine's agent, and any number of cameras
that each have their own agent."
    "adduser, snmpd, tavos ${own_version}, libtavos0 ${own_version}" orvex-dome.1 domectl.1 myname.1)
endif()

include(CPack)
