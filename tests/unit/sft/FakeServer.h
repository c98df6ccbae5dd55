// A program behind a control socket that answers as a test tells it.
#pragma once

#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/read.hpp>
#include <asio/read_until.hpp>
#include <asio/write.hpp>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace TestSupport {

// Answers each request with the next of the texts; behind the last one it stays, and is silent.
class FakeServer {
 public:
  FakeServer(const std::string& path, std::vector<std::string> answers)
      : path_(path),
        acceptor_(io_, asio::local::stream_protocol::endpoint(path)),
        thread_([this, answers = std::move(answers)] {
          asio::local::stream_protocol::socket socket = acceptor_.accept();
          std::string in;
          for (const std::string& each : answers) {
            in.erase(0, asio::read_until(socket, asio::dynamic_buffer(in), '\n'));
            asio::write(socket, asio::buffer(each));
          }
          std::error_code gone;
          asio::read(socket, asio::dynamic_buffer(in), gone);
        }) {}
  ~FakeServer() {
    thread_.join();
    std::filesystem::remove(path_);
  }
  FakeServer(const FakeServer&) = delete;
  FakeServer& operator=(const FakeServer&) = delete;

 private:
  const std::filesystem::path path_;
  asio::io_context io_;
  asio::local::stream_protocol::acceptor acceptor_;
  std::thread thread_;
};

}  // namespace TestSupport
