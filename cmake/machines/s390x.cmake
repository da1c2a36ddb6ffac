# 64 bits, big endian, char without a sign.
set(machine_processor s390x)
set(machine_triplet s390x-linux-gnu)
set(machine_loader ld64.so.1)
set(machine_emulator qemu-s390x)
include(${CMAKE_CURRENT_LIST_DIR}/machine.cmake)
