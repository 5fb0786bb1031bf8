// Keeps a connection to a server that comes and goes: connects, and connects
// again whenever the connection is lost, with a pause that grows.
//
//   std::optional<rpc::transport::EventSubscriber<rpc::BrowserWindowClosed>>
//       closed;
//   rpc::transport::ReconnectingClient host(
//       loop, path, {},
//       [&](rpc::transport::Client& client, const auto& gap) {
//         if (gap) {
//           // Nothing was heard meanwhile: ask for the state anew, too.
//           LOG(WARNING) << "events may be missing: " << gap->why;
//         }
//         closed.emplace(client, when_closed, on_event);
//         closed->Subscribe(window);
//       });
//
// Streams do not resume, and the server keeps nothing for a client that has
// gone: events that were published between two connections are lost, questions
// went to somebody else or to nobody, and calls that were under way have
// failed, whether the server has carried them out or not. So each new
// connection is handed over with the Gap before it, and its user opens the
// streams anew, subscribes, and asks again for what may have changed. What a
// new stream has subscribed to counts from when the server has read it; the
// reply to any call that is made after subscribing says that it has.
//
// Ownership: the user's. The loop must outlive it. The Client belongs to this,
// and lives until the next one is handed over, or this is destroyed. What a
// callback refers to must live as long as this.
//
// Sequence: the loop's. Nothing blocks. The callbacks run as tasks of the loop,
// never within the constructor; each may destroy this.
//
// Failure: none is final. `on_down` hears of each, also of those that no
// further attempt is likely to mend, such as PERMISSION_DENIED; who wants to
// give up destroys this. A server that is stopped, or hangs, is not noticed by
// a connection that stands: calls have their timeouts for that.

#ifndef CORE_COMMON_RPC_TRANSPORT_RECONNECTING_CLIENT_H_
#define CORE_COMMON_RPC_TRANSPORT_RECONNECTING_CLIENT_H_

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "absl/status/status.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/client/growing_pause.h"

namespace rpc::transport {

struct ReconnectingOptions {
  // For each connection. limits.handshake_timeout bounds each attempt.
  ClientOptions client;

  // The pause after a loss or a failed attempt: the first one, twice as much
  // after each, and at most the longest. It begins anew after a connection that
  // has lasted as long as the longest.
  std::chrono::milliseconds first_pause{50};
  std::chrono::milliseconds longest_pause{5'000};
};

class ReconnectingClient final {
 public:
  // The time between two connections. The server may have lost sight of this
  // client before `lost`, when it was noticed here.
  struct Gap {
    // Why the connection was lost.
    absl::Status why;
    loop::Clock::time_point lost;
    loop::Clock::time_point connected;
  };

  // A connection stands. Without a gap it is the first.
  using ConnectedCallback =
      std::function<void(Client& client, const std::optional<Gap>& gap)>;

  // The connection is lost, after all calls and streams on it have ended, or an
  // attempt has failed. The next follows after `pause`.
  using DownCallback = std::function<void(const absl::Status& why,
                                          std::chrono::milliseconds pause)>;

  // Connects to the server that listens at `path`, on a later turn. `on_down`
  // may be null.
  ReconnectingClient(loop::Loop& loop,
                     std::string path,
                     ReconnectingOptions options,
                     ConnectedCallback on_connected,
                     DownCallback on_down = nullptr);
  ReconnectingClient(const ReconnectingClient&) = delete;
  ReconnectingClient& operator=(const ReconnectingClient&) = delete;
  ~ReconnectingClient();

  // The client of the connection that stands; null while there is none.
  Client* client() const;

 private:
  void Connect();
  absl::Status BeginToConnect();
  void OnHandshakeOver(const absl::Status& status);
  void OnLost(const absl::Status& why);
  // Sets the timer and calls `on_down`, which may destroy this.
  void TryAgain(const absl::Status& why);

  loop::Loop& loop_;
  const std::string path_;
  const ReconnectingOptions options_;
  const ConnectedCallback on_connected_;
  const DownCallback on_down_;

  GrowingPause pause_;
  std::unique_ptr<loop::Timer> next_attempt_;
  // Waits for its welcome; null when no attempt is under way.
  std::unique_ptr<Client> attempt_;
  // The last one that was handed over; null before the first.
  std::unique_ptr<Client> client_;
  loop::Clock::time_point connected_;
  // Since the last loss; its end is not known yet.
  std::optional<Gap> gap_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_RECONNECTING_CLIENT_H_
