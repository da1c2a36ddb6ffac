#include "base/operation.h"

#include "base/carry_out.h"
#include "base/config.h"
#include "base/lock.h"
#include "base/log.h"
#include "base/record.h"
#include "base/recovery.h"
#include "base/step_queue.h"
#include "base/stop_signals.h"

#include <cerrno>
#include <mxuci_gather.h>
#include <optional>

namespace {

// Held while an operation gathers, decides and puts files into place; not while its last commands run.
constinit mutex operation_mutex;

// Written before there are operations.
void (*while_commands)(bool run) = nullptr;

// More attempts than any neighbour's writes should spoil.
constexpr int most_attempts = 100;

constexpr int most_configurations = 8;

// What becomes of an attempt to decide an operation.
enum class verdict { decided, nothing_to_do, refused, failed, again };

// What a stage begins with: the first of its works, and the value in memory.
struct stage_start {
    size_t work;
    uint32_t kept;
};

class operation {
public:
    operation(std::span<const operation_work> works, std::atomic<uint32_t> &kept) : works_(works), kept_(kept)
    {}
    ~operation() { end_gathering(); }
    operation(const operation &) = delete;
    operation &operator=(const operation &) = delete;

    operation_result run();
    const operation_failure &failure() const { return failure_; }

private:
    verdict decide(size_t first_work);
    verdict attempt(size_t first_work, step_queue &queue);
    bool gather(size_t first_work, step_queue &queue);
    verdict lock_files(const step_list &steps, unsigned stage);
    void take_up_again(unsigned *stage);
    bool put_into_place(unsigned stage);
    void run_commands(unsigned stage, std::optional<stop_hold> &hold);
    bool complete();
    void fail(const char *path, const char *reason);
    unsigned stages() const { return steps_.size() == 0 ? 0 : steps_[steps_.size() - 1].stage + 1; }
    static void end_gathering();

