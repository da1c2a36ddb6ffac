# korvel_flags: warnings, sanitizers, coverage and hardening for everything in the tree.
# korvel_freestanding: on top of that, what keeps the C++ run-time library out of a program that runs on a gateway.
add_library(korvel_flags INTERFACE)
target_compile_options(korvel_flags INTERFACE
    -Wall -Wextra -Wshadow -Wconversion -Wformat=2 -Wno-missing-field-initializers
    $<$<BOOL:${KORVEL_WERROR}>:-Werror>)
# With 32 bits some C libraries fail to look at a file whose number or size has more, unless they are asked for it.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    target_compile_definitions(korvel_flags INTERFACE _FILE_OFFSET_BITS=64)
endif()

if(KORVEL_SANITIZE)
    target_compile_options(korvel_flags INTERFACE -fsanitize=${KORVEL_SANITIZE} -fno-omit-frame-pointer
        -fno-sanitize-recover=all)
    target_link_options(korvel_flags INTERFACE -fsanitize=${KORVEL_SANITIZE})
endif()
if(KORVEL_COVERAGE)
    target_compile_options(korvel_flags INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(korvel_flags INTERFACE --coverage)
endif()

add_library(korvel_freestanding INTERFACE)
target_link_libraries(korvel_freestanding INTERFACE korvel_flags)
target_compile_options(korvel_freestanding INTERFACE
    -ffunction-sections -fdata-sections
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
# Nothing unwinds a stack: there are no exceptions, and no thread is cancelled.
target_compile_options(korvel_freestanding INTERFACE
    $<$<NOT:$<CONFIG:Debug>>:-fno-asynchronous-unwind-tables -fno-unwind-tables>)

set(korvel_release "$<CONFIG:MinSizeRel>")
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
if(KORVEL_SMALLEST)
    # Packed relocations need a loader that knows them: glibc 2.36, musl 1.2.4. Data follow code without a gap.
    target_compile_options(korvel_flags INTERFACE -Oz -fno-plt)
    target_link_options(korvel_flags INTERFACE -Wl,-z,noseparate-code -Wl,-z,norelro -Wl,-z,pack-relative-relocs
        -Wl,-z,common-page-size=64)
    set(korvel_release 0)
endif()
# An environment that hardens by itself, as an OpenWrt build tree does, is not contradicted.
set(korvel_given_flags "${CMAKE_C_FLAGS} ${CMAKE_CXX_FLAGS}")
if(NOT korvel_given_flags MATCHES "-fstack-protector|-fno-stack-protector")
    target_compile_options(korvel_flags INTERFACE "$<${korvel_release}:-fstack-protector-strong>")
endif()
if(NOT korvel_given_flags MATCHES "_FORTIFY_SOURCE")
    target_compile_definitions(korvel_flags INTERFACE "$<${korvel_release}:_FORTIFY_SOURCE=2>")
endif()
target_link_options(korvel_flags INTERFACE
    "$<${korvel_release}:-Wl,-z,relro,-z,now>" "$<$<CONFIG:MinSizeRel>:-Wl,--gc-sections>" "$<$<CONFIG:MinSizeRel>:-pie>")
if(CMAKE_BUILD_TYPE STREQUAL "MinSizeRel")
    set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
endif()
