// Messages from JSON, read by json-c, and back to JSON text. Printing keeps its own stack of open containers:
// messages come from other programs, and their nesting must not decide how much of the thread's stack is
// used.
#include <libubox/blobmsg_json.h>

#include <float.h>
#include <inttypes.h>
#include <json-c/json.h>
#include <stdlib.h>
#include <string.h>

namespace {

bool add_members(blob_buf *buf, json_object *object)
{
    json_object_object_foreach(object, key, value)
    {
        if (!blobmsg_add_json_element(buf, key, value))
            return false;
    }
    return true;
}

bool add_elements(blob_buf *buf, json_object *array)
{
    const size_t count = json_object_array_length(array);
    for (size_t i = 0; i < count; i++) {
        if (!blobmsg_add_json_element(buf, nullptr, json_object_array_get_idx(array, i)))
            return false;
    }
    return true;
}

bool add_container(blob_buf *buf, const char *name, json_object *value, bool array)
{
    void *const cookie = blobmsg_open_nested(buf, name, array);
    if (!cookie)
        return false;
    const bool added = array ? add_elements(buf, value) : add_members(buf, value);
    blob_nest_end(buf, cookie);
    return added;
}

int add_integer(blob_buf *buf, const char *name, int64_t value)
{
    if (value < INT32_MIN || value > INT32_MAX)
        return blobmsg_add_u64(buf, name, static_cast<uint64_t>(value));
    return blobmsg_add_u32(buf, name, static_cast<uint32_t>(value));
}

// What json-c made of a text: adds it if it is an object, and releases it.
bool add_parsed(blob_buf *buf, json_object *object)
{
    const bool added = blobmsg_add_object(buf, object);
    json_object_put(object);
    return added;
}

// Text that grows; once memory ran out, it stays failed and further text is dropped.
class growing_text {
public:
    growing_text() = default;
    growing_text(const growing_text &) = delete;
    growing_text &operator=(const growing_text &) = delete;
    ~growing_text() { free(data_); }

    void add(const char *text, size_t length)
    {
        if (!make_room(length + 1))
            return;
        memcpy(data_ + length_, text, length);
        length_ += length;
    }
    void add(const char *text) { add(text, strlen(text)); }
    void add(char c) { add(&c, 1); }

    // The caller's to free; NULL when memory ran out.
    char *release()
    {
        if (!make_room(1))
            return nullptr;
        data_[length_] = '\0';
        char *const text = data_;
        data_ = nullptr;
        return text;
    }

    void fail() { failed_ = true; }
    bool failed() const { return failed_; }

private:
    bool make_room(size_t more)
    {
        if (failed_)
            return false;
        if (capacity_ - length_ >= more)
            return true;
        const size_t capacity = (capacity_ + more) * 2;
        char *const data = static_cast<char *>(realloc(data_, capacity));
        if (!data) {
            failed_ = true;
            return false;
        }
        data_ = data;
        capacity_ = capacity;
        return true;
    }

    char *data_ = nullptr;
    size_t length_ = 0;
    size_t capacity_ = 0;
    bool failed_ = false;
};

void add_character(growing_text &out, char c)
{
    switch (c) {
    case '\b':
        return out.add("\\b");
    case '\n':
        return out.add("\\n");
    case '\t':
        return out.add("\\t");
    case '\r':
        return out.add("\\r");
    case '"':
        return out.add("\\\"");
    case '\\':
        return out.add("\\\\");
    }
    if (static_cast<unsigned char>(c) >= ' ')
        return out.add(c);
    char escape[sizeof("\\u0000")];
    snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned>(c));
    out.add(escape);
}

void add_quoted(growing_text &out, const char *text)
{
    out.add('"');
    for (; *text; text++)
        add_character(out, *text);
    out.add('"');
}

void add_number(growing_text &out, int64_t value)
{
    char digits[sizeof("-9223372036854775808")];
    snprintf(digits, sizeof(digits), "%" PRId64, value);
    out.add(digits);
}

void add_number(growing_text &out, double value)
{
    char digits[DBL_MAX_10_EXP + sizeof("-1.000000")];
    snprintf(digits, sizeof(digits), "%f", value);
    out.add(digits);
}

void add_scalar(growing_text &out, const blob_attr *attr)
{
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_UNSPEC:
        return out.add("null");
    case BLOBMSG_TYPE_BOOL:
        return out.add(blobmsg_get_bool(attr) ? "true" : "false");
    case BLOBMSG_TYPE_STRING:
        return add_quoted(out, blobmsg_get_string(attr));
    case BLOBMSG_TYPE_DOUBLE:
        return add_number(out, blobmsg_get_double(attr));
    default:
        return add_number(out, blobmsg_cast_s64(attr));
    }
}

class json_printer {
public:
    json_printer(blobmsg_json_format_t cb, void *priv, int indent) : cb_(cb), priv_(priv), indent_(indent) {}
    json_printer(const json_printer &) = delete;
    json_printer &operator=(const json_printer &) = delete;
    ~json_printer() { free(open_); }

