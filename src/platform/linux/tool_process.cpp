#include "platform/linux/tool_process.h"

#include <signal.h>
#include <unistd.h>

#include <QStringList>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <utility>

namespace kestrow {
namespace {

// Enough of standard error to say what went wrong; a chatty tool cannot grow it without end.
constexpr std::size_t kErrorTextLimit = 4096;
// QTimer counts in int milliseconds; about 23 days stands in for "no limit".
constexpr double kLongestLimitSeconds = 2e6;

}  // namespace

int limitMilliseconds(double seconds) {
    const double clamped =
        std::isnan(seconds) ? 0.0 : std::clamp(seconds, 0.0, kLongestLimitSeconds);
    return static_cast<int>(std::ceil(clamped * 1000.0));
}

// Qt names the system call that failed ("execvp: No such file or directory"); the reason alone
// is what a person can act on.
std::string toolStartFailureText(const QString& qtText) {
    QString text = qtText;
    for (const auto* call : {"execvp: ", "execve: ", "execv: "}) {
        if (text.startsWith(QLatin1String(call))) text.remove(0, QLatin1String(call).size());
    }
    text = text.trimmed();
    return text.isEmpty() ? std::string("it could not be started") : text.toStdString();
}

void ToolProcess::run(std::string program, std::vector<std::string> arguments,
                      double timeLimitSeconds, std::function<void(ToolResult)> done,
                      QObject* context) {
    auto* runner = new ToolProcess(std::move(done), context);
    runner->start(program, arguments, timeLimitSeconds);
}

ToolProcess::ToolProcess(std::function<void(ToolResult)> done, QObject* parent)
    : QObject(parent),
      done_(std::move(done)),
      process_(new QProcess(this)),
      limit_(new QTimer(this)),
      grace_(new QTimer(this)) {}

ToolProcess::~ToolProcess() {
    if (process_ == nullptr || process_->state() == QProcess::NotRunning) return;
    process_->disconnect(this);
    stopTool();
    if (!process_->waitForFinished(kReapMilliseconds)) letGoOfProcess();
}

void ToolProcess::start(const std::string& program, const std::vector<std::string>& arguments,
                        double timeLimitSeconds) {
    QStringList list;
    for (const auto& argument : arguments) list << QString::fromStdString(argument);
    process_->setProgram(QString::fromStdString(program));
    process_->setArguments(list);
    // A tool that waits for input would otherwise wait on ours.
    process_->setStandardInputFile(QProcess::nullDevice());
    // Runs in the child between fork and exec: a group of its own, whose id is the tool's pid,
    // so that a kill of the group reaches the children a tool leaves running.
    process_->setChildProcessModifier([] { ::setpgid(0, 0); });

    connect(process_, &QProcess::readyReadStandardOutput, this, &ToolProcess::collectOutput);
    connect(process_, &QProcess::readyReadStandardError, this, &ToolProcess::collectErrors);
    connect(process_, &QProcess::errorOccurred, this, &ToolProcess::onErrorOccurred);
    connect(process_, &QProcess::finished, this, &ToolProcess::onFinished);

    limit_->setSingleShot(true);
    connect(limit_, &QTimer::timeout, this, &ToolProcess::onTimeLimit);
    grace_->setSingleShot(true);
    connect(grace_, &QTimer::timeout, this, [this] {
        letGoOfProcess();
        conclude(tooMuchOutput_ ? ToolResult::Ending::tooMuchOutput : ToolResult::Ending::timedOut,
                 -1, std::move(errors_));
    });

    limit_->start(limitMilliseconds(timeLimitSeconds));
    process_->start();
}

void ToolProcess::collectOutput() {
    if (process_ == nullptr) return;
    const QByteArray bytes = process_->readAllStandardOutput();
    const auto room = kOutputLimit - std::min(kOutputLimit, output_.size());
    output_.append(bytes.constData(), std::min(room, static_cast<std::size_t>(bytes.size())));
    if (static_cast<std::size_t>(bytes.size()) <= room || tooMuchOutput_) return;
    tooMuchOutput_ = true;
    if (!timedOut_ && process_->state() != QProcess::NotRunning) {
        stopTool();
        grace_->start(kReapMilliseconds);
    }
}

void ToolProcess::collectErrors() {
    if (process_ == nullptr) return;
    // Read everything so the pipe never fills, keep only the start.
    const QByteArray bytes = process_->readAllStandardError();
    const auto room = kErrorTextLimit - std::min(kErrorTextLimit, errors_.size());
    errors_.append(bytes.constData(), std::min(room, static_cast<std::size_t>(bytes.size())));
}

void ToolProcess::onErrorOccurred(QProcess::ProcessError error) {
    // Every other error is followed by `finished`, which reports it.
    if (error != QProcess::FailedToStart) return;
    conclude(ToolResult::Ending::failedToStart, -1, toolStartFailureText(process_->errorString()));
}

void ToolProcess::onFinished(int exitCode, QProcess::ExitStatus status) {
    collectOutput();
    collectErrors();
    if (tooMuchOutput_) {
        conclude(ToolResult::Ending::tooMuchOutput, -1, std::move(errors_));
    } else if (timedOut_) {
        conclude(ToolResult::Ending::timedOut, -1, std::move(errors_));
    } else if (status == QProcess::CrashExit) {
        conclude(ToolResult::Ending::crashed, -1, std::move(errors_));
    } else {
        conclude(ToolResult::Ending::exited, exitCode, std::move(errors_));
    }
}

void ToolProcess::onTimeLimit() {
    if (result_ || process_ == nullptr) return;
    if (process_->state() == QProcess::NotRunning) {
        // Never got going and never said why.
        conclude(ToolResult::Ending::timedOut, -1, std::move(errors_));
        return;
    }
    timedOut_ = true;
    stopTool();
    grace_->start(kReapMilliseconds);
}

void ToolProcess::stopTool() {
    if (process_ == nullptr) return;
    // Until QProcess has reaped the tool its pid cannot be reused, so the group id still names
    // this tool's group and nobody else's.
    const qint64 pid = process_->processId();
    if (process_->state() != QProcess::NotRunning && pid > 1)
        ::kill(-static_cast<pid_t>(pid), SIGKILL);
    process_->kill();
}

void ToolProcess::conclude(ToolResult::Ending ending, int exitCode, std::string errorText) {
    if (result_) return;
    limit_->stop();
    grace_->stop();
    result_ = ToolResult{ending, exitCode, std::move(output_), std::move(errorText)};
    // Always later, never inside run() or inside a QProcess signal: `done` may destroy the
    // context, which must not delete the process while it is still emitting.
    QMetaObject::invokeMethod(this, &ToolProcess::report, Qt::QueuedConnection);
}

void ToolProcess::report() {
    auto done = std::move(done_);
    ToolResult result = std::move(*result_);
    // From here on the context no longer owns this run, so whatever `done` destroys, this
    // object goes on its own, after `done` has returned.
    setParent(nullptr);
    deleteLater();
    if (done) done(std::move(result));
}

void letGoOfProcess(QProcess*& process, QObject* owner) {
    if (process == nullptr) return;
    QProcess* gone = process;
    process = nullptr;
    gone->disconnect(owner);
    gone->setParent(nullptr);
    QObject::connect(gone, &QProcess::finished, gone, &QObject::deleteLater);
    if (gone->state() == QProcess::NotRunning) gone->deleteLater();
}

void ToolProcess::letGoOfProcess() {
    kestrow::letGoOfProcess(process_, this);
}

}  // namespace kestrow
