# Finding the dependencies, so that whatever is missing is named at once, as the Debian packages
# to install: `norda_find(<Package> <Debian package> [find_package arguments])` looks quietly and
# remembers what is missing; `norda_report_missing()` (at the end of the top-level file) stops
# with the list. In a cross build the packages are those of the target architecture, in the sysroot.
set(NORDA_CMAKE_DIR ${CMAKE_CURRENT_LIST_DIR})
macro(norda_find package debian)
    find_package(${package} QUIET ${ARGN})
    if(NOT ${package}_FOUND)
        set_property(GLOBAL APPEND PROPERTY NORDA_MISSING ${debian})
    endif()
endmacro()

# OpenCV: its CMake package comes with Debian's libopencv-dev meta package only, which cannot be
# installed for a second architecture; the component packages (libopencv-core-dev, ...) bring the
# headers and libraries, from which the imported targets opencv_<component> are made here.
macro(norda_find_opencv)
    find_package(OpenCV QUIET COMPONENTS ${ARGN})
    if(NOT OpenCV_FOUND)
        include(${NORDA_CMAKE_DIR}/NordaOpenCVComponents.cmake)
        norda_opencv_components(${ARGN})
    endif()
endmacro()

function(norda_report_missing)
    get_property(missing GLOBAL PROPERTY NORDA_MISSING)
    if(NOT missing)
        return()
    endif()
    list(REMOVE_DUPLICATES missing)
    list(JOIN missing " " names)
    if(CMAKE_CROSSCOMPILING)
        message(FATAL_ERROR
            "missing for the ${CMAKE_SYSTEM_PROCESSOR} build in the sysroot ${CMAKE_SYSROOT}: ${names} "
            "(the target architecture's packages; `tools/install-deps.sh arm64` makes a sysroot with all of them)")
    else()
        message(FATAL_ERROR "missing: ${names}: install them (`tools/install-deps.sh` does)")
    endif()
endfunction()
