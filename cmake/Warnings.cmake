# The warnings with which every target of the project is built.
add_library(wqz_warnings INTERFACE)
target_compile_options(wqz_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow
  $<$<COMPILE_LANGUAGE:CXX>:-Wconversion -Wnon-virtual-dtor>)
