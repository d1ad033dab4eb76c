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

[[noreturn]] void throwErrno(const char* what) {
    throw std::system_error(errno, std::generic_category(), std::string("ScriptedHttpServer: ") + what);
}

// Clients ignore the reason phrase, so every status gets the same one.
std::string render(const Reply& reply) {
    std::string out = "HTTP/1.1 " + std::to_string(reply.statusCode) + " Scripted\r\n";
    for (const auto& [name, value] : reply.headers) out += name + ": " + value + "\r\n";
    return out + "Content-Length: " + std::to_string(reply.body.size()) + "\r\n\r\n" + reply.body;
}

}  // namespace

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
            connectionThreads.emplace_back([this, fd] {
                converse(fd);
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
    // request was malformed (curl sends none, so it just ends the conversation).
    std::optional<RecordedRequest> readRequest(int fd, std::string& buffer) const {
        std::size_t headEnd;
        while ((headEnd = buffer.find("\r\n\r\n")) == std::string::npos) {
            if (buffer.size() > kMaxHeadBytes || !readMore(fd, buffer)) return std::nullopt;
        }
        RecordedRequest request;
        std::string head = buffer.substr(0, headEnd);
        const auto lineEnd = std::min(head.find("\r\n"), head.size());
        const auto firstSpace = head.find(' ');
        const auto lastSpace = head.rfind(' ', lineEnd);
        if (firstSpace >= lineEnd || firstSpace == lastSpace) return std::nullopt;
        request.method = head.substr(0, firstSpace);
        request.target = head.substr(firstSpace + 1, lastSpace - firstSpace - 1);

        std::transform(head.begin(), head.end(), head.begin(), [](unsigned char c) { return std::tolower(c); });
        std::size_t length = 0;
        if (const auto at = head.find("\r\ncontent-length:"); at != std::string::npos) {
            const char* digits = head.c_str() + at + 17;
            while (*digits == ' ') ++digits;
            if (std::from_chars(digits, head.c_str() + head.size(), length).ec != std::errc()) return std::nullopt;
        }
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
    void converse(int fd) {
        std::string buffer;
        for (;;) {
            auto request = readRequest(fd, buffer);
            if (!request) return;
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

}  // namespace halvora::testing
