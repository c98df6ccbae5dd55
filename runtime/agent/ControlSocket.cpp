#include "ControlSocket.h"

#include <fmt/format.h>
#include <sys/un.h>
#include <unistd.h>

#include <asio.hpp>
#include <set>

#include "json/JsonText.h"

namespace Pexa {

using Protocol = asio::local::stream_protocol;

namespace {

std::string line(std::string_view member, Kiv::Value value) {
  return Json::text(Kiv::Value::Object{{Kiv::String(member), std::move(value)}}) + '\n';
}

}  // namespace

class ControlSocket::Server : public std::enable_shared_from_this<Server> {
 public:
  Server(asio::io_context& io, const std::filesystem::path& path, Handler handler)
      : acceptor_(io), path_(path), handler_(std::move(handler)) {
    if (path.native().size() >= sizeof(sockaddr_un::sun_path)) {
      throw std::runtime_error(fmt::format("{}: too long for a socket, expected at most {} bytes",
                                           path.native(), sizeof(sockaddr_un::sun_path) - 1));
    }
    try {
      std::filesystem::remove(path);
      acceptor_.open();
      acceptor_.bind(Protocol::endpoint(path.native()));
      acceptor_.listen();
    } catch (const std::system_error& error) {
      throw std::runtime_error(fmt::format("{}: cannot serve it: {}", path.native(), error.code().message()));
    }
  }

  void accept();
  void close();
  std::size_t clients() const { return clients_.size(); }

 private:
  class Client;

  Protocol::acceptor acceptor_;
  std::filesystem::path path_;
  Handler handler_;
  std::set<std::shared_ptr<Client>> clients_;
};

// One connection: reads a line, writes its answer slice by slice, reads the next line.
class ControlSocket::Server::Client : public std::enable_shared_from_this<Client> {
 public:
  Client(Protocol::socket socket, std::weak_ptr<Server> server)
      : socket_(std::move(socket)), server_(std::move(server)), received_(kMostRequestBytes) {}

  void read() {
    asio::async_read_until(socket_, received_, '\n',
                           [self = shared_from_this()](const asio::error_code& error, std::size_t bytes) {
                             self->handleRead(error, bytes);
                           });
  }
  void refuse(std::string_view why) {
    last_ = true;
    answer_ = line("error", why);
    write();
  }
  void close() {
    asio::error_code ignored;
    socket_.close(ignored);
  }

 private:
  void handleRead(const asio::error_code& error, std::size_t bytes) {
    if (error == asio::error::not_found) {
      return refuse(fmt::format("request longer than {} bytes", kMostRequestBytes));
    }
    if (error) return leave();
    const auto* text = static_cast<const char*>(received_.data().data());
    answerTo(std::string_view(text, bytes - 1));
    received_.consume(bytes);
    formSlice();
    write();
  }

  void answerTo(std::string_view text) {
    const auto server = server_.lock();
    if (!server) return;
    try {
      const Kiv::Value request = Json::parse(text);
      if (request.as<Kiv::Value::Object>() == nullptr) throw Kiv::ValueError("a request is a JSON object");
      rows_ = server->handler_(request);
    } catch (const std::runtime_error& error) {
      answer_ = line("error", error.what());
    }
  }

  // Forms rows until a slice is full; the end mark behind the last one.
  void formSlice() {
    try {
      while (rows_ && answer_.size() < kSliceBytes) {
        if (auto row = rows_()) {
          answer_ += line("row", *std::move(row));
        } else {
          rows_ = nullptr;
          answer_ += line("end", true);
        }
      }
    } catch (const std::runtime_error& error) {
      rows_ = nullptr;
      answer_ += line("error", error.what());
    }
  }

  void write() {
    asio::async_write(socket_, asio::buffer(answer_),
                      [self = shared_from_this()](const asio::error_code& error, std::size_t) {
                        self->handleWritten(error);
                      });
  }

  void handleWritten(const asio::error_code& error) {
    if (error || last_) return leave();
    answer_.clear();
    if (!rows_) return read();
    formSlice();
    write();
  }

  void leave() {
    rows_ = nullptr;
    close();
    if (const auto server = server_.lock()) server->clients_.erase(shared_from_this());
  }

  Protocol::socket socket_;
  std::weak_ptr<Server> server_;
  asio::streambuf received_;
  Rows rows_;           // the rest of the answer; empty between requests
  std::string answer_;  // being written
  bool last_ = false;   // nothing is read behind this answer
};

void ControlSocket::Server::accept() {
  acceptor_.async_accept([weak = weak_from_this()](const asio::error_code& error, Protocol::socket socket) {
    const auto self = weak.lock();
    if (!self || !self->acceptor_.is_open()) return;
    if (!error) {
      const bool full = self->clients_.size() >= kMostClients;
      const auto client = std::make_shared<Client>(std::move(socket), weak);
      if (full) {
        client->refuse(fmt::format("{} clients are connected already, expected fewer", kMostClients));
      } else {
        self->clients_.insert(client);
        client->read();
      }
    }
    self->accept();
  });
}

void ControlSocket::Server::close() {
  asio::error_code ignored;
  acceptor_.close(ignored);
  for (const auto& client : clients_) client->close();
  clients_.clear();
  ::unlink(path_.c_str());
}

ControlSocket::ControlSocket(asio::io_context& io, const std::filesystem::path& path, Handler handler)
    : server_(std::make_shared<Server>(io, path, std::move(handler))) {
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
