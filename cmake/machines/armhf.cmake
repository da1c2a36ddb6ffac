# 32 bits, little endian, char without a sign.
set(machine_processor arm)
set(machine_triplet arm-linux-gnueabihf)
set(machine_loader ld-linux-armhf.so.3)
set(machine_emulator qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/machine.cmake)
