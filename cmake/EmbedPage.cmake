# Writes OUTPUT, a C++ file with the bytes of FILES and the paths under which browsers ask for them.
set(type_of_html "text/html; charset=utf-8")
set(type_of_css "text/css; charset=utf-8")
set(type_of_js "text/javascript; charset=utf-8")
set(type_of_svg "image/svg+xml")

set(arrays "")
set(records "")
foreach(file IN LISTS FILES)
  get_filename_component(name ${file} NAME)
  get_filename_component(extension ${file} LAST_EXT)
  string(SUBSTRING ${extension} 1 -1 extension)
  string(MAKE_C_IDENTIFIER ${name} identifier)
  file(READ ${file} bytes HEX)
  string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${bytes}")
  set(path /${name})
  if(name STREQUAL index.html)
    set(path /)
  endif()
  string(APPEND arrays "constexpr char ${identifier}[] = {${bytes}};\n")
  string(APPEND records "    {\"${path}\", \"${type_of_${extension}}\", {${identifier}, sizeof ${identifier}}},\n")
endforeach()
file(WRITE ${OUTPUT} "// Made from the page's files by EmbedPage.cmake.
#include \"page_files.h\"

namespace {

${arrays}
}  // namespace

const std::vector<Page_File> Page_Files = {
${records}};
")
