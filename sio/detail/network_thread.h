#pragma once
// The process-wide network thread: one io_context that runs every socket, timer and protocol
// step of every SocketManager. Created on first use; stopped and joined when the process exits.

#include <boost/asio/io_context.hpp>

namespace halvora::sio::detail {

boost::asio::io_context& networkContext();

// True on the network thread.
bool onNetworkThread();

}  // namespace halvora::sio::detail
