#include "service/change.h"

#include "base/heap.h"
#include "base/log.h"
#include "service/settings.h"

namespace {

struct change_notes {
    wan_outcome *wans = nullptr;
    size_t size = 0, capacity = 0;
    wan_outcome subject = {.action = wan_action::failed, .result = "refused", .file = ""};
    size_t begins[most_works] = {}; // how many notes there were when a work began
    size_t latest = 0;              // the work that began last

    change_notes() = default;
    ~change_notes() { free(wans); }
    change_notes(const change_notes &) = delete;
    change_notes &operator=(const change_notes &) = delete;

    void begin_work(size_t work);
    void add(const wan_outcome &wan);
};

// A work and where it notes.
struct noting_work {
    operation_work inner;
    size_t index;
    change_notes *notes;
};

constinit thread_local change_notes *current_notes = nullptr;

void change_notes::begin_work(size_t work)
{
    if (work <= latest) // it runs again, and so will those behind it
        size = begins[work];
    begins[work] = size;
    latest = work;
}

void change_notes::add(const wan_outcome &wan)
{
    if (size == capacity) {
        const size_t grown = capacity == 0 ? 4 : capacity * 2;
        void *const memory = realloc(wans, grown * sizeof(wan_outcome));
        if (!memory)
            return log_error("Failed to allocate an outcome");
        wans = static_cast<wan_outcome *>(memory);
        capacity = grown;
    }
    wans[size++] = wan;
}

template <size_t size> void copy_name(char (&name_out)[size], std::string_view name)
{
    (void)text_ref(name_out).format("%.*s", static_cast<int>(name.size()), name.data());
}

bool run_noting(void *argument)
{
    const noting_work &self = *static_cast<noting_work *>(argument);
    change_notes *const outer = current_notes;
    self.notes->begin_work(self.index);
    current_notes = self.notes;
    const bool goes_on = self.inner.run(self.inner.argument);
    current_notes = outer;
    return goes_on;
}

void publish(change_notes &notes, operation_result result, const operation_failure &failure)
{
    if (result == operation_result::done) {
        for (size_t i = 0; i < notes.size; i++) {
            if (failure.reason[0] != '\0') {
                notes.wans[i].result = failure.reason;
                notes.wans[i].file = failure.path;
            }
            outcome_add(notes.wans[i]);
        }
        return;
    }
    if (result == operation_result::failed) {
        notes.subject.action = wan_action::failed;
        notes.subject.result = failure.reason;
        notes.subject.file = failure.path;
        notes.subject.conflict = nullptr;
        notes.subject.other = 0;
    }
    outcome_add(notes.subject);
}

} // namespace

operation_result change_run(std::span<const operation_work> works, uint8_t wan_id)
{
    change_notes notes;
    notes.subject.wanId = wan_id;
    noting_work noting[most_works];
    operation_work wrapped[most_works];
    for (size_t i = 0; i < works.size(); i++) {
        noting[i] = {works[i], i, &notes};
        wrapped[i] = {run_noting, &noting[i]};
    }
    operation_failure failure = {};
    const operation_result result = operation_run({wrapped, works.size()}, maxWanId, &failure);
    publish(notes, result, failure);
    return result;
}

void note_wan(wan_action action, uint8_t wan_id, std::string_view name, std::string_view device,
              bool complete)
{
    if (!current_notes)
        return;
    wan_outcome wan = {.action = action,
                       .wanId = wan_id,
                       .result = complete ? result_ok : "a part could not be written",
                       .file = ""};
    copy_name(wan.wanName, name);
    copy_name(wan.device, device);
    current_notes->add(wan);
}

void note_subject(std::string_view name, std::string_view device)
{
    if (!current_notes)
        return;
    copy_name(current_notes->subject.wanName, name);
    copy_name(current_notes->subject.device, device);
}

void note_refusal(wan_action action, const char *reason, const char *conflict, uint8_t other)
{
    if (!current_notes)
        return;
    wan_outcome &subject = current_notes->subject;
    subject.action = action;
    subject.result = reason;
    subject.conflict = conflict;
    subject.other = other;
}
