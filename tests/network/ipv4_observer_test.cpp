#include "tq/network/ipv4_observer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <bit>
#include <cstring>

#include "network/store_fixture.h"
#include "tq/platform/base/exception.h"

using namespace tq;
using tq::test::StoreFixture;

TEST(IPv4Address, ParsesExactlyAsInetPton) {
  const char* cases[] = {"0.0.0.0", "255.255.255.255", "192.168.1.20", "1.2.3.4", "abc", "", "1.2.3", "1.2.3.4.",
                         "1.2.3.4.5", "01.2.3.4", "1.2.3.00", "1.2.3.256", " 1.2.3.4", "1.2.3.4 ", "1..2.3",
                         ".1.2.3", "0x1.2.3.4", "1.2.3.-4", "+1.2.3.4", "999.1.1.1", "1.2.3.4/8", "127.1"};
  for (const char* text : cases) {
    unsigned char expected[4] = {};
    const bool ok = inet_pton(AF_INET, text, expected) == 1;
    auto parsed = parseIPv4Address(String::fromUTF8(text));
    ASSERT_EQ(parsed.has_value(), ok) << text;
    if (ok) {
      EXPECT_EQ(std::memcmp(parsed->data(), expected, 4), 0) << text;
    }
  }
  // The text ends at its first NUL, as a C string does.
  EXPECT_TRUE(parseIPv4Address(String(std::u16string_view(u"1.2.3.4\0junk", 12))).has_value());
  EXPECT_FALSE(parseIPv4Address(String(u"1.2.3.\u0664")).has_value()) << "only ASCII digits";
}

TEST(IPv4Address, ClassificationDependsOnTheLastOctetOnLittleEndianHosts) {
  if constexpr (std::endian::native != std::endian::little) GTEST_SKIP() << "little-endian behaviour";
  auto observer = IPv4Observer::initWithStore(nullptr);
  // The last octet alone decides: 0 is Private, 1 to 15 Reserved, the rest Public.
  const std::pair<const char16_t*, const char*> cases[] = {
      {u"10.0.0.0", "Private"}, {u"127.0.0.1", "Reserved"}, {u"1.2.3.15", "Reserved"},
      {u"1.2.3.16", "Public"},  {u"169.254.10.255", "Public"}};
  for (const auto& [address, label] : cases) {
    EXPECT_EQ(observer->typeOfIP(address).UTF8String(), label) << String(address).UTF8String();
  }
}

TEST(IPv4Address, UnparsableAddressRaisesThroughTheAssertionHandler) {
  auto observer = IPv4Observer::initWithStore(nullptr);
  for (const char16_t* bad : {u"abc", u"", u"1.2.3"}) {
    try {
      observer->typeOfIP(bad);
      ADD_FAILURE() << "no exception for " << String(bad).UTF8String();
    } catch (const Exception& e) {
      EXPECT_EQ(e.name(), String(NSInternalInconsistencyException));
      const Value line = e.userInfo().objectForKey(u"line");
      EXPECT_GT(line.integerValue(), 0);
      EXPECT_EQ(e.userInfo(), (Dictionary{{u"description", u"Unable to parse given IP address."}, {u"method", u"typeOfIP:"},
                                          {u"class", u"IPv4Observer"}, {u"file", u"ipv4_observer.cpp"}, {u"line", line}}));
    }
  }
  EXPECT_EQ(String(IP_APP_NAME), String(u"Internet Connect.app"));
  // Without a bundle identifier the store connection goes by the program's name.
  EXPECT_EQ(storeConnectionName(), String(u"ipv4_observer_test"));
}

class IPv4ObserverTest : public StoreFixture {};

TEST_F(IPv4ObserverTest, PrimaryAddressIsTheFirstAddressOfThePrimaryInterface) {
  auto wrapper = makeWrapper();
  auto observer = IPv4Observer::initWithStore(wrapper);
  EXPECT_EQ(wrapper->watchedKeys(), std::vector<String>{u"State:/Network/Global/IPv4"});
  EXPECT_TRUE(observer->getPrimaryIP().isNil()) << "no global state";
  store->setValue(u"State:/Network/Global/IPv4", Dictionary{{u"Router", u"10.0.0.1"}});
  EXPECT_TRUE(observer->getPrimaryIP().isNil()) << "no primary interface";
  store->setValue(u"State:/Network/Global/IPv4", Dictionary{{u"PrimaryInterface", u"eth0"}});
  EXPECT_TRUE(observer->getPrimaryIP().isNil()) << "no IPv4 entry for it";
  store->setValue(u"State:/Network/Interface/eth0/IPv4", Dictionary{{u"Addresses", Array::empty()}});
  EXPECT_TRUE(observer->getPrimaryIP().isNil()) << "empty Addresses";
  store->setValue(u"State:/Network/Interface/eth0/IPv4",
                  Dictionary{{u"Addresses", Array{String(u"192.168.1.20"), String(u"10.0.0.7")}}});
  EXPECT_EQ(observer->getPrimaryIP(), String(u"192.168.1.20"));
  EXPECT_EQ(observer->statusChange(u"State:/Network/Global/IPv4"), String(u"192.168.1.20"));
  for (int i = 0; i < 3; ++i) observer->sleep();
  EXPECT_EQ(observer->getPrimaryIP(), String(u"192.168.1.20"));
}

