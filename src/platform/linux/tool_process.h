#pragma once

#include <QObject>
#include <QProcess>

#include <functional>
#include <optional>
#include <string>
#include <vector>

class QTimer;

namespace kestrow {

// A killed process is normally gone within milliseconds. One stuck in the kernel (a hung network
// mount) may never go, and the caller still deserves its answer: this long is waited, no longer.
inline constexpr int kReapMilliseconds = 2000;

// A time limit in seconds as QTimer's int milliseconds; about 23 days stands in for "no limit",
// and nonsense (NaN, negative) for none at all.
int limitMilliseconds(double seconds);

// Lets go of a process that outlived its kill: it deletes itself once it is finally gone, instead
// of blocking whoever destroys its owner. `process` is left null.
void letGoOfProcess(QProcess*& process, QObject* owner);

// How one run of an external tool ended.
struct ToolResult {
    // tooMuchOutput: it wrote more than kOutputLimit and was stopped there.
    enum class Ending { exited, failedToStart, timedOut, crashed, tooMuchOutput };
    Ending ending = Ending::failedToStart;
    int exitCode = -1;  // the tool's exit code; -1 unless it exited
    // Everything it wrote, whatever the ending, up to kOutputLimit bytes.
    std::string standardOutput;
    // failedToStart: why, in words. Otherwise the start of what the tool wrote to standard
    // error, which is kept here and never reaches our own terminal.
    std::string errorText;
};

// Why a program could not be started, in words a person can act on, from QProcess's error text.
std::string toolStartFailureText(const QString& qtText);

// Runs one external program as a process of its own (never through a shell) on the event loop
// of the calling thread, and reports once how it ended. The program leads a process group of
// its own, so that whatever it started goes with it: past the time limit, past the output
// limit, or when the run is dropped, the whole group is killed, and the program reaped before
// the ending is reported.
class ToolProcess final : public QObject {
    Q_OBJECT
public:
    // Far more than any answer we parse (a status plist is a few kilobytes); a tool that floods
    // its standard output is stopped there rather than fill our memory.
    static constexpr std::size_t kOutputLimit = 16 * 1024 * 1024;

    // Returns at once; `done` runs later on the calling thread, exactly once. The run belongs to
    // `context` (which must live on the calling thread): destroying `context` first kills the
    // process and drops the report. Without a context the run lasts until it reports.
    static void run(std::string program, std::vector<std::string> arguments,
                    double timeLimitSeconds, std::function<void(ToolResult)> done,
                    QObject* context = nullptr);

    ~ToolProcess() override;
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

private:
    ToolProcess(std::function<void(ToolResult)> done, QObject* parent);

    void start(const std::string& program, const std::vector<std::string>& arguments,
               double timeLimitSeconds);
    void collectOutput();
    void collectErrors();
    void onErrorOccurred(QProcess::ProcessError error);
    void onFinished(int exitCode, QProcess::ExitStatus status);
    void onTimeLimit();
    // Kills the tool and every process of its group; what it wrote so far is kept.
    void stopTool();
    void conclude(ToolResult::Ending ending, int exitCode, std::string errorText);
    void report();
    void letGoOfProcess();

    std::function<void(ToolResult)> done_;
    QProcess* process_;
    QTimer* limit_;
    QTimer* grace_;
    std::string output_;
    std::string errors_;
    bool timedOut_ = false;
    bool tooMuchOutput_ = false;
    std::optional<ToolResult> result_;
};

}  // namespace kestrow
