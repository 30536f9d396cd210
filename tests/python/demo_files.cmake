# A fresh run of `nordacam demo` into OUT: three saved images and a raw recording.
file(REMOVE_RECURSE ${OUT})
execute_process(COMMAND ${NORDACAM} demo --fast --quiet --frames 120 --out ${OUT} RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "nordacam demo failed (${rc})")
endif()
