#include "HostPort.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivValue.h"

namespace {

using Tracker::endpointOf;
using Tracker::textOf;

TEST(HostPortTest, TakesAddressesAndNames) {
  EXPECT_EQ(textOf(endpointOf("192.0.2.1:2055")), "192.0.2.1:2055");
  EXPECT_EQ(textOf(endpointOf("[2001:db8::1]:65535")), "[2001:db8::1]:65535");
  EXPECT_EQ(endpointOf("localhost:1").port(), 1);
  EXPECT_EQ(endpointOf("127.0.0.1:0", 0).port(), 0);
}

TEST(HostPortTest, SaysWhatIsWrong) {
  for (const char* text : {"", "192.0.2.1", ":1", "[]:1", "1.2.3.4:", "1.2.3.4:x", "1.2.3.4:0",
                           "1.2.3.4:65536", "1.2.3.4:1x", "::1:5", "2001:db8::1", "[1.2.3.4]:1", "[name]:1",
                           "no.such.name.invalid:1", "[2001:db8::1]", "1.2.3.4:99999999999999"}) {
    try {
      endpointOf(text);
      ADD_FAILURE() << text;
    } catch (const Kiv::ValueError& error) {
      EXPECT_THAT(error.what(), testing::AllOf(testing::HasSubstr("\"" + std::string(text) + "\""),
                                               testing::HasSubstr("expected ")));
    }
  }
}

}  // namespace
