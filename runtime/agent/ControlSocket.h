// The agent's control socket: a stream socket in the run directory that answers requests while packets run.
//
//   client:  {"request":"state get","path":"flowtracking/hoStatus/sampled"}
//   agent:   {"row":{"v4enabled":true}}          none, one, or many
//            {"end":true}                        or {"error":"what was wrong"}
//
// One JSON object a line. A client may send the next request at any time; it is answered when the one before
// it is. A client that reads slowly holds back its own answer and nobody else: rows are formed as they can be
// sent.
//
// Who may ask, and who may change, is decided by what the kernel tells of the client (guard/AccessRules.h). A
// refusal is one error to the client and, a few times a minute, one line in the log.
//
// Neighbours: ControlRequests.h knows the requests, ControlConnection.h is one client. Threading: the event
// thread, from within the io_context.
#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "Kiv.h"
#include "guard/AccessRules.h"

namespace asio {
class io_context;
}

namespace Pexa {

class ControlSocket {
 public:
  static constexpr std::size_t kMostRequestBytes = 64 * 1024;
  static constexpr std::size_t kMostClients = 64;
  static constexpr std::size_t kSliceBytes = 16 * 1024;  // of an answer formed before others have their turn
  // When there are as many clients as there may be, one of whom nothing was heard for so long makes room.
  static constexpr std::chrono::seconds kPatience{5};
  static constexpr std::chrono::seconds kPause{1};  // before another try when no connection can be taken

  // Gives the next row of an answer; none at its end. May throw std::runtime_error: the answer ends with it.
  using Rows = std::function<std::optional<Kiv::Value>()>;
  // Answers one request, a JSON object. Throws std::runtime_error with what is wrong with it.
  using Handler = std::function<Rows(const Kiv::Value& request)>;

  struct Access {
    Guard::AccessGroups groups;
    // Whether a request changes anything; when absent, none does.
    std::function<bool(const Kiv::Value& request)> changes;
  };

  // Replaces a socket file that a former agent left. Throws std::runtime_error when the path cannot be bound.
  // REQUIRES: no other agent serves the path (RunDir holds the directory's lock).
  ControlSocket(asio::io_context& io, const std::filesystem::path& path, Handler handler, Access access = {});
  // Ends all connections and takes the file away.
  ~ControlSocket();
  ControlSocket(const ControlSocket&) = delete;
  ControlSocket& operator=(const ControlSocket&) = delete;

  std::size_t clients() const;

 private:
  class Server;
  std::shared_ptr<Server> server_;
};

// An answer of these rows.
ControlSocket::Rows rowsOf(Kiv::Value::List rows);
// An answer of one row, and of none.
ControlSocket::Rows oneRow(Kiv::Value row);
ControlSocket::Rows noRows();

}  // namespace Pexa
