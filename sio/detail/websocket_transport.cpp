#include "sio/detail/websocket_transport.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <deque>
#include <optional>
#include <type_traits>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/ssl/host_name_verification.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <openssl/ssl.h>
#include <openssl/x509.h>

namespace halvora::sio::detail {
namespace {

namespace net = boost::asio;
namespace ssl = boost::asio::ssl;
namespace beast = boost::beast;
namespace websocket = boost::beast::websocket;
using tcp = boost::asio::ip::tcp;
using boost::system::error_code;

template <bool Secure>
class BeastTransport final : public WebsocketTransport,
                             public std::enable_shared_from_this<BeastTransport<Secure>> {
    using Layer = std::conditional_t<Secure, beast::ssl_stream<beast::tcp_stream>, beast::tcp_stream>;

public:
    BeastTransport(net::io_context& context, TransportOptions options, Listener listener)
        : options_(std::move(options)),
          listener_(std::move(listener)),
          tls_(Secure ? std::make_unique<ssl::context>(ssl::context::tls_client) : nullptr),
          resolver_(context),
          ws_(makeStream(context)),
          closeTimer_(context) {}

    void open() override {
        if (auto problem = invalidHeader(options_.headers); !problem.empty()) {
            return failLater(std::move(problem));
        }
        if constexpr (Secure) {
            if (auto problem = setUpTls(); !problem.empty()) return failLater(std::move(problem));
        }
        resolver_.async_resolve(
            options_.address.host, options_.address.port,
            [self = this->shared_from_this()](error_code ec, tcp::resolver::results_type results) {
                self->onResolved(ec, std::move(results));
            });
    }

    void send(OutgoingMessage message) override {
        if (stopped_ || closing_) return;
        if (message.urgent) {
            // After the message being written (its frames stay together) and earlier urgent ones.
            auto at = queue_.begin() + (writing_ && !queue_.empty() ? 1 : 0);
            while (at != queue_.end() && at->urgent) ++at;
            queue_.insert(at, std::move(message));
        } else {
            queue_.push_back(std::move(message));
        }
        if (opened_ && !writing_) writeNext();
    }

    void close() override {
        if (closing_) return;
        stopped_ = true;
        closing_ = true;
        if (!opened_) return abort();
        // A peer that stopped reading would hold the queued writes and the close forever.
        closeTimer_.expires_after(std::chrono::duration_cast<std::chrono::steady_clock::duration>(
            options_.timeout));
        closeTimer_.async_wait([self = this->shared_from_this()](error_code ec) {
            if (!ec) self->dropSocket();
        });
        if (!writing_) startClose();
    }

    void abort() override {
        stopped_ = true;
        closing_ = true;
        dropSocket();
    }

private:
    websocket::stream<Layer> makeStream(net::io_context& context) {
        if constexpr (Secure) {
            return websocket::stream<Layer>(context, *tls_);
        } else {
            return websocket::stream<Layer>(context);
        }
    }

    std::string setUpTls() {
        error_code ec;
        if (options_.caFile.empty()) {
            tls_->set_default_verify_paths(ec);
        } else {
            tls_->load_verify_file(options_.caFile, ec);
        }
        if (ec) return "cannot load CA certificates: " + ec.message();
        auto& stream = ws_.next_layer();
        stream.set_verify_mode(options_.verifyPeer ? ssl::verify_peer : ssl::verify_none, ec);
        if (!ec && options_.verifyPeer) {
            // Wrapped to tell a wrong host apart from an untrusted chain in the error.
            stream.set_verify_callback(
                [this, check = ssl::host_name_verification(options_.address.host)](
                    bool preverified, ssl::verify_context& context) mutable {
                    const bool ok = check(preverified, context);
                    if (preverified && !ok) wrongHost_ = true;
                    return ok;
                },
                ec);
        }
        if (ec) return "cannot set up TLS: " + ec.message();
        // No SNI for an IP address: the name must be a host name.
        if (!options_.address.hostIsIpAddress &&
            // SSL_set_tlsext_host_name without its C cast.
            !SSL_ctrl(stream.native_handle(), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                      options_.address.host.data())) {
            return "cannot set the TLS server name";
        }
        return {};
    }

    void onResolved(error_code ec, tcp::resolver::results_type results) {
        if (stopped_) return;
        if (ec) return fail("cannot resolve " + options_.address.host + ": " + ec.message());
        auto& socket = beast::get_lowest_layer(ws_);
        socket.expires_after(
            std::chrono::duration_cast<std::chrono::steady_clock::duration>(options_.timeout));
        socket.async_connect(results, [self = this->shared_from_this()](
                                          error_code connectEc, const tcp::endpoint&) {
            self->onConnected(connectEc);
        });
    }

    void onConnected(error_code ec) {
        if (stopped_) return;
        if (ec) {
            return fail("cannot connect to " + options_.address.host + ":" + options_.address.port +
                        ": " + ec.message());
        }
        beast::get_lowest_layer(ws_).socket().set_option(tcp::no_delay(true), ec);
        if constexpr (Secure) {
            ws_.next_layer().async_handshake(
                ssl::stream_base::client,
                [self = this->shared_from_this()](error_code tlsEc) { self->onTlsHandshake(tlsEc); });
        } else {
            upgrade();
        }
    }

    void onTlsHandshake(error_code ec) {
        if (stopped_) return;
        if (ec) {
            if (wrongHost_) {
                return fail("TLS handshake failed: the certificate is not valid for " +
                            options_.address.host);
            }
            std::string reason = "TLS handshake failed: " + ec.message();
            const long verify = SSL_get_verify_result(ws_.next_layer().native_handle());
            if (verify != X509_V_OK) {
                reason += std::string(" (") + X509_verify_cert_error_string(verify) + ")";
            }
            return fail(std::move(reason));
        }
        upgrade();
    }

    void upgrade() {
        beast::get_lowest_layer(ws_).expires_never();
        websocket::stream_base::timeout timeouts{};
        timeouts.handshake_timeout =
            std::chrono::duration_cast<std::chrono::steady_clock::duration>(options_.timeout);
        // The Engine.IO heartbeat watches the peer; the websocket layer must not close on idle.
        timeouts.idle_timeout = websocket::stream_base::none();
        timeouts.keep_alive_pings = false;
        ws_.set_option(timeouts);
        ws_.read_message_max(options_.maxIncomingMessage);
        ws_.auto_fragment(false);
        ws_.set_option(websocket::stream_base::decorator(
            [headers = options_.headers](websocket::request_type& request) {
                std::vector<std::string_view> replaced;
                for (const auto& [name, value] : headers) {
                    // A header given by the caller replaces the stream's own (User-Agent).
                    if (std::find(replaced.begin(), replaced.end(), name) == replaced.end()) {
                        request.erase(name);
                        replaced.push_back(name);
                    }
                    request.insert(name, value);
                }
            }));
        std::string host = options_.address.host;
        if (host.find(':') != std::string::npos) host = "[" + host + "]";
        host += ":" + options_.address.port;
        ws_.async_handshake(response_, host, options_.target,
                            [self = this->shared_from_this()](error_code ec) { self->onUpgraded(ec); });
    }

    void onUpgraded(error_code ec) {
        if (stopped_) return;
        if (ec) {
            if (ec == websocket::error::upgrade_declined) {
                return fail("websocket upgrade refused: HTTP " + std::to_string(response_.result_int()) +
                            " " + std::string(response_.reason()));
            }
            return fail("websocket upgrade failed: " + ec.message());
        }
        response_ = {};
        opened_ = true;
        if (listener_.opened) listener_.opened();
        if (stopped_) return;
        if (!queue_.empty() && !writing_) writeNext();
        read();
    }

    void read() {
        ws_.async_read(buffer_, [self = this->shared_from_this()](error_code ec, std::size_t) {
            self->onRead(ec);
        });
    }

    void onRead(error_code ec) {
        if (stopped_) return;
        if (ec) {
            if (ec == websocket::error::closed || ec == net::error::eof) return fail("transport close");
            return fail("transport error: " + ec.message());
        }
        const auto data = buffer_.cdata();
        const std::string_view payload(static_cast<const char*>(data.data()), data.size());
        if (ws_.got_text()) {
            listener_.text(payload);
        } else {
            listener_.binary(payload);
        }
        buffer_.consume(buffer_.size());
        // Keep the buffer of a huge message from staying allocated for the connection's life.
        if (buffer_.capacity() > 1024 * 1024) buffer_.shrink_to_fit();
        if (!stopped_) read();
    }

    void writeNext() {
        if (queue_.empty()) {
            writing_ = false;
            if (closing_) startClose();
            return;
        }
        writing_ = true;
        const OutgoingMessage& message = queue_.front();
        auto done = [self = this->shared_from_this()](error_code ec, std::size_t) { self->onWritten(ec); };
        if (frame_ == 0) {
            ws_.text(true);
            const std::array<net::const_buffer, 2> frame{net::buffer(message.head),
                                                         net::buffer(message.text)};
            ws_.async_write(frame, std::move(done));
        } else {
            ws_.binary(true);
            ws_.async_write(net::buffer(message.attachments[frame_ - 1]), std::move(done));
        }
    }

    void onWritten(error_code ec) {
        if (ec || dropped_) {
            writing_ = false;
            if (!stopped_) fail("transport error: " + ec.message());
            return;
        }
        if (++frame_ > queue_.front().attachments.size()) {
            queue_.pop_front();
            frame_ = 0;
        }
        if (stopped_ && !closing_) return;
        writeNext();
    }

    void startClose() {
        if (closeStarted_) return;
        closeStarted_ = true;
        ws_.async_close(websocket::close_code::normal, [self = this->shared_from_this()](error_code) {
            self->dropSocket();
        });
    }

    void dropSocket() {
        dropped_ = true;
        closeTimer_.cancel();
        resolver_.cancel();
        error_code ignored;
        beast::get_lowest_layer(ws_).socket().close(ignored);
    }

    void failLater(std::string reason) {
        net::post(resolver_.get_executor(),
                  [self = this->shared_from_this(), reason = std::move(reason)]() mutable {
                      self->fail(std::move(reason));
                  });
    }

    void fail(std::string reason) {
        if (stopped_) return;
        stopped_ = true;
        closing_ = true;
        dropSocket();
        if (auto closed = std::move(listener_.closed)) closed(std::move(reason));
    }

    TransportOptions options_;
    Listener listener_;
    // wss:// only; declared before the stream that refers to it.
    std::unique_ptr<ssl::context> tls_;
    tcp::resolver resolver_;
    websocket::stream<Layer> ws_;
    net::steady_timer closeTimer_;
    websocket::response_type response_;
    beast::flat_buffer buffer_;
    std::deque<OutgoingMessage> queue_;
    std::size_t frame_ = 0;
    bool opened_ = false;
    bool writing_ = false;
    // No listener calls any more (failed, or the owner closed or aborted).
    bool stopped_ = false;
    // No new messages; the connection ends once the queue is written.
    bool closing_ = false;
    bool closeStarted_ = false;
    bool dropped_ = false;
    bool wrongHost_ = false;
};

}  // namespace

std::shared_ptr<WebsocketTransport> WebsocketTransport::create(net::io_context& context,
                                                               TransportOptions options,
                                                               Listener listener) {
    if (options.address.secure) {
        return std::make_shared<BeastTransport<true>>(context, std::move(options), std::move(listener));
    }
    return std::make_shared<BeastTransport<false>>(context, std::move(options), std::move(listener));
}

}  // namespace halvora::sio::detail
