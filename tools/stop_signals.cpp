#include "stop_signals.h"

#include <tuple>

namespace {

volatile std::sig_atomic_t received = 0;

void Note(int signal) { received = signal; }

void Catch(int signal, struct sigaction& before) {
    std::ignore = sigaction(signal, nullptr, &before);  // cannot fail with these signals
    if (before.sa_handler != SIG_IGN) {
        struct sigaction action = {};
        action.sa_handler = Note;
        action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
        std::ignore = sigaction(signal, &action, nullptr);
    }
}

}  // namespace

StopSignals::StopSignals() {
    received = 0;
    Catch(SIGINT, interrupt_);
    Catch(SIGTERM, terminate_);
}

StopSignals::~StopSignals() {
    std::ignore = sigaction(SIGINT, &interrupt_, nullptr);
    std::ignore = sigaction(SIGTERM, &terminate_, nullptr);
}

int StopSignals::Received() const { return received; }
