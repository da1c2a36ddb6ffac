/*
 * Loaded before the C library, writes each call of a program that replaces, removes or syncs a file or runs a
 * command as a line into the file that BENCH_CALLS names. The program's children are left alone.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

static char calls_path[256];

__attribute__((constructor)) static void take_environment(void)
{
    const char *const path = getenv("BENCH_CALLS");
    if (path)
        snprintf(calls_path, sizeof(calls_path), "%s", path);
    unsetenv("BENCH_CALLS");
    unsetenv("LD_PRELOAD");
}

static void note(const char *call, const char *first, const char *second)
{
    char line[1024];
    const int length = snprintf(line, sizeof(line), "%s\t%s\t%s\n", call, first, second);
    const int file = open(calls_path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0 || write(file, line, (size_t)length) != length)
        abort();
    close(file);
}

#define NEXT(call) ((__typeof__(&call))dlsym(RTLD_NEXT, #call))

int rename(const char *from, const char *to)
{
    note("rename", from, to);
    return NEXT(rename)(from, to);
}

int unlink(const char *path)
{
    note("remove", path, "");
    return NEXT(unlink)(path);
}

int remove(const char *path)
{
    note("remove", path, "");
    return NEXT(remove)(path);
}

int fsync(int file)
{
    note("sync", "", "");
    return NEXT(fsync)(file);
}

int fdatasync(int file)
{
    note("sync", "", "");
    return NEXT(fdatasync)(file);
}

int system(const char *command)
{
    note("run", command, "");
    return NEXT(system)(command);
}
