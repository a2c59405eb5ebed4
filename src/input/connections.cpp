#include "input/connections.h"

#include <atomic>

#include "input/devices.h"

namespace vlm {
namespace {

// Atomic one by one: each change is announced by one thread, whoever refreshes at the same time.
constinit std::atomic<bool> announced[controller_count] = {};
constinit std::atomic<ConnectionHandler> connected_handler{nullptr};
constinit std::atomic<ConnectionHandler> disconnected_handler{nullptr};

}  // namespace

void set_connection_handlers(ConnectionHandler connected, ConnectionHandler disconnected) {
  connected_handler = connected;
  disconnected_handler = disconnected;
}

XInputReadings refresh_connections(bool notify) {
  XInputReadings readings;
  for (unsigned index = 0; index < controller_count; ++index) {
    if (index < first_sony_index) readings[index] = read_xinput_pad(index);
    const bool connected = index < first_sony_index ? readings[index].has_value() : controller_is_connected(index);
    if (was_connected(index) == connected || announced[index].exchange(connected) == connected || !notify) continue;
    const ConnectionHandler handler = connected ? connected_handler : disconnected_handler;
    if (handler != nullptr) handler(controller_info(index));
  }
  return readings;
}

bool was_connected(unsigned index) { return announced[index].load(std::memory_order_relaxed); }

}  // namespace vlm
