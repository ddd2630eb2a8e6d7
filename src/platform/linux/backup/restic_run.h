#pragma once

#include <QObject>
#include <QProcess>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/restic_commands.h"
#include "support/line_assembler.h"

class QTimer;

namespace kestrow {

// One run of restic as a process of its own, on the event loop of the thread that starts it.
// The repository password, and a repository that carries credentials, reach restic through
// pipes it inherits as descriptors; neither is ever an argument or an environment value. It
// leads a process group of its own. Stopping asks restic with SIGINT, which lets it remove its
// lock, and kills the whole group if it has not gone within kStopGraceSeconds. The object
// deletes itself once restic is gone and the ending has been handed on.
class ResticRun final : public QObject {
    Q_OBJECT
public:
    // One line of standard output may be a whole snapshot list.
    static constexpr std::size_t kLineLimit = 16 * 1024 * 1024;
    static constexpr std::size_t kErrorTailLimit = 4096;
    static constexpr double kStopGraceSeconds = 5.0;

    // Hears whether the program itself could be started: nothing, or why not.
    using StartObserver = std::function<void(std::optional<std::string> failure)>;

    // Starts `program` for `invocation`. `line` and `done` run later on this thread; `done`
    // exactly once, last, unless the run is abandoned first. `started` runs once, as soon as
    // the program runs or could not be executed, even for an abandoned run.
    static ResticRun* start(const std::string& program, ResticInvocation invocation,
                            std::function<void(std::string_view)> line,
                            std::function<void(ResticEnding)> done, StartObserver started);
    // Answers `failedToStart` with `reason` later, without starting anything.
    static ResticRun* refuse(std::string reason, std::function<void(ResticEnding)> done);

    ~ResticRun() override;
    ResticRun(const ResticRun&) = delete;
    ResticRun& operator=(const ResticRun&) = delete;

    // Asks restic to stop; the ending is `stopped`.
    void stop();
    // Stops restic as `stop` does and reports nothing more.
    void abandon();

private:
    ResticRun(std::function<void(std::string_view)> line, std::function<void(ResticEnding)> done);

    void launch(const std::string& program, ResticInvocation& invocation);
    void collectOutput();
    void collectErrors();
    void onErrorOccurred(QProcess::ProcessError error);
    void onFinished(int exitCode, QProcess::ExitStatus status);
    void interrupt();
    void killGroup();
    void conclude(ResticEnding ending);
    void report();
    void letGoOfProcess();

    std::function<void(std::string_view)> line_;
    std::function<void(ResticEnding)> done_;
    StartObserver started_;
    QProcess* process_ = nullptr;
    QTimer* limit_;
    QTimer* grace_;
    QTimer* reap_;
    LineAssembler lines_{kLineLimit};
    std::string errors_;
    // Text that must not leave this run in an error text: the password of a repository URL.
    std::string hidden_;
    std::vector<int> childDescriptors_;
    bool stopRequested_ = false;
    bool timedOut_ = false;
    bool abandoned_ = false;
    std::optional<ResticEnding> ending_;
};

// Whether restic would read `name` from its environment as a password or a repository, or one
// for a second repository, so that a value the user set would override or join ours.
bool isResticCredentialVariable(std::string_view name);

}  // namespace kestrow
