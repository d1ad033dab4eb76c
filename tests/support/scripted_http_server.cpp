#include "tests/support/scripted_http_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>

namespace halvora::testing {
namespace {

constexpr std::size_t kMaxHeadBytes = 64 * 1024;

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    });
}

std::optional<std::string> findHeader(const HttpHeaders& headers, std::string_view name) {
    for (const auto& [key, value] : headers) {
        if (equalsIgnoringCase(key, name)) return value;
    }
    return std::nullopt;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

const char* usualReason(int status) {
    switch (status) {
        case 100: return "Continue";
        case 200: return "OK";
        case 201: return "Created";
        case 202: return "Accepted";
        case 204: return "No Content";
        case 301: return "Moved Permanently";
        case 302: return "Found";
        case 303: return "See Other";
        case 304: return "Not Modified";
        case 307: return "Temporary Redirect";
        case 308: return "Permanent Redirect";
        case 400: return "Bad Request";
        case 401: return "Unauthorized";
        case 403: return "Forbidden";
        case 404: return "Not Found";
        case 409: return "Conflict";
        case 410: return "Gone";
        case 422: return "Unprocessable Entity";
        case 429: return "Too Many Requests";
        case 500: return "Internal Server Error";
        case 501: return "Not Implemented";
        case 502: return "Bad Gateway";
        case 503: return "Service Unavailable";
        case 504: return "Gateway Timeout";
        default: return "Status";
    }
}

bool statusAllowsBody(int status) {
    return status / 100 != 1 && status != 204 && status != 304;
}

[[noreturn]] void throwErrno(const char* what) {
    throw std::system_error(errno, std::generic_category(), std::string("ScriptedHttpServer: ") + what);
}

// The bytes to write for a Response reply, and whether the connection must close afterwards.
std::pair<std::string, bool> render(const Reply& reply, bool headRequest, bool clientAskedToClose) {
    const bool bodyAllowed = statusAllowsBody(reply.statusCode);
    const bool hasLength = findHeader(reply.headers, "Content-Length").has_value();
    const bool addLength = bodyAllowed && !hasLength;
    const bool close = clientAskedToClose;

    std::string out = "HTTP/1.1 " + std::to_string(reply.statusCode) + " " +
                      usualReason(reply.statusCode) + "\r\n";
    for (const auto& [name, value] : reply.headers) out += name + ": " + value + "\r\n";
    if (addLength) out += "Content-Length: " + std::to_string(reply.body.size()) + "\r\n";
    if (close && !findHeader(reply.headers, "Connection")) out += "Connection: close\r\n";
    out += "\r\n";
    if (bodyAllowed && !headRequest) out += reply.body;
    return {std::move(out), close};
}

enum class ReadOutcome { Request, Closed, Malformed, Unsupported };

}  // namespace

// ---- RecordedRequest -------------------------------------------------------------------------

std::optional<std::string> RecordedRequest::header(std::string_view name) const {
    return findHeader(headers, name);
}

std::string RecordedRequest::path() const {
    return target.substr(0, target.find('?'));
}

// ---- Reply -----------------------------------------------------------------------------------

Reply Reply::status(int code, std::string body, std::string contentType) {
    Reply reply;
    reply.statusCode = code;
    if (!body.empty()) reply.headers.emplace_back("Content-Type", std::move(contentType));
    reply.body = std::move(body);
    return reply;
}

Reply Reply::json(int code, std::string body) {
    return status(code, std::move(body), "application/json");
}

Reply Reply::noContent() {
    return status(204);
}

Reply Reply::redirect(int code, std::string location) {
    return status(code).withHeader("Location", std::move(location));
}

Reply Reply::neverAnswer() {
    Reply reply;
    reply.kind = Kind::NeverAnswer;
    return reply;
}

Reply Reply::closeConnection() {
    Reply reply;
    reply.kind = Kind::CloseWithoutAnswer;
    return reply;
}

Reply& Reply::withHeader(std::string name, std::string value) {
    headers.emplace_back(std::move(name), std::move(value));
    return *this;
}

// ---- ScriptedHttpServer ----------------------------------------------------------------------

struct ScriptedHttpServer::Impl {
    int listenFd = -1;
    int stopPipe[2] = {-1, -1};  // readable once stop() begins; wakes every poll
    std::uint16_t port = 0;
    std::thread acceptThread;
    std::mutex stopMutex;  // serializes stop()
    bool stopped = false;  // guarded by stopMutex

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    Reply defaultReply = Reply::status(404, "no scripted reply\n");
    std::deque<Reply> queued;
    Handler handler;
    std::vector<RecordedRequest> recorded;
    std::size_t connections = 0;
    std::vector<std::thread> connectionThreads;
    bool stopping = false;

    ~Impl() {
        for (int fd : {listenFd, stopPipe[0], stopPipe[1]}) {
            if (fd >= 0) ::close(fd);
        }
    }

