// A channel that keeps what is sent, and answers as a test wants.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sflow/Collector.h"

namespace TestSupport {

class FakeChannel : public Sflow::DatagramChannel {
 public:
  struct Record {
    std::vector<std::vector<std::uint8_t>> datagrams;  // that got out
    Sent answer = Sent::yes;
  };
  explicit FakeChannel(Record& record) : record_(record) {}
  Sent send(std::span<const std::uint8_t> datagram) override {
    if (record_.answer == Sent::yes || record_.answer == Sent::yesNotFormer) {
      record_.datagrams.emplace_back(datagram.begin(), datagram.end());
    }
    return record_.answer;
  }
  const std::string& name() const override { return name_; }

 private:
  Record& record_;
  std::string name_ = "fake";
};

}  // namespace TestSupport
