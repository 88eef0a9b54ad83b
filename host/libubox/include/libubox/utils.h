/* Small helpers of libubox: container_of, array size, byte order, attributes. */
#pragma once

#include <endian.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/* The record of type `type` whose member `member` is *ptr. The conditional is never evaluated: it
 * makes a pointer to anything but that member a compile error. */
#ifndef container_of
#define container_of(ptr, type, member)                                                            \
    ((type *)((char *)(1 ? (ptr) : &((type *)NULL)->member) - offsetof(type, member)))
#endif

/* As container_of, and NULL stays NULL. Evaluates `ptr` twice. */
#ifndef container_of_safe
#define container_of_safe(ptr, type, member)                                                       \
    ((ptr) != NULL ? container_of(ptr, type, member) : (type *)NULL)
#endif

#ifndef ARRAY_SIZE
#define ARRAY_SIZE(array) (sizeof(array) / sizeof((array)[0]))
#endif

#ifndef BUILD_BUG_ON
#define BUILD_BUG_ON(condition) ((void)sizeof(char[1 - 2 * !!(condition)]))
#endif

#ifndef __packed
#define __packed __attribute__((packed))
#endif
#ifndef __hidden
#define __hidden __attribute__((visibility("hidden")))
#endif

/* Spoils the C++ attribute [[fallthrough]] just as it does on a router. */
#ifndef fallthrough
#define fallthrough __attribute__((__fallthrough__))
#endif

/* Not constant expressions, in C++ no more than in C. */
static inline uint16_t cpu_to_be16(uint16_t v)
{
    return htobe16(v);
}
static inline uint32_t cpu_to_be32(uint32_t v)
{
    return htobe32(v);
}
static inline uint64_t cpu_to_be64(uint64_t v)
{
    return htobe64(v);
}
static inline uint16_t be16_to_cpu(uint16_t v)
{
    return be16toh(v);
}
static inline uint32_t be32_to_cpu(uint32_t v)
{
    return be32toh(v);
}
static inline uint64_t be64_to_cpu(uint64_t v)
{
    return be64toh(v);
}

#ifdef __cplusplus
extern "C" {
#endif

/* One zeroed block that holds several parts: calloc_a(size, &ptr1, size1, ..., NULL). The block is
 * the first part; each further pointer is set to its part, at an offset rounded up to
 * sizeof(size_t). Sizes must have type size_t. One free() of the result frees all; NULL when memory
 * runs out. */
void *__calloc_a(size_t len, ...);
#define calloc_a(len, ...) __calloc_a(len, ##__VA_ARGS__, NULL)

#ifdef __cplusplus
}
#endif
