/**
 * @file
 * Signals that ask a command to stop.
 */
#ifndef ZEL_TOOLS_STOP_SIGNALS_H
#define ZEL_TOOLS_STOP_SIGNALS_H

#include <csignal>

/**
 * While the object lives, the first SIGINT or SIGTERM is only noted; a second one of the same kind
 * ends the process at once. A signal that the process was started to ignore stays ignored. One
 * object at a time.
 */
class StopSignals {
public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /** The number of the signal that came, 0 for none. */
    [[nodiscard]] int Received() const;

private:
    struct sigaction interrupt_ = {};
    struct sigaction terminate_ = {};
};

#endif
