#!/usr/bin/env bash
# Compares the names that the shared library exports with a list, in both directions, and the list with the headers.
# usage: exports_test.sh LIBRARY LIST INCLUDE_DIR
set -euo pipefail
library=$1
list=$2
include=$3
version=WQZ_USBCAM_1.0
export LC_ALL=C # for one order of sort and comm

# Constructors and destructors have several entry points with one name; each name counts once.
exported=$(nm -DC --defined-only "$library" | sed -E 's/^[0-9a-f]+ [A-Za-z] //' | sort -u)
if unversioned=$(grep -vE "(^|@@)$version\$" <<< "$exported"); then
  echo "exported without the version $version:"
  echo "$unversioned"
  exit 1
fi
exported=$(sed -e "/^$version\$/d" -e "s/@@$version\$//" <<< "$exported")
listed=$(grep -vE '^(#|$)' "$list" | sort)
if ! diff <(echo "$listed") <(echo "$exported"); then
  echo "< marks a line of $list that $library does not export, > an exported name that the list lacks"
  exit 1
fi

functions=$(grep -rhoE '\bWQZ_(USBCam|Camera)_[A-Za-z0-9_]+\(' "$include" | tr -d '(' | sort -u)
classes=$(grep -rhoE '\bclass WQZ_USBCAM_EXPORT [A-Za-z0-9_]+' "$include" | sed 's/.* //' | sort -u)
[ -n "$functions" ] && [ -n "$classes" ]
missing=$({
  comm -23 <(echo "$functions") <(echo "$listed")
  comm -23 <(echo "$classes") <(sed -n 's/::.*//p' <<< "$listed" | sed 's/.* //' | sort -u)
})
if [ -n "$missing" ]; then
  echo "declared in $include and not exported:"
  echo "$missing"
  exit 1
fi
