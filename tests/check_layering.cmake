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

# The physical camera simulator computes its frames from physics: it may use the framework, OpenCV
# and the file formats, never the camera models it is there to test (radiometric model,
# registration and fusion, distortion correction and the other image processing, the elements)
# nor the older simulator that runs the radiometric model backwards.
file(GLOB sources ${SRC}/apps/nordacam/sim/physics/*.h ${SRC}/apps/nordacam/sim/physics/*.cpp)
set(offenders "")
foreach(source ${sources})
    file(STRINGS ${source} hits
         REGEX "#include [\"<](nordalib/vision/(radiometry|registration|imgproc|streaming|measurement)/|apps/nordacam/sim/[A-Za-z]+\\.h)")
    if(hits)
        list(APPEND offenders "${source}: ${hits}")
    endif()
endforeach()
if(offenders)
    list(JOIN offenders "\n" text)
    message(FATAL_ERROR "the physical simulator includes camera models:\n${text}")
endif()
