// SocketManager: owns the core and the public Socket and Engine views of it.
#include "sio/socket_manager.h"

#include "sio/detail/manager_core.h"

namespace halvora::sio {

SocketManager::SocketManager(std::string url, Config config)
    : core_(std::make_shared<detail::ManagerCore>(std::move(url), std::move(config))),
      socket_(core_->makeSocket()),
      engine_(core_->makeEngine()) {}

SocketManager::~SocketManager() { core_->shutdown(); }

Socket& SocketManager::defaultSocket() { return *socket_; }

Engine& SocketManager::engine() { return *engine_; }
const Engine& SocketManager::engine() const { return *engine_; }

void SocketManager::connect() { core_->connect(); }

void SocketManager::disconnect() { core_->disconnect(); }

Status SocketManager::status() const { return core_->status(); }

const std::string& SocketManager::url() const { return core_->url(); }

const Config& SocketManager::config() const { return core_->config(); }

}  // namespace halvora::sio
