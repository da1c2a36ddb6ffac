/* Declarations that every release of the device's library has, and no more. As on the device, without C
 * linkage of their own, and with the macros that leak. */
#ifndef DEVICE_LIBUBOX_UTILS_H
#define DEVICE_LIBUBOX_UTILS_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/time.h>
#include <sys/types.h>

#define ARRAY_SIZE(array) (sizeof(array) / sizeof((array)[0]))
#define fallthrough __attribute__((__fallthrough__))
#define prefetch(x)
#define __packed __attribute__((packed))
#define __hidden __attribute__((visibility("hidden")))
#define __constructor __attribute__((constructor))
#define container_of(pointer, type, member)                                                                  \
    ({                                                                                                       \
        const __typeof__(((type *)NULL)->member) *inner = (pointer);                                         \
        (type *)((char *)inner - offsetof(type, member));                                                    \
    })
#define cpu_to_be16(value)                                                                                   \
    ({                                                                                                       \
        uint16_t word = (value);                                                                             \
        __builtin_bswap16(word);                                                                             \
    })
#define cpu_to_be32(value)                                                                                   \
    ({                                                                                                       \
        uint32_t word = (value);                                                                             \
        __builtin_bswap32(word);                                                                             \
    })
#define cpu_to_be64(value)                                                                                   \
    ({                                                                                                       \
        uint64_t word = (value);                                                                             \
        __builtin_bswap64(word);                                                                             \
    })
#define be16_to_cpu(value) cpu_to_be16(value)
#define be32_to_cpu(value) cpu_to_be32(value)
#define be64_to_cpu(value) cpu_to_be64(value)
#define const_cpu_to_be32(value) __builtin_bswap32(value)

#endif
