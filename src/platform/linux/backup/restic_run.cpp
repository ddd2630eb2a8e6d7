#include "platform/linux/backup/restic_run.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <QProcessEnvironment>
#include <QStringList>
#include <QTimer>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "platform/linux/tool_process.h"
#include "support/url_credentials.h"

namespace kestrow {
namespace {

// restic's own exit status for "interrupted by SIGINT".
constexpr int kInterruptedExitCode = 130;

void wipe(std::string& text) {
    ::explicit_bzero(text.data(), text.size());
    text.clear();
}

// A pipe whose read end holds `content` and is already at its end: restic reads it through
// /dev/fd/N and sees end-of-file after it. The write end is closed before this returns, so the
// text lives in the kernel's pipe buffer, not in our memory. The read end is close-on-exec here;
// only the restic child clears that flag. Returns -1 and says why on failure.
int pipeHolding(std::string_view content, std::string& why) {
    std::array<int, 2> ends{-1, -1};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        why = std::string("no pipe for the password: ") + ::strerror(errno);
        return -1;
    }
    // QProcess puts its own pipes at 0, 1 and 2 in the child.
    if (ends[0] < 3) {
        const int moved = ::fcntl(ends[0], F_DUPFD_CLOEXEC, 3);
        ::close(ends[0]);
        ends[0] = moved;
    }
    // Never block on a content longer than the pipe holds; it is refused instead.
    ::fcntl(ends[1], F_SETFL, O_NONBLOCK);
    std::size_t written = 0;
    while (ends[0] >= 0 && written < content.size()) {
        const ssize_t n = ::write(ends[1], content.data() + written, content.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        written += static_cast<std::size_t>(n);
    }
    ::close(ends[1]);
    if (ends[0] < 0 || written < content.size()) {
        if (ends[0] >= 0) ::close(ends[0]);
        why = "the password could not be handed to restic";
        return -1;
    }
    return ends[0];
}

// The password part of a repository URL's user information ("rest:https://ann:pw@host/" → "pw").
std::string urlPassword(const std::string& repository) {
    const std::string stripped = withoutPassword(repository);
    if (stripped.size() >= repository.size()) return {};
    std::size_t at = 0;
    while (at < stripped.size() && stripped[at] == repository[at]) ++at;
    // What was removed is ":" and the password.
    const std::size_t removed = repository.size() - stripped.size();
    return removed > 1 ? repository.substr(at + 1, removed - 1) : std::string();
}

void replaceAll(std::string& text, const std::string& what, std::string_view with) {
    if (what.empty()) return;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at)) {
        text.replace(at, what.size(), with);
        at += with.size();
    }
}

}  // namespace

bool isResticCredentialVariable(std::string_view name) {
    for (const std::string_view prefix :
         {"RESTIC_PASSWORD", "RESTIC_REPOSITORY", "RESTIC_FROM_", "RESTIC_KEY_HINT",
          "RESTIC_REST_USERNAME", "RESTIC_REST_PASSWORD"}) {
        if (name.substr(0, prefix.size()) == prefix) return true;
    }
    return false;
}

ResticRun* ResticRun::start(const std::string& program, ResticInvocation invocation,
                            std::function<void(std::string_view)> line,
                            std::function<void(ResticEnding)> done, StartObserver started) {
    auto* run = new ResticRun(std::move(line), std::move(done));
    run->started_ = std::move(started);
    run->launch(program, invocation);
    // Our copies: the password went into the pipe, and a repository may hold credentials.
    wipe(invocation.password);
    wipe(invocation.repository);
    return run;
}

ResticRun* ResticRun::refuse(std::string reason, std::function<void(ResticEnding)> done) {
    auto* run = new ResticRun({}, std::move(done));
    ResticEnding ending;
    ending.kind = ResticEnding::Kind::failedToStart;
    ending.errorText = std::move(reason);
    run->conclude(std::move(ending));
    return run;
}

ResticRun::ResticRun(std::function<void(std::string_view)> line,
                     std::function<void(ResticEnding)> done)
    : line_(std::move(line)),
      done_(std::move(done)),
      limit_(new QTimer(this)),
      grace_(new QTimer(this)),
      reap_(new QTimer(this)) {
    for (QTimer* timer : {limit_, grace_, reap_}) timer->setSingleShot(true);
}

