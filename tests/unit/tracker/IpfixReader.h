// A reader of IPFIX messages of the tests' own, independent of the library that wrote them: it knows what
// the standard says of messages, sets and templates, and nothing of this system's records.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <stdexcept>
#include <vector>

namespace TestSupport {

class IpfixReader {
 public:
  using Bytes = std::vector<std::uint8_t>;
  // A data record: element -> value, in network byte order.
  struct Record {
    std::uint16_t templateId = 0;
    std::map<std::uint16_t, Bytes> fields;

    bool has(std::uint16_t element) const { return fields.contains(element); }
    std::uint64_t number(std::uint16_t element) const {
      std::uint64_t value = 0;
      for (const std::uint8_t byte : fields.at(element)) value = value << 8 | byte;
      return value;
    }
  };

  // Throws std::runtime_error at the first thing that is not as the standard has it, std::out_of_range for a
  // template that did not come before.
  void message(std::span<const std::uint8_t> bytes) {
    bytes_ = bytes;
    at_ = 0;
    want(number(2) == 10, "version");
    want(number(2) == bytes.size(), "length of the message");
    exportTime = number(4);
    want(number(4) == records.size(), "sequence");
    domain = number(4);
    while (at_ != bytes.size()) set();
    ++messages;
  }

  std::vector<Record> records;
  std::uint64_t exportTime = 0;
  std::uint64_t domain = 0;
  unsigned messages = 0;
  unsigned templates = 0;  // definitions met, repetitions included

 private:
  struct Field {
    std::uint16_t element;
    std::uint16_t bytes;
  };

  void set() {
    const std::size_t begin = at_;
    const auto id = static_cast<std::uint16_t>(number(2));
    const std::size_t end = begin + number(2);
    want(end >= begin + 4 && end <= bytes_.size(), "length of a set");
    if (id == 2) {
      while (end - at_ >= 4) templateRecord();
    } else {
      want(id >= 256, "kind of set");
      const auto& fields = defined_.at(id);
      std::size_t length = 0;
      for (const Field& each : fields) length += each.bytes;
      while (end - at_ >= length) dataRecord(id, fields);
    }
    take(end - at_);  // filling
  }
  void templateRecord() {
    const auto id = static_cast<std::uint16_t>(number(2));
    std::vector<Field> fields(number(2));
    for (Field& each : fields) {
      each.element = static_cast<std::uint16_t>(number(2));
      each.bytes = static_cast<std::uint16_t>(number(2));
      want(each.element < 0x8000, "standard element");
    }
    defined_[id] = fields;
    ++templates;
  }
  void dataRecord(std::uint16_t id, const std::vector<Field>& fields) {
    Record record{id, {}};
    for (const Field& each : fields) {
      const auto value = take(each.bytes);
      record.fields[each.element] = Bytes(value.begin(), value.end());
    }
    records.push_back(record);
  }
  std::span<const std::uint8_t> take(std::size_t bytes) {
    want(bytes <= bytes_.size() - at_, "cut off");
    at_ += bytes;
    return bytes_.subspan(at_ - bytes, bytes);
  }
  std::uint64_t number(std::size_t bytes) {
    std::uint64_t value = 0;
    for (const std::uint8_t byte : take(bytes)) value = value << 8 | byte;
    return value;
  }
  static void want(bool holds, const char* what) {
    if (!holds) throw std::runtime_error(what);
  }

  std::map<std::uint16_t, std::vector<Field>> defined_;
  std::span<const std::uint8_t> bytes_;
  std::size_t at_ = 0;
};

}  // namespace TestSupport
