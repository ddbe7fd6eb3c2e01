# Debian packages: `cpack -G DEB` in the build folder makes, for the core and
# for each installed component, a runtime package (the shared library) and a
# -dev package (headers, the name link, CMake and pkg-config files):
#
#   libdlist0, libdlist-dev                    DL::dl, DL::dl_recording
#   libdlist-<name>0, libdlist-<name>-dev      DL::dl_<name>
#
# A component's runtime package depends on libdlist0 and on the Debian
# packages named by DEB in its `dl_install_component` line; its -dev package
# on its runtime package, libdlist-dev and the DEB_DEV packages. Versions are
# pinned to this build's, since the libraries are built together.
set(CPACK_PACKAGE_NAME libdlist)
set(CPACK_PACKAGE_VENDOR "DL developers")
set(CPACK_PACKAGE_CONTACT "DL developers <dl@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Retained-mode 2D display list for very large vector drawings")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)

set(version "${PROJECT_VERSION}")
set(major "${PROJECT_VERSION_MAJOR}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libdlist${major})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6, libstdc++6")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libdlist-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libdlist${major} (= ${version})")
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(components runtime dev)
foreach(name ${DL_INSTALLED_COMPONENTS})
  string(TOUPPER ${name} upper)
  set(runtime_depends "libdlist${major} (= ${version})" ${DL_DEB_${name}})
  set(dev_depends "libdlist-${name}${major} (= ${version})" "libdlist-dev (= ${version})"
    ${DL_DEB_DEV_${name}})
  list(JOIN runtime_depends ", " runtime_depends)
  list(JOIN dev_depends ", " dev_depends)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME libdlist-${name}${major})
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${runtime_depends}")
  set(CPACK_DEBIAN_${upper}_DEV_PACKAGE_NAME libdlist-${name}-dev)
  set(CPACK_DEBIAN_${upper}_DEV_PACKAGE_DEPENDS "${dev_depends}")
  set(CPACK_DEBIAN_${upper}_DEV_PACKAGE_SECTION libdevel)
  list(APPEND components ${name} ${name}_dev)
endforeach()
set(CPACK_COMPONENTS_ALL ${components})
include(CPack)
