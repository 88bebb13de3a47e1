# Run as a script: writes OUTPUT, a C++ source defining the viewer's page
# (WEB_DIR/index.html with the style sheet and the script inlined where the
# page names them) as kViewerPage / kViewerPageSize.
file(READ "${WEB_DIR}/index.html" page)
file(READ "${WEB_DIR}/viewer.css" css)
file(READ "${WEB_DIR}/viewer.js" js)
string(FIND "${page}" "<link rel=\"stylesheet\" href=\"viewer.css\">" at_css)
string(FIND "${page}" "<script src=\"viewer.js\"></script>" at_js)
if(at_css EQUAL -1 OR at_js EQUAL -1)
  message(FATAL_ERROR "index.html must name viewer.css and viewer.js")
endif()
string(REPLACE "<link rel=\"stylesheet\" href=\"viewer.css\">" "<style>\n${css}</style>" page "${page}")
string(REPLACE "<script src=\"viewer.js\"></script>" "<script>\n${js}</script>" page "${page}")
get_filename_component(dir "${OUTPUT}" DIRECTORY)
file(WRITE "${dir}/viewer-page.html" "${page}")
file(READ "${dir}/viewer-page.html" hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n" bytes "${bytes}")
file(WRITE "${OUTPUT}.tmp"
  "// Made by EmbedPage.cmake from apps/thermokit/web: do not edit.\n"
  "#include <cstddef>\n"
  "namespace thermokit::cli {\n"
  "extern const unsigned char kViewerPage[];\n"
  "extern const size_t kViewerPageSize;\n"
  "const unsigned char kViewerPage[] = {\n${bytes}0x00};\n"
  "const size_t kViewerPageSize = ${size};\n"
  "}  // namespace thermokit::cli\n")
file(RENAME "${OUTPUT}.tmp" "${OUTPUT}")
