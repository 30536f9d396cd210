# Fails naming every file of `sources` that includes a header matching `pattern`.
function(forbid_includes sources pattern what)
    set(offenders "")
    foreach(source ${sources})
        file(STRINGS ${source} hits REGEX "#include [\"<](${pattern})")
        if(hits)
            list(APPEND offenders "${source}: ${hits}")
        endif()
    endforeach()
    if(offenders)
        list(JOIN offenders "\n" text)
        message(FATAL_ERROR "${what}:\n${text}")
    endif()
endfunction()

set(models "nordalib/vision/(radiometry|registration|imgproc|streaming|measurement)/")

# Dependencies run one way: the framework (nordalib/core) includes nothing of the vision libraries;
# they register their types and defaults with it.
file(GLOB_RECURSE sources ${SRC}/nordalib/core/*.h ${SRC}/nordalib/core/*.cpp)
forbid_includes("${sources}" "nordalib/vision/" "the framework includes vision headers")

# The physical camera simulator computes its frames from physics: it may use the framework, OpenCV
# and the file formats, never the camera models it is there to test (radiometric model,
# registration and fusion, distortion correction and the other image processing, the elements)
# nor the live scene built on it.
file(GLOB sources ${SRC}/apps/nordacam/sim/physics/*.h ${SRC}/apps/nordacam/sim/physics/*.cpp)
forbid_includes("${sources}" "${models}|apps/nordacam/sim/[A-Za-z]+\\.h"
                "the physical simulator includes camera models")

# The live camera (the scene, the frame source and the visual camera on the physical simulator)
# renders with those models only: none of the library's camera models.
file(GLOB sources ${SRC}/apps/nordacam/sim/*.h ${SRC}/apps/nordacam/sim/*.cpp)
forbid_includes("${sources}" "${models}" "the live camera simulator includes camera models")
