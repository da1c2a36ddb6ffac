#include "base/lane.h"

#include "base/short_turns.h"

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <mxuci_gather.h>
#include <pthread.h>
#include <unistd.h>

void ring(int bell)
{
    const uint64_t one = 1;
    (void)!write(bell, &one, sizeof(one)); // it refuses only when it rings already
}

namespace {

// A C library may keep what a thread frees for that thread, in places that come to lie on more and more
// pages. A thread that ends lets go of it.
constexpr unsigned pieces_of_one_thread = 64;

} // namespace

int lane::start(int bell)
{
    bell_ = bell;
    if (sem_init(&news_, 0, 0) != 0)
        return errno;
    mxuci_arrange_heap();
    return start_thread();
}

int lane::start_thread()
{
    pthread_attr_t detached;
    int result = pthread_attr_init(&detached);
    if (result != 0)
        return result;
    (void)pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    result = pthread_create(&thread, &detached, run, this);
    (void)pthread_attr_destroy(&detached);
    return result;
}

void lane::give(work_function work, void *argument)
{
    given_ = argument;
    work_ = work;
    argument_ = argument;
    (void)sem_post(&news_);
}

void *lane::take()
{
    if (!ended_.exchange(false))
        return nullptr;
    void *const taken = given_;
    given_ = nullptr;
    return taken;
}

void *lane::run(void *self)
{
    static_cast<lane *>(self)->serve();
    return nullptr;
}

// Waits for work until there is some, or for `seconds` only unless they are 0. Null: there is none. A clock
// that is set meanwhile makes the seconds shorter or longer.
lane::work_function lane::next_work(time_t seconds)
{
    timespec end;
    (void)clock_gettime(CLOCK_REALTIME, &end);
    end.tv_sec += seconds;
    int result;
    do
        result = seconds == 0 ? sem_wait(&news_) : sem_timedwait(&news_, &end);
    while (result != 0 && errno == EINTR);
    return result == 0 ? work_ : nullptr;
}

// After a quiet second what was freed is given back to the system: at once, it would keep the answer waiting,
// and the next piece of work would have to get it anew. Work begins in short turns.
void lane::serve()
{
    constexpr time_t quiet = 1, for_ever = 0;
    take_short_turns();
    for (unsigned pieces = 1;; pieces++) {
        work_function work = next_work(quiet);
        if (!work) {
            mxuci_give_memory_back();
            work = next_work(for_ever);
        }
        work(argument_);
        ended_ = true;
        ring(bell_);
        take_short_turns();
        if (pieces >= pieces_of_one_thread && start_thread() == 0)
            return;
    }
}
