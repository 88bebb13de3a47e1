# The viewer of `thermokit view`: cpp-httplib (Debian libcpp-httplib-dev,
# through pkg-config), zlib, and the page of this folder compiled into the
# tool. Without cpp-httplib (or for Windows, where its server is not built)
# the tool is built without the view command.
set(_view_sources ViewCommand.cpp ViewFilm.cpp ViewServer.cpp)
if(NOT WIN32)
  find_package(PkgConfig QUIET)
  if(PKG_CONFIG_FOUND)
    pkg_check_modules(HTTPLIB QUIET IMPORTED_TARGET cpp-httplib)
  endif()
  find_package(ZLIB QUIET)
endif()
if(NOT HTTPLIB_FOUND OR NOT ZLIB_FOUND)
  message(STATUS "cpp-httplib or zlib not found: thermokit is built without the view command")
  set_source_files_properties(${_view_sources} PROPERTIES HEADER_FILE_ONLY ON)
  return()
endif()

# index.html with viewer.css and viewer.js put in its place, as a byte array.
set(_web "${CMAKE_CURRENT_SOURCE_DIR}/web")
set(_page_cpp "${CMAKE_CURRENT_BINARY_DIR}/ViewerPage.cpp")
add_custom_command(
  OUTPUT "${_page_cpp}"
  COMMAND "${CMAKE_COMMAND}" -DWEB_DIR=${_web} -DOUTPUT=${_page_cpp} -P "${_web}/EmbedPage.cmake"
  DEPENDS "${_web}/index.html" "${_web}/viewer.css" "${_web}/viewer.js" "${_web}/EmbedPage.cmake"
  COMMENT "Embedding the viewer's page"
  VERBATIM)
target_sources(thermokit_cli PRIVATE "${_page_cpp}")
target_link_libraries(thermokit_cli PRIVATE PkgConfig::HTTPLIB ZLIB::ZLIB)
target_compile_definitions(thermokit_cli PRIVATE THERMOKIT_HAVE_VIEW=1)
