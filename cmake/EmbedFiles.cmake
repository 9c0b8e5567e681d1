# Writes OUT, a C++ source that holds each file of DIR as bytes, for the
# dashboard's pages: they travel inside the executable, so nothing is fetched from
# elsewhere and no build step needs the network.
#   cmake -DOUT=file.cpp -DDIR=src/web/pages -P EmbedFiles.cmake
file(GLOB FILES "${DIR}/*")
list(SORT FILES)
set(body "")
foreach(path IN LISTS FILES)
  get_filename_component(name "${path}" NAME)
  get_filename_component(ext "${path}" LAST_EXT)
  if(ext STREQUAL ".html")
    set(type "text/html; charset=utf-8")
  elseif(ext STREQUAL ".js")
    set(type "text/javascript; charset=utf-8")
  elseif(ext STREQUAL ".css")
    set(type "text/css; charset=utf-8")
  elseif(ext STREQUAL ".svg")
    set(type "image/svg+xml")
  else()
    message(FATAL_ERROR "no content type for ${name}")
  endif()
  file(READ "${path}" hex HEX)
  file(SIZE "${path}" size)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "\\\\x\\1" escaped "${hex}")
  string(APPEND body "    {\"/assets/${name}\", \"${type}\", std::string_view(\"${escaped}\", ${size})},\n")
endforeach()
file(WRITE "${OUT}.new" "// Written by cmake/EmbedFiles.cmake from src/web/pages; do not edit.
#include \"web/DashboardPages.hpp\"

namespace quorvane::DashboardPages {

namespace {
const Page kPages[] = {
${body}};
}  // namespace

std::span<const Page> all() {
    return kPages;
}

}  // namespace quorvane::DashboardPages
")
# Only a change touches the file, so an unchanged page rebuilds nothing.
file(COPY_FILE "${OUT}.new" "${OUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUT}.new")
