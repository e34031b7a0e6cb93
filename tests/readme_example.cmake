# Fails unless DOCUMENT quotes EXAMPLE to the letter.
file(READ ${DOCUMENT} text)
file(READ ${EXAMPLE} example)
string(FIND "${text}" "```cpp\n${example}```" position)
if(position EQUAL -1)
  message(FATAL_ERROR "${DOCUMENT} shows another program than ${EXAMPLE}")
endif()
