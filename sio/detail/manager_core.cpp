#include "sio/detail/manager_core.h"

#include <utility>
#include <variant>

#include <boost/asio/post.hpp>

#include "sio/detail/default_executor.h"
#include "sio/detail/network_thread.h"
#include "sio/detail/outgoing_packet.h"

namespace halvora::sio::detail {
namespace {

namespace net = boost::asio;

bool active(Status status) { return status == Status::connecting || status == Status::connected; }

}  // namespace

ManagerCore::ManagerCore(std::string url, Config config)
    : url_(std::move(url)),
      config_(std::move(config)),
      executor_(config_.handleQueue ? config_.handleQueue : defaultExecutor()),
      gate_(std::make_shared<HandlerGate>()),
      extraHeaders_(config_.extraHeaders),
      engine_(networkContext(), *this),
      namespace_(*this),
      acks_(networkContext()),
      reconnect_(networkContext(), config_) {
    address_ = parseServerUrl(url_, &setupError_);
    if (address_) {
        target_ = websocketTarget(config_.path);
        if (!target_) setupError_ = "invalid path \"" + config_.path + "\"";
    }
}

ManagerCore::~ManagerCore() = default;

std::unique_ptr<Socket> ManagerCore::makeSocket() {
    return std::unique_ptr<Socket>(new Socket(weak_from_this()));
}

std::unique_ptr<Engine> ManagerCore::makeEngine() {
    return std::unique_ptr<Engine>(new Engine(weak_from_this()));
}

// ---- public calls ----

void ManagerCore::connect() {
    std::uint64_t epoch = 0;
    {
        std::lock_guard lock(mutex_);
        if (active(status_)) return;
        epoch = epoch_;
        status_ = Status::connecting;
    }
    deliver(epoch, "statusChange", {toString(Status::connecting)});
    net::post(networkContext(), [self = shared_from_this(), epoch] { self->startSession(epoch); });
}

void ManagerCore::disconnect() {
    std::shared_ptr<HandlerGate> oldGate;
    std::uint64_t epoch = 0;
    Status previous{};
    {
        std::lock_guard lock(mutex_);
        previous = status_;
        oldGate = std::exchange(gate_, std::make_shared<HandlerGate>());
        epoch = ++epoch_;
        if (active(previous)) status_ = Status::disconnected;
        engineOpen_ = false;
    }
    oldGate->close(false);
    if (active(previous)) {
        deliver(epoch, "statusChange", {toString(Status::disconnected)});
        if (previous == Status::connected) deliver(epoch, "disconnect", {"io client disconnect"});
    }
    net::post(networkContext(), [self = shared_from_this()] { self->stopSession(); });
}

void ManagerCore::shutdown() {
    std::shared_ptr<HandlerGate> gate;
    std::vector<HandlerRegistry::HandlerPtr> handlers;
    {
        std::lock_guard lock(mutex_);
        ++epoch_;
        gate = gate_;
        handlers = handlers_.takeAll();
    }
    gate->close(true);
    net::post(networkContext(), [self = shared_from_this()] { self->stopSession(); });
}

Status ManagerCore::status() const {
    std::lock_guard lock(mutex_);
    return status_;
}

std::string ManagerCore::sid() const {
    std::lock_guard lock(mutex_);
    return status_ == Status::connected ? sid_ : std::string();
}

std::uint64_t ManagerCore::on(std::string event, Socket::Handler handler) {
    std::lock_guard lock(mutex_);
    return handlers_.add(std::move(event), std::move(handler));
}

std::uint64_t ManagerCore::onAny(Socket::Handler handler) {
    std::lock_guard lock(mutex_);
    return handlers_.addAny(std::move(handler));
}

void ManagerCore::off(std::uint64_t id) {
    std::vector<HandlerRegistry::HandlerPtr> removed;
    {
        std::lock_guard lock(mutex_);
        removed = handlers_.remove(id);
    }
    // `removed` goes out of scope here, unlocked: a handler's captures may call back into sio.
}

void ManagerCore::off(const std::string& event) {
    std::vector<HandlerRegistry::HandlerPtr> removed;
    {
        std::lock_guard lock(mutex_);
        removed = handlers_.remove(event);
    }
}

void ManagerCore::emit(const std::string& event, Items items, Seconds timeout,
                       std::shared_ptr<const Socket::AckCallback> onAck) {
    std::optional<std::uint64_t> ackId;
    if (onAck) ackId = nextAckId_++;
    std::uint64_t epoch = 0;
    auto message =
        prepare(eventPacket(event, std::move(items), ackId), "event \"" + event + "\"", epoch);
    if (!message && !onAck) return;
    net::post(networkContext(), [self = shared_from_this(), epoch, message = std::move(message),
                                 ackId = ackId.value_or(0), onAck = std::move(onAck), timeout,
                                 event]() mutable {
        // Registered even for a dropped event, so that its callback still gets "NO ACK".
        if (onAck) self->registerAck(epoch, ackId, std::move(onAck), timeout);
        if (message) {
            self->sendOnNetwork(epoch, 0, std::move(*message), "event \"" + event + "\"");
        }
    });
}

void ManagerCore::setExtraHeaders(Headers headers) {
    std::lock_guard lock(mutex_);
    extraHeaders_ = std::move(headers);
}

Headers ManagerCore::extraHeaders() const {
    std::lock_guard lock(mutex_);
    return extraHeaders_;
}

bool ManagerCore::engineOpen() const {
    std::lock_guard lock(mutex_);
    return engineOpen_;
}

std::size_t ManagerCore::maxPayload() const {
    std::lock_guard lock(mutex_);
    return maxPayload_;
}

Seconds ManagerCore::pingInterval() const {
    std::lock_guard lock(mutex_);
    return pingInterval_;
}

Seconds ManagerCore::pingTimeout() const {
    std::lock_guard lock(mutex_);
    return pingTimeout_;
}

// ---- events and handlers (any thread) ----

bool ManagerCore::current(std::uint64_t epoch) const {
    std::lock_guard lock(mutex_);
    return epoch == epoch_;
}

void ManagerCore::setStatus(std::uint64_t epoch, Status status) {
    {
        std::lock_guard lock(mutex_);
        if (epoch != epoch_ || status_ == status) return;
        status_ = status;
    }
    deliver(epoch, "statusChange", {toString(status)});
}

void ManagerCore::deliver(std::uint64_t epoch, std::string name, Items items, Ack ack,
                          bool fromServer) {
    std::shared_ptr<HandlerGate> gate;
    {
        std::lock_guard lock(mutex_);
        if (epoch != epoch_ || !handlers_.wants(name, fromServer)) return;
        gate = gate_;
    }
    auto event = std::make_shared<const PendingEvent>(
        PendingEvent{std::move(name), std::move(items), std::move(ack), fromServer});
    schedule(std::move(gate), [weak = weak_from_this(), event] {
        if (auto self = weak.lock()) self->runHandlers(*event);
    });
}

void ManagerCore::deliverAck(std::uint64_t epoch,
                             std::shared_ptr<const Socket::AckCallback> callback, Items items) {
    std::shared_ptr<HandlerGate> gate;
    {
        std::lock_guard lock(mutex_);
        if (epoch != epoch_) return;
        gate = gate_;
    }
    schedule(std::move(gate), [callback = std::move(callback),
                               items = std::make_shared<const Items>(std::move(items))] {
        (*callback)(*items);
    });
}

void ManagerCore::schedule(std::shared_ptr<HandlerGate> gate, std::function<void()> task) {
    auto guarded = [gate = std::move(gate), task = std::move(task)] { gate->run(task); };
    if (executor_) {
        executor_(std::move(guarded));
    } else {
        // Posted even from the network thread: handlers never run inside a protocol step.
        net::post(networkContext(), std::move(guarded));
    }
}

void ManagerCore::runHandlers(const PendingEvent& event) {
    HandlerRegistry::Matched matched;
    {
        std::lock_guard lock(mutex_);
        matched = handlers_.match(event.name, event.fromServer);
    }
    matched.call(event.name, event.items, event.ack);
}

std::optional<OutgoingMessage> ManagerCore::prepare(const packet::Packet& packet,
                                                    const std::string& what,
                                                    std::uint64_t& epoch) {
    Status status{};
    std::size_t maxPayload = 0;
    {
        std::lock_guard lock(mutex_);
        epoch = epoch_;
        status = status_;
        maxPayload = maxPayload_;
    }
    if (status != Status::connected) {
        deliver(epoch, "error", {"not connected: " + what + " dropped"});
        return std::nullopt;
    }
    auto encoded = encodeOutgoing(packet, maxPayload, what);
    if (auto* problem = std::get_if<std::string>(&encoded)) {
        deliver(epoch, "error", {std::move(*problem)});
        return std::nullopt;
    }
    return std::move(std::get<OutgoingMessage>(encoded));
}

Ack ManagerCore::makeAck(std::uint64_t connection, std::uint64_t id) {
    // Copies of an Ack share this flag: one answer per request, whichever copy sends it.
    auto sent = std::make_shared<std::atomic<bool>>(false);
    return Ack([weak = weak_from_this(), connection, id, sent](Items items) {
        if (sent->exchange(true)) return;
        if (auto self = weak.lock()) self->sendAck(connection, id, std::move(items));
    });
}

void ManagerCore::sendAck(std::uint64_t connection, std::uint64_t id, Items items) {
    std::uint64_t epoch = 0;
    auto message = prepare(ackPacket(id, std::move(items)), "acknowledgement", epoch);
    if (!message) return;
    net::post(networkContext(),
              [self = shared_from_this(), epoch, connection, message = std::move(*message)]() mutable {
                  self->sendOnNetwork(epoch, connection, std::move(message), "acknowledgement");
              });
}

// ---- network thread ----

void ManagerCore::startSession(std::uint64_t epoch) {
    if (!current(epoch)) return;
    dropTransport(false);
    reconnect_.cancel();
    sessionEpoch_ = epoch;
    reconnect_.restart();
    attemptConnect();
}

void ManagerCore::stopSession() {
    reconnect_.cancel();
    acks_.clear();
    if (engine_.hasTransport() && namespace_.connected()) {
        engine_.send(OutgoingMessage{"41", {}, {}});
    }
    dropTransport(true);
}

void ManagerCore::attemptConnect() {
    if (!address_ || !target_) {
        // Retrying cannot mend the configuration.
        setStatus(sessionEpoch_, Status::disconnected);
        deliver(sessionEpoch_, "error", {setupError_});
        return;
    }
    TransportOptions options;
    options.address = *address_;
    options.target = *target_;
    options.headers = extraHeaders();
    options.verifyPeer = config_.verifyPeer;
    options.caFile = config_.caFile;
    options.timeout = config_.connectTimeout;
    namespace_.reset();
    engine_.open(std::move(options), weak_from_this());
}

void ManagerCore::scheduleReconnect() {
    const auto epoch = sessionEpoch_;
    if (!reconnect_.enabled()) {
        setStatus(epoch, Status::disconnected);
        return;
    }
    if (reconnect_.exhausted()) {
        setStatus(epoch, Status::disconnected);
        deliver(epoch, "error",
                {"gave up reconnecting after " + std::to_string(reconnect_.attempts()) + " attempts"});
        return;
    }
    setStatus(epoch, Status::connecting);
    reconnect_.schedule([self = shared_from_this(), epoch](int attempt) {
        if (!self->current(epoch) || self->engine_.state() != EngineSession::State::idle) return;
        self->deliver(epoch, "reconnectAttempt", {attempt});
        self->attemptConnect();
    });
}

void ManagerCore::lose(const std::string& reason) {
    const bool wasConnected = namespace_.connected();
    dropTransport(false);
    deliver(sessionEpoch_, wasConnected ? "disconnect" : "error", {reason});
    scheduleReconnect();
}

void ManagerCore::dropTransport(bool graceful) {
    engine_.drop(graceful);
    namespace_.reset();
    std::lock_guard lock(mutex_);
    engineOpen_ = false;
    sid_.clear();
}

void ManagerCore::sendOnNetwork(std::uint64_t epoch, std::uint64_t connection,
                                OutgoingMessage message, const std::string& what) {
    // An acknowledgement belongs to the connection its request came on; events go on any.
    const bool sameConnection = connection == 0 || connection == engine_.connection();
    if (!current(epoch) || !namespace_.connected() || !engine_.hasTransport() || !sameConnection) {
        deliver(epoch, "error", {"not connected: " + what + " dropped"});
        return;
    }
    engine_.send(std::move(message));
}

void ManagerCore::registerAck(std::uint64_t epoch, std::uint64_t id,
                              std::shared_ptr<const Socket::AckCallback> callback,
                              Seconds timeout) {
    if (!current(epoch)) return;
    acks_.add(id, {epoch, std::move(callback)}, timeout,
              [self = shared_from_this()](std::uint64_t expiredId) {
                  if (auto expired = self->acks_.take(expiredId)) {
                      self->deliverAck(expired->epoch, std::move(expired->callback), {"NO ACK"});
                  }
              });
}

// ---- the engine's and the namespace's news (network thread) ----

void ManagerCore::engineOpened(const packet::Handshake& handshake) {
    {
        std::lock_guard lock(mutex_);
        engineOpen_ = epoch_ == sessionEpoch_;
        maxPayload_ = static_cast<std::size_t>(handshake.maxPayload);
        pingInterval_ = std::chrono::milliseconds(handshake.pingIntervalMs);
        pingTimeout_ = std::chrono::milliseconds(handshake.pingTimeoutMs);
    }
    engine_.send(OutgoingMessage{"40", {}, {}});
}

void ManagerCore::engineText(std::string_view payload) { namespace_.feedText(payload); }

void ManagerCore::engineBinary(std::string_view bytes) { namespace_.feedBinary(bytes); }

void ManagerCore::engineLost(const std::string& reason) { lose(reason); }

void ManagerCore::namespaceConnected(std::string sid) {
    const int previousAttempts = reconnect_.restart();
    {
        std::lock_guard lock(mutex_);
        sid_ = std::move(sid);
    }
    setStatus(sessionEpoch_, Status::connected);
    deliver(sessionEpoch_, "connect", {"/"});
    if (previousAttempts > 0) deliver(sessionEpoch_, "reconnect", {previousAttempts});
}

void ManagerCore::namespaceRefused(Value error) {
    // Treated as a failed attempt, reconnecting with backoff: the next attempt presents the
    // engine's current headers, which may be what the server wanted.
    deliver(sessionEpoch_, "error", {std::move(error)});
    dropTransport(true);
    scheduleReconnect();
}

void ManagerCore::namespaceClosedByServer() {
    dropTransport(true);
    setStatus(sessionEpoch_, Status::disconnected);
    deliver(sessionEpoch_, "disconnect", {"io server disconnect"});
}

void ManagerCore::eventReceived(std::string name, Items items, std::optional<std::uint64_t> ackId) {
    Ack ack = ackId ? makeAck(engine_.connection(), *ackId) : Ack();
    deliver(sessionEpoch_, std::move(name), std::move(items), std::move(ack), true);
}

void ManagerCore::ackReceived(std::uint64_t id, Items items) {
    auto answered = acks_.take(id);
    if (!answered) return;
    deliverAck(answered->epoch, std::move(answered->callback), std::move(items));
}

void ManagerCore::namespaceFailed(const std::string& reason) { lose(reason); }

}  // namespace halvora::sio::detail
