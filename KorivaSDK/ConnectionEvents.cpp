#include "KorivaSDK/RequestChannel.h"
#include "KorivaSDK/State.h"

using koriva::socketio::Items;
using koriva::socketio::Socket;
using koriva::socketio::Status;

void KorivaSDK::addHandlers(Socket& socket) {
  addConnectionHandlers(socket);
  addDataHandlers(socket);
}

void KorivaSDK::on(Socket& socket, std::string_view event,
                   std::function<void(KorivaSDK& sdk, const Items& items)> handler) {
  socket.on(event, [weak = weak_from_this(), handler = std::move(handler)](const Items& items) {
    if (const auto sdk = weak.lock()) handler(*sdk, items);
  });
}

void KorivaSDK::tellDisconnected() {
  koriva::printLine("KorivaSDK - socket disconnected");
  forEachDelegate([](KorivaDelegate& delegate) { delegate.didDisconnect(); });
}

void KorivaSDK::addConnectionHandlers(Socket& socket) {
  on(socket, koriva::socketio::disconnectEvent,
     [](KorivaSDK& sdk, const Items&) { sdk.tellDisconnected(); });
  on(socket, "login", [](KorivaSDK& sdk, const Items& items) {
    const auto data = getDataFromAck(items);
    if (!data) return;
    const auto event = koriva::json::decodeFirst<KRLoginEvent>(*data);
    if (!event || event->result != KRError::expired.code()) return;
    sdk.forEachDelegate(
        [](KorivaDelegate& delegate) { delegate.didReceiveError(KRError::expired); });
  });
  on(socket, koriva::socketio::connectEvent, [](KorivaSDK& sdk, const Items&) {
    koriva::printLine("KorivaSDK - socket connected");
    sdk.state_->isNew = false;
    sdk.state_->isReady = true;
    const auto connection = sdk.state_->manager->socket();
    sdk.completeUndoneTasks();
    // Whoever is called may end the connection: nobody hears of the connect after that.
    sdk.forEachDelegate([&](KorivaDelegate& delegate) {
      if (connection->status() == Status::connected) delegate.didConnect();
    });
  });
}
