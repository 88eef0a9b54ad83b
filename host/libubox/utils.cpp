// The one helper of libubox that is not inline: several zeroed parts in one block.
#include <cstdarg>
#include <cstdlib>
#include <libubox/utils.h>

static size_t part_size(size_t len)
{
    return (len + sizeof(size_t) - 1) & ~(sizeof(size_t) - 1);
}

void *__calloc_a(size_t len, ...)
{
    va_list measure, assign;
    va_start(measure, len);
    va_copy(assign, measure);

    size_t total = part_size(len);
    while (va_arg(measure, void **))
        total += part_size(va_arg(measure, size_t));
    va_end(measure);

    auto *block = static_cast<char *>(calloc(1, total));
    char *part = block ? block + part_size(len) : nullptr;
    while (void **ptr = block ? va_arg(assign, void **) : nullptr) {
        *ptr = part;
        part += part_size(va_arg(assign, size_t));
    }
    va_end(assign);
    return block;
}
