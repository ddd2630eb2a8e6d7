#pragma once

#include <QObject>

#include <csignal>

class QSocketNotifier;

namespace kestrow {

// Turns SIGINT and SIGTERM into a Qt signal on this object's thread, so that the app quits
// through its normal shut-down order instead of dying mid-write. The handlers are process-wide,
// so keep one of these alive at a time. Destroying it puts back the handlers that were there
// before.
class TerminationSignals : public QObject {
    Q_OBJECT
public:
    explicit TerminationSignals(QObject* parent = nullptr);
    ~TerminationSignals() override;
    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

Q_SIGNALS:
    void terminationRequested(int signalNumber);

private:
    void drain();

    int readFd_ = -1;
    int writeFd_ = -1;
    int previousWriteFd_ = -1;
    struct sigaction previousInt_ {};
    struct sigaction previousTerm_ {};
    QSocketNotifier* notifier_ = nullptr;
};

}  // namespace kestrow
