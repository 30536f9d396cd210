# Dependencies run one way: the framework (nordalib/core) includes nothing of the vision libraries;
# they register their types and defaults with it.
file(GLOB_RECURSE sources ${SRC}/nordalib/core/*.h ${SRC}/nordalib/core/*.cpp)
set(offenders "")
foreach(source ${sources})
    file(STRINGS ${source} hits REGEX "#include [\"<]nordalib/vision/")
    if(hits)
        list(APPEND offenders "${source}: ${hits}")
    endif()
endforeach()
if(offenders)
    list(JOIN offenders "\n" text)
    message(FATAL_ERROR "the framework includes vision headers:\n${text}")
endif()
