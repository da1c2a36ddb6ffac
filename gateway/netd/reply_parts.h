// Members of a reply, written in order.
#pragma once

#include "netd/bus_headers.h"

#include <string>
#include <vector>

inline void add_bool(blob_buf *reply, const char *name, bool value)
{
    blobmsg_add_u8(reply, name, value);
}

inline void add_int(blob_buf *reply, const char *name, int value)
{
    blobmsg_add_u32(reply, name, static_cast<uint32_t>(value));
}

// `name` is nullptr for an element of an array.
inline void add_text(blob_buf *reply, const char *name, const std::string &value)
{
    blobmsg_add_string(reply, name, value.c_str());
}

// A container that is open as long as this lives.
class container {
public:
    container(blob_buf *reply, const char *name, bool array)
        : reply_(reply), cookie_(blobmsg_open_nested(reply, name, array))
    {}
    ~container() { blob_nest_end(reply_, cookie_); }
    container(const container &) = delete;
    container &operator=(const container &) = delete;

private:
    blob_buf *reply_;
    void *cookie_;
};

struct table : container {
    table(blob_buf *reply, const char *name) : container(reply, name, false) {}
};

struct array : container {
    array(blob_buf *reply, const char *name) : container(reply, name, true) {}
};

inline void add_texts(blob_buf *reply, const char *name, const std::vector<std::string> &values)
{
    const array texts(reply, name);
    for (const std::string &value : values)
        add_text(reply, nullptr, value);
}
