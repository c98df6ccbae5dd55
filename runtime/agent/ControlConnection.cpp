#include "ControlConnection.h"

#include <fmt/format.h>

#include <new>
#include <utility>

#include "json/JsonText.h"

namespace Pexa {

namespace {
constexpr std::string_view kNoMemory = "there is not enough memory for the answer";
}

std::string controlLine(std::string_view member, Kiv::Value value) {
  return Json::text(Kiv::Value::Object{{Kiv::String(member), std::move(value)}}) + '\n';
}

ControlConnection::ControlConnection(Socket socket, Guard::Peer peer)
    : socket_(std::move(socket)), peer_(std::move(peer)), received_(ControlSocket::kMostRequestBytes) {}

void ControlConnection::read() {
  asio::async_read_until(socket_, received_, '\n',
                         [self = shared_from_this()](const asio::error_code& error, std::size_t bytes) {
                           self->handleRead(error, bytes);
                         });
}

void ControlConnection::refuse(std::string_view why) {
  last_ = true;
  answer_ = controlLine("error", why);
  write();
}

void ControlConnection::close() {
  asio::error_code ignored;
  socket_.close(ignored);
}

void ControlConnection::handleRead(const asio::error_code& error, std::size_t bytes) {
  lastActive_ = Clock::now();
  if (error == asio::error::not_found) {
    return refuse(fmt::format("request longer than {} bytes", ControlSocket::kMostRequestBytes));
  }
  if (error) return leave();
  const auto* text = static_cast<const char*>(received_.data().data());
  answerTo(std::string_view(text, bytes - 1));
  received_.consume(bytes);
  formSlice();
  write();
}

void ControlConnection::answerTo(std::string_view text) {
  if (!owner_.answer) return;
  try {
    const Kiv::Value request = Json::parse(text);
    if (request.as<Kiv::Value::Object>() == nullptr) throw Kiv::ValueError("a request is a JSON object");
    rows_ = owner_.answer(request, peer_);
  } catch (const std::runtime_error& error) {
    answer_ = controlLine("error", error.what());
  } catch (const std::bad_alloc&) {
    answer_ = controlLine("error", kNoMemory);
  }
}

// Forms rows until a slice is full; the end mark behind the last one.
void ControlConnection::formSlice() {
  try {
    while (rows_ && answer_.size() < ControlSocket::kSliceBytes) {
      if (auto row = rows_()) {
        answer_ += controlLine("row", *std::move(row));
      } else {
        rows_ = nullptr;
        answer_ += controlLine("end", true);
      }
    }
  } catch (const std::runtime_error& error) {
    rows_ = nullptr;
    answer_ += controlLine("error", error.what());
  } catch (const std::bad_alloc&) {
    rows_ = nullptr;
    answer_ += controlLine("error", kNoMemory);
  }
}

void ControlConnection::write() {
  asio::async_write(socket_, asio::buffer(answer_),
                    [self = shared_from_this()](const asio::error_code& error, std::size_t) {
                      self->handleWritten(error);
                    });
}

void ControlConnection::handleWritten(const asio::error_code& error) {
  if (error || last_) return leave();
  lastActive_ = Clock::now();
  answer_.clear();
  if (!rows_) return read();
  formSlice();
  write();
}

void ControlConnection::leave() {
  rows_ = nullptr;
  close();
  if (owner_.leaves) owner_.leaves(shared_from_this());
}

}  // namespace Pexa
