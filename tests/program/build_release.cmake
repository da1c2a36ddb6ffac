# Builds the programs as they are installed on a gateway: cmake -D SOURCE=... -D BUILD=... -D OPTIONS=... -P this file.
foreach(step
        "--preset;release;-B;${BUILD};-DKORVEL_BENCH=OFF;${OPTIONS}"
        "--build;${BUILD};--target;korvel;korvelctl")
    execute_process(COMMAND ${CMAKE_COMMAND} ${step} WORKING_DIRECTORY ${SOURCE} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
