// A program for the tests of the tracer: each word on its command line is something that it does.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr char file_path[] = "/etc/config/subject";
constexpr char temporary_path[] = "/etc/config/.subject.new";

void print_by_stream()
{
    FILE *const stream = fopen(file_path, "we");
    if (!stream) {
        perror("open");
        return;
    }
    (void)fputs("streamed\n", stream);
    (void)fclose(stream);
}

void sync_directory()
{
    const int directory = open("/etc/config", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    (void)fsync(directory);
    (void)close(directory);
}

// Replaces the file as whole writers do.
void replace()
{
    const int file = open(temporary_path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file < 0 || write(file, "replaced\n", 9) != 9 || fchmod(file, 0644) != 0 || fsync(file) != 0 ||
        close(file) != 0 || rename(temporary_path, file_path) != 0)
        perror("replace");
    sync_directory();
}

void make_temporary()
{
    char path[] = "/etc/config/.subject.XXXXXX";
    const int file = mkstemp(path);
    (void)!ftruncate(file, 10);
    (void)close(file);
    (void)unlink(path);
}

pthread_t start_thread(void *(*work)(void *))
{
    pthread_t thread;
    if (pthread_create(&thread, nullptr, work, nullptr) != 0)
        _exit(EXIT_FAILURE);
    return thread;
}

void write_by_thread()
{
    (void)pthread_join(start_thread([](void *) -> void * {
                           print_by_stream();
                           return nullptr;
                       }),
                       nullptr);
}

// A thread that waits for a minute.
void idle_by_thread()
{
    (void)start_thread([](void *) -> void * {
        sem_t news;
        timespec end;
        (void)sem_init(&news, 0, 0);
        (void)clock_gettime(CLOCK_REALTIME, &end);
        end.tv_sec += 60;
        while (sem_timedwait(&news, &end) != 0 && errno == EINTR)
            continue;
        return nullptr;
    });
}

// Threads that look for a file where they are, until the program ends.
void search_by_threads()
{
    for (int i = 0; i < 3; i++)
        (void)start_thread([](void *) -> void * {
            for (;;)
                (void)!open("nothing", O_RDONLY | O_CLOEXEC);
        });
}

void run_children()
{
    (void)printf("system %d\n", WEXITSTATUS(system("echo child > /etc/config/child")));
    FILE *const pipe = popen("echo words", "re");
    char words[16] = "none\n";
    if (pipe) {
        (void)!fgets(words, sizeof(words), pipe);
        (void)pclose(pipe);
    }
    (void)printf("popen %s", words);
}

void allocate()
{
    for (int i = 1; i <= 3; i++) {
        void *const memory = malloc(1000);
        (void)printf("%d %s\n", i, memory ? "got" : "none");
        free(memory);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    static char buffer[4096];
    (void)setvbuf(stdout, buffer, _IOFBF, sizeof(buffer));
    const struct {
        const char *word;
        void (*action)();
    } actions[] = {
        {"stream", print_by_stream},
        {"replace", replace},
        {"temporary", make_temporary},
        {"thread", write_by_thread},
        {"idle thread", idle_by_thread},
        {"searching threads", search_by_threads},
        {"children", run_children},
        {"allocate", allocate},
        {"cut", [] { (void)!truncate(file_path, 1); }},
        {"events",
         [] {
             epoll_event event{};
             (void)epoll_wait(epoll_create1(0), &event, 1, -1);
         }},
        {"sleep", [] { (void)sleep(1000); }},
        {"unheard-of", [] { (void)syscall(SYS_memfd_create, "subject", 0); }},
    };
    for (int i = 1; i < argc; i++)
        for (const auto &row : actions)
            if (strcmp(argv[i], row.word) == 0)
                row.action();
    return 0;
}
