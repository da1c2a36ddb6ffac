# Builds korvelctl as it is installed on a gateway, against libraries that are shared as a gateway's are, and holds its
# stripped file to a limit: cmake -D SOURCE=... -D BUILD=... -D LIBRARIES=name:archive;... -D LIMIT=bytes -P this file.
# The libraries are the host versions, made shared; of them only their names and calls get into the program.
file(MAKE_DIRECTORY ${BUILD}/libraries/lib)
file(COPY ${SOURCE}/platform/include DESTINATION ${BUILD}/libraries)
foreach(pair IN LISTS LIBRARIES)
    string(REGEX MATCH "^([^:]*):(.*)$" matched ${pair})
    execute_process(COMMAND ${COMPILER} -shared -o ${BUILD}/libraries/lib/lib${CMAKE_MATCH_1}.so
        -Wl,--whole-archive ${CMAKE_MATCH_2} -Wl,--no-whole-archive COMMAND_ERROR_IS_FATAL ANY)
endforeach()
foreach(step
        "--preset;release;-B;${BUILD};-DKORVEL_BENCH=OFF;-DKORVEL_PLATFORM=system;-DCMAKE_PREFIX_PATH=${BUILD}/libraries;-DCMAKE_EXE_LINKER_FLAGS=-Wl,--unresolved-symbols=ignore-in-shared-libs"
        "--build;${BUILD};--target;korvelctl")
    execute_process(COMMAND ${CMAKE_COMMAND} ${step} WORKING_DIRECTORY ${SOURCE} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
execute_process(COMMAND strip -o ${BUILD}/stripped ${BUILD}/bin/korvelctl COMMAND_ERROR_IS_FATAL ANY)
file(SIZE ${BUILD}/stripped size)
message("korvelctl: ${size} bytes, stripped, of at most ${LIMIT}")
if(size GREATER_EQUAL LIMIT)
    message(FATAL_ERROR "korvelctl is too big")
endif()