ResticRun::~ResticRun() {
    for (const int descriptor : childDescriptors_) ::close(descriptor);
    if (process_ == nullptr || process_->state() == QProcess::NotRunning) return;
    process_->disconnect(this);
    killGroup();
    if (!process_->waitForFinished(kReapMilliseconds)) letGoOfProcess();
}

void ResticRun::launch(const std::string& program, ResticInvocation& invocation) {
    std::string why;
    const int passwordDescriptor = pipeHolding(invocation.password, why);
    wipe(invocation.password);
    if (passwordDescriptor < 0) {
        conclude(ResticEnding{ResticEnding::Kind::failedToStart, -1, 0, why});
        return;
    }
    childDescriptors_.push_back(passwordDescriptor);

    QStringList arguments{QStringLiteral("--password-file=/dev/fd/%1").arg(passwordDescriptor)};
    hidden_ = urlPassword(invocation.repository);
    if (hidden_.empty()) {
        // One argument, so that a repository starting with "-" cannot read as an option.
        arguments << QStringLiteral("--repo=") + QString::fromStdString(invocation.repository);
    } else {
        const int repositoryDescriptor = pipeHolding(invocation.repository, why);
        if (repositoryDescriptor < 0) {
            conclude(ResticEnding{ResticEnding::Kind::failedToStart, -1, 0,
                                  "the repository could not be handed to restic"});
            return;
        }
        childDescriptors_.push_back(repositoryDescriptor);
        arguments << QStringLiteral("--repository-file=/dev/fd/%1").arg(repositoryDescriptor);
    }
    for (const auto& argument : invocation.arguments) arguments << QString::fromStdString(argument);

    // Whatever the user's session sets for restic would override or join what we hand over.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const QString& name : environment.keys()) {
        if (isResticCredentialVariable(name.toStdString())) environment.remove(name);
    }

    process_ = new QProcess(this);
    process_->setProgram(QString::fromStdString(program));
    process_->setArguments(arguments);
    process_->setProcessEnvironment(environment);
    process_->setStandardInputFile(QProcess::nullDevice());
    // Runs in the child between fork and exec, where only async-signal-safe calls belong: a
    // group of its own, and the pipes' read ends kept open across exec.
    const int first = childDescriptors_[0];
    const int second = childDescriptors_.size() > 1 ? childDescriptors_[1] : -1;
    process_->setChildProcessModifier([first, second] {
        ::setpgid(0, 0);
        ::fcntl(first, F_SETFD, 0);
        if (second >= 0) ::fcntl(second, F_SETFD, 0);
    });

    connect(process_, &QProcess::readyReadStandardOutput, this, &ResticRun::collectOutput);
    connect(process_, &QProcess::readyReadStandardError, this, &ResticRun::collectErrors);
    connect(process_, &QProcess::errorOccurred, this, &ResticRun::onErrorOccurred);
    connect(process_, &QProcess::started, this, [this] {
        if (auto started = std::exchange(started_, nullptr)) started(std::nullopt);
    });
    connect(process_, &QProcess::finished, this, &ResticRun::onFinished);
    connect(limit_, &QTimer::timeout, this, [this] {
        timedOut_ = true;
        interrupt();
    });
    connect(grace_, &QTimer::timeout, this, [this] {
        killGroup();
        reap_->start(kReapMilliseconds);
    });
    connect(reap_, &QTimer::timeout, this, [this] {
        letGoOfProcess();
        const auto kind = timedOut_ && !stopRequested_ ? ResticEnding::Kind::timedOut
                                                       : ResticEnding::Kind::stopped;
        conclude(ResticEnding{kind, -1, 0, {}});
    });

    if (invocation.timeLimitSeconds > 0)
        limit_->start(limitMilliseconds(invocation.timeLimitSeconds));
    process_->start();
    // The child has its copies now (or never will); ours only kept the pipes alive until then.
    for (const int descriptor : childDescriptors_) ::close(descriptor);
    childDescriptors_.clear();
}

void ResticRun::collectOutput() {
    if (process_ == nullptr) return;
    const QByteArray bytes = process_->readAllStandardOutput();
    lines_.feed(std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size())),
                [this](std::string_view text) {
                    if (!abandoned_ && !ending_ && line_) line_(text);
                });
}

