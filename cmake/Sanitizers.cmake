# Builds everything with the sanitizers in WQZ_USBCAM_SANITIZE. Only programs link the runtime, and they link it
# statically, because the loader puts preloaded objects in front of a shared runtime.
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
