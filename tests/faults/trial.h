// Tries of one operation after the other, with one fault after the other.
#pragma once

#include "faults/ground.h"

#include <optional>

class trial {
public:
    // Every faulty run, and none other, does without the call.
    explicit trial(const left_out_call &left_out);
    ~trial() { put_files(shipped_); }
    trial(const trial &) = delete;
    trial &operator=(const trial &) = delete;

    // Makes the two whole states of an operation, by runs without a fault. Throws std::runtime_error when it
    // does not work even so.
    void prepare(const operation &tried);
    // How many tries a fault has with the prepared operation.
    size_t tries(const fault &wrong);
    // One try, counted from 0.
    verdict attempt(const fault &wrong, size_t number);
    // The calls of the run without a fault that change something, one text each.
    const std::vector<std::string> &calls() const { return clean_.texts; }
    size_t allocations() const { return allocations_; }

private:
    struct crash;
    // What a start of the daemon leaves.
    struct next_start {
        file_tree files;
        std::vector<std::string> reloads;
        std::string wrong;
    };
    const next_start &start_from(const file_tree &files);
    bool at_start() const { return !operation_->request.method; }
    void make(const bus_request &request);
    void run_request(traced_program &daemon, watch &watched, const std::function<bool()> &done);
    crash run_with(const fault &wrong, size_t number);
    verdict attempt_run(const fault &wrong, size_t number);
    verdict attempt_cut(size_t number);
    verdict attempt_two(const fault &wrong, size_t number);
    const std::string &try_next_start(const fault &wrong, const file_tree &files, size_t number);
    std::string kill_restarts(const file_tree &files, size_t number);
    std::string cut_restart(const file_tree &files, size_t number);
    void record_cuts();

    const left_out_call left_out_;
    ground ground_;
    const file_tree shipped_;
    const operation *operation_ = nullptr;
    whole_states states_;
    watch clean_; // what the run without a fault did
    size_t allocations_ = 0;
    std::optional<std::vector<disk_log::remains>> cuts_;
    // A start depends on the files alone, so that of the same files is tried once.
    std::map<file_tree, next_start> next_starts_;
    std::map<std::pair<fault::what, file_tree>, std::string> faulty_starts_;
};
