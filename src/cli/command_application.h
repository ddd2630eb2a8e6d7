#pragma once

#include <QCoreApplication>

#include <memory>

namespace kestrow {

// The application object a one-shot command needs for its event loop, child processes and
// D-Bus: a new one when none exists (hold it while the command runs), else nothing.
std::unique_ptr<QCoreApplication> commandApplication();

}  // namespace kestrow
