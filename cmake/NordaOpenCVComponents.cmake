# OpenCV's imported targets (opencv_core, ...) from its headers and libraries, for installations
# without OpenCV's CMake package (see NordaDependencies.cmake); used by nordalibConfig.cmake too.
function(norda_opencv_components)
    find_path(NORDA_OPENCV_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
    foreach(component ${ARGN})
        find_library(NORDA_OPENCV_${component} opencv_${component})
        if(NOT NORDA_OPENCV_INCLUDE_DIR OR NOT NORDA_OPENCV_${component}
           OR NOT EXISTS "${NORDA_OPENCV_INCLUDE_DIR}/opencv2/${component}.hpp")
            set_property(GLOBAL APPEND PROPERTY NORDA_MISSING libopencv-${component}-dev)
        elseif(NOT TARGET opencv_${component})
            add_library(opencv_${component} SHARED IMPORTED GLOBAL)
            set_target_properties(opencv_${component} PROPERTIES
                IMPORTED_LOCATION "${NORDA_OPENCV_${component}}"
                INTERFACE_INCLUDE_DIRECTORIES "${NORDA_OPENCV_INCLUDE_DIR}")
        endif()
    endforeach()
endfunction()