    // Prints nothing for a malformed attribute.
    void print_attribute(blob_attr *attr, size_t available, bool with_name)
    {
        if (!blobmsg_check_attr_len(attr, false, available))
            return;
        if (with_name && *blobmsg_name(attr)) {
            add_quoted(out_, blobmsg_name(attr));
            out_.add(indent_ < 0 ? ":" : ": ");
        }
        print_value(attr);
    }

    void print_children(const blob_attr *attr, bool array)
    {
        open({static_cast<blob_attr *>(blobmsg_data(attr)), blobmsg_data_len(attr), array, true});
    }

    // Completes the containers that are still open, and gives the text.
    char *finish()
    {
        while (depth_ > 0 && !out_.failed())
            continue_container();
        return out_.release();
    }

private:
    struct container {
        blob_attr *next;
        size_t rem;
        bool array;
        bool at_first;
    };

    void print_value(blob_attr *attr)
    {
        const char *const replacement = cb_ ? cb_(priv_, attr) : nullptr;
        if (replacement)
            return out_.add(replacement);
        const int type = blobmsg_type(attr);
        if (type == BLOBMSG_TYPE_ARRAY || type == BLOBMSG_TYPE_TABLE)
            return print_children(attr, type == BLOBMSG_TYPE_ARRAY);
        add_scalar(out_, attr);
    }

    void open(const container &opened)
    {
        if (depth_ == capacity_ && !grow_stack())
            return out_.fail();
        open_[depth_++] = opened;
        out_.add(opened.array ? '[' : '{');
        start_line();
    }

    // Prints the next member of the innermost container, or its end.
    void continue_container()
    {
        container &inner = open_[depth_ - 1];
        if (!blob_fits(inner.next, inner.rem)) {
            const bool array = inner.array;
            depth_--;
            start_line();
            return out_.add(array ? ']' : '}');
        }
        if (!inner.at_first) {
            out_.add(',');
            start_line();
        }
        blob_attr *const member = inner.next;
        const size_t available = inner.rem;
        inner.at_first = false;
        inner.rem -= blob_pad_len(member);
        inner.next = blob_next(member);
        print_attribute(member, available, !inner.array);
    }

    void start_line()
    {
        constexpr char tabs[] = "\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t";
        if (indent_ < 0)
            return;
        const size_t level = static_cast<size_t>(indent_) + depth_;
        out_.add('\n');
        out_.add(tabs, level < sizeof(tabs) ? level : sizeof(tabs) - 1);
    }

    bool grow_stack()
    {
        const size_t capacity = capacity_ * 2 + 16;
        container *const grown = static_cast<container *>(realloc(open_, capacity * sizeof(container)));
        if (!grown)
            return false;
        open_ = grown;
        capacity_ = capacity;
        return true;
    }

    growing_text out_;
    blobmsg_json_format_t cb_;
    void *priv_;
    int indent_;
    container *open_ = nullptr;
    size_t depth_ = 0;
    size_t capacity_ = 0;
};

} // namespace

extern "C" {

bool blobmsg_add_json_element(blob_buf *buf, const char *name, json_object *value)
{
    switch (json_object_get_type(value)) {
    case json_type_object:
        return add_container(buf, name, value, false);
    case json_type_array:
        return add_container(buf, name, value, true);
    case json_type_string:
        return blobmsg_add_string(buf, name, json_object_get_string(value)) == 0;
    case json_type_boolean:
        return blobmsg_add_u8(buf, name, json_object_get_boolean(value) ? 1 : 0) == 0;
    case json_type_int:
        return add_integer(buf, name, json_object_get_int64(value)) == 0;
    case json_type_double:
        return blobmsg_add_double(buf, name, json_object_get_double(value)) == 0;
    case json_type_null:
        return blobmsg_add_field(buf, BLOBMSG_TYPE_UNSPEC, name, nullptr, 0) == 0;
    }
    return false;
}

bool blobmsg_add_object(blob_buf *buf, json_object *object)
{
    return json_object_is_type(object, json_type_object) && add_members(buf, object);
}

bool blobmsg_add_json_from_string(blob_buf *buf, const char *text)
{
    return add_parsed(buf, json_tokener_parse(text));
}

bool blobmsg_add_json_from_file(blob_buf *buf, const char *file)
{
    return add_parsed(buf, json_object_from_file(file));
}

char *blobmsg_format_json_with_cb(blob_attr *attr, bool list, blobmsg_json_format_t cb, void *priv,
                                  int indent)
{
    json_printer printer(cb, priv, indent);
    if (list)
        printer.print_children(attr, blob_is_extended(attr) && blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY);
    else
        printer.print_attribute(attr, blob_raw_len(attr), true);
    return printer.finish();
}

char *blobmsg_format_json_value_with_cb(blob_attr *attr, blobmsg_json_format_t cb, void *priv, int indent)
{
    json_printer printer(cb, priv, indent);
    printer.print_attribute(attr, blob_raw_len(attr), false);
    return printer.finish();
}

} // extern "C"
