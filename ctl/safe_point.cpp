// The file of a safe point: a line "korvel safe point 1"; for each file a line "PATH SIZE" and its bytes and
// a line feed; and a last line "end HASH" with the hash of all before it.
#include "ctl/safe_point.h"

#include "base/config.h"
#include "base/heap.h"
#include "base/os.h"
#include "base/recovery.h"
#include "base/record.h"
#include "base/step_queue.h"
#include "ctl/bus.h"
#include "ctl/option_reader.h"
#include "ctl/output.h"
#include "ctl/stored.h"
#include "service/reload.h"
#include "service/settings.h"
#include "wan/wan_names.h"

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <optional>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr char directory[] = "/etc/korvel/safe-points";
constexpr char head[] = "korvel safe point 1\n";
constexpr char tail[] = "end ";
constexpr size_t kept_points = 5;
constexpr size_t most_files = 600; // five configurations, two scripts of each identifier
constexpr long greatest_file = 4 * 1024 * 1024;
constexpr int most_attempts = 5;

constexpr const char *configurations[] = {"network", "firewall", "omcproxy", "upnpd", "dhcp"};
constexpr char config_directory[] = "/etc/config/";
// The scripts of WANs, and nothing else in these directories.
constexpr struct {
    const char *directory, *start;
} script_places[] = {{"/etc/hotplug.d/iface/", "99-wan_"}, {"/etc/korvel/", "rule_"}};

struct path_text {
    char text[256] = {};
    explicit path_text(const char *first, const char *second = "")
    {
        (void)text_ref(text).format("%s%s", first, second);
    }
};

path_text path_of(const char *name)
{
    path_text path(directory, "/");
    (void)text_ref(path.text).format("%s/%s", directory, name);
    return path;
}

// A file as a whole; data is null when it cannot be read.
struct whole_file {
    heap_ptr<char[]> data;
    size_t size = 0;
    explicit whole_file(const char *path)
    {
        struct stat info = {};
        FILE *const stream = fopen(path, "re");
        if (!stream)
            return;
        if (fstat(fileno(stream), &info) == 0 && S_ISREG(info.st_mode) && info.st_size <= greatest_file)
            data.reset(static_cast<char *>(malloc(static_cast<size_t>(info.st_size) + 1)));
        if (data) {
            size = fread(data.get(), 1, static_cast<size_t>(info.st_size), stream);
            data[size] = '\0';
            if (ferror(stream) || size != static_cast<size_t>(info.st_size))
                data.reset();
        }
        (void)fclose(stream);
    }
    std::string_view view() const { return {data.get(), size}; }
};

uint64_t hash_of(std::string_view text)
{
    uint64_t hash = 0xcbf29ce484222325;
    for (const char character : text)
        hash = (hash ^ static_cast<unsigned char>(character)) * 0x100000001b3;
    return hash;
}

bool is_script(const char *path)
{
    for (const auto &place : script_places) {
        const size_t length = strlen(place.directory);
        if (strncmp(path, place.directory, length) == 0 &&
            strncmp(path + length, place.start, strlen(place.start)) == 0)
            return strchr(path + length, '/') == nullptr;
    }
    return false;
}

bool is_configuration(const char *path)
{
    for (const char *const name : configurations)
        if (strcmp(path, path_text(config_directory, name).text) == 0)
            return true;
    return false;
}

// Calls body(path) with each script that is there.
template <typename callable> void each_script(callable body)
{
    for (const auto &place : script_places) {
        DIR *const stream = opendir(place.directory);
        while (const dirent *const entry = stream ? readdir(stream) : nullptr) {
            const path_text path(place.directory, entry->d_name);
            if (is_script(path.text) && mark_of(path.text).kind == content_mark::file)
                body(path.text);
        }
        if (stream)
            (void)closedir(stream);
    }
}

// A text that grows.
class growing_text {
public:
    growing_text() : stream_(open_memstream(&data_, &size_)) {}
    ~growing_text()
    {
        close();
        free(data_);
    }
    growing_text(const growing_text &) = delete;
    growing_text &operator=(const growing_text &) = delete;

    FILE *stream() const { return stream_; }
    // What is in it so far; false when memory is short.
    bool view(std::string_view &view_out)
    {
        if (!stream_ || fflush(stream_) != 0)
            return false;
        view_out = {data_, size_};
        return true;
    }

private:
    void close()
    {
        if (stream_)
            (void)fclose(stream_);
        stream_ = nullptr;
    }
    char *data_ = nullptr;
    size_t size_ = 0;
    FILE *stream_;
};

