#include "Cliprint.h"

#include <array>
#include <cassert>
#include <utility>

namespace cliprint {
namespace {

constexpr std::size_t kMostDigits = 20;
constexpr unsigned kIndent = 4;

// "00" to "99", one after another.
constexpr std::array<char, 200> digitPairs() {
  std::array<char, 200> pairs{};
  for (std::size_t i = 0; i < 100; ++i) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}
constexpr std::array<char, 200> kDigitPairs = digitPairs();

void appendNumber(std::string& buffer, std::uint64_t number) {
  char digits[kMostDigits];
  std::size_t at = kMostDigits;
  while (number >= 100) {
    const std::size_t pair = static_cast<std::size_t>(number % 100) * 2;
    number /= 100;
    digits[--at] = kDigitPairs[pair + 1];
    digits[--at] = kDigitPairs[pair];
  }
  const std::size_t pair = static_cast<std::size_t>(number) * 2;
  digits[--at] = kDigitPairs[pair + 1];
  if (number >= 10) digits[--at] = kDigitPairs[pair];
  buffer.append(digits + at, kMostDigits - at);
}

// The character behind the backslash, or 0 when it has no short form.
char shortEscape(char c) {
  switch (c) {
    case '"':
      return '"';
    case '\\':
      return '\\';
    case '\b':
      return 'b';
    case '\f':
      return 'f';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    case '\t':
      return 't';
    default:
      return 0;
  }
}

void appendQuoted(std::string& buffer, std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  buffer += '"';
  for (const char c : text) {
    if (const char escape = shortEscape(c); escape != 0) {
      buffer += '\\';
      buffer += escape;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      buffer += "\\u00";
      buffer += kHex[c >> 4];
      buffer += kHex[c & 0xf];
    } else {
      buffer += c;
    }
  }
  buffer += '"';
}

}  // namespace

PrinterV2::PrinterV2(Style style) : style_(style) {
  beginObject();
}

void PrinterV2::newline() {
  if (style_ != Style::pretty) return;
  buffer_ += '\n';
  buffer_.append(std::size_t{depth_} * kIndent, ' ');
}

void PrinterV2::memberName(std::string_view name) {
  if (!first_) buffer_ += ',';
  first_ = false;
  newline();
  appendQuoted(buffer_, name);
  buffer_ += ':';
  if (style_ == Style::pretty) buffer_ += ' ';
}

void PrinterV2::beginObject() {
  buffer_ += '{';
  ++depth_;
  first_ = true;
}

void PrinterV2::endObject() {
  assert(depth_ != 0 && "an object is open");
  --depth_;
  if (!first_) newline();
  buffer_ += '}';
  first_ = false;  // the object was a member of the one around it
}

void PrinterV2::value(std::uint64_t number) {
  appendNumber(buffer_, number);
}
void PrinterV2::value(std::string_view text) {
  appendQuoted(buffer_, text);
}

std::string PrinterV2::finish() {
  assert(depth_ == 1 && "every object but the enclosing one has been ended");
  endObject();
  if (style_ == Style::pretty) buffer_ += '\n';
  return std::exchange(buffer_, {});
}

}  // namespace cliprint
