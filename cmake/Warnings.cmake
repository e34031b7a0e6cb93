# Every target of the project is held to these.
add_library(wqz_warnings INTERFACE)
target_compile_options(wqz_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow
  $<$<COMPILE_LANGUAGE:CXX>:-Wconversion -Wnon-virtual-dtor>)
