// Random numbers for clients, objects and types, so that nobody relies on their order or size.
#include <cstdio>
#include <cstdlib>
#include <sys/random.h>

#include "broker.h"

uint32_t id_draw()
{
    uint32_t id = 0;
    while (id < UBUS_SYSTEM_OBJECT_MAX) {
        if (getrandom(&id, sizeof(id), 0) == (ssize_t)sizeof(id))
            continue;
        perror("ubusd: getrandom");
        abort();
    }
    return id;
}
