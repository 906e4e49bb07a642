# keldane_host(NAME PACKAGES VARIABLE SOURCE...): the extension of one file manager. It is installed where the file manager
# looks for it, whatever the prefix: the folder that VARIABLE of the first of the pkg-config PACKAGES names, unless
# KELDANE_HOST_<NAME>_FOLDER names another. KELDANE_HOST_<NAME> can switch it off. It is left out with a message when a
# package is missing.
find_package(PkgConfig)
function(keldane_host name packages variable)
  string(TOUPPER ${name} upper)
  option(KELDANE_HOST_${upper} "Build the extension for ${name}" ON)
  if(NOT KELDANE_HOST_${upper})
    return()
  endif()
  if(PkgConfig_FOUND)
    pkg_check_modules(${upper} IMPORTED_TARGET QUIET ${packages})
  endif()
  if(NOT ${upper}_FOUND)
    message(STATUS "No extension for ${name}: the development files of ${packages} are missing")
    return()
  endif()
  add_library(keldane-${name} MODULE ${ARGN})
  # The packages' headers are system headers, so that they cause no warnings.
  get_target_property(includes PkgConfig::${upper} INTERFACE_INCLUDE_DIRECTORIES)
  target_include_directories(keldane-${name} SYSTEM PRIVATE ${includes})
  target_include_directories(keldane-${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/${name})
  target_link_libraries(keldane-${name} PRIVATE keldane_host_core keldane_host_status PkgConfig::${upper})
  target_compile_options(keldane-${name} PRIVATE -fvisibility=hidden)
  # The plug-in's thread may outlive the file manager's interest in the extension, so the code is never unmapped.
  target_link_options(keldane-${name} PRIVATE LINKER:-z,nodelete LINKER:--as-needed LINKER:--exclude-libs,ALL)
  if(NOT KELDANE_SANITIZE)
    target_link_options(keldane-${name} PRIVATE LINKER:-z,defs)
  endif()
  set_target_properties(keldane-${name} PROPERTIES
    PREFIX "lib"
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/hosts/${name}
    INSTALL_RPATH ${KELDANE_FULL_PRIVATE_LIBDIR})
  list(GET packages 0 package)
  pkg_get_variable(folder ${package} ${variable})
  set(KELDANE_HOST_${upper}_FOLDER "${folder}" CACHE PATH "Where ${name} looks for extensions")
  install(TARGETS keldane-${name} LIBRARY DESTINATION ${KELDANE_HOST_${upper}_FOLDER})
endfunction()
