#include "faults/disk_log.h"

#include <algorithm>
#include <fcntl.h>
#include <random>
#include <stdexcept>
#include <sys/syscall.h>

namespace {

constexpr size_t none = ~size_t{0};
constexpr unsigned mixtures = 4; // per moment

std::string directory_of(const std::string &path)
{
    return path.substr(0, path.rfind('/'));
}

} // namespace

disk_log::disk_log(const file_tree &files) : base_(files)
{
    for (const auto &[path, file] : files) {
        base_names_[path] = base_nodes_.size();
        base_nodes_.push_back(file);
        sizes_.push_back(file.content.size());
    }
    names_ = base_names_;
}

void disk_log::add(change made, const system_call &call)
{
    made.text = call.text();
    made.step = steps_++;
    changes_.push_back(std::move(made));
}

void disk_log::note(const system_call &call, int64_t result)
{
    if (result < 0)
        return;
    switch (call.kind) {
    case call_kind::open_to_read:
    case call_kind::open_to_write:
    case call_kind::open_to_create:
        return note_open(call, result);
    case call_kind::program_file:
        if (call.number == SYS_openat)
            open_files_.erase(static_cast<int>(result));
        return;
    case call_kind::write:
        return note_write(call, static_cast<size_t>(result));
    case call_kind::sync:
        return note_sync(call);
    case call_kind::rename:
        return note_rename(call);
    case call_kind::unlink:
        if (names_.erase(call.path) > 0)
            add({.what = change::no_name, .path = call.path}, call);
        return;
    case call_kind::truncate:
        if (const std::optional<inode> node = node_of(call)) {
            if (call.number != SYS_ftruncate && call.number != SYS_truncate)
                throw std::runtime_error("not foreseen in a log of changes: " + call.text());
            sizes_[*node] = call.words[1];
            add({.what = change::size, .node = *node, .offset = call.words[1]}, call);
        }
        return;
    case call_kind::mode:
        if (call.number == SYS_fchown)
            return;
        if (const std::optional<inode> node = node_of(call)) {
            if (call.number != SYS_fchmod && call.number != SYS_chmod)
                throw std::runtime_error("not foreseen in a log of changes: " + call.text());
            add({.what = change::mode, .node = *node, .offset = call.words[1] & 07777}, call);
        }
        return;
    case call_kind::link:
        if (is_kept(call.path))
            throw std::runtime_error("not foreseen in a log of changes: " + call.text());
        return;
    default:
        if (call.number == SYS_lseek && open_files_.contains(static_cast<int>(call.words[0])))
            open_files_[static_cast<int>(call.words[0])].position = static_cast<size_t>(result);
    }
}

// The kept file that a call is about, by descriptor or by name.
std::optional<disk_log::inode> disk_log::node_of(const system_call &call) const
{
    if (!is_kept(call.path))
        return {};
    if (const auto file = open_files_.find(call.file); file != open_files_.end())
        return file->second.node;
    const auto name = names_.find(call.path);
    return name == names_.end() ? std::nullopt : std::optional(name->second);
}

void disk_log::note_open(const system_call &call, int64_t result)
{
    const int file = static_cast<int>(result);
    open_files_.erase(file);
    if (!is_kept(call.path))
        return;
    const uint64_t flags = call.number == SYS_openat ? call.words[2] : call.words[1];
    if (flags & O_DIRECTORY)
        return;
    if (!names_.contains(call.path)) {
        if (!(flags & O_CREAT))
            return; // a directory
        const unsigned mode =
            static_cast<unsigned>(call.number == SYS_openat ? call.words[3] : call.words[2]);
        const inode made = sizes_.size();
        sizes_.push_back(0);
        base_nodes_.push_back({mode & 0777 & ~022U, ""});
        names_[call.path] = made;
        add({.what = change::name, .node = made, .path = call.path}, call);
    }
    const inode node = names_[call.path];
    if (flags & O_TRUNC && sizes_[node] > 0) {
        sizes_[node] = 0;
        add({.what = change::size, .node = node, .offset = 0}, call);
    }
    open_files_[file] = {node, 0, (flags & O_APPEND) != 0};
}

