#include "platform/linux/termination_signals.h"

#include <fcntl.h>
#include <unistd.h>

#include <QSocketNotifier>

#include <atomic>
#include <cerrno>

namespace kestrow {
namespace {

// The handler can reach nothing but this: one byte per signal, the signal number, goes down
// the pipe, and the event loop reads it.
std::atomic<int> pipeWriteEnd{-1};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void onTerminationSignal(int signalNumber) {
    const int savedErrno = errno;
    const int fd = pipeWriteEnd.load();
    if (fd >= 0) {
        const auto byte = static_cast<unsigned char>(signalNumber);
        [[maybe_unused]] const ssize_t written = ::write(fd, &byte, 1);
    }
    errno = savedErrno;
}

}  // namespace

TerminationSignals::TerminationSignals(QObject* parent) : QObject(parent) {
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return;
    readFd_ = ends[0];
    writeFd_ = ends[1];
    notifier_ = new QSocketNotifier(readFd_, QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, &TerminationSignals::drain);
    previousWriteFd_ = pipeWriteEnd.exchange(writeFd_);

    struct sigaction action {};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, &previousInt_);
    ::sigaction(SIGTERM, &action, &previousTerm_);
}

TerminationSignals::~TerminationSignals() {
    if (writeFd_ < 0) return;
    ::sigaction(SIGINT, &previousInt_, nullptr);
    ::sigaction(SIGTERM, &previousTerm_, nullptr);
    pipeWriteEnd.store(previousWriteFd_);
    delete notifier_;
    ::close(writeFd_);
    ::close(readFd_);
}

void TerminationSignals::drain() {
    unsigned char numbers[32];
    for (;;) {
        const ssize_t count = ::read(readFd_, numbers, sizeof numbers);
        if (count <= 0) {
            if (count < 0 && errno == EINTR) continue;
            return;
        }
        for (ssize_t i = 0; i < count; ++i) {
            Q_EMIT terminationRequested(numbers[static_cast<std::size_t>(i)]);
        }
    }
}

}  // namespace kestrow
