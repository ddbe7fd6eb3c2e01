# Installs the components of the package: backends a host asks for by name,
#   find_package(DL REQUIRED COMPONENTS cairo freetype qt)
# each a shared library `dl_<name>` (CMake target DL::dl_<name>, pkg-config
# name dl-<name>) with its own export set, so a machine may carry any subset.
#
#   dl_install_component(<name> HEADERS <folder>...
#                        [PKG <prefix> <module>...] [PKG_PRIVATE <prefix> <module>...]
#                        [PACKAGE <package> <package component>...]
#                        [DEB <runtime package>...] [DEB_DEV <development package>...])
#
# HEADERS   folders whose public headers (*.h but *_p.h) go under include/dl/.
# PKG       pkg-config modules the component's interface needs, found as the
#           imported target PkgConfig::<prefix> (the one the target links);
#           PKG_PRIVATE the same for modules only its implementation links:
#           they go into Requires.private of its .pc file, and the config file
#           does not look for them (a shared library brings its own).
# PACKAGE   a CMake package the interface needs (Qt6 Widgets); its pkg-config
#           name is taken as <package><package component> (Qt6Widgets).
# DEB       the Debian packages the library needs at run time; DEB_DEV those
#           a host needs to build against it (cmake/DLPackaging.cmake).
#
# Does nothing when the target dl_<name> was not built. Writes, for the config
# file, DL<name>Dependencies.cmake (finds what the component needs and names
# what is missing) beside DL<name>Targets.cmake, and installs both with the
# library (runtime part `<name>`, development part `<name>_dev`, which the
# Debian packages follow).
set(DL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/DL)
# pkg-config files find the prefix from where they lie, so an installed tree
# works wherever it is put (a scratch prefix, a root unpacked from the Debian
# packages): the path from <libdir>/pkgconfig up to the prefix.
file(RELATIVE_PATH DL_PC_UP "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
string(REGEX REPLACE "/$" "" DL_PC_UP "${DL_PC_UP}")
set(DL_INSTALLED_COMPONENTS "" CACHE INTERNAL "")
set(DL_INSTALLED_COMPONENTS)

function(dl_install_component name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "HEADERS;PKG;PKG_PRIVATE;PACKAGE;DEB;DEB_DEV")
  set(target dl_${name})
  set(public_headers)
  if(NOT TARGET ${target})
    message(STATUS "component ${name}: its dependencies were not found, not built")
    return()
  endif()
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${target})
  foreach(folder ${arg_HEADERS})
    file(GLOB headers CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.h)
    list(FILTER headers EXCLUDE REGEX "_p\\.h$")
    install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/dl/${folder} COMPONENT ${name}_dev)
    list(APPEND public_headers ${headers})
  endforeach()
  set(DL_COMPONENT_HEADERS_${name} ${public_headers} CACHE INTERNAL "")  # for the docs
  install(TARGETS ${target} EXPORT DL${name}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${name} NAMELINK_COMPONENT ${name}_dev
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${name}_dev
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${name})
  install(EXPORT DL${name}Targets NAMESPACE DL:: DESTINATION ${DL_CMAKE_DIR} COMPONENT ${name}_dev)

  # What the config file runs before it reads the targets: sets
  # DL_<name>_MISSING to what could not be found.
  set(deps "# Written by cmake/DLComponents.cmake: what DL::${target} needs.\n")
  string(APPEND deps "set(DL_${name}_MISSING)\n")
  set(requires "dl")
  set(requires_private "")
  if(arg_PKG_PRIVATE)
    list(POP_FRONT arg_PKG_PRIVATE prefix)
    list(APPEND requires_private ${arg_PKG_PRIVATE})
  endif()
  foreach(kind PKG)
    if(NOT arg_${kind})
      continue()
    endif()
    list(POP_FRONT arg_${kind} prefix)
    list(JOIN arg_${kind} " " modules)
    string(APPEND deps
      "find_package(PkgConfig QUIET)\n"
      "if(PkgConfig_FOUND AND NOT TARGET PkgConfig::${prefix})\n"
      "  pkg_check_modules(${prefix} QUIET IMPORTED_TARGET ${modules})\n"
      "endif()\n"
      "if(NOT TARGET PkgConfig::${prefix})\n"
      "  list(APPEND DL_${name}_MISSING \"pkg-config: ${modules}\")\n"
      "endif()\n")
    list(APPEND requires ${arg_${kind}})
  endforeach()
  if(arg_PACKAGE)
    list(POP_FRONT arg_PACKAGE package)
    list(JOIN arg_PACKAGE " " parts)
    string(APPEND deps
      "find_package(${package} QUIET COMPONENTS ${parts})\n"
      "if(NOT ${package}_FOUND)\n"
      "  list(APPEND DL_${name}_MISSING \"CMake package ${package} (${parts})\")\n"
      "endif()\n")
    foreach(part ${arg_PACKAGE})
      list(APPEND requires ${package}${part})
    endforeach()
  endif()
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/DL${name}Dependencies.cmake "${deps}")
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/DL${name}Dependencies.cmake DESTINATION ${DL_CMAKE_DIR}
    COMPONENT ${name}_dev)

  # pkg-config: dl-<name>.pc.
  set(DL_PC_NAME dl-${name})
  set(DL_PC_LIBRARY ${target})
  list(JOIN requires " " DL_PC_REQUIRES)
  list(JOIN requires_private " " DL_PC_REQUIRES_PRIVATE)
  configure_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/dl-component.pc.in
    ${CMAKE_CURRENT_BINARY_DIR}/dl-${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/dl-${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT ${name}_dev)

  set(DL_DEB_${name} ${arg_DEB} CACHE INTERNAL "")
  set(DL_DEB_DEV_${name} ${arg_DEB_DEV} CACHE INTERNAL "")
  set(installed ${DL_INSTALLED_COMPONENTS})
  list(APPEND installed ${name})
  set(DL_INSTALLED_COMPONENTS ${installed} CACHE INTERNAL "")
endfunction()
