# Installs the built library into a scratch prefix and builds and runs an outside project against it.
set(prefix ${BIN}/consumer-install)
set(work ${BIN}/consumer-build)
file(REMOVE_RECURSE ${prefix} ${work})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BIN} --prefix ${prefix} RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
    message(FATAL_ERROR "install failed")
endif()
set(cross)
if(TOOLCHAIN) # a cross build: the consumer is built the same way and run by the emulator
    set(cross -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -DCMAKE_SYSROOT=${SYSROOT} -DNORDA_CROSS_PREFIX=${CROSS_PREFIX}
              -DCMAKE_FIND_ROOT_PATH=${prefix})
endif()
separate_arguments(emulator UNIX_COMMAND "${EMULATOR}")
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SRC}/examples/consumer -B ${work} -DCMAKE_PREFIX_PATH=${prefix}
                        -DCMAKE_BUILD_TYPE=Release ${cross} RESULT_VARIABLE rc)
if(rc)
    message(FATAL_ERROR "configure of the consumer failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${work} RESULT_VARIABLE rc)
if(rc)
    message(FATAL_ERROR "build of the consumer failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/lib ${emulator} ${work}/consumer
                RESULT_VARIABLE rc)
if(rc)
    message(FATAL_ERROR "the consumer failed")
endif()
# The installed Python module imports from the prefix and finds the installed library by itself.
if(PYTHON)
    execute_process(COMMAND ${CMAKE_COMMAND} -E env PYTHONPATH=${prefix}/${PYDIR}
                            ${PYTHON} -c "import nordalib; assert nordalib.__file__.startswith('${prefix}'); nordalib.palette('iron')"
                    RESULT_VARIABLE rc)
    if(rc)
        message(FATAL_ERROR "the installed Python module does not import")
    endif()
endif()
