#include "sio/detail/manager_core.h"

#include <algorithm>
#include <variant>

#include <boost/asio/post.hpp>

#include "sio/detail/default_executor.h"
#include "sio/detail/network_thread.h"

namespace halvora::sio::detail {
namespace {

namespace net = boost::asio;
using Clock = std::chrono::steady_clock;

Clock::duration toClock(Seconds seconds) {
    // Bounded, so that a huge configured value cannot overflow the clock's arithmetic.
    const Seconds bounded = std::clamp(seconds, Seconds(0), Seconds(365.0 * 24 * 3600));
    return std::chrono::duration_cast<Clock::duration>(bounded);
}

bool active(Status status) { return status == Status::connecting || status == Status::connected; }

Items takeItems(Value& array, std::size_t from) {
    Items items;
    if (!array.is_array()) return items;
    items.reserve(array.size() > from ? array.size() - from : 0);
    for (std::size_t i = from; i < array.size(); ++i) items.push_back(std::move(array[i]));
    return items;
}

}  // namespace

ManagerCore::ManagerCore(std::string url, Config config)
    : url_(std::move(url)),
      config_(std::move(config)),
      executor_(config_.handleQueue ? config_.handleQueue : defaultExecutor()),
      gate_(std::make_shared<HandlerGate>()),
      extraHeaders_(config_.extraHeaders),
      connectTimer_(networkContext()),
      heartbeatTimer_(networkContext()),
      reconnectTimer_(networkContext()),
      backoff_(config_.reconnectWait, config_.reconnectWaitMax, config_.randomizationFactor) {
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
    std::vector<Registration> registrations;
    {
        std::lock_guard lock(mutex_);
        ++epoch_;
        gate = gate_;
        registrations.swap(registrations_);
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
    if (!handler) return 0;
    std::lock_guard lock(mutex_);
    const auto id = nextRegistrationId_++;
    registrations_.push_back(
        {id, std::move(event), false, std::make_shared<const Socket::Handler>(std::move(handler))});
    return id;
}

std::uint64_t ManagerCore::onAny(Socket::Handler handler) {
    if (!handler) return 0;
    std::lock_guard lock(mutex_);
    const auto id = nextRegistrationId_++;
    registrations_.push_back(
        {id, {}, true, std::make_shared<const Socket::Handler>(std::move(handler))});
    return id;
}

void ManagerCore::off(std::uint64_t id) {
    removeRegistrations([&](const Registration& r) { return r.id == id; });
}

void ManagerCore::off(const std::string& event) {
    removeRegistrations([&](const Registration& r) { return !r.any && r.event == event; });
}

void ManagerCore::removeRegistrations(const std::function<bool(const Registration&)>& match) {
    std::vector<Registration> removed;
    {
        std::lock_guard lock(mutex_);
        auto keep = std::stable_partition(registrations_.begin(), registrations_.end(),
                                          [&](const Registration& r) { return !match(r); });
        removed.assign(std::make_move_iterator(keep), std::make_move_iterator(registrations_.end()));
        registrations_.erase(keep, registrations_.end());
    }
    // `removed` goes out of scope here, unlocked: a handler's captures may call back into sio.
}

void ManagerCore::emit(const std::string& event, Items items, Seconds timeout,
                       std::shared_ptr<const Socket::AckCallback> onAck) {
    packet::Packet packet;
    packet.type = packet::Type::event;
    packet.data = Value::array();
    packet.data.push_back(event);
    for (auto& item : items) packet.data.push_back(std::move(item));
    std::uint64_t ackId = 0;
    if (onAck) {
        ackId = nextAckId_++;
        packet.id = ackId;
    }
    std::uint64_t epoch = 0;
    auto message = prepare(packet, "event \"" + event + "\"", epoch);
    if (!message && !onAck) return;
    net::post(networkContext(), [self = shared_from_this(), epoch, message = std::move(message),
                                 ackId, onAck = std::move(onAck), timeout, event]() mutable {
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
        if (epoch != epoch_) return;
        const bool wanted = std::any_of(
            registrations_.begin(), registrations_.end(),
            [&](const Registration& r) { return r.any ? fromServer : r.event == name; });
        if (!wanted) return;
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
    std::vector<std::shared_ptr<const Socket::Handler>> named;
    std::vector<std::shared_ptr<const Socket::Handler>> any;
    {
        std::lock_guard lock(mutex_);
        for (const auto& r : registrations_) {
            if (r.any) {
                if (event.fromServer) any.push_back(r.handler);
            } else if (r.event == event.name) {
                named.push_back(r.handler);
            }
        }
    }
    for (const auto& handler : named) (*handler)(event.items, event.ack);
    if (any.empty()) return;
    Items withName;
    withName.reserve(event.items.size() + 1);
    withName.emplace_back(event.name);
    withName.insert(withName.end(), event.items.begin(), event.items.end());
    for (const auto& handler : any) (*handler)(withName, event.ack);
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
    std::string problem;
    std::optional<OutgoingMessage> message;
    if (status != Status::connected) {
        problem = "not connected: " + what + " dropped";
    } else {
        auto encoded = packet::encode(packet);
        const bool tooLarge =
            encoded.text.size() + 1 > maxPayload ||
            std::any_of(encoded.attachments.begin(), encoded.attachments.end(),
                        [&](const Binary& b) { return b.size() > maxPayload; });
        if (encoded.attachments.size() > kMaxOutgoingAttachments) {
            problem = what + " dropped: more than " + std::to_string(kMaxOutgoingAttachments) +
                      " binary attachments";
        } else if (tooLarge) {
            problem = what + " dropped: larger than the server's limit of " +
                      std::to_string(maxPayload) + " bytes per message";
        } else {
            message = OutgoingMessage{"4", std::move(encoded.text), std::move(encoded.attachments)};
        }
    }
    if (!problem.empty()) deliver(epoch, "error", {problem});
    return message;
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
    packet::Packet packet;
    packet.type = packet::Type::ack;
    packet.id = id;
    packet.data = Value::array();
    for (auto& item : items) packet.data.push_back(std::move(item));
    std::uint64_t epoch = 0;
    auto message = prepare(packet, "acknowledgement", epoch);
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
    reconnectTimer_.cancel();
    sessionEpoch_ = epoch;
    attempts_ = 0;
    attemptConnect();
}

void ManagerCore::stopSession() {
    reconnectTimer_.cancel();
    for (auto& [id, pending] : pendingAcks_) {
        if (pending.timer) pending.timer->cancel();
    }
    pendingAcks_.clear();
    if (transport_ && phase_ == Phase::connected) {
        transport_->send(OutgoingMessage{"41", {}, {}});
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

    const auto connection = ++connection_;
    phase_ = Phase::opening;
    decoder_.reset();
    WebsocketTransport::Listener listener;
    listener.text = [weak = weak_from_this(), connection](std::string_view frame) {
        if (auto self = weak.lock()) self->onText(connection, frame);
    };
    listener.binary = [weak = weak_from_this(), connection](std::string_view bytes) {
        if (auto self = weak.lock()) self->onBinary(connection, bytes);
    };
    listener.closed = [weak = weak_from_this(), connection](std::string reason) {
        auto self = weak.lock();
        if (!self || connection != self->connection_) return;
        self->transport_.reset();
        self->lose(reason);
    };
    transport_ = WebsocketTransport::create(networkContext(), std::move(options), std::move(listener));
    transport_->open();

    connectTimer_.expires_after(toClock(config_.connectTimeout));
    connectTimer_.async_wait([self = shared_from_this(), connection](boost::system::error_code ec) {
        if (ec || connection != self->connection_ || self->phase_ != Phase::opening) return;
        self->lose("connect timeout");
    });
}

void ManagerCore::scheduleReconnect() {
    const auto epoch = sessionEpoch_;
    if (!config_.reconnects) {
        setStatus(epoch, Status::disconnected);
        return;
    }
    if (config_.reconnectAttempts >= 0 && attempts_ >= config_.reconnectAttempts) {
        setStatus(epoch, Status::disconnected);
        deliver(epoch, "error",
                {"gave up reconnecting after " + std::to_string(attempts_) + " attempts"});
        return;
    }
    const int attempt = ++attempts_;
    setStatus(epoch, Status::connecting);
    reconnectTimer_.expires_after(toClock(backoff_.delay(attempt)));
    reconnectTimer_.async_wait(
        [self = shared_from_this(), epoch, attempt](boost::system::error_code ec) {
            if (ec || !self->current(epoch) || self->phase_ != Phase::idle) return;
            self->deliver(epoch, "reconnectAttempt", {attempt});
            self->attemptConnect();
        });
}

void ManagerCore::onText(std::uint64_t connection, std::string_view frame) {
    if (connection != connection_) return;
    lastReceived_ = Clock::now();
    auto engine = packet::decodeEngine(frame);
    if (!engine) return lose("invalid Engine.IO packet from the server");
    switch (engine->type) {
        case packet::EngineType::open:
            return onOpenPacket(engine->data);
        case packet::EngineType::ping:
            // Answered here, before any handler: a busy executor must not look like a dead client.
            if (phase_ != Phase::opening) transport_->send(OutgoingMessage{"3", {}, {}, true});
            return;
        case packet::EngineType::message:
            if (phase_ == Phase::opening) return lose("message before the Engine.IO handshake");
            return onDecoded(decoder_.feedText(engine->data));
        case packet::EngineType::close:
            return lose("transport close");
        default:
            return;
    }
}

void ManagerCore::onBinary(std::uint64_t connection, std::string_view bytes) {
    if (connection != connection_) return;
    lastReceived_ = Clock::now();
    if (phase_ == Phase::opening) return lose("message before the Engine.IO handshake");
    onDecoded(decoder_.feedBinary(bytes));
}

void ManagerCore::onOpenPacket(std::string_view json) {
    if (phase_ != Phase::opening) return lose("unexpected Engine.IO open packet");
    auto handshake = packet::decodeHandshake(json);
    if (!handshake) return lose("invalid Engine.IO handshake");
    connectTimer_.cancel();
    {
        std::lock_guard lock(mutex_);
        engineOpen_ = epoch_ == sessionEpoch_;
        maxPayload_ = static_cast<std::size_t>(handshake->maxPayload);
        pingInterval_ = std::chrono::milliseconds(handshake->pingIntervalMs);
        pingTimeout_ = std::chrono::milliseconds(handshake->pingTimeoutMs);
    }
    phase_ = Phase::handshaking;
    heartbeatWindow_ = std::chrono::milliseconds(std::uint64_t{handshake->pingIntervalMs} +
                                                 handshake->pingTimeoutMs);
    armHeartbeat();
    transport_->send(OutgoingMessage{"40", {}, {}});
}

void ManagerCore::armHeartbeat() {
    // One timer per heartbeat window rather than one per frame: it re-arms from the last frame.
    heartbeatTimer_.expires_at(lastReceived_ + heartbeatWindow_);
    heartbeatTimer_.async_wait(
        [self = shared_from_this(), connection = connection_](boost::system::error_code ec) {
            if (ec || connection != self->connection_ || self->phase_ == Phase::idle) return;
            if (Clock::now() >= self->lastReceived_ + self->heartbeatWindow_) {
                return self->lose("ping timeout");
            }
            self->armHeartbeat();
        });
}

void ManagerCore::onDecoded(packet::Decoder::Result result) {
    if (auto* packet = std::get_if<packet::Packet>(&result)) return onPacket(std::move(*packet));
    if (auto* error = std::get_if<packet::Decoder::Error>(&result)) {
        lose("invalid Socket.IO packet from the server: " + error->message);
    }
}

void ManagerCore::onPacket(packet::Packet packet) {
    // Only the default namespace is used; packets for others are not ours.
    if (packet.nsp != "/") return;
    switch (packet.type) {
        case packet::Type::connect:
            if (phase_ == Phase::handshaking) onNamespaceConnected(packet.data);
            return;
        case packet::Type::connectError:
            // Treated as a failed attempt, reconnecting with backoff: the next attempt presents
            // the engine's current headers, which may be what the server wanted.
            deliver(sessionEpoch_, "error", {std::move(packet.data)});
            dropTransport(true);
            return scheduleReconnect();
        case packet::Type::disconnect:
            if (phase_ != Phase::connected) return;
            dropTransport(true);
            setStatus(sessionEpoch_, Status::disconnected);
            return deliver(sessionEpoch_, "disconnect", {"io server disconnect"});
        case packet::Type::event:
        case packet::Type::binaryEvent:
            if (phase_ == Phase::connected) onIncomingEvent(std::move(packet));
            return;
        case packet::Type::ack:
        case packet::Type::binaryAck:
            return onIncomingAck(std::move(packet));
    }
}

void ManagerCore::onNamespaceConnected(const Value& data) {
    phase_ = Phase::connected;
    const int previousAttempts = std::exchange(attempts_, 0);
    {
        std::lock_guard lock(mutex_);
        sid_.clear();
        if (data.is_object()) {
            auto sid = data.find("sid");
            if (sid != data.end() && sid->is_string()) sid_ = sid->get<std::string>();
        }
    }
    setStatus(sessionEpoch_, Status::connected);
    deliver(sessionEpoch_, "connect", {"/"});
    if (previousAttempts > 0) deliver(sessionEpoch_, "reconnect", {previousAttempts});
}

void ManagerCore::onIncomingEvent(packet::Packet packet) {
    auto& data = packet.data;
    if (!data.is_array() || data.empty() || !data.front().is_string()) return;
    std::string name = data.front().get<std::string>();
    Items items = takeItems(data, 1);
    Ack ack = packet.id ? makeAck(connection_, *packet.id) : Ack();
    deliver(sessionEpoch_, std::move(name), std::move(items), std::move(ack), true);
}

void ManagerCore::onIncomingAck(packet::Packet packet) {
    if (!packet.id) return;
    auto pending = pendingAcks_.find(*packet.id);
    if (pending == pendingAcks_.end()) return;
    if (pending->second.timer) pending->second.timer->cancel();
    const auto epoch = pending->second.epoch;
    auto callback = std::move(pending->second.callback);
    pendingAcks_.erase(pending);
    deliverAck(epoch, std::move(callback), takeItems(packet.data, 0));
}

void ManagerCore::lose(const std::string& reason) {
    const bool wasConnected = phase_ == Phase::connected;
    dropTransport(false);
    deliver(sessionEpoch_, wasConnected ? "disconnect" : "error", {reason});
    scheduleReconnect();
}

void ManagerCore::dropTransport(bool graceful) {
    if (transport_) {
        if (graceful) {
            transport_->close();
        } else {
            transport_->abort();
        }
        transport_.reset();
    }
    ++connection_;
    phase_ = Phase::idle;
    connectTimer_.cancel();
    heartbeatTimer_.cancel();
    decoder_.reset();
    std::lock_guard lock(mutex_);
    engineOpen_ = false;
    sid_.clear();
}

void ManagerCore::sendOnNetwork(std::uint64_t epoch, std::uint64_t connection,
                                OutgoingMessage message, const std::string& what) {
    // An acknowledgement belongs to the connection its request came on; events go on any.
    const bool sameConnection = connection == 0 || connection == connection_;
    if (!current(epoch) || phase_ != Phase::connected || !transport_ || !sameConnection) {
        deliver(epoch, "error", {"not connected: " + what + " dropped"});
        return;
    }
    transport_->send(std::move(message));
}

void ManagerCore::registerAck(std::uint64_t epoch, std::uint64_t id,
                              std::shared_ptr<const Socket::AckCallback> callback,
                              Seconds timeout) {
    if (!current(epoch)) return;
    PendingAck pending{epoch, std::move(callback), nullptr};
    if (timeout > Seconds(0)) {
        pending.timer = std::make_unique<net::steady_timer>(networkContext(), toClock(timeout));
        pending.timer->async_wait([self = shared_from_this(), id](boost::system::error_code ec) {
            if (ec) return;
            auto found = self->pendingAcks_.find(id);
            if (found == self->pendingAcks_.end()) return;
            const auto ackEpoch = found->second.epoch;
            auto onAck = std::move(found->second.callback);
            self->pendingAcks_.erase(found);
            self->deliverAck(ackEpoch, std::move(onAck), {"NO ACK"});
        });
    }
    pendingAcks_.emplace(id, std::move(pending));
}

}  // namespace halvora::sio::detail