// Adds a file. False, told: it cannot be read.
bool add_file(FILE *stream, const char *path)
{
    const whole_file file(path);
    if (!file.data) {
        (void)fail(exit_status::refused, "%s cannot be read: %s", path, strerror(errno));
        return false;
    }
    (void)fprintf(stream, "%s %zu\n", path, file.size);
    (void)fwrite(file.data.get(), 1, file.size, stream);
    (void)fputc('\n', stream);
    return true;
}

bool add_all(FILE *stream)
{
    bool good = true;
    (void)fputs(head, stream);
    for (const char *const name : configurations) {
        const path_text path(config_directory, name);
        if (file_exists(path.text)) // one that is not installed is nobody's
            good = good && add_file(stream, path.text);
    }
    each_script([&](const char *path) { good = good && add_file(stream, path); });
    return good;
}

// Waits for changes that somebody is at work on, a minute at most, and completes those that were left.
bool settle_changes()
{
    constexpr timespec pause = {0, 100 * 1000 * 1000};
    for (int i = 0; i < 600; i++) {
        bool any_busy = false;
        for (const char *const path : record_paths) {
            bool busy = false;
            record_file record;
            if (record.open_existing(path, &busy))
                record.keep();
            any_busy = any_busy || busy;
        }
        if (!any_busy && complete_recorded_operations())
            return true;
        (void)nanosleep(&pause, nullptr);
    }
    return false;
}

// A safe point in memory: its files by path, with their content in it.
class safe_point {
public:
    // Tells what is wrong with it.
    exit_status read(const char *name);
    struct entry {
        char path[256];
        std::string_view content;
    };
    const entry *begin() const { return entries_.get(); }
    const entry *end() const { return entries_.get() + count_; }
    const entry *find(const char *path) const
    {
        for (const entry &each : *this)
            if (strcmp(each.path, path) == 0)
                return &each;
        return nullptr;
    }

private:
    bool parse(std::string_view text);
    bool take_entry(std::string_view &text);

    std::optional<whole_file> file_;
    heap_ptr<entry[]> entries_;
    size_t count_ = 0;
};

bool safe_point::take_entry(std::string_view &text)
{
    const size_t line = text.find('\n'), blank = text.find(' ');
    entry &added = entries_[count_];
    char digits[12] = {};
    uint32_t size = 0;
    if (line == std::string_view::npos || blank == std::string_view::npos || blank >= line ||
        line - blank > sizeof(digits) || blank >= sizeof(added.path) || count_ == most_files)
        return false;
    memcpy(digits, text.data() + blank + 1, line - blank - 1);
    (void)text_ref(added.path).format("%.*s", static_cast<int>(blank), text.data());
    if (!read_number(digits, greatest_file, &size) || text.size() < line + 1 + size + 1)
        return false;
    added.content = {text.data() + line + 1, size};
    text.remove_prefix(line + 1 + size + 1);
    count_++;
    // Nothing but its own kind is ever written back.
    return is_configuration(added.path) || is_script(added.path);
}

bool safe_point::parse(std::string_view text)
{
    const size_t last = text.rfind(tail);
    if (text.find(head) != 0 || last == std::string_view::npos)
        return false;
    char expected[32];
    std::string_view body = text, end = text;
    body.remove_suffix(text.size() - last);
    end.remove_prefix(last);
    (void)text_ref(expected).format("%s%016" PRIx64 "\n", tail, hash_of(body));
    if (end != expected)
        return false;
    body.remove_prefix(strlen(head));
    while (!body.empty())
        if (!take_entry(body))
            return false;
    return count_ > 0;
}

exit_status safe_point::read(const char *name)
{
    const path_text path = path_of(name);
    entries_.reset(static_cast<entry *>(calloc(most_files, sizeof(entry))));
    file_.emplace(path.text);
    if (!file_->data || !entries_)
        return fail(errno == EACCES ? exit_status::denied : exit_status::no_such,
                    "there is no safe point %s that can be read; see `korvelctl list`", name);
    if (!parse(file_->view()))
        return fail(exit_status::refused, "the safe point %s is damaged; nothing was changed", name);
    return exit_status::done;
}

bool holds(const char *path, std::string_view content)
{
    const whole_file now(path);
    return now.data && now.view() == content;
}

bool is_reached(const safe_point &point)
{
    bool reached = true;
    for (const safe_point::entry &each : point)
        reached = reached && holds(each.path, each.content);
    each_script([&](const char *path) { reached = reached && point.find(path); });
    return reached;
}

