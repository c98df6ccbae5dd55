// The printer behind the agent's counter display: JSON text into a growing buffer, compact or pretty.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace cliprint {

enum class Style : std::uint8_t { compact, pretty };

// Opens an enclosing object when built; members are written between. Pretty: each member on a new line,
// indented by four blanks a level, a blank behind each colon, a newline at the end.
class PrinterV2 {
 public:
  explicit PrinterV2(Style style);

  // The members of the innermost open object, one after another; a comma comes between them by itself.
  void memberName(std::string_view name);  // quoted and escaped, then ":"
  void beginObject();
  void endObject();
  void value(std::uint64_t number);
  void value(std::string_view text);

  // Ends the enclosing object and gives the whole text. REQUIRES: every other object has been ended.
  std::string finish();
  // What has been written so far.
  const std::string& buffer() const { return buffer_; }
  Style style() const { return style_; }

 private:
  void newline();
  std::string buffer_;
  Style style_;
  unsigned depth_ = 0;
  bool first_ = true;  // no member of the innermost object yet
};

}  // namespace cliprint
