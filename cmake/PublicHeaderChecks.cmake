# The public header as hosts compile it: alone, as C and as C++, with
# warnings as errors (built with the DLL, so a broken header breaks the
# build), and against the module definition (a test).
add_library(kel_public_header_check OBJECT tests/header/header_check.c tests/header/header_check.cpp)
target_include_directories(kel_public_header_check PRIVATE ${PROJECT_SOURCE_DIR}/include)
set_source_files_properties(tests/header/header_check.c PROPERTIES COMPILE_OPTIONS "-std=c11;-pedantic")
target_compile_options(kel_public_header_check PRIVATE -Wall -Wextra -Werror)

add_test(NAME public_header_matches_the_exports
  COMMAND ${CMAKE_COMMAND} -DHEADER=${PROJECT_SOURCE_DIR}/include/Kelbrook.h -DDEF=${KEL_DEF_FILE}
          -P ${PROJECT_SOURCE_DIR}/cmake/CheckHeaderExports.cmake)
set_tests_properties(public_header_matches_the_exports PROPERTIES LABELS pe)
