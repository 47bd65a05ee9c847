// Loopback helpers shared by the LAN tests, the server's tests and
// kzlan-attack: waiting on the event loop and the raw frames of requests.
// Free of GoogleTest, so that the benchmarks link them with the tests off.
#ifndef KZ_TESTS_LANWIRE_H
#define KZ_TESTS_LANWIRE_H

#include "kzprotocolresolver.h"

#include <QByteArray>

#include <functional>

namespace lan {

/// Runs the event loop until `done` holds or `ms` pass; returns done().
bool waitFor(const std::function<bool()>& done, int ms = 10000);

/// Runs the event loop for `ms`.
void idle(int ms);

/// The frames that `send` makes with a resolver of its own (frames of at
/// most `capacity` bytes; 0: the default), to write raw to a socket.
QByteArray framesOf(const std::function<void(KZProtocolResolver&)>& send, int capacity = 0);

} // namespace lan

#endif
