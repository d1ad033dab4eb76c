#include "qt/link_relay.h"

#include <QDir>
#include <QFileInfo>
#include <QLocalSocket>
#include <QPointer>
#include <QUrl>

#include <unistd.h>

#include "halvora/platform/log.h"

namespace halvora::qt {
namespace {

constexpr int kWaitMs = 2000;
const QByteArray kTaken = "taken\n";

// Letters, digits, '.', '-' and '_' of the application's name: a file name of its own.
QString fileNameOf(const QString& application) {
    QString name;
    for (const QChar c : application) name += (c.isLetterOrNumber() && c.unicode() < 128) || c == '.' || c == '-' || c == '_' ? c : QChar('_');
    return name.isEmpty() ? QStringLiteral("application") : name.left(64);
}

bool isPrintableLine(const QByteArray& line) {
    for (const char c : line) {
        if (static_cast<unsigned char>(c) < 0x21 || static_cast<unsigned char>(c) > 0x7e) return false;
    }
    return !line.isEmpty();
}

}  // namespace

QString LinkRelay::socketPath(const QString& application) {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const QFileInfo runtimeDir(runtime);
    const QString name = QStringLiteral("halvora-links-") + fileNameOf(application);
    if (!runtime.isEmpty() && runtimeDir.isDir() && runtimeDir.ownerId() == ::getuid())
        return QDir(runtime).filePath(name);
    return QDir(QDir::tempPath()).filePath(name + QLatin1Char('-') + QString::number(::getuid()));
}

std::optional<QString> LinkRelay::linkIn(const QStringList& arguments, const QString& scheme, const QString& linkHost) {
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QUrl url(arguments[i], QUrl::StrictMode);
        if (!url.isValid() || url.host().isEmpty()) continue;
        const QString given = url.scheme().toLower();
        const bool web = given == "https" || given == "http";
        if (given == scheme || (web && url.host().compare(linkHost, Qt::CaseInsensitive) == 0))
            return url.toString(QUrl::FullyEncoded);
    }
    return std::nullopt;
}

bool LinkRelay::handOver(const QString& path, const QString& link) {
    // Only to a socket of our own user: anyone else's could be a stand-in listening for codes.
    const QFileInfo socketFile(path);
    if (!socketFile.exists() || socketFile.ownerId() != ::getuid()) return false;
    const QByteArray line = link.toUtf8() + '\n';
    if (line.size() > kMaxLink + 1 || !isPrintableLine(line.chopped(1))) return false;
    QLocalSocket socket;
    socket.connectToServer(path);
    if (!socket.waitForConnected(kWaitMs)) return false;
    socket.write(line);
    if (!socket.waitForBytesWritten(kWaitMs)) return false;
    QByteArray answer;
    while (answer.size() < kTaken.size() && socket.waitForReadyRead(kWaitMs)) answer += socket.readAll();
    return answer.startsWith(kTaken);
}

LinkRelay::LinkRelay(QString path, QObject* parent) : QObject(parent), path_(std::move(path)) {
    server_.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&server_, &QLocalServer::newConnection, this, &LinkRelay::accept);
    if (server_.listen(path_)) return;
    // A socket left by a copy that ended without closing it: nobody answers there any more.
    QLocalSocket probe;
    probe.connectToServer(path_);
    if (probe.waitForConnected(200)) return;  // another copy answers: it has the links
    QLocalServer::removeServer(path_);
    if (!server_.listen(path_)) platform::log("Halvora cannot take session links from other copies: " + server_.errorString().toStdString());
}

LinkRelay::~LinkRelay() { server_.close(); }

void LinkRelay::setOnLink(std::function<void(const std::string&)> onLink) {
    onLink_ = std::move(onLink);
    for (const auto& link : std::exchange(waiting_, {})) deliver(link);
}

void LinkRelay::accept() {
    while (QLocalSocket* socket = server_.nextPendingConnection()) {
        QPointer<QLocalSocket> guarded(socket);
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, guarded] {
            if (!guarded) return;
            // One line per connection; anything longer or not printable is dropped unanswered.
            if (!guarded->canReadLine()) {
                if (guarded->bytesAvailable() > kMaxLink + 1) guarded->disconnectFromServer();
                return;
            }
            const QByteArray line = guarded->readLine(kMaxLink + 2).chopped(1);
            if (isPrintableLine(line) && line.size() <= kMaxLink) {
                guarded->write(kTaken);
                guarded->flush();
                deliver(line.toStdString());
            }
            guarded->disconnectFromServer();
        });
    }
}

void LinkRelay::deliver(const std::string& link) {
    if (onLink_) {
        onLink_(link);
    } else {
        waiting_.push_back(link);  // before the library started: taken when it does
    }
}

}  // namespace halvora::qt
