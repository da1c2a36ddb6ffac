// The signals that end the process, and what puts that end off.
//
// Signals only ring: their handler writes to a descriptor and may so interrupt any thread at any point. The
// bus thread reads them and ends the process, as soon as nothing would be lost by it.
#pragma once

// Catches SIGHUP, SIGINT and SIGTERM from now on. Returns the descriptor that becomes readable when one has
// come, or -1 with errno.
int stop_signals_catch();
// The number of a signal that came and was not taken yet, or 0.
int stop_signal_take();

// Puts the end of the process off for its own lifetime: for work that would lose something if it were cut
// short half-way. Any thread.
class stop_hold {
public:
    stop_hold();
    ~stop_hold();
    stop_hold(const stop_hold &) = delete;
    stop_hold &operator=(const stop_hold &) = delete;
};

// Puts the end off for a moment at most: for work that should not be cut short, but that the next process can
// take up. Any thread.
class stop_delay {
public:
    stop_delay();
    ~stop_delay();
    stop_delay(const stop_delay &) = delete;
    stop_delay &operator=(const stop_delay &) = delete;

    static constexpr unsigned most_milliseconds = 3000; // less than a supervisor waits before it kills

private:
    stop_hold hold_;
};

// Where nothing is lost by the end: waits for it when it has been asked for. Not with a hold. Any thread.
void stop_point();

// Asks for the end: waits until nobody puts it off any more. Whoever wants to do so afterwards waits for the
// end of the process, which must come next.
void stop_wait_for_holds();
