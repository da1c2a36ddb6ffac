// Builds the tree of a private root: a scratch file system in memory, overlays whose lower layers are the
// machine's directories, and fresh /proc, /sys, /dev, /tmp and /run.
//
// While it is built, the scratch file system is the root; the machine is below /machine, the upper layers are
// below /upper, and the new tree grows below /new.
#include "root/root_tree.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string_view>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

const fs::path machine_root = "/machine";
const fs::path upper_root = "/upper";
const fs::path work_root = "/work";
const fs::path new_root = "/new";

// Made afresh instead of being taken from the machine.
const std::set<std::string> own_directories = {"proc", "sys", "dev", "tmp", "run", "root", "lost+found"};

// A path of the new tree, "/etc", below one of the roots above.
fs::path below(const fs::path &root, const fs::path &path)
{
    return root / path.relative_path();
}

[[noreturn]] void fail(const std::string &step, int reason = errno)
{
    throw std::system_error(reason, std::generic_category(), step);
}

void make_mount(const char *source, const fs::path &target, const char *type, unsigned long flags,
                const std::string &settings = "")
{
    if (mount(source, target.c_str(), type, flags, settings.c_str()) != 0)
        fail("mount " + std::string(type) + " on " + target.string());
}

void bind(const fs::path &source, const fs::path &target)
{
    if (mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
        fail("bind " + source.string() + " to " + target.string());
}

void bind_read_only(const fs::path &source, const fs::path &target)
{
    bind(source, target);
    mount_attr attributes{};
    attributes.attr_set = MOUNT_ATTR_RDONLY;
    if (mount_setattr(AT_FDCWD, target.c_str(), AT_RECURSIVE, &attributes, sizeof(attributes)) != 0)
        fail("make " + target.string() + " read-only");
}

void pivot(const fs::path &root, const fs::path &old)
{
    if (syscall(SYS_pivot_root, root.c_str(), old.c_str()) != 0)
        fail("make " + root.string() + " the root");
    if (chdir("/") != 0)
        fail("change to the new root");
}

void move_to_scratch()
{
    separate_mounts();
    make_mount("scratch", "/tmp", "tmpfs", 0, "mode=0755");
    for (const fs::path &root : {machine_root, upper_root, work_root, new_root})
        fs::create_directory(below("/tmp", root));
    pivot("/tmp", below("/tmp", machine_root));
    make_mount("root", new_root, "tmpfs", 0, "mode=0755");
}

// Mount points of the machine, as paths of the new tree.
std::vector<fs::path> machine_mounts()
{
    std::vector<fs::path> mounts;
    std::ifstream table(machine_root / "proc/self/mountinfo");
    if (!table)
        fail("read the machine's mounts");
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string skipped;
        std::string point;
        fields >> skipped >> skipped >> skipped >> skipped >> point;
        const fs::path relative = fs::path(point).lexically_relative(machine_root);
        if (!relative.empty() && *relative.begin() != "..")
            mounts.push_back("/" / relative);
    }
    return mounts;
}

bool is_inside(const fs::path &path, const fs::path &directory)
{
    const std::string prefix = directory.string() + "/";
    return path.string().compare(0, prefix.size(), prefix) == 0;
}

// An overlay's settings separate layers by colons and settings by commas.
std::string escaped(const fs::path &path)
{
    std::string text;
    for (const char character : path.string()) {
        if (std::strchr("\\:,", character))
            text += '\\';
        text += character;
    }
    return text;
}

class tree_builder {
public:
    tree_builder(const private_root_options &options, tree_owner owner)
        : options_(options), owner_(owner), mounts_(machine_mounts())
    {}

    void build()
    {
        for (const std::string &directory : options_.rootfs)
            stage_files(below(machine_root, directory));
        stage_shell();
        present_top_level();
        make_own_directories();
        make_devices();
        for (const passed_directory &directory : options_.passed)
            pass(directory);
    }

private:
    // Follows the machine's top-level symbolic links: where /lib is a link to usr/lib, files for /lib belong
    // there.
    fs::path real_place(const fs::path &path) const
    {
        const fs::path relative = path.relative_path();
        const fs::path top = *relative.begin();
        std::error_code not_a_link;
        const fs::path link = fs::read_symlink(machine_root / top, not_a_link);
        return not_a_link ? path : "/" / link / relative.lexically_relative(top);
    }

    void stage_files(const fs::path &source) const
    {
        for (const fs::directory_entry &entry : fs::recursive_directory_iterator(source)) {
            const fs::path target =
                below(upper_root, real_place("/" / entry.path().lexically_relative(source)));
            if (entry.is_directory())
                fs::create_directories(target);
            else if (entry.path().filename() != ".gitkeep")
                fs::copy(entry.path(), target, fs::copy_options::copy_symlinks);
        }
    }

    void stage_shell() const
    {
        if (options_.shell.empty())
            return;
        const fs::path link = below(upper_root, real_place("/bin/sh"));
        fs::create_directories(link.parent_path());
        fs::create_symlink(options_.shell, link);
    }

    std::set<std::string> names_in(const fs::path &path) const
    {
        std::set<std::string> names;
        for (const fs::path &root : {machine_root, upper_root}) {
            std::error_code absent;
            for (const fs::directory_entry &entry : fs::directory_iterator(below(root, path), absent))
                names.insert(entry.path().filename());
        }
        return names;
    }

    void present_top_level()
    {
        for (const std::string &name : names_in("/")) {
            if (own_directories.count(name) == 0)
                present("/" + name);
        }
    }

