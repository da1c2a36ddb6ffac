#include "write_whole.h"

#include <cerrno>

#include <unistd.h>

bool write_whole(int descriptor, const char *data, size_t size)
{
    while (size > 0) {
        const ssize_t count = write(descriptor, data, size);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        data += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}
