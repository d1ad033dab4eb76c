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

std::optional<std::string> findHeader(const HttpHeaders& headers, std::string_view name) {
    for (const auto& [key, value] : headers) {
        if (std::equal(key.begin(), key.end(), name.begin(), name.end(), [](char x, char y) {
                return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
            })) {
            return value;
        }
    }
    return std::nullopt;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

[[noreturn]] void throwErrno(const char* what) {
    throw std::system_error(errno, std::generic_category(), std::string("ScriptedHttpServer: ") + what);
}

// Clients ignore the reason phrase, so every status gets the same one.
std::string render(const Reply& reply) {
    const bool bodyAllowed = reply.statusCode != 204;
    std::string out = "HTTP/1.1 " + std::to_string(reply.statusCode) + " Scripted\r\n";
    for (const auto& [name, value] : reply.headers) out += name + ": " + value + "\r\n";
    if (bodyAllowed) out += "Content-Length: " + std::to_string(reply.body.size()) + "\r\n";
    out += "\r\n";
    if (bodyAllowed) out += reply.body;
    return out;
}

}  // namespace

std::optional<std::string> RecordedRequest::header(std::string_view name) const {
    return findHeader(headers, name);
}

std::uint16_t unusedLoopbackPort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

Reply Reply::status(int code, std::string body, std::string contentType) {
    Reply reply;
    reply.statusCode = code;
    if (!body.empty()) reply.headers.emplace_back("Content-Type", std::move(contentType));
    reply.body = std::move(body);
    return reply;
}

struct ScriptedHttpServer::Impl {
    int listenFd = -1;
    int stopPipe[2] = {-1, -1};  // readable once the server stops; wakes every poll
    std::uint16_t port = 0;
    std::thread acceptThread;

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
            return ready > 0 && fds[1].revents == 0;
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
            connectionThreads.emplace_back([this, fd, id] {
                converse(fd, id);
                ::shutdown(fd, SHUT_RDWR);
                ::close(fd);
            });
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
            if (got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) return false;
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

    // One request from `buffer` (reading more as needed); nothing if the connection ended or the
    // request was malformed.
    std::optional<RecordedRequest> readRequest(int fd, std::string& buffer, bool& malformed) const {
        std::size_t headEnd;
        while ((headEnd = buffer.find("\r\n\r\n")) == std::string::npos) {
            if (buffer.size() > kMaxHeadBytes || !readMore(fd, buffer)) return std::nullopt;
        }
        malformed = true;
        RecordedRequest request;
        std::string_view head(buffer.data(), headEnd);
        const auto lineEnd = std::min(head.find("\r\n"), head.size());
        const std::string_view requestLine = head.substr(0, lineEnd);
        const auto firstSpace = requestLine.find(' ');
        const auto lastSpace = requestLine.rfind(' ');
        if (firstSpace == std::string_view::npos || firstSpace == lastSpace) return std::nullopt;
        request.method = requestLine.substr(0, firstSpace);
        request.target = requestLine.substr(firstSpace + 1, lastSpace - firstSpace - 1);

        std::string_view rest = head.substr(lineEnd);
        while (!rest.empty()) {
            rest.remove_prefix(2);  // the CRLF ending the previous line
            const auto end = std::min(rest.find("\r\n"), rest.size());
            const std::string_view line = rest.substr(0, end);
            rest.remove_prefix(end);
            const auto colon = line.find(':');
            if (colon == std::string_view::npos || colon == 0) return std::nullopt;
            request.headers.emplace_back(std::string(line.substr(0, colon)),
                                         std::string(trimmed(line.substr(colon + 1))));
        }

        std::size_t length = 0;
        if (const auto declared = request.header("Content-Length")) {
            const auto [end, error] = std::from_chars(declared->data(), declared->data() + declared->size(), length);
            if (error != std::errc() || end != declared->data() + declared->size()) return std::nullopt;
        }
        malformed = false;
        const std::size_t bodyStart = headEnd + 4;
        while (buffer.size() < bodyStart + length) {
            if (!readMore(fd, buffer)) return std::nullopt;
        }
        request.body = buffer.substr(bodyStart, length);
        buffer.erase(0, bodyStart + length);  // keeps pipelined bytes of the next request
        return request;
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
            bool malformed = false;
            auto request = readRequest(fd, buffer, malformed);
            if (!request) {
                if (malformed) writeAll(fd, "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
                return;
            }
            request->connection = id;
            {
                std::lock_guard lock(mutex);
                recorded.push_back(*request);
                changed.notify_all();
            }
            const Reply reply = nextReply(*request);
            if (reply.kind == Reply::Kind::NeverAnswer) {
                for (std::string ignored; readMore(fd, ignored);) ignored.clear();
                return;
            }
            if (reply.kind == Reply::Kind::CloseWithoutAnswer || !writeAll(fd, render(reply))) return;
        }
    }
};

ScriptedHttpServer::ScriptedHttpServer() : impl_(std::make_unique<Impl>()) {
    impl_->listen();
    impl_->acceptThread = std::thread([impl = impl_.get()] { impl->acceptLoop(); });
}

// Wakes every poll through the pipe, then joins the threads; later requests are refused.
ScriptedHttpServer::~ScriptedHttpServer() {
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
}

std::uint16_t ScriptedHttpServer::port() const {
    return impl_->port;
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

}  // namespace halvora::testing
