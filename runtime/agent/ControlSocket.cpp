#include "ControlSocket.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <asio.hpp>
#include <set>

#include "ControlConnection.h"
#include "guard/LogLimit.h"

namespace Pexa {

using Protocol = asio::local::stream_protocol;

class ControlSocket::Server : public std::enable_shared_from_this<Server> {
 public:
  Server(asio::io_context& io, const std::filesystem::path& path, Handler handler, Access access)
      : acceptor_(io),
        retry_(io),
        path_(path),
        handler_(std::move(handler)),
        changes_(std::move(access.changes)),
        rules_(path.parent_path(), access.groups) {
    if (path.native().size() >= sizeof(sockaddr_un::sun_path)) {
      throw std::runtime_error(fmt::format("{}: too long for a socket, expected at most {} bytes",
                                           path.native(), sizeof(sockaddr_un::sun_path) - 1));
    }
    try {
      std::filesystem::remove(path);
      bind();
      acceptor_.listen();
    } catch (const std::system_error& error) {
      throw std::runtime_error(fmt::format("{}: cannot serve it: {}", path.native(), error.code().message()));
    }
    reserve();
  }
  ~Server() {
    if (reserve_ >= 0) ::close(reserve_);
  }

  void accept();
  void close();
  std::size_t clients() const { return clients_.size(); }

 private:
  using Connection = ControlConnection::Shared;

  void bind();
  void admit(Protocol::socket socket);
  bool makeRoom();
  void cannotAccept(const asio::error_code& error);
  void reserve() { reserve_ = ::open("/dev/null", O_RDONLY | O_CLOEXEC); }
  Rows answer(const Kiv::Value& request, const Guard::Peer& peer);
  std::string refusal(const Guard::Peer& peer, std::string_view what, const std::string& expected);

  Protocol::acceptor acceptor_;
  asio::steady_timer retry_;
  const std::filesystem::path path_;
  const Handler handler_;
  const std::function<bool(const Kiv::Value& request)> changes_;
  const Guard::AccessRules rules_;
  std::set<Connection> clients_;
  Guard::LogLimit refusals_;
  Guard::LogLimit failures_;
  int reserve_ = -1;  // a descriptor to give away, so that a client can be told that there is none
};

// A socket's file gets the mode of the socket itself: nobody can connect before it is right.
void ControlSocket::Server::bind() {
  acceptor_.open();
  ::fchmod(acceptor_.native_handle(), rules_.socketMode());
  const mode_t before = ::umask(0);
  asio::error_code error;
  acceptor_.bind(Protocol::endpoint(path_.native()), error);
  ::umask(before);
  if (error) throw std::system_error(error);
  // Not granted: then the group cannot connect, which is told by the kernel.
  if (const auto group = rules_.socketGroup()) {
    [[maybe_unused]] const int ignored = ::lchown(path_.c_str(), static_cast<uid_t>(-1), *group);
  }
}

void ControlSocket::Server::accept() {
  acceptor_.async_accept([weak = weak_from_this()](const asio::error_code& error, Protocol::socket socket) {
    const auto self = weak.lock();
    if (!self || !self->acceptor_.is_open()) return;
    if (error) return self->cannotAccept(error);
    self->admit(std::move(socket));
    self->accept();
  });
}

void ControlSocket::Server::admit(Protocol::socket socket) {
  const auto peer = Guard::peerOf(socket.native_handle());
  const auto client = std::make_shared<ControlConnection>(std::move(socket), peer.value_or(Guard::Peer{}));
  if (!peer) return client->refuse("the kernel does not tell who asks, expected a local process");
  if (!rules_.mayRead(*peer)) return client->refuse(refusal(*peer, "ask", rules_.readersText()));
  if (clients_.size() >= kMostClients && !makeRoom()) {
    return client->refuse(fmt::format("{} clients are connected already, expected fewer", kMostClients));
  }
  client->ownerIs(
      {[this](const Kiv::Value& request, const Guard::Peer& from) { return answer(request, from); },
       [this](const Connection& left) { clients_.erase(left); }});
  clients_.insert(client);
  client->read();
}

// Lets go of the client that has been silent for longest, when that is long enough.
bool ControlSocket::Server::makeRoom() {
  const auto oldest = std::min_element(
      clients_.begin(), clients_.end(),
      [](const auto& left, const auto& right) { return left->lastActive() < right->lastActive(); });
  if (ControlConnection::Clock::now() - (*oldest)->lastActive() < kPatience) return false;
  (*oldest)->ownerIs({});
  (*oldest)->close();
  clients_.erase(oldest);
  return true;
}

// No descriptors or no memory. Whoever waits is told, with the descriptor that was kept for this; the others
// are looked at again later, since they would only fail again and again.
void ControlSocket::Server::cannotAccept(const asio::error_code& error) {
  const std::string why = fmt::format("no connection can be taken: {}", error.message());
  if (failures_.allows()) spdlog::error("{}: {}{}", path_.native(), why, failures_.more());
  if (reserve_ >= 0) {
    ::close(reserve_);
    const int waiting = ::accept4(acceptor_.native_handle(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (waiting >= 0) {
      const std::string line = controlLine("error", why);
      [[maybe_unused]] const ssize_t ignored = ::send(waiting, line.data(), line.size(), MSG_NOSIGNAL);
      ::close(waiting);
    }
  }
  reserve();
  retry_.expires_after(kPause);
  retry_.async_wait([weak = weak_from_this()](const asio::error_code& stopped) {
    const auto self = weak.lock();
    if (self && !stopped && self->acceptor_.is_open()) self->accept();
  });
}

ControlSocket::Rows ControlSocket::Server::answer(const Kiv::Value& request, const Guard::Peer& peer) {
  if (changes_ && changes_(request) && !rules_.mayChange(peer)) {
    throw std::runtime_error(refusal(peer, "change anything", rules_.changersText()));
  }
  return handler_(request);
}

std::string ControlSocket::Server::refusal(const Guard::Peer& peer, std::string_view what,
                                           const std::string& expected) {
  if (refusals_.allows()) {
    spdlog::warn("{}: user {} (process {}) may not {}, refused{}", path_.native(), peer.user, peer.process,
                 what, refusals_.more());
  }
  return fmt::format("user {} may not {} here, expected {}", peer.user, what, expected);
}

void ControlSocket::Server::close() {
  asio::error_code ignored;
  acceptor_.close(ignored);
  retry_.cancel();
  for (const auto& client : clients_) {
    client->ownerIs({});
    client->close();
  }
  clients_.clear();
  ::unlink(path_.c_str());
}

ControlSocket::ControlSocket(asio::io_context& io, const std::filesystem::path& path, Handler handler,
                             Access access)
    : server_(std::make_shared<Server>(io, path, std::move(handler), std::move(access))) {
  server_->accept();
}

ControlSocket::~ControlSocket() {
  server_->close();
}

std::size_t ControlSocket::clients() const {
  return server_->clients();
}

ControlSocket::Rows rowsOf(Kiv::Value::List rows) {
  return [rows = std::move(rows), next = std::size_t{0}]() mutable -> std::optional<Kiv::Value> {
    if (next == rows.size()) return std::nullopt;
    return std::move(rows[next++]);
  };
}

ControlSocket::Rows oneRow(Kiv::Value row) {
  return rowsOf({std::move(row)});
}

ControlSocket::Rows noRows() {
  return rowsOf({});
}

}  // namespace Pexa
