// The status commands of one request, which run side by side, a few at a time. They are started in the order
// in which they are asked for, and their replies are taken in that order.
//
// The bus tool gives up by itself; a command that has not ended a moment later is given up. A network daemon
// that has left a command without an answer, and has given none to the others meanwhile, is not asked again
// for requests that had come in by then: they are answered without.
#pragma once

#include "base/running_command.h"
#include "wan/wan_names.h"

#include <array>

class status_commands {
public:
    static constexpr size_t most_at_once = 6;

    // `asked`: steady_milliseconds() when the request came in.
    explicit status_commands(uint64_t asked) : asked_(asked) {}

    // Asks for the status of an interface. `later`: nothing was started, since as many commands run as may,
    // or since this one cannot be started while others run; ask again when one has been taken. `failed`: the
    // command cannot be started, and its reply will be null.
    enum class answer { asked, later, failed };
    answer ask(const char *interface);

    // The reply to what was asked first of all that was not taken yet, up to its 2048th byte; empty when
    // there is none, null when its command could not be started, which is logged. Waits for the command's
    // end, and takes what the others print meanwhile. The text lives until the next ask(). Something must
    // have been asked.
    const char *take();

private:
    // A reply longer than this is cut, and then fails to parse.
    static constexpr size_t reply_size = 2048;
    struct question {
        status_command command{""};
        char reply[reply_size + 1];
        running_command running;
        bool started = false; // or there is no need to
        uint64_t begun = 0;
    };

    question &at(size_t place) { return ring_[(first_ + place) % most_at_once]; }
    void wait_for_output(uint64_t until);
    void judge(const question &ended, bool by_itself);

    uint64_t asked_;
    std::array<question, most_at_once> ring_;
    size_t first_ = 0; // the place in the ring of what was asked first
    size_t count_ = 0; // what was asked and not taken
};
