# That the build says nothing of what the environment's flags have said already: cmake -D SOURCE=... -D BUILD=... -P this
# file. Configures only, and looks at the commands that would compile.
function(read_commands type flags commands_out)
    execute_process(
        COMMAND ${CMAKE_COMMAND} -S ${SOURCE} -B ${BUILD} --fresh -G Ninja -DCMAKE_BUILD_TYPE=${type} -DKORVEL_PLATFORM=host
            -DKORVEL_TESTS=OFF "-DCMAKE_C_FLAGS=${flags}" "-DCMAKE_CXX_FLAGS=${flags}"
        OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    file(STRINGS ${BUILD}/compile_commands.json commands REGEX "\"command\": .*/src/main\\.cpp")
    list(LENGTH commands count)
    if(NOT count EQUAL 1)
        message(FATAL_ERROR "the daemon's main() is compiled ${count} times")
    endif()
    set(${commands_out} "${commands}" PARENT_SCOPE)
endfunction()

# expect(COMMAND PATTERN COUNT): how often a flag stands there.
function(expect command pattern wanted)
    string(REGEX MATCHALL "${pattern}" found "${command}")
    list(LENGTH found count)
    if(NOT count EQUAL wanted)
        message(SEND_ERROR "${pattern} stands ${count} times, not ${wanted}, in: ${command}")
    endif()
endfunction()

set(given "-Os -D_FORTIFY_SOURCE=1 -fstack-protector")
foreach(type Release Debug MinSizeRel)
    read_commands(${type} ${given} command)
    expect("${command}" "_FORTIFY_SOURCE" 1)
    expect("${command}" "-fstack-protector" 1)
endforeach()

read_commands(MinSizeRel "" command)
expect("${command}" "-D_FORTIFY_SOURCE=2" 1)
expect("${command}" "-fstack-protector-strong" 1)