void ResticRun::collectErrors() {
    if (process_ == nullptr) return;
    const QByteArray bytes = process_->readAllStandardError();
    errors_.append(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    // Only the end is kept: restic's fatal message comes last.
    if (errors_.size() > 2 * kErrorTailLimit) errors_ = utf8Suffix(errors_, kErrorTailLimit);
}

void ResticRun::onErrorOccurred(QProcess::ProcessError error) {
    // Every other error is followed by `finished`, which reports it.
    if (error != QProcess::FailedToStart) return;
    std::string why = toolStartFailureText(process_->errorString());
    if (auto started = std::exchange(started_, nullptr)) started(why);
    conclude(ResticEnding{ResticEnding::Kind::failedToStart, -1, 0, std::move(why)});
}

void ResticRun::onFinished(int exitCode, QProcess::ExitStatus status) {
    collectOutput();
    collectErrors();
    lines_.finish([this](std::string_view text) {
        if (!abandoned_ && !ending_ && line_) line_(text);
    });
    ResticEnding ending;
    ending.exitCode = status == QProcess::NormalExit ? exitCode : -1;
    const bool succeeded = status == QProcess::NormalExit && exitCode == 0;
    if ((stopRequested_ || abandoned_) && !succeeded) {
        ending.kind = ResticEnding::Kind::stopped;
    } else if (timedOut_ && !succeeded) {
        ending.kind = ResticEnding::Kind::timedOut;
    } else if (status == QProcess::CrashExit) {
        // QProcess holds the signal that ended the process in its exit code.
        ending.kind = ResticEnding::Kind::killed;
        ending.signal = exitCode;
    } else if (exitCode == kInterruptedExitCode) {
        // restic ends this way when SIGINT reaches it, and nobody here sent one.
        ending.kind = ResticEnding::Kind::killed;
        ending.signal = SIGINT;
    } else {
        ending.kind = ResticEnding::Kind::exited;
    }
    conclude(std::move(ending));
}

void ResticRun::stop() {
    if (ending_) return;
    stopRequested_ = true;
    interrupt();
}

void ResticRun::abandon() {
    abandoned_ = true;
    if (ending_) return;
    stopRequested_ = true;
    interrupt();
}

void ResticRun::interrupt() {
    if (process_ == nullptr || process_->state() == QProcess::NotRunning) return;
    if (grace_->isActive() || reap_->isActive()) return;
    // Until QProcess has reaped restic its pid cannot be reused, so the ids name only it.
    const qint64 pid = process_->processId();
    if (pid > 1) ::kill(static_cast<pid_t>(pid), SIGINT);
    grace_->start(limitMilliseconds(kStopGraceSeconds));
}

void ResticRun::killGroup() {
    if (process_ == nullptr || process_->state() == QProcess::NotRunning) return;
    const qint64 pid = process_->processId();
    if (pid > 1) ::kill(-static_cast<pid_t>(pid), SIGKILL);
    process_->kill();
}

void ResticRun::conclude(ResticEnding ending) {
    if (ending_) return;
    limit_->stop();
    grace_->stop();
    reap_->stop();
    if (ending.kind != ResticEnding::Kind::failedToStart) {
        std::string text(utf8Suffix(errors_, kErrorTailLimit));
        replaceAll(text, hidden_, "***");
        const auto end = text.find_last_not_of(" \t\r\n");
        text.erase(end == std::string::npos ? 0 : end + 1);
        ending.errorText = std::move(text);
    }
    wipe(hidden_);
    wipe(errors_);
    ending_ = std::move(ending);
    // Always later, never inside start() or inside a QProcess signal.
    QMetaObject::invokeMethod(this, &ResticRun::report, Qt::QueuedConnection);
}

void ResticRun::report() {
    if (process_ != nullptr && process_->state() != QProcess::NotRunning) {
        // Concluded before restic was gone (it failed to start half-way); the process is let
        // go of rather than waited for.
        letGoOfProcess();
    }
    deleteLater();
    if (abandoned_ || !done_) return;
    auto done = std::move(done_);
    done(std::move(*ending_));
}

void ResticRun::letGoOfProcess() {
    kestrow::letGoOfProcess(process_, this);
}

}  // namespace kestrow
