#include "sio/detail/network_thread.h"

#include <atomic>
#include <thread>

#include <boost/asio/executor_work_guard.hpp>
#include <openssl/ssl.h>

namespace halvora::sio::detail {
namespace {

// The context is never destroyed: managers, timers and sockets still queued on it at exit may
// belong to static objects destroyed later, and posting to a stopped context is harmless while
// posting to a destroyed one is not. Only the thread ends, at static destruction time.
struct NetworkThread {
    // OpenSSL cleans up in an atexit handler. Initialised before this object is complete, its
    // handler runs after this destructor has joined the thread that uses it.
    bool opensslReady = OPENSSL_init_ssl(0, nullptr) == 1;
    boost::asio::io_context* context = new boost::asio::io_context(1);
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work =
        boost::asio::make_work_guard(*context);
    std::atomic<std::thread::id> id{};
    // Last: starts running once the members above exist.
    std::thread thread{[this] { run(); }};

    void run() {
        id = std::this_thread::get_id();
        for (;;) {
            try {
                context->run();
                return;
            } catch (...) {
                // A throwing handler must not take the process down; the context keeps going.
            }
        }
    }

    ~NetworkThread() {
        work.reset();
        context->stop();
        if (thread.get_id() == std::this_thread::get_id()) {
            // exit() called from a handler on the network thread: it cannot join itself.
            thread.detach();
        } else if (thread.joinable()) {
            thread.join();
        }
    }
};

NetworkThread& instance() {
    static NetworkThread networkThread;
    return networkThread;
}

}  // namespace

boost::asio::io_context& networkContext() { return *instance().context; }

bool onNetworkThread() { return instance().id.load() == std::this_thread::get_id(); }

}  // namespace halvora::sio::detail
