#pragma once
// One running copy of an application per user for session links. The desktop starts the
// application for a link it was asked to open; when a copy already runs, a second one would share
// its device identifier and window contents. So the first copy listens on a local socket named
// after the application, and a copy started with a link hands the link to it and exits.
//
// The socket lives in the user's runtime directory ($XDG_RUNTIME_DIR, the user's alone), else in
// the temporary directory with the user's id in its name, and accepts connections from the same
// user only. A copy hands a link only to a socket its own user owns, so another user cannot
// stand in for the running copy and read the links; what arrives is one line of printable text
// of bounded length, handled like any link the application opens.

#include <QByteArray>
#include <QLocalServer>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace halvora::qt {

class LinkRelay final : public QObject {
public:
    // Longest link taken from the socket, in bytes.
    static constexpr qsizetype kMaxLink = 2048;

    // Where the copies of the application named `application` meet.
    static QString socketPath(const QString& application);
    // The session link a copy was started with: the first argument of the library's `scheme` (any
    // host), or http(s) to `linkHost`; none otherwise (other links are the application's own).
    static std::optional<QString> linkIn(const QStringList& arguments, const QString& scheme, const QString& linkHost);
    // Gives `link` to the copy listening at `path`; true once it said it took it.
    static bool handOver(const QString& path, const QString& link);

    // Listens at `path`, taking over a socket nobody answers at any more.
    LinkRelay(QString path, QObject* parent);
    ~LinkRelay() override;
    bool isListening() const { return server_.isListening(); }

    // Links received go to `onLink`; those that came before it was set are given to it now.
    void setOnLink(std::function<void(const std::string&)> onLink);

private:
    void accept();
    void deliver(const std::string& link);

    QString path_;
    QLocalServer server_;
    std::function<void(const std::string&)> onLink_;
    std::vector<std::string> waiting_;
};

}  // namespace halvora::qt