    void listen() {
        if (::pipe2(stopPipe, O_CLOEXEC) != 0) throwErrno("pipe");
        listenFd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (listenFd < 0) throwErrno("socket");
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = 0;
        if (::bind(listenFd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) throwErrno("bind");
        if (::listen(listenFd, SOMAXCONN) != 0) throwErrno("listen");
        socklen_t length = sizeof address;
        if (::getsockname(listenFd, reinterpret_cast<sockaddr*>(&address), &length) != 0) throwErrno("getsockname");
        port = ntohs(address.sin_port);
    }

    // Waits until `fd` is ready for `events`. False once the server is stopping.
    bool waitFor(int fd, short events) const {
        pollfd fds[2] = {{fd, events, 0}, {stopPipe[0], POLLIN, 0}};
        for (;;) {
            const int ready = ::poll(fds, 2, -1);
            if (ready < 0 && errno == EINTR) continue;
            if (ready < 0 || fds[1].revents != 0) return false;
            return true;
        }
    }

    void acceptLoop() {
        while (waitFor(listenFd, POLLIN)) {
            const int fd = ::accept4(listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (fd < 0) continue;  // EAGAIN, ECONNABORTED...: poll again
            std::lock_guard lock(mutex);
            if (stopping) {
                ::close(fd);
                return;
            }
            const std::size_t id = ++connections;
            connectionThreads.emplace_back([this, fd, id] { serve(fd, id); });
            changed.notify_all();
        }
    }

    // Appends what arrives on `fd` to `buffer`. False on end of stream, error or stop.
    bool readMore(int fd, std::string& buffer) const {
        char chunk[16 * 1024];
        for (;;) {
            if (!waitFor(fd, POLLIN)) return false;
            const ssize_t got = ::recv(fd, chunk, sizeof chunk, 0);
            if (got > 0) {
                buffer.append(chunk, static_cast<std::size_t>(got));
                return true;
            }
            if (got == 0) return false;
            if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) return false;
        }
    }

    bool writeAll(int fd, std::string_view data) const {
        while (!data.empty()) {
            const ssize_t sent = ::send(fd, data.data(), data.size(), MSG_NOSIGNAL);
            if (sent > 0) {
                data.remove_prefix(static_cast<std::size_t>(sent));
            } else if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
                if (!waitFor(fd, POLLOUT)) return false;
            } else {
                return false;
            }
        }
        return true;
    }

    ReadOutcome readRequest(int fd, std::string& buffer, RecordedRequest& request) const {
        std::size_t headEnd;
        while ((headEnd = buffer.find("\r\n\r\n")) == std::string::npos) {
            if (buffer.size() > kMaxHeadBytes) return ReadOutcome::Malformed;
            if (!readMore(fd, buffer)) return ReadOutcome::Closed;
        }
        std::string_view head(buffer.data(), headEnd);
        const auto lineEnd = std::min(head.find("\r\n"), head.size());
        const std::string_view requestLine = head.substr(0, lineEnd);
        const auto firstSpace = requestLine.find(' ');
        const auto lastSpace = requestLine.rfind(' ');
        if (firstSpace == std::string_view::npos || firstSpace == lastSpace) return ReadOutcome::Malformed;
        if (!requestLine.substr(lastSpace + 1).starts_with("HTTP/1.")) return ReadOutcome::Malformed;
        request.method = requestLine.substr(0, firstSpace);
        request.target = requestLine.substr(firstSpace + 1, lastSpace - firstSpace - 1);

        std::string_view rest = head.substr(lineEnd);
        while (!rest.empty()) {
            rest.remove_prefix(2);  // the CRLF ending the previous line
            const auto end = std::min(rest.find("\r\n"), rest.size());
            const std::string_view line = rest.substr(0, end);
            rest.remove_prefix(end);
            if (line.empty()) return ReadOutcome::Malformed;
            if (line.front() == ' ' || line.front() == '\t') {
                if (request.headers.empty()) return ReadOutcome::Malformed;
                request.headers.back().second += ' ';
                request.headers.back().second += trimmed(line);
                continue;
            }
            const auto colon = line.find(':');
            if (colon == std::string_view::npos || colon == 0) return ReadOutcome::Malformed;
            request.headers.emplace_back(std::string(line.substr(0, colon)),
                                         std::string(trimmed(line.substr(colon + 1))));
        }

        if (request.header("Transfer-Encoding")) return ReadOutcome::Unsupported;
        std::size_t length = 0;
        if (const auto declared = request.header("Content-Length")) {
            const auto [end, error] = std::from_chars(declared->data(), declared->data() + declared->size(), length);
            if (error != std::errc() || end != declared->data() + declared->size()) return ReadOutcome::Malformed;
        }
        const std::size_t bodyStart = headEnd + 4;
        if (length > 0 && buffer.size() < bodyStart + length) {
            if (const auto expect = request.header("Expect"); expect && equalsIgnoringCase(*expect, "100-continue")) {
                if (!writeAll(fd, "HTTP/1.1 100 Continue\r\n\r\n")) return ReadOutcome::Closed;
            }
        }
        while (buffer.size() < bodyStart + length) {
            if (!readMore(fd, buffer)) return ReadOutcome::Closed;
        }
        request.body = buffer.substr(bodyStart, length);
        buffer.erase(0, bodyStart + length);  // keeps pipelined bytes of the next request
        return ReadOutcome::Request;
    }

