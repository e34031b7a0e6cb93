# Decides whether the Python package is built: WQZ_USBCAM_BUILD_PYTHON.
set(WQZ_PYTHON_FOUND OFF)
if((PROJECT_IS_TOP_LEVEL AND NOT CMAKE_CROSSCOMPILING) OR WQZ_USBCAM_BUILD_PYTHON)
  # Debian's packages belong to Debian's interpreter. Another one may come first in the PATH.
  if(NOT DEFINED Python3_EXECUTABLE AND EXISTS /usr/bin/python3)
    set(Python3_EXECUTABLE /usr/bin/python3 CACHE FILEPATH "The Python interpreter")
  endif()
  find_package(Python3 QUIET COMPONENTS Interpreter OPTIONAL_COMPONENTS Development.Module)
  find_package(pybind11 CONFIG QUIET)
  if(Python3_Development.Module_FOUND AND pybind11_FOUND)
    set(WQZ_PYTHON_FOUND ON)
  endif()
endif()

# A sanitized module does not run in Debian's interpreter, and a cross-built one needs the other processor's headers.
set(default ${WQZ_PYTHON_FOUND})
if(WQZ_USBCAM_SANITIZE OR NOT PROJECT_IS_TOP_LEVEL)
  set(default OFF)
endif()
option(WQZ_USBCAM_BUILD_PYTHON "Build the Python package" ${default})
if(WQZ_USBCAM_BUILD_PYTHON AND NOT WQZ_PYTHON_FOUND)
  message(FATAL_ERROR "WQZ_USBCAM_BUILD_PYTHON needs pybind11 and the headers of ${Python3_EXECUTABLE}: install "
    "pybind11-dev and python3-dev, or set WQZ_USBCAM_BUILD_PYTHON=OFF.")
endif()
