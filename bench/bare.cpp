// What cannot be avoided, and nothing else: an object on the bus that loads configurations, exports them as
// they are, replaces files safely, runs commands and reads what they print, in the order of a plan. It judges
// nothing, changes nothing and answers nothing, but for one method that answers what the daemon refuses with.
//
//   bench-bare [PLAN]            carries it out, if named, before the object is registered
//
// Lines of a plan:
//   load CONFIGURATION           loads it
//   replace CONFIGURATION        loads it, exports it and replaces its file
//   put PATH SOURCE              replaces a script by what SOURCE held when the plan was read
//   remove PATH
//   run COMMAND                  runs a shell command
//   ask COMMAND                  runs a shell command and reads what it prints
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <libubus.h>
#include <uci.h>

namespace {

[[noreturn]] void fail(const char *what)
{
    fprintf(stderr, "bench-bare: %s: %m\n", what);
    exit(EXIT_FAILURE);
}

void require(bool condition, const char *what)
{
    if (!condition)
        fail(what);
}

void sync_directory(const char *directory)
{
    const int file = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    require(file >= 0 && fsync(file) == 0, directory);
    close(file);
}

// A file that is written beside another, synced and renamed onto it; the directory is synced, too.
class replacement {
public:
    replacement(const char *path, mode_t mode) : path_(path)
    {
        snprintf(temporary_, sizeof(temporary_), "%s.bare-XXXXXX", path);
        const int file = mkostemp(temporary_, O_CLOEXEC);
        require(file >= 0 && fchmod(file, mode) == 0, temporary_);
        stream_ = fdopen(file, "w");
        require(stream_ != nullptr, temporary_);
    }
    FILE *stream() { return stream_; }
    void commit()
    {
        require(fflush(stream_) == 0 && fsync(fileno(stream_)) == 0 && fclose(stream_) == 0, temporary_);
        require(rename(temporary_, path_) == 0, path_);
        char directory[256];
        snprintf(directory, sizeof(directory), "%.*s", static_cast<int>(strrchr(path_, '/') - path_), path_);
        sync_directory(directory);
    }

private:
    const char *path_;
    char temporary_[256];
    FILE *stream_;
};

class loaded {
public:
    explicit loaded(const char *config) : context_(uci_alloc_context())
    {
        require(context_ && uci_load(context_, config, &package_) == UCI_OK, config);
    }
    ~loaded() { uci_free_context(context_); }
    loaded(const loaded &) = delete;
    loaded &operator=(const loaded &) = delete;
    void export_to(FILE *stream)
    {
        require(uci_export(context_, stream, package_, false) == UCI_OK, "export");
    }

private:
    uci_context *context_;
    uci_package *package_ = nullptr;
};

void replace_config(const char *config)
{
    char path[128];
    snprintf(path, sizeof(path), "%s/%s", UCI_CONFDIR, config);
    loaded package(config);
    replacement file(path, 0600);
    package.export_to(file.stream());
    file.commit();
}

void ask(const char *command)
{
    char reply[2048];
    FILE *const output = popen(command, "r");
    require(output != nullptr, command);
    (void)!fread(reply, 1, sizeof(reply), output);
    pclose(output);
}

struct step {
    char verb[16];
    char subject[256];
    char *content;
    size_t size;
};
step plan[1024];
size_t plan_size = 0;

void read_content(step &next, const char *path)
{
    FILE *const file = fopen(path, "r");
    require(file != nullptr, path);
    next.content = static_cast<char *>(malloc(65536));
    next.size = fread(next.content, 1, 65536, file);
    fclose(file);
}

void read_plan(const char *path)
{
    FILE *const file = fopen(path, "r");
    require(file != nullptr, path);
    while (plan_size > 0)
        free(plan[--plan_size].content);
    char line[512];
    while (fgets(line, sizeof(line), file)) {
        require(plan_size < sizeof(plan) / sizeof(*plan), "a plan that long");
        step &next = plan[plan_size++];
        next = {};
        line[strcspn(line, "\n")] = '\0';
        char *const subject = strchr(line, ' ');
        require(subject != nullptr, line);
        *subject = '\0';
        snprintf(next.verb, sizeof(next.verb), "%.15s", line);
        if (strcmp(line, "put") == 0) {
            char *const source = strrchr(subject + 1, ' ');
            require(source != nullptr, subject + 1);
            *source = '\0';
            read_content(next, source + 1);
        }
        require(strlen(subject + 1) < sizeof(next.subject), subject + 1);
        snprintf(next.subject, sizeof(next.subject), "%.255s", subject + 1);
    }
    fclose(file);
}

void carry_out(const step &next)
{
    const auto is = [&](const char *verb) { return strcmp(next.verb, verb) == 0; };
    if (is("load")) {
        const loaded package(next.subject);
    } else if (is("replace")) {
        replace_config(next.subject);
    } else if (is("put")) {
        replacement file(next.subject, 0755);
        fwrite(next.content, 1, next.size, file.stream());
        file.commit();
    } else if (is("remove")) {
        require(unlink(next.subject) == 0, next.subject);
    } else if (is("run")) {
        (void)!system(next.subject);
    } else if (is("ask")) {
        ask(next.subject);
    } else {
        fail(next.verb);
    }
}

void carry_out_plan()
{
    for (size_t i = 0; i < plan_size; i++)
        carry_out(plan[i]);
}

blob_buf nothing = {};

int answer(ubus_context *bus, ubus_request_data *request)
{
    blob_buf_init(&nothing, 0);
    return ubus_send_reply(bus, request, nothing.head);
}

int handle_empty(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
{
    return 0;
}

int handle_refuse(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    blob_buf_init(&nothing, 0);
    blobmsg_add_u32(&nothing, "status", static_cast<uint32_t>(-1));
    blobmsg_add_string(&nothing, "info", "korvel add ERR! Invalid MTU.");
    return ubus_send_reply(bus, request, nothing.head);
}

constexpr blobmsg_policy plan_policy[] = {{"file", BLOBMSG_TYPE_STRING}};

int handle_plan(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                blob_attr *message)
{
    blob_attr *file = nullptr;
    blobmsg_parse(plan_policy, 1, &file, blob_data(message), static_cast<unsigned>(blob_len(message)));
    if (!file)
        return UBUS_STATUS_INVALID_ARGUMENT;
    read_plan(blobmsg_get_string(file));
    return answer(bus, request);
}

int handle_go(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    carry_out_plan();
    return answer(bus, request);
}

const ubus_method methods[] = {
    UBUS_METHOD_NOARG("empty", handle_empty),
    UBUS_METHOD_NOARG("refuse", handle_refuse),
    UBUS_METHOD("plan", handle_plan, plan_policy),
    UBUS_METHOD_NOARG("go", handle_go),
};
ubus_object_type type = UBUS_OBJECT_TYPE("bare", methods);

} // namespace

int main(int argc, char **argv)
{
    if (argc > 1) {
        read_plan(argv[1]);
        carry_out_plan();
    }
    uloop_handle_sigchld = false;
    uloop_init();
    ubus_context *const bus = ubus_connect(nullptr);
    require(bus != nullptr, "bus");
    ubus_add_uloop(bus);
    static ubus_object object = {};
    object.name = "bare";
    object.type = &type;
    object.methods = methods;
    object.n_methods = static_cast<int>(sizeof(methods) / sizeof(*methods));
    require(ubus_add_object(bus, &object) == UBUS_STATUS_OK, "object");
    uloop_run();
    return EXIT_SUCCESS;
}
