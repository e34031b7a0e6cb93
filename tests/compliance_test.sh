#!/bin/sh
# Compares what v4l2-compliance says of a capture node with what it says of the kernel's UVC driver, test by test.
# The same comparison runs on the virtual camera and, in the virtual machine of scripts/test-kernel, on that driver.
#
#     compliance_test.sh EXPECTED NODE [LAUNCHER...]
set -u
expected=$1
node=$2
shift 2
results=$(mktemp)
trap 'rm -f "$results"' EXIT

# A virtual camera has no media controller, and neither has a kernel that is built without it.
"$@" timeout 120 v4l2-compliance -s -d "$node" 2>&1 | tr '\r' '\n' |
    sed -nE 's/^[[:space:]]*((test|fail:|warn:) .*[^[:space:]])[[:space:]]*$/\1/p' |
    grep -v '^test MC information' | sed "s|$node|NODE|" >"$results"
if diff "$expected" "$results"; then
    echo "v4l2-compliance finds $node as expected"
else
    echo "v4l2-compliance finds $node other than expected: lines with '<' are missing, those with '>' are new"
    exit 1
fi