// Writes a content beside its file, for a queue. False: it could not be written.
bool stage(const safe_point::entry &each, step_queue &queue)
{
    const bool script = is_script(each.path);
    file_replacement file(each.path, temporary_ending);
    if (!file ||
        !file.write(each.content.data(), each.content.size(), look_of(each.path, script ? 0755 : 0600)))
        return false;
    if (script) {
        take_back_script(each.path, "Failed to delete a script"); // notes it in the queue
        queue.put(each.path, file.temporary());
    } else {
        queue.replace(strrchr(each.path, '/') + 1, file.target(), file.temporary(), "");
    }
    file.release();
    return true;
}

// The steps that lead back; those of files that are as they were are none.
bool gather(const safe_point &point, step_queue &queue)
{
    bool good = true;
    queue.make_current();
    each_script([&](const char *path) {
        if (!point.find(path))
            take_back_script(path, "Failed to delete a script");
    });
    for (const safe_point::entry &each : point)
        good = good && (holds(each.path, each.content) || stage(each, queue));
    if (good && queue.steps.size() > 0) {
        reload_system_services(wan_change(wan_written | all_wans_deleted));
        for (const safe_point::entry &each : point)
            if (strstr(each.path, "/99-"))
                run_command(update_command(strstr(each.path, "wan_")).text);
    }
    step_queue::leave();
    return good && !queue.failed();
}

uint32_t stored_highest()
{
    uint32_t highest = 0;
    return uci_get_int("korvel", "maxWanId", &highest) == 0 ? highest : 0;
}

// One attempt. `done`: the way back is behind us, or nothing was to be done.
exit_status go_back_once(const safe_point &point, const char *name)
{
    if (!settle_changes())
        return fail(exit_status::refused, "an earlier change does not end; the system log tells why");
    step_queue queue;
    record_file record;
    const bool gathered = gather(point, queue);
    if (gathered && queue.steps.size() == 0)
        return exit_status::done;
    if (!gathered || !record.acquire() || !record.decide(queue.steps)) {
        const int reason = errno;
        drop_temporaries(queue.steps);
        record.drop();
        return fail(exit_status::refused, "nothing was changed on the way back to %s: %s", name,
                    strerror(reason));
    }
    record.keep();
    { // closed, so that it can be taken up
        record_file closed;
        closed.swap(record);
    }
    if (!complete_recorded_operations())
        return fail(exit_status::refused,
                    "the way back to %s is decided and will be completed later; the system log "
                    "tells why not now",
                    name);
    return exit_status::done;
}

struct kept_point {
    char name[safe_name_size];
    timespec taken;
    long long size;
};

bool is_older(const timespec &one, const timespec &other)
{
    return one.tv_sec != other.tv_sec ? one.tv_sec < other.tv_sec : one.tv_nsec < other.tv_nsec;
}

constexpr size_t listed_points = 32;

// The users' safe points, oldest first; returns how many.
size_t list_points(kept_point (&points_out)[listed_points])
{
    size_t count = 0;
    DIR *const stream = opendir(directory);
    while (const dirent *const entry = stream ? readdir(stream) : nullptr) {
        struct stat info = {};
        if (!is_safe_name(entry->d_name) || stat(path_of(entry->d_name).text, &info) != 0 ||
            count == listed_points)
            continue;
        kept_point added = {{}, info.st_mtim, info.st_size};
        (void)text_ref(added.name).format("%s", entry->d_name);
        size_t place = count++;
        for (; place > 0 && is_older(added.taken, points_out[place - 1].taken); place--)
            points_out[place] = points_out[place - 1];
        points_out[place] = added;
    }
    if (stream)
        (void)closedir(stream);
    return count;
}

void forget_oldest(const char *newest)
{
    kept_point points[listed_points];
    size_t count = list_points(points);
    for (size_t i = 0; count > kept_points && i < listed_points; i++)
        if (strcmp(points[i].name, newest) != 0) {
            remove_safe_point(points[i].name);
            count--;
        }
}

exit_status read_name(std::span<char *const> words, const char *command, const char **name_out)
{
    char before[32];
    (void)text_ref(before).format("%s takes one name; ", command);
    const exit_status result = read_short_line(words, before, " is one more", "", nullptr, name_out);
    if (result != exit_status::done)
        return result;
    if (!*name_out || !is_safe_name(*name_out))
        return fail(exit_status::usage, "%s takes a name of up to 32 letters, digits, '.', '_' and '-'",
                    command);
    return exit_status::done;
}

} // namespace

