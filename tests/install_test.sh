#!/usr/bin/env bash
# Installs a build into a temporary prefix and uses it the ways that users do.
# usage: install_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source_dir=$1
build_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build_dir" --prefix "$prefix" > "$work/install.log"
library=$(find "$prefix" -name libWQZ_USBCam.so.1 -o -name libWQZ_USBCam.a)
libdir=$(dirname "$library")
shared=true
pc_options=(--cflags --libs)
subdirectory_options=()
if [[ $library == *.a ]]; then
  shared=false
  pc_options+=(--static)
  subdirectory_options=(-DBUILD_SHARED_LIBS=OFF)
fi

echo "-- headers in a folder of their own"
if [ "$(ls "$prefix/include")" != wqz-usbcam ]; then
  echo "$prefix/include holds: $(ls "$prefix/include")"
  exit 1
fi
(cd "$source_dir/include" && find . -name '*.h' -o -name '*.hpp') | sort > "$work/headers"
(cd "$prefix/include/wqz-usbcam" && find . -type f) | sort | diff "$work/headers" -

echo "-- a CMake project over the installed package"
cmake -S "$source_dir/tests/consumer" -B "$work/package" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" > "$work/log"
cmake --build "$work/package" > "$work/log" || { cat "$work/log"; exit 1; }
"$work/package/consumer_c"
"$work/package/consumer_cpp"

echo "-- a compiler with pkg-config, after the tree was moved"
mv "$prefix" "$work/moved"
libdir=${libdir/#$prefix/$work/moved}
export PKG_CONFIG_PATH=$libdir/pkgconfig
cc -std=c99 -Wall -Wextra -Wpedantic -Werror "$source_dir/tests/consumer/consumer.c" \
  $(pkg-config "${pc_options[@]}" wqz-usbcam) -Wl,-rpath,"$libdir" -o "$work/with_pc"
"$work/with_pc"

if grep -q '^WQZ_USBCAM_BUILD_VIRTUAL_CAMERA:BOOL=ON' "$build_dir/CMakeCache.txt"; then
  echo "-- the virtual camera and its documentation, likewise moved"
  "$work/moved/bin/with-virtual-camera" head -c 0 /dev/video0 2> "$work/log" && [ ! -s "$work/log" ] ||
    { cat "$work/log"; exit 1; }
  grep -q '^| `camera \[CARD\]` |' "$work/moved/share/doc/WQZ_USBCam/virtual-camera.md"
fi

if grep -q '^WQZ_USBCAM_BUILD_PYTHON:BOOL=ON' "$build_dir/CMakeCache.txt"; then
  echo "-- the Python package, likewise moved"
  packages=$(dirname "$(find "$work/moved" -type d -name wqz_camera)")
  python=$(sed -n 's/^Python3_EXECUTABLE:[A-Z]*=//p' "$build_dir/CMakeCache.txt")
  (cd "$source_dir/python/wqz_camera" && ls ./*.py*) | diff - <(cd "$packages/wqz_camera" && ls ./*.py*)
  PYTHONPATH=$packages LD_LIBRARY_PATH=$libdir "$python" -c "import wqz_camera; wqz_camera.cameras()"
fi

echo "-- a CMake project over the sources"
cmake -S "$source_dir/tests/consumer" -B "$work/subdirectory" -G Ninja -DWQZ_SOURCE_DIR="$source_dir" \
  "${subdirectory_options[@]}" > "$work/log"
cmake --build "$work/subdirectory" -j2 > "$work/log" || { cat "$work/log"; exit 1; }
"$work/subdirectory/consumer_c"
"$work/subdirectory/consumer_cpp"

echo "-- every header by itself: the flat ones as C99, *.h as C++11, *.hpp as C++17"
include=$work/moved/include/wqz-usbcam
for header in USBCam_API/USBCam_API.h Camera/wqz_camera.h; do
  cc -std=c99 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I"$include" -x c "$include/$header"
done
while read -r header; do
  standard=c++11
  [[ $header != *.hpp ]] || standard=c++17
  echo "#include \"${header#./}\"" > "$work/one.cpp"
  for compiler in g++ clang++; do
    "$compiler" "-std=$standard" -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I"$include" "$work/one.cpp"
  done
done < "$work/headers"

if $shared; then
  echo "-- what the library needs"
  # Beside these: parts of the C library that only some compilers ask for, and the decoder, a build option.
  needed=$(readelf -d "$libdir/libWQZ_USBCam.so.1" | sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p' |
    grep -vE '^(ld-linux.*|libm|libturbojpeg)\.so\.[0-9]+$' | sort | tr '\n' ' ')
  if [ "$needed" != "libc.so.6 libgcc_s.so.1 libstdc++.so.6 libudev.so.1 " ]; then
    echo "needs: $needed"
    exit 1
  fi
fi
