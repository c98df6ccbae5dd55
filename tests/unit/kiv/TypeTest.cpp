#include "KivType.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KivEntity.h"

namespace {

using testing::HasSubstr;

class Device : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType() {
    static const Kiv::Type type = Kiv::TypeBuilder<Device>("Test::Device")
                                      .attribute("rate", &Device::rate, &Device::rateIs)
                                      .attribute("serial", &Device::serial)
                                      .handler("add", &Device::add, "left", "right")
                                      .handler("reset", &Device::reset)
                                      .constructor(&Device::make, "name")
                                      .build();
    return type;
  }
  static Kiv::Ptr<Device> make(const Kiv::String& name) { return Kiv::makePtr<Device>(name); }
  const Kiv::Type& fwkType() const override { return kivType(); }
  std::uint16_t rate() const { return rate_; }
  void rateIs(std::uint16_t rate) { attributeIs(rate_, rate, 1); }
  Kiv::String serial() const { return "S1"; }
  int add(int left, int right) { return left + right; }
  void reset() { rate_ = 0; }

 private:
  std::uint16_t rate_ = 0;
};

class FastDevice : public Device {
 public:
  using Device::Device;
  static const Kiv::Type& kivType() {
    static const Kiv::Type type = Kiv::TypeBuilder<FastDevice>("Test::FastDevice", &Device::kivType())
                                      .attribute("boost", &FastDevice::boost)
                                      .build();
    return type;
  }
  const Kiv::Type& fwkType() const override { return kivType(); }
  bool boost() const { return true; }
};

template <class Call>
std::string errorOf(Call call) {
  try {
    call();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

TEST(Type, GetsAndSetsByName) {
  Device device("d");
  Device::kivType().set(device, "rate", 1000);
  EXPECT_EQ(Device::kivType().get(device, "rate"), Kiv::Value(1000U));
  EXPECT_EQ(device.rate(), 1000);
}

TEST(Type, RefusesUnknownReadOnlyWrongTypeAndRangeAndChangesNothing) {
  Device device("d");
  device.rateIs(5);
  const Kiv::Type& type = Device::kivType();
  EXPECT_THAT(errorOf([&] { type.set(device, "speed", 1); }),
              HasSubstr("no attribute \"speed\"; it has: rate, serial"));
  EXPECT_THAT(errorOf([&] { type.get(device, "speed"); }), HasSubstr("no attribute \"speed\""));
  EXPECT_THAT(errorOf([&] { type.set(device, "serial", "x"); }),
              HasSubstr("Test::Device.serial is read only"));
  EXPECT_THAT(errorOf([&] { type.set(device, "rate", "7"); }),
              HasSubstr("Test::Device.rate: expected a whole number"));
  EXPECT_THAT(errorOf([&] { type.set(device, "rate", 65536); }), HasSubstr("from 0 to 65535"));
  EXPECT_THAT(errorOf([&] { type.set(device, "rate", -1); }), HasSubstr("from 0 to 65535"));
  EXPECT_THAT(errorOf([&] { type.set(device, "rate", true); }), HasSubstr("got true"));
  EXPECT_EQ(device.rate(), 5);
}

TEST(Type, InvokesAHandlerByItsArgumentNamesInAnyOrder) {
  Device device("d");
  EXPECT_EQ(Device::kivType().invoke(device, "add", {{"right", 2}, {"left", 40}}), Kiv::Value(42));
  device.rateIs(9);
  EXPECT_TRUE(Device::kivType().invoke(device, "reset", {}).isNone());
  EXPECT_EQ(device.rate(), 0);
}

TEST(Type, RefusesACallWithMissingOrUnknownArguments) {
  Device device("d");
  const Kiv::Type& type = Device::kivType();
  EXPECT_THAT(errorOf([&] {
                type.invoke(device, "add", {{"left", 1}});
              }),
              HasSubstr("needs the argument \"right\""));
  EXPECT_THAT(errorOf([&] {
                type.invoke(device, "add", {{"left", 1}, {"right", 2}, {"up", 3}});
              }),
              HasSubstr("takes no argument \"up\"; it takes: left, right"));
  EXPECT_THAT(errorOf([&] { type.invoke(device, "sub", {}); }),
              HasSubstr("no handler \"sub\"; it has: add, reset"));
  EXPECT_THAT(errorOf([&] {
                type.invoke(device, "add", {{"left", "x"}, {"right", 2}});
              }),
              HasSubstr("Test::Device.add: expected a whole number"));
}

TEST(Type, DerivedTypesListTheirBasesAttributesFirst) {
  const auto attributes = FastDevice::kivType().attributes();
  ASSERT_EQ(attributes.size(), 3U);
  EXPECT_EQ(attributes[0]->name, "rate");
  EXPECT_EQ(attributes[2]->name, "boost");
  EXPECT_EQ(attributes[2]->id, 3U);
  EXPECT_EQ(FastDevice::kivType().attribute(2)->name, "serial");
  EXPECT_TRUE(FastDevice::kivType().isA(Device::kivType()));
  EXPECT_FALSE(Device::kivType().isA(FastDevice::kivType()));
}

TEST(Module, TypesAreKnownWhileItLives) {
  EXPECT_EQ(Kiv::typeByName("Test::Device"), nullptr);
  {
    const Kiv::Module module("test", {&Device::kivType()});
    const Kiv::Type* type = Kiv::typeByName("Test::Device");
    ASSERT_EQ(type, &Device::kivType());
    const auto built = Kiv::ptrCast<Device>(type->construct({"d7"}));
    ASSERT_TRUE(built);
    EXPECT_EQ(built->name(), "d7");
  }
  EXPECT_EQ(Kiv::typeByName("Test::Device"), nullptr);
}

TEST(Module, RefusesATypeNameThatIsTaken) {
  static const Kiv::Type impostor = Kiv::TypeBuilder<Device>("Test::Device").build();
  const Kiv::Module module("first", {&Device::kivType()});
  EXPECT_THAT(errorOf([] { const Kiv::Module second("second", {&impostor}); }), HasSubstr("module second"));
  EXPECT_EQ(Kiv::typeByName("Test::Device"), &Device::kivType());
}

TEST(Type, ConstructionNeedsAllArgumentsAndAFactory) {
  EXPECT_THAT(errorOf([] { Device::kivType().construct({}); }),
              HasSubstr("built from 1 arguments (name), not 0"));
  EXPECT_THAT(errorOf([] { FastDevice::kivType().construct({}); }), HasSubstr("cannot be built by name"));
}

}  // namespace
