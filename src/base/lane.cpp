#include "base/lane.h"

#include <cstdint>
#include <mxuci_gather.h>
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
    mxuci_share_heap();
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

void lane::give(void (*work)(void *argument), void *argument)
{
    given_ = argument;
    {
        const scoped_lock hold(lock_);
        work_ = work;
        argument_ = argument;
    }
    pthread_cond_signal(&news_);
}

void *lane::take()
{
    const scoped_lock hold(lock_);
    if (!ended_)
        return nullptr;
    ended_ = false;
    void *const taken = given_;
    given_ = nullptr;
    return taken;
}

void *lane::run(void *self)
{
    static_cast<lane *>(self)->serve();
    return nullptr;
}

void lane::serve()
{
    for (unsigned pieces = 1;; pieces++) {
        void (*work)(void *) = nullptr;
        {
            const scoped_lock hold(lock_);
            while (!work_)
                pthread_cond_wait(&news_, &lock_.handle);
            work = work_;
            work_ = nullptr;
        }
        work(argument_);
        {
            const scoped_lock hold(lock_);
            ended_ = true;
        }
        ring(bell_);
        if (pieces >= pieces_of_one_thread && start_thread() == 0)
            return;
    }
}