bool is_safe_name(const char *name)
{
    constexpr char allowed[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
    const size_t length = strlen(name);
    return length > 0 && length < safe_name_size && name[0] != '.' && strspn(name, allowed) == length;
}

void remove_safe_point(const char *name)
{
    (void)unlink(path_of(name).text);
    (void)sync_directory_of(path_of(name).text);
}

exit_status take_safe_point(const char *name)
{
    if ((mkdir("/etc/korvel", 0755) != 0 && errno != EEXIST) ||
        (mkdir(directory, 0700) != 0 && errno != EEXIST))
        return fail(errno == EACCES ? exit_status::denied : exit_status::refused, "%s cannot be made: %s",
                    directory, strerror(errno));
    if (!settle_changes()) // half of a change is no safe point
        return fail(exit_status::refused, "an earlier change does not end; the system log tells why");
    growing_text text;
    std::string_view content;
    if (!text.stream() || !add_all(text.stream()))
        return exit_status::refused;
    if (!text.view(content))
        return fail(exit_status::refused, "out of memory");
    (void)fprintf(text.stream(), "%s%016" PRIx64 "\n", tail, hash_of(content));
    if (!text.view(content))
        return fail(exit_status::refused, "out of memory");
    const path_text path = path_of(name);
    file_replacement file(path.text);
    if (!file || !file.write(content.data(), content.size(), {0600, keep_owner, keep_group}) ||
        !file.put_into_place())
        return fail(exit_status::refused, "%s cannot be written: %s", path.text, strerror(errno));
    forget_oldest(name);
    return exit_status::done;
}

exit_status go_back_to(const char *name, daemon_state daemon)
{
    safe_point point;
    if (const exit_status result = point.read(name); result != exit_status::done)
        return result;
    const uint32_t before = stored_highest();
    for (int i = 0; i < most_attempts && !is_reached(point); i++)
        if (const exit_status result = go_back_once(point, name); result != exit_status::done)
            return result;
    // The daemon keeps the highest identifier in memory.
    if (daemon == daemon_state::runs && stored_highest() != before)
        run_command("/etc/init.d/korvel restart");
    if (!is_reached(point))
        return fail(exit_status::refused,
                    "other programs write the configuration over and over; not all is as in %s", name);
    syslog(LOG_NOTICE, "Configurations and scripts are back at safe point %s", name);
    return exit_status::done;
}

void send_restored(const char *result)
{
    ubus_context *const bus = connect_to_bus();
    if (!bus)
        return;
    bus_message event;
    blob_buf *const buffer = event.buffer();
    (void)blobmsg_add_string(buffer, "action", "restored");
    (void)blobmsg_add_u32(buffer, "wanId", 0);
    (void)blobmsg_add_string(buffer, "wanName", "");
    (void)blobmsg_add_string(buffer, "device", "");
    (void)blobmsg_add_string(buffer, "result", result);
    (void)ubus_send_event(bus, "korvel.wan", event.head());
    ubus_free(bus);
}

exit_status run_save(std::span<char *const> words)
{
    const char *name = nullptr;
    if (const exit_status result = read_name(words, "save", &name); result != exit_status::done)
        return result;
    if (const exit_status result = take_safe_point(name); result != exit_status::done)
        return result;
    return tell_result("saved", 0, name, "Saved as %s.", name);
}

exit_status run_restore(std::span<char *const> words)
{
    const char *name = nullptr;
    if (const exit_status result = read_name(words, "restore", &name); result != exit_status::done)
        return result;
    if (const exit_status result = go_back_to(name); result != exit_status::done)
        return result;
    char text[80];
    (void)text_ref(text).format("safe point %s", name);
    send_restored(text);
    return tell_result("restored", 0, name, "All is as it was saved in %s.", name);
}

exit_status run_list(std::span<char *const> words)
{
    if (const exit_status result = read_short_line(words, "list takes no "); result != exit_status::done)
        return result;
    kept_point points[listed_points];
    const size_t count = list_points(points);
    json_writer json;
    if (output_is_json()) {
        json.open_answer();
        json.open_array("points");
    }
    for (size_t i = 0; i < count; i++) {
        char when[24] = "";
        tm parts = {};
        (void)gmtime_r(&points[i].taken.tv_sec, &parts);
        (void)strftime(when, sizeof(when), "%Y-%m-%dT%H:%M:%SZ", &parts);
        if (output_is_json()) {
            json.open_object();
            json.text("name", points[i].name);
            json.text("taken", when);
            json.number("bytes", points[i].size);
            json.close_object();
        } else {
            say("%s  %7lld bytes  %s", when, points[i].size, points[i].name);
        }
    }
    if (output_is_json()) {
        json.close_array();
        json.close_answer();
    } else if (count == 0) {
        say("There are no safe points.");
    }
    return exit_status::done;
}