    std::span<const operation_work> works_;
    std::atomic<uint32_t> &kept_;
    stage_start starts_[most_works] = {};
    step_list steps_;
    record_file record_;
    int record_error_ = 0;                      // why there is no record
    operation_failure failure_ = {};            // of the last decision that failed
    std::optional<scoped_lock<mutex>> writing_; // but for while commands run
};

void operation::end_gathering()
{
    const config_hold hold;
    mxuci_gather_end();
}

void note_failure(step_queue &queue)
{
    const mxuci_failure failure = mxuci_gather_failure();
    if (failure.code == 0)
        return;
    char path[sizeof(UCI_CONFDIR "/") + sizeof(failure.config)];
    text_ref(path).format("%s/%s", UCI_CONFDIR, failure.config);
    queue.fail(path, config_reason(failure.code, failure.reason));
}

// Brings what was gathered since the last stage to the disk, beside the files.
void close_stage(step_queue &queue)
{
    mxuci_staged staged[most_configurations];
    int count = 0;
    {
        const config_hold hold;
        (void)mxuci_gather_stage(temporary_ending, staged, most_configurations, &count);
    }
    for (int i = 0; i < count; i++)
        queue.replace(staged[i].config, staged[i].target, staged[i].temporary, staged[i].delta);
    queue.sync_temporaries();
}

// Runs the works, which fill the queue. False: one of them refuses.
bool operation::gather(size_t first_work, step_queue &queue)
{
    starts_[0] = {first_work, kept_};
    for (size_t i = first_work; i < works_.size(); i++) {
        if (!works_[i].run(works_[i].argument))
            return false;
        const bool is_last = i + 1 == works_.size();
        if (!is_last && !queue.runs_commands())
            continue;
        close_stage(queue);
        if (is_last)
            break;
        queue.begin_next_stage();
        starts_[queue.stage()] = {i + 1, kept_};
    }
    return true;
}

// Keeps the other writers away from a stage's configurations, and learns whether they are as they were
// loaded.
verdict operation::lock_files(const step_list &steps, unsigned stage)
{
    const char *locked = "";
    for (const step &each : steps) {
        const bool is_configuration = each.kind == step_kind::replace || each.kind == step_kind::empty;
        if (each.stage != stage || !is_configuration || strcmp(each.note, locked) == 0)
            continue;
        locked = each.note;
        bool unchanged = false;
        if (mxuci_gather_lock(locked, &unchanged) != UCI_OK)
            return verdict::failed;
        if (!unchanged)
            return verdict::again;
    }
    return verdict::decided;
}

void unlock_files(const step_list &steps, unsigned stage)
{
    for (const step &each : steps)
        if (each.stage == stage && (each.kind == step_kind::replace || each.kind == step_kind::empty))
            mxuci_gather_placed(each.note);
}

verdict operation::attempt(size_t first_work, step_queue &queue)
{
    if (mxuci_gather_begin() != UCI_OK) {
        queue.fail(UCI_CONFDIR, strerror(ENOMEM));
        return verdict::failed;
    }
    queue.make_current();
    const bool is_willing = gather(first_work, queue);
    step_queue::leave();
    note_failure(queue);
    if (queue.failed() || !is_willing)
        return queue.failed() ? verdict::failed : verdict::refused;
    if (queue.steps.size() == 0)
        return verdict::nothing_to_do;

    const verdict locked = lock_files(queue.steps, 0);
    note_failure(queue);
    if (locked != verdict::decided)
        return locked;
    if (record_error_ == 0 && record_.decide(queue.steps))
        return verdict::decided;
    queue.fail(record_.path(), strerror(record_error_ != 0 ? record_error_ : errno));
    return verdict::failed;
}

void operation::fail(const char *path, const char *reason)
{
    (void)text_ref(failure_.path).format("%s", path);
    (void)text_ref(failure_.reason).format("%s", reason);
}

// Brings the works from one of them on to a decision, with the files of their first stage locked; or leaves
// everything as it was.
verdict operation::decide(size_t first_work)
{
    const uint32_t kept = kept_;
    record_error_ = record_.acquire() ? 0 : errno;
    verdict result = verdict::again;
    for (int i = 0; i < most_attempts && result == verdict::again; i++) {
        step_queue queue;
        result = attempt(first_work, queue);
        steps_.swap(queue.steps);
        if (result == verdict::decided)
            return result;
        if (queue.failed()) {
            fail(queue.failed_path(), queue.reason());
            log_error("Nothing was changed: %s: %s", failure_.path, failure_.reason);
        }
        drop_temporaries(steps_);
        end_gathering();
        kept_ = kept;
    }
    if (result == verdict::again) {
        fail("", "other programs write the configuration");
        log_error("Nothing was changed: other programs write the configuration over and over");
    }
    record_.drop();
    return result == verdict::again ? verdict::failed : result;
}

// Somebody has written a configuration between two stages: runs the works that are left again, on what is
// there now. The old record stays until there is a new one.
void operation::take_up_again(unsigned *stage)
{
    step_list old_steps;
    old_steps.swap(steps_);
    record_file old_record;
    old_record.swap(record_);
    const stage_start start = starts_[*stage];
    end_gathering();
    kept_ = start.kept;
    const verdict result = decide(start.work);
    if (result == verdict::failed || result == verdict::refused) {
        // What the others have not written is still what it was meant to become.
        steps_.swap(old_steps);
        record_.swap(old_record);
        return;
    }
    drop_temporaries(old_steps);
    old_record.finish();
    *stage = 0;
}

bool operation::put_into_place(unsigned stage)
{
    const bool replaced = carry_out_replacements(steps_, stage);
    unlock_files(steps_, stage);
    return replaced && carry_out_files(steps_, stage);
}

// Tells for its own lifetime that commands run.
class commands_told {
public:
    commands_told()
    {
        if (while_commands)
            while_commands(true);
    }
    ~commands_told()
    {
        if (while_commands)
            while_commands(false);
    }
    commands_told(const commands_told &) = delete;
    commands_told &operator=(const commands_told &) = delete;
};

// Runs the commands that a stage ends with. Between two stages a restart would go on where this process
// ended: a command that hangs does not keep it.
void operation::run_commands(unsigned stage, std::optional<stop_hold> &hold)
{
    const commands_told told;
    if (!hold) {
        stop_point();
        return carry_out_commands(steps_, stage);
    }
    const stop_delay delay;
    hold.reset();
    carry_out_commands(steps_, stage);
    hold.emplace();
}

bool operation::complete()
{
    std::optional<stop_hold> hold(std::in_place); // in between there is half of it
    bool done = true;
    for (unsigned stage = 0; done && stage < stages(); stage++) {
        if (!writing_) {
            writing_.emplace(operation_mutex);
            if (lock_files(steps_, stage) == verdict::again)
                take_up_again(&stage);
        }
        done = put_into_place(stage);
        if (stage + 1 == stages())
            hold.reset();
        else
            done = done && sync_files(steps_, stage); // one that has begun tells that this one is complete
        writing_.reset();
        if (done)
            run_commands(stage, hold);
    }
    return done && sync_files(steps_, stages() - 1);
}

operation_result operation::run()
{
    writing_.emplace(operation_mutex);
    if (!complete_recorded_operations()) {
        fail(record_.path(), "an earlier change cannot be completed");
        return operation_result::failed;
    }
    switch (decide(0)) {
    case verdict::decided:
        break;
    case verdict::nothing_to_do:
        return operation_result::done;
    case verdict::refused:
        return operation_result::refused;
    case verdict::failed:
    case verdict::again:
        return operation_result::failed;
    }
    const bool completed = complete();
    failure_ = {}; // one between two stages has left the rest as it was decided
    if (completed)
        record_.finish();
    else
        fail(record_.path(), "not all of it is in place yet");
    return operation_result::done;
}

operation_result run_at_once(std::span<const operation_work> works)
{
    {
        const stop_hold hold; // in between there is half of it
        for (const operation_work &work : works.first(works.size() - 1))
            if (!work.run(work.argument))
                return operation_result::refused;
    }
    return works.back().run(works.back().argument) ? operation_result::done : operation_result::refused;
}

} // namespace

void operation_tell_commands(void (*listener)(bool run))
{
    while_commands = listener;
}

void operation_fail(const char *path, const char *reason)
{
    if (step_queue *const queue = step_queue::current())
        queue->fail(path, reason);
    else
        log_error("Failed to work on file: %s: %s", path, reason);
}

operation_result operation_run(std::span<const operation_work> works, std::atomic<uint32_t> &kept,
                               operation_failure *failure_out)
{
    if (!mxuci_gathers())
        return run_at_once(works);
    operation whole(works, kept);
    const operation_result result = whole.run();
    if (failure_out)
        *failure_out = whole.failure();
    return result;
}
