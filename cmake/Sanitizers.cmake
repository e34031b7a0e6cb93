# Instruments everything in the project. The runtime is linked statically into the programs, and into nothing else: so
# it works beside preloaded objects, which the loader puts in front of a shared one.
if(WQZ_USBCAM_SANITIZE)
  add_compile_options(-fsanitize=${WQZ_USBCAM_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  set(runtime -fsanitize=${WQZ_USBCAM_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    list(APPEND runtime -static-libasan -static-libtsan)
  endif()
  foreach(option IN LISTS runtime)
    add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:${option}>)
  endforeach()
endif()
