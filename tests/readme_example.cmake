# Fails unless the README holds the example to the letter.
file(READ ${README} readme)
file(READ ${EXAMPLE} example)
string(FIND "${readme}" "```cpp\n${example}```" position)
if(position EQUAL -1)
  message(FATAL_ERROR "${README} shows another program than ${EXAMPLE}")
endif()
