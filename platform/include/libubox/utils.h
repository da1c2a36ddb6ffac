/* What the other headers of this folder, and programs that include them, rely on: byte order, array lengths,
 * the way from a member back to its structure, and compiler annotations. */
#ifndef LIBUBOX_UTILS_H
#define LIBUBOX_UTILS_H

#include <stdarg.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <sys/types.h>
#include <unistd.h>

#define ARRAY_SIZE(array) (sizeof(array) / sizeof((array)[0]))

/* The structure of `type` whose `member` is at `pointer`. */
#define container_of(pointer, type, member) ((type *)((char *)(pointer)-offsetof(type, member)))

#define __packed __attribute__((__packed__))
#define __hidden __attribute__((__visibility__("hidden")))
#define __constructor __attribute__((__constructor__))
#define fallthrough __attribute__((__fallthrough__))
#define prefetch(address)

#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define const_cpu_to_be16(value) ((uint16_t)__builtin_bswap16(value))
#define const_cpu_to_be32(value) ((uint32_t)__builtin_bswap32(value))
#define const_cpu_to_be64(value) ((uint64_t)__builtin_bswap64(value))
#else
#define const_cpu_to_be16(value) ((uint16_t)(value))
#define const_cpu_to_be32(value) ((uint32_t)(value))
#define const_cpu_to_be64(value) ((uint64_t)(value))
#endif

/* Functions, unlike the macros above: not for constant expressions. */
static inline uint16_t cpu_to_be16(uint16_t value)
{
    return const_cpu_to_be16(value);
}

static inline uint32_t cpu_to_be32(uint32_t value)
{
    return const_cpu_to_be32(value);
}

static inline uint64_t cpu_to_be64(uint64_t value)
{
    return const_cpu_to_be64(value);
}

static inline uint16_t be16_to_cpu(uint16_t value)
{
    return const_cpu_to_be16(value);
}

static inline uint32_t be32_to_cpu(uint32_t value)
{
    return const_cpu_to_be32(value);
}

static inline uint64_t be64_to_cpu(uint64_t value)
{
    return const_cpu_to_be64(value);
}

#endif
