#include "tests/support/scripted_http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <sstream>
#include <system_error>
#include <thread>

namespace halvora::testing {
namespace {

// A loopback socket bound to an ephemeral port, and that port.
std::pair<int, std::uint16_t> bindLoopback() {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw std::system_error(errno, std::generic_category(), "ScriptedHttpServer: bind");
    }
    return {fd, ntohs(address.sin_port)};
}

bool readMore(int fd, std::string& buffer) {
    char chunk[16 * 1024];
    ssize_t got;
    do got = ::recv(fd, chunk, sizeof chunk, 0);
    while (got < 0 && errno == EINTR);
    if (got <= 0) return false;
    buffer.append(chunk, static_cast<std::size_t>(got));
    return true;
}

// The next request on `fd`; leaves pipelined bytes of the one after in `buffer`.
std::optional<RecordedRequest> readRequest(int fd, std::string& buffer) {
    std::size_t headEnd;
    while ((headEnd = buffer.find("\r\n\r\n")) == std::string::npos) {
        if (!readMore(fd, buffer)) return std::nullopt;
    }
    std::string head = buffer.substr(0, headEnd);
    RecordedRequest request;
    std::istringstream(head.substr(0, head.find("\r\n"))) >> request.method >> request.target;
    std::transform(head.begin(), head.end(), head.begin(), [](unsigned char c) { return std::tolower(c); });
    std::size_t length = 0;
    if (const auto at = head.find("\r\ncontent-length:"); at != std::string::npos) length = std::stoul(head.substr(at + 17));
    while (buffer.size() < headEnd + 4 + length) {
        if (!readMore(fd, buffer)) return std::nullopt;
    }
    request.body = buffer.substr(headEnd + 4, length);
    buffer.erase(0, headEnd + 4 + length);
    return request;
}

// Clients ignore the reason phrase.
std::string render(const Reply& reply) {
    std::string out = "HTTP/1.1 " + std::to_string(reply.statusCode) + " Scripted\r\n";
    for (const auto& [name, value] : reply.headers) out += name + ": " + value + "\r\n";
    return out + "Content-Length: " + std::to_string(reply.body.size()) + "\r\n\r\n" + reply.body;
}

}  // namespace

std::uint16_t unusedLoopbackPort() {
    const auto [fd, port] = bindLoopback();
    ::close(fd);
    return port;
}

struct ScriptedHttpServer::Impl {
    int listenFd = -1;
    std::uint16_t port = 0;
    std::thread acceptThread;
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    Reply defaultReply = Reply::status(404, "no scripted reply\n");
    std::deque<Reply> queued;
    Handler handler;
    std::vector<RecordedRequest> recorded;
    std::vector<int> connections;  // closed only after their threads end, so no number is reused early
    std::vector<std::thread> threads;
    bool stopping = false;

    void acceptLoop() {
        for (;;) {
            const int fd = ::accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
            std::lock_guard lock(mutex);
            if (stopping) {
                if (fd >= 0) ::close(fd);
                return;
            }
            if (fd < 0) continue;
            connections.push_back(fd);
            threads.emplace_back([this, fd] { converse(fd); ::shutdown(fd, SHUT_RDWR); });
        }
    }

    Reply nextReply(const RecordedRequest& request) {
        std::unique_lock lock(mutex);
        if (!queued.empty()) {
            Reply reply = std::move(queued.front());
            queued.pop_front();
            return reply;
        }
        const Handler current = handler;
        lock.unlock();
        if (auto reply = current ? current(request) : std::nullopt) return std::move(*reply);
        lock.lock();
        return defaultReply;
    }

    void converse(int fd) {
        std::string buffer;
        while (auto request = readRequest(fd, buffer)) {
            {
                std::lock_guard lock(mutex);
                recorded.push_back(*request);
                changed.notify_all();
            }
            const Reply reply = nextReply(*request);
            if (reply.kind == Reply::Kind::NeverAnswer) {
                while (readMore(fd, buffer)) buffer.clear();
            }
            if (reply.kind != Reply::Kind::Response) return;
            const std::string out = render(reply);
            if (::send(fd, out.data(), out.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(out.size())) return;
        }
    }
};

ScriptedHttpServer::ScriptedHttpServer() : impl_(std::make_unique<Impl>()) {
    std::tie(impl_->listenFd, impl_->port) = bindLoopback();
    if (::listen(impl_->listenFd, SOMAXCONN) != 0) {
        ::close(impl_->listenFd);
        throw std::system_error(errno, std::generic_category(), "ScriptedHttpServer: listen");
    }
    impl_->acceptThread = std::thread([impl = impl_.get()] { impl->acceptLoop(); });
}

// Shutting the sockets down wakes the blocked accept and reads.
ScriptedHttpServer::~ScriptedHttpServer() {
    {
        std::lock_guard lock(impl_->mutex);
        impl_->stopping = true;
        ::shutdown(impl_->listenFd, SHUT_RDWR);
        for (int fd : impl_->connections) ::shutdown(fd, SHUT_RDWR);
    }
    impl_->acceptThread.join();
    for (auto& thread : impl_->threads) thread.join();
    for (int fd : impl_->connections) ::close(fd);
    ::close(impl_->listenFd);
}

std::uint16_t ScriptedHttpServer::port() const { return impl_->port; }

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
