#include "platform/linux/single_instance.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/un.h>
#include <unistd.h>

#include <QDeadlineTimer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <thread>

namespace kestrow {
namespace {

const QByteArray kRequest = QByteArrayLiteral("reopen\n");
const QByteArray kAcknowledgement = QByteArrayLiteral("ok\n");
constexpr qint64 kLongestLine = 64;
// A client that connects and says nothing is dropped after this long.
constexpr int kClientTimeoutMs = 2000;

int remainingMs(const QDeadlineTimer& deadline) {
    return static_cast<int>(std::min<qint64>(deadline.remainingTime(), 1 << 30));
}

}  // namespace

SingleInstance::SingleInstance(std::filesystem::path folder,
                               std::chrono::milliseconds handoverTimeout, QObject* parent)
    : QObject(parent), folder_(std::move(folder)), handoverTimeout_(handoverTimeout) {}

SingleInstance::~SingleInstance() {
    // The socket goes before the lock, so that a successor never has its fresh socket removed.
    if (server_ != nullptr) server_->close();
    if (lockFd_ >= 0) ::close(lockFd_);
}

SingleInstance::Role SingleInstance::claim() {
    if (lockFd_ >= 0) return server_ != nullptr ? Role::primary : Role::failed;
    std::error_code error;
    if (std::filesystem::create_directories(folder_, error)) {
        std::filesystem::permissions(folder_, std::filesystem::perms::owner_all, error);
    }
    if (error) return fail("Cannot create " + folder_.string() + ": " + error.message());

    const std::filesystem::path socketPath = folder_ / "agent.socket";
    constexpr std::size_t longest = sizeof(sockaddr_un::sun_path) - 1;
    if (socketPath.native().size() > longest) {
        return fail("The folder " + folder_.string() + " is too deep for a local socket: " +
                    std::to_string(socketPath.native().size()) + " bytes, at most " +
                    std::to_string(longest));
    }

    const std::filesystem::path lockPath = folder_ / "agent.lock";
    lockFd_ = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lockFd_ < 0) return fail("Cannot open " + lockPath.string() + ": " + std::strerror(errno));
    const QString socketName = QString::fromStdString(socketPath.native());
    if (::flock(lockFd_, LOCK_EX | LOCK_NB) == 0) return becomePrimary(socketName);

    const int code = errno;
    ::close(lockFd_);
    lockFd_ = -1;
    if (code != EWOULDBLOCK)
        return fail("Cannot lock " + lockPath.string() + ": " + std::strerror(code));
    return handOver(socketName);
}

SingleInstance::Role SingleInstance::fail(std::string text) {
    errorText_ = std::move(text);
    return Role::failed;
}

SingleInstance::Role SingleInstance::becomePrimary(const QString& socketPath) {
    // Holding the lock means no live agent serves this socket: a file there is left from one that
    // died, and listening needs it gone.
    QLocalServer::removeServer(socketPath);
    server_ = new QLocalServer(this);
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server_->listen(socketPath)) {
        const std::string reason = server_->errorString().toStdString();
        delete server_;
        server_ = nullptr;
        return fail("Cannot listen on " + socketPath.toStdString() + ": " + reason);
    }
    connect(server_, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* client = server_->nextPendingConnection()) answer(client);
    });
    return Role::primary;
}

void SingleInstance::answer(QLocalSocket* client) {
    connect(client, &QLocalSocket::disconnected, client, &QObject::deleteLater);
    QTimer::singleShot(kClientTimeoutMs, client, [client] {
        client->abort();
        client->deleteLater();
    });
    connect(client, &QLocalSocket::readyRead, this, [this, client] {
        if (!client->canReadLine()) {
            if (client->bytesAvailable() > kLongestLine) client->abort();
            return;
        }
        if (client->readLine(kLongestLine + 1) != kRequest) {
            client->abort();
            return;
        }
        client->write(kAcknowledgement);
        client->disconnectFromServer();  // sends what is buffered first
        Q_EMIT reopenRequested();
    });
}

SingleInstance::Role SingleInstance::handOver(const QString& socketPath) {
    const QDeadlineTimer deadline(handoverTimeout_);
    QLocalSocket socket;
    // The primary takes the lock before it listens, so its socket may be missing for a moment.
    for (;;) {
        socket.connectToServer(socketPath);
        if (socket.waitForConnected(remainingMs(deadline))) break;
        if (deadline.hasExpired()) {
            return fail("Kestrow is already running but cannot be reached: " +
                        socket.errorString().toStdString());
        }
        socket.abort();
        std::this_thread::sleep_for(std::chrono::milliseconds(
            std::min<qint64>(50, std::max<qint64>(deadline.remainingTime(), 0))));
    }
    socket.write(kRequest);
    while (!socket.canReadLine()) {
        if (!socket.waitForReadyRead(remainingMs(deadline))) {
            return fail("Kestrow is already running but did not answer: " +
                        socket.errorString().toStdString());
        }
    }
    if (socket.readLine(kLongestLine + 1) != kAcknowledgement) {
        return fail("Kestrow is already running but gave an unexpected answer");
    }
    return Role::handedOver;
}

}  // namespace kestrow
