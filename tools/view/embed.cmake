# Writes the view's HTML template into a C++ source as one string, kKovViewHtml, so that kovtool
# carries it. Run as: cmake -DIN=view.html -DOUT=viewhtml.cpp -P embed.cmake
file(READ ${IN} html)
# A raw string literal with a delimiter the page never holds.
string(FIND "${html}" ")KOVVIEWHTML\"" clash)
if(NOT clash EQUAL -1)
  message(FATAL_ERROR "${IN} holds the delimiter of the raw string it is embedded in")
endif()
file(WRITE ${OUT}.tmp "// Generated from tools/view/view.html by tools/view/embed.cmake.\n"
  "extern const char kKovViewHtml[];\n"
  "const char kKovViewHtml[] = R\"KOVVIEWHTML(${html})KOVVIEWHTML\";\n")
execute_process(COMMAND ${CMAKE_COMMAND} -E copy_if_different ${OUT}.tmp ${OUT})
file(REMOVE ${OUT}.tmp)
