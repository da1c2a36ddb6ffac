# For a build that is for another machine: scripts which run its programs under an emulator, for a gateway with only the
# daemon of that machine (emulated/daemon) and for one with everything that is linked with its libraries (emulated/all).
function(korvel_emulated directory program)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/emulated/${directory}/${program}
        CONTENT "#!/bin/sh\nexec ${emulator} --argv0 ${program} $<TARGET_FILE:${program}> \"$@\"\n"
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endfunction()

korvel_emulated(daemon korvel)
foreach(program korvel ubusd ubus uci)
    korvel_emulated(all ${program})
endforeach()
