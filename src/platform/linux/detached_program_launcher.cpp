#include "platform/linux/detached_program_launcher.h"

#include <QProcess>
#include <QStringList>

namespace kestrow {

std::optional<std::string> DetachedProgramLauncher::startDetached(
    const std::string& program, const std::vector<std::string>& arguments) {
    QStringList list;
    for (const auto& argument : arguments) list << QString::fromStdString(argument);
    QProcess process;
    process.setProgram(QString::fromStdString(program));
    process.setArguments(list);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    if (process.startDetached()) return std::nullopt;
    return process.errorString().toStdString();
}

}  // namespace kestrow
