# Turns the plain comments at the top of a header into comments that Doxygen reads. No line is added, so that the numbers
# of lines in messages stay right.
FNR == 1 && sub("^// ", "/// @opening ") { print; next }
/^#define WQZ_[A-Z0-9_]+_H/ { at_top = 1; print; next }
at_top && /^\/\/( |$)/ && sub("^// ?", "") { print (in_block ? "" : "/** @conventions ") $0; in_block = 1; next }
in_block { print "@endverbatim */"; in_block = 0; at_top = 0; next }
/^#include/ { at_top = 0 }
{ print }