    // Shows one file or directory at its own path in the new tree.
    void present(const fs::path &path)
    {
        const fs::path machine = below(machine_root, path);
        const fs::path upper = below(upper_root, path);
        const fs::path target = below(new_root, path);
        const fs::file_type type =
            fs::symlink_status(fs::symlink_status(upper).type() == fs::file_type::not_found ? machine : upper)
                .type();
        if (type == fs::file_type::directory)
            present_directory(path, machine, upper, target);
        else if (type == fs::file_type::symlink || fs::exists(upper))
            fs::copy(fs::symlink_status(upper).type() == fs::file_type::not_found ? machine : upper, target,
                     fs::copy_options::copy_symlinks);
        else
            bind_file(machine, target);
    }

    void present_directory(const fs::path &path, const fs::path &machine, const fs::path &upper,
                           const fs::path &target)
    {
        fs::create_directory(target);
        if (!fs::is_directory(machine))
            return bind(upper, target);
        const fs::perms mode = fs::status(machine).permissions();
        fs::permissions(target, mode);
        const bool laid_over = fs::exists(upper);
        if (lay_over(machine, upper, target, mode))
            return show_inner_mounts(path);
        const int reason = errno;
        if (has_inner_mounts(path))
            return split(path);
        if (laid_over)
            fail("lay files over " + path.string(), reason);
        bind_read_only(machine, target);
    }

    // Mounts an overlay; returns false with errno set where the kernel refuses it. The upper directory
    // decides on the owner and mode of what both layers have.
    bool lay_over(const fs::path &machine, const fs::path &upper, const fs::path &target, fs::perms mode)
    {
        const fs::path work = work_root / std::to_string(overlays_++);
        fs::create_directories(upper);
        fs::permissions(upper, mode);
        fs::create_directory(work);
        std::string settings =
            "lowerdir=" + escaped(machine) + ",upperdir=" + escaped(upper) + ",workdir=" + escaped(work);
        if (owner_ == tree_owner::user)
            settings += ",userxattr";
        return mount("overlay", target.c_str(), "overlay", 0, settings.c_str()) == 0;
    }

    bool has_inner_mounts(const fs::path &path) const
    {
        for (const fs::path &point : mounts_) {
            if (is_inside(point, path))
                return true;
        }
        return false;
    }

    // An overlay shows one file system only; what the machine has mounted further in is added.
    void show_inner_mounts(const fs::path &path) const
    {
        for (const fs::path &point : mounts_) {
            if (is_inside(point, path) && fs::exists(below(machine_root, point)))
                bind_read_only(below(machine_root, point), below(new_root, point));
        }
    }

    // In a user namespace the kernel refuses overlays over a directory with mounts inside, since they would
    // uncover what is below those; so the directory is made anew and its entries are shown one by one.
    void split(const fs::path &path)
    {
        for (const std::string &name : names_in(path))
            present(path / name);
    }

    static void bind_file(const fs::path &machine, const fs::path &target)
    {
        std::error_code unreadable;
        if (!fs::is_regular_file(machine, unreadable) || unreadable)
            return;
        std::ofstream{target};
        bind_read_only(machine, target);
    }

    static void make_own_directories()
    {
        for (const char *name : {"proc", "sys", "dev", "tmp", "run", "root"})
            fs::create_directory(new_root / name);
        make_mount("proc", new_root / "proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
        make_mount("sysfs", new_root / "sys", "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC);
        make_mount("tmp", new_root / "tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777");
        make_mount("run", new_root / "run", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755");
        for (const char *name : {"run/lock", "run/ubus"})
            fs::create_directory(new_root / name);
    }

    static void make_devices()
    {
        const fs::path devices = new_root / "dev";
        make_mount("dev", devices, "tmpfs", MS_NOSUID | MS_NOEXEC, "mode=0755");
        for (const char *name : {"null", "zero", "full", "random", "urandom", "tty"}) {
            std::ofstream{devices / name};
            bind(machine_root / "dev" / name, devices / name);
        }
        for (const char *name : {"pts", "shm"})
            fs::create_directory(devices / name);
        make_mount("devpts", devices / "pts", "devpts", MS_NOSUID | MS_NOEXEC,
                   "newinstance,ptmxmode=0666,mode=620");
        make_mount("shm", devices / "shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777");
        fs::create_symlink("pts/ptmx", devices / "ptmx");
        fs::create_symlink("/proc/self/fd", devices / "fd");
        fs::create_symlink("/proc/self/fd/0", devices / "stdin");
        fs::create_symlink("/proc/self/fd/1", devices / "stdout");
        fs::create_symlink("/proc/self/fd/2", devices / "stderr");
    }

    static void pass(const passed_directory &directory)
    {
        const fs::path source = below(machine_root, directory.path);
        const fs::path target = below(new_root, directory.path);
        fs::create_directories(target);
        if (directory.writable)
            bind(source, target);
        else
            bind_read_only(source, target);
    }

    const private_root_options &options_;
    const tree_owner owner_;
    const std::vector<fs::path> mounts_;
    unsigned overlays_ = 0;
};

// Symbolic links in a path would be followed from the scratch root; so they are resolved before it is
// entered.
private_root_options without_links(private_root_options options)
{
    for (std::string &directory : options.rootfs)
        directory = fs::canonical(directory);
    for (passed_directory &directory : options.passed)
        directory.path = fs::canonical(directory.path);
    return options;
}

void move_to_new_root()
{
    if (chdir(new_root.c_str()) != 0)
        fail("change to the new root");
    // The old root ends up on top of the new one, and is taken off there.
    pivot(".", ".");
    if (umount2(".", MNT_DETACH) != 0)
        fail("take the machine's tree away");
    if (chdir("/") != 0)
        fail("change to the new root");
}

} // namespace

void build_root_tree(const private_root_options &options, tree_owner owner)
{
    const private_root_options resolved = without_links(options);
    move_to_scratch();
    tree_builder(resolved, owner).build();
    move_to_new_root();
}
