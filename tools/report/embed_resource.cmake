# Turns one text file into a C++ source that defines it as a character array, so the program
# carries the file. Run at build time:
#   cmake -DINPUT=report.css -DOUTPUT=report_css.cpp -DSYMBOL=kReportCss -P embed_resource.cmake
# The array is declared in report_resources.h.
foreach(var INPUT OUTPUT SYMBOL)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "embed_resource.cmake needs -D${var}=...")
  endif()
endforeach()

file(READ "${INPUT}" content)
set(delimiter "tesu_resource")
string(FIND "${content}" ")${delimiter}\"" clash)
if(NOT clash EQUAL -1)
  message(FATAL_ERROR "${INPUT} contains the raw string delimiter )${delimiter}\"")
endif()
get_filename_component(name "${INPUT}" NAME)
file(WRITE "${OUTPUT}.tmp"
  "// Generated from ${name} at build time; edit the file, not this.\n"
  "#include \"report_resources.h\"\n\n"
  "namespace tesu {\nnamespace cli {\nnamespace report {\nnamespace resources {\n\n"
  "const char ${SYMBOL}[] = R\"${delimiter}(${content})${delimiter}\";\n\n"
  "}  // namespace resources\n}  // namespace report\n}  // namespace cli\n}  // namespace tesu\n")
# An unchanged file keeps its time stamp, so nothing that depends on it is rebuilt.
execute_process(COMMAND ${CMAKE_COMMAND} -E copy_if_different "${OUTPUT}.tmp" "${OUTPUT}")
file(REMOVE "${OUTPUT}.tmp")
