# What the descriptions of other machines share: Debian's cross compilers, what is missing in KORVEL_PACKAGES, and an emulator for single programs. Expects machine_processor, machine_triplet, machine_loader (the program that
# loads libraries) and machine_emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${machine_processor})
set(CMAKE_C_COMPILER ${machine_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${machine_triplet}-g++)

# Libraries are found by naming the loader: an emulator that is told of another root shows a program that one for /.
set(machine_libraries /usr/${machine_triplet}/lib)
set(CMAKE_CROSSCOMPILING_EMULATOR
    ${machine_emulator} ${machine_libraries}/${machine_loader} --library-path ${machine_libraries})

# Libraries and headers of this machine are none of that one's.
set(KORVEL_PACKAGES "" CACHE PATH "Where packages of the other machine are unpacked")
set(CMAKE_FIND_ROOT_PATH ${KORVEL_PACKAGES})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
