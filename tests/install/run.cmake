# Installs the build in BUILD_DIR below WORK_DIR, and builds and runs the project in CONSUMER_DIR
# against it: by find_package, then by pkg-config.

set(prefix "${WORK_DIR}/prefix")
set(expected "GxfTypes ${VERSION}: EOS:16b@0\n")

function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE status OUTPUT_VARIABLE output
                                                           ERROR_VARIABLE output)
    if(NOT status STREQUAL "0")
        list(JOIN ARGV " " command)
        message(FATAL_ERROR "${command}\nended with ${status}:\n${output}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()

function(check_consumer program)
    run("${program}")
    if(NOT output STREQUAL expected)
        message(FATAL_ERROR "${program} printed\n${output}instead of\n${expected}")
    endif()
    message(STATUS "${program}: ok")
endfunction()

file(REMOVE_RECURSE "${WORK_DIR}")
run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}" --config "${CONFIG}")

if(EXISTS "${prefix}/bin/gxf")
    run("${prefix}/bin/gxf" --version)
    if(NOT output MATCHES "${VERSION}")
        message(FATAL_ERROR "gxf --version printed\n${output}without ${VERSION}")
    endif()
endif()

run(${CMAKE_COMMAND} -S "${CONSUMER_DIR}" -B "${WORK_DIR}/build" -G "${GENERATOR}"
    "-DCMAKE_PREFIX_PATH=${prefix}" "-DCMAKE_BUILD_TYPE=${CONFIG}"
    "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}" "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}"
    "-DGXF_EXPECTED_VERSION=${VERSION}" "-DGXF_EXPECTED_PREFIX=${prefix}")
run(${CMAKE_COMMAND} --build "${WORK_DIR}/build" --config "${CONFIG}")
check_consumer("${WORK_DIR}/build/consumer")

find_program(PKG_CONFIG NAMES pkg-config pkgconf REQUIRED)
set(ENV{LD_LIBRARY_PATH} "${prefix}/${LIBDIR}:$ENV{LD_LIBRARY_PATH}")
set(ENV{PKG_CONFIG_PATH} "${prefix}/${LIBDIR}/pkgconfig:$ENV{PKG_CONFIG_PATH}")
foreach(module gxftypes gxfstream)
    run(${PKG_CONFIG} --modversion ${module})
    if(NOT output STREQUAL "${VERSION}\n")
        message(FATAL_ERROR "${module}.pc has the version ${output}instead of ${VERSION}")
    endif()
    run(${PKG_CONFIG} --cflags --libs ${module})
    separate_arguments(flags UNIX_COMMAND "${output}")
    separate_arguments(compiler_flags UNIX_COMMAND "${CXX_FLAGS}")
    run("${CXX_COMPILER}" ${compiler_flags} -std=c++20 "-DGXF_VERSION=\"${VERSION}\""
        "${CONSUMER_DIR}/main.cpp" ${flags} -o "${WORK_DIR}/consumer_${module}")
    check_consumer("${WORK_DIR}/consumer_${module}")
endforeach()