void disk_log::note_write(const system_call &call, size_t count)
{
    const auto found = open_files_.find(call.file);
    if (found == open_files_.end() || !is_kept(call.path))
        return;
    if (call.number != SYS_write && call.number != SYS_pwrite64)
        throw std::runtime_error("not foreseen in a log of changes: " + call.text());
    open_file &file = found->second;
    const bool placed = call.number == SYS_pwrite64;
    const size_t offset = placed ? call.words[3] : file.append ? sizes_[file.node] : file.position;
    if (!placed)
        file.position = offset + count;
    sizes_[file.node] = std::max(sizes_[file.node], offset + count);
    add({.what = change::data,
         .node = file.node,
         .offset = offset,
         .bytes = memory_of(call.thread, call.words[1], count)},
        call);
}

// One step: the new name appears and the old one goes, or neither.
void disk_log::note_rename(const system_call &call)
{
    const auto old = names_.find(call.path);
    if (old == names_.end())
        return;
    const inode node = old->second;
    names_.erase(old);
    names_[call.other] = node;
    add({.what = change::name, .node = node, .path = call.other, .bytes = call.path}, call);
}

void disk_log::note_sync(const system_call &call)
{
    if (!is_kept(call.path))
        return;
    syncs_++;
    const auto file = open_files_.find(call.file);
    for (change &made : changes_) {
        const bool is_name = made.what == change::name || made.what == change::no_name;
        const bool covered = is_name ? directory_of(made.path) == call.path
                                     : file != open_files_.end() && made.node == file->second.node;
        if (covered && made.synced_at == none)
            made.synced_at = steps_;
    }
    steps_++;
}

file_tree disk_log::tree_with(const std::function<bool(size_t)> &applied, size_t half) const
{
    std::vector<kept_file> nodes = base_nodes_;
    std::map<std::string, inode> names = base_names_;
    for (size_t i = 0; i < changes_.size(); i++) {
        if (!applied(i))
            continue;
        const change &made = changes_[i];
        std::string &content = nodes[made.node].content;
        const size_t count = i == half ? made.bytes.size() / 2 : made.bytes.size();
        switch (made.what) {
        case change::data:
            content.resize(std::max(content.size(), made.offset + count));
            content.replace(made.offset, count, made.bytes, 0, count);
            break;
        case change::size:
            content.resize(made.offset);
            break;
        case change::mode:
            nodes[made.node].mode = static_cast<unsigned>(made.offset);
            break;
        case change::name:
            names.erase(made.bytes);
            names[made.path] = made.node;
            break;
        case change::no_name:
            names.erase(made.path);
            break;
        }
    }
    file_tree files;
    for (const auto &[path, node] : names)
        if (!path.starts_with("/tmp/"))
            files[path] = nodes[node];
    return files;
}

std::vector<size_t> disk_log::unsynced_at(size_t moment) const
{
    std::vector<size_t> open;
    for (size_t i = 0; i < changes_.size() && changes_[i].step < moment; i++)
        if (changes_[i].synced_at >= moment)
            open.push_back(i);
    return open;
}

std::vector<disk_log::remains> disk_log::all_remains() const
{
    std::vector<remains> all;
    std::set<std::pair<bool, file_tree>> seen;
    std::mt19937 random(1);
    for (size_t moment = 0; moment <= steps_; moment++) {
        const std::vector<size_t> open = unsynced_at(moment);
        const std::string when =
            "after " + std::to_string(moment) + " of " + std::to_string(steps_) + " steps";
        const auto add_state = [&](const std::function<bool(size_t)> &keeps, const std::string &what,
                                   size_t half = none) {
            const auto applied = [&](size_t i) {
                return changes_[i].step < moment &&
                       (!std::binary_search(open.begin(), open.end(), i) || keeps(i));
            };
            remains left{tree_with(applied, half), moment >= answered_at_, when + what};
            if (seen.insert({left.answered, left.files}).second)
                all.push_back(std::move(left));
        };
        add_state([](size_t) { return true; }, ", all of them kept");
        add_state([](size_t) { return false; }, ", nothing unsynced kept");
        for (const size_t one : open) {
            add_state([one](size_t i) { return i != one; }, ", lost: " + changes_[one].text);
            add_state([one](size_t i) { return i == one; },
                      ", alone of the unsynced kept: " + changes_[one].text);
            if (changes_[one].what == change::data)
                add_state([](size_t) { return true; }, ", half kept: " + changes_[one].text, one);
        }
        for (unsigned i = 0; i < mixtures && open.size() > 2; i++) {
            const unsigned bits = static_cast<unsigned>(random());
            add_state([bits](size_t k) { return bits >> k % 32 & 1U; }, ", a mixture of the unsynced kept");
        }
    }
    return all;
}