    Reply nextReply(const RecordedRequest& request) {
        Handler current;
        {
            std::lock_guard lock(mutex);
            if (!queued.empty()) {
                Reply reply = std::move(queued.front());
                queued.pop_front();
                return reply;
            }
            current = handler;
        }
        if (current) {
            if (auto reply = current(request)) return std::move(*reply);
        }
        std::lock_guard lock(mutex);
        return defaultReply;
    }

    // Serves one connection until either side closes it; returns with the socket still open.
    void converse(int fd, std::size_t id) {
        std::string buffer;
        for (;;) {
            RecordedRequest request;
            request.connection = id;
            switch (readRequest(fd, buffer, request)) {
                case ReadOutcome::Request: break;
                case ReadOutcome::Closed: return;
                case ReadOutcome::Malformed:
                    writeAll(fd, "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
                    return;
                case ReadOutcome::Unsupported:
                    writeAll(fd, "HTTP/1.1 501 Not Implemented\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
                    return;
            }
            {
                std::lock_guard lock(mutex);
                recorded.push_back(request);
                changed.notify_all();
            }
            const Reply reply = nextReply(request);
            switch (reply.kind) {
                case Reply::Kind::NeverAnswer: {
                    std::string ignored;
                    while (readMore(fd, ignored)) ignored.clear();
                    return;
                }
                case Reply::Kind::CloseWithoutAnswer:
                    return;
                case Reply::Kind::Response: {
                    const auto connection = request.header("Connection");
                    const bool clientAskedToClose = connection && equalsIgnoringCase(*connection, "close");
                    const auto [bytes, close] = render(reply, request.method == "HEAD", clientAskedToClose);
                    if (!writeAll(fd, bytes) || close) return;
                    break;
                }
            }
        }
    }

    void serve(int fd, std::size_t id) {
        converse(fd, id);
        ::shutdown(fd, SHUT_RDWR);
        ::close(fd);
    }
};

ScriptedHttpServer::ScriptedHttpServer() : impl_(std::make_unique<Impl>()) {
    impl_->listen();
    impl_->acceptThread = std::thread([impl = impl_.get()] { impl->acceptLoop(); });
}

ScriptedHttpServer::~ScriptedHttpServer() {
    stop();
}

std::uint16_t ScriptedHttpServer::port() const {
    return impl_->port;
}

std::string ScriptedHttpServer::baseUrl() const {
    return "http://127.0.0.1:" + std::to_string(impl_->port);
}

std::string ScriptedHttpServer::url(std::string_view target) const {
    return baseUrl() + std::string(target);
}

void ScriptedHttpServer::setDefaultReply(Reply reply) {
    std::lock_guard lock(impl_->mutex);
    impl_->defaultReply = std::move(reply);
}

void ScriptedHttpServer::enqueueReply(Reply reply) {
    std::lock_guard lock(impl_->mutex);
    impl_->queued.push_back(std::move(reply));
}

void ScriptedHttpServer::setHandler(Handler handler) {
    std::lock_guard lock(impl_->mutex);
    impl_->handler = std::move(handler);
}

std::vector<RecordedRequest> ScriptedHttpServer::requests() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->recorded;
}

bool ScriptedHttpServer::waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(impl_->mutex);
    return impl_->changed.wait_for(lock, timeout, [&] { return impl_->recorded.size() >= count; });
}

std::size_t ScriptedHttpServer::connectionCount() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->connections;
}

void ScriptedHttpServer::stop() {
    std::lock_guard stopLock(impl_->stopMutex);
    if (impl_->stopped) return;
    impl_->stopped = true;
    {
        std::lock_guard lock(impl_->mutex);
        impl_->stopping = true;
    }
    const char wake = 1;
    while (::write(impl_->stopPipe[1], &wake, 1) < 0 && errno == EINTR) {
    }
    impl_->acceptThread.join();
    std::vector<std::thread> threads;
    {
        std::lock_guard lock(impl_->mutex);
        threads.swap(impl_->connectionThreads);
    }
    for (auto& thread : threads) thread.join();
    ::close(impl_->listenFd);
    impl_->listenFd = -1;
}

}  // namespace halvora::testing
