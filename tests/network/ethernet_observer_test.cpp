#include "tq/network/ethernet_observer.h"

#include <gtest/gtest.h>

#include "network/store_fixture.h"
#include "tq/platform/base/exception.h"

using namespace tq;
using tq::test::StoreFixture;

namespace {

class FakeMedia : public MediaSource {
 public:
  Result answer;
  std::vector<std::string> asked;
  Result queryMedia(const String& name) override {
    asked.push_back(name.UTF8String());
    return answer;
  }
};

std::string reasonOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const Exception& e) {
    std::string where;
    for (const char16_t* key : {u"class", u"file", u"method"}) {
      if (const Value& v = e.userInfo().objectForKey(key); !v.isNil()) where += "|" + v.stringValue().UTF8String();
    }
    return e.userInfo().objectForKey(u"description").stringValue().UTF8String() + where;
  }
  return "(no exception)";
}

}  // namespace

TEST(EthernetMedia, WordsDecodeToSubtypeAndOptions) {
  const std::pair<uint32_t, const char*> cases[] = {
      {0x00500006, "100baseTX <full-duplex,flow-control>"},
      {0x00000010, "1000baseT"},
      {0x00000014, "Unknown"},
      {0x00000000, "Unknown"},
      {0x00000002, "Unknown"},
      {0x08000000, "Unknown <hw-loopback>"},
      {0x00300003, "10baseT/UTP <full-duplex,half-duplex>"},
      {0x07000013, "10GbaseLR <flag0,flag1,flag2>"},
      {0x00100000 | 0x20 | 16, "1000baseT <full-duplex>"},  // the media-type bits are not consulted
      {0x00080011, "HomePNA1"},                            // a bit outside the option table
  };
  for (const auto& [word, text] : cases) {
    EXPECT_EQ(EthernetObserver::mediaDescription(word).UTF8String(), text) << std::hex << word;
  }
}

class EthernetObserverTest : public StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    store->setValue(u"Setup:/Network/Service/svc-1/Interface", Dictionary{{u"DeviceName", u"eth0"}});
  }
  // Each report differs from the last (a sequence number), so the store reports it even when the
  // flag stays as it was.
  void reportLink(bool active) {
    store->setValue(u"State:/Network/Interface/eth0/Link", Dictionary{{u"Active", active}, {u"Seq", ++seq_}});
    deliver();
  }
  int seq_ = 0;
};

TEST_F(EthernetObserverTest, DownDownUpUpDownPostsOneActivationThenOneDeactivation) {
  reportLink(false);
  auto observer = EthernetObserver::initWithService(u"svc-1", makeWrapper(), nullptr);
  EXPECT_EQ(observer->interface(), String(u"eth0"));
  EXPECT_EQ(observer->dynStore()->watchedKeys(), std::vector<String>{u"State:/Network/Interface/eth0/Link"});
  for (bool active : {false, false, true, true, false}) reportLink(active);
  ASSERT_EQ(posted.size(), 2u);
  EXPECT_EQ(posted[0].name, "EthernetActivatedNotification");
  EXPECT_EQ(posted[1].name, "EthernetDeactivatedNotification");
  for (const auto& p : posted) {
    EXPECT_EQ(p.userInfo, (Dictionary{{u"interface", u"eth0"}}));
    EXPECT_FALSE(p.hasSender);
  }
}

TEST_F(EthernetObserverTest, CreationPostsNothingAndRecordsTheCurrentState) {
  reportLink(true);
  auto observer = EthernetObserver::initWithService(u"svc-1", makeWrapper(), nullptr);
  EXPECT_TRUE(observer->currentActive());
  EXPECT_TRUE(posted.empty());
  reportLink(true);
  EXPECT_TRUE(posted.empty()) << "still active: no change";
  // A link value without "Active", then no value at all, both count as down.
  store->setValue(u"State:/Network/Interface/eth0/Link", Dictionary{{u"Other", 1}});
  deliver();
  EXPECT_EQ(takeNames(), std::vector<std::string>{"EthernetDeactivatedNotification"});
  reportLink(true);
  store->removeValue(u"State:/Network/Interface/eth0/Link");
  deliver();
  EXPECT_EQ(takeNames(),
            (std::vector<std::string>{"EthernetActivatedNotification", "EthernetDeactivatedNotification"}));
}

TEST_F(EthernetObserverTest, SleepMakesTheNextActiveReportPostAgain) {
  reportLink(true);
  auto observer = EthernetObserver::initWithService(u"svc-1", makeWrapper(), nullptr);
  observer->sleep();
  EXPECT_FALSE(observer->currentActive());
  EXPECT_TRUE(posted.empty()) << "sleep posts nothing";
  reportLink(true);
  EXPECT_EQ(takeNames(), std::vector<std::string>{"EthernetActivatedNotification"});
}

TEST_F(EthernetObserverTest, ObserverOutlivesTheHostsReferences) {
  std::weak_ptr<EthernetObserver> weak;
  {
    auto wrapper = makeWrapper();
    weak = EthernetObserver::initWithService(u"svc-1", wrapper, nullptr);
  }
  ASSERT_FALSE(weak.expired());
  reportLink(true);
  EXPECT_EQ(takeNames(), std::vector<std::string>{"EthernetActivatedNotification"});
}

TEST_F(EthernetObserverTest, MediaComesFromTheSourceWithTheNameChecks) {
  auto media = std::make_shared<FakeMedia>();
  auto observer = EthernetObserver::initWithService(u"svc-1", makeWrapper(), media);
  media->answer = {MediaSource::Status::Ok, 0x00500006};
  EXPECT_EQ(observer->media(), String(u"100baseTX <full-duplex,flow-control>"));
  EXPECT_EQ(media->asked, std::vector<std::string>{"eth0"});
  media->answer = {MediaSource::Status::Failed, 0};
  EXPECT_TRUE(observer->media().isNil());
  media->answer = {MediaSource::Status::NoSocket, 0};
  EXPECT_EQ(reasonOf([&] { observer->media(); }), "Can't open datagram socket|EthernetObserver|ethernet_observer.cpp|media");
  EXPECT_TRUE(EthernetObserver::initWithService(u"svc-1", makeWrapper(), nullptr)->media().isNil());
}

TEST_F(EthernetObserverTest, InterfaceNamesOverFifteenUtf8BytesRaise) {
  auto media = std::make_shared<FakeMedia>();
  media->answer = {MediaSource::Status::Ok, 16};
  store->setValue(u"Setup:/Network/Service/s15/Interface", Dictionary{{u"DeviceName", u"abcdefghijklmno"}});
  store->setValue(u"Setup:/Network/Service/s16/Interface", Dictionary{{u"DeviceName", u"abcdefghijklmnop"}});
  // Eight characters but sixteen bytes of UTF-8.
  store->setValue(u"Setup:/Network/Service/utf/Interface", Dictionary{{u"DeviceName", u"\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9"}});
  auto wrapper = makeWrapper();
  EXPECT_EQ(EthernetObserver::initWithService(u"s15", wrapper, media)->media(), String(u"1000baseT"));
  for (const char16_t* service : {u"s16", u"utf"}) {
    auto observer = EthernetObserver::initWithService(service, wrapper, media);
    EXPECT_EQ(reasonOf([&] { observer->media(); }), "Interface name too long|EthernetObserver|ethernet_observer.cpp|media");
  }
  EXPECT_EQ(media->asked.size(), 1u) << "over-long names never reach the source";
}

// A service without a set-up entry, or whose entry names no device, watches the "(null)" key.
TEST_F(EthernetObserverTest, ServiceWithoutDeviceNameWatchesTheNullKeyNeverPostsAndHasNoMedia) {
  store->setValue(u"Setup:/Network/Service/svc-2/Interface", Dictionary{{u"Hardware", u"Ethernet"}});
  for (const char16_t* service : {u"no-such-service", u"svc-2"}) {
    auto observer = EthernetObserver::initWithService(service, makeWrapper());  // the system's media source
    EXPECT_TRUE(observer->interface().isNil());
    EXPECT_EQ(observer->dynStore()->watchedKeys(), std::vector<String>{u"State:/Network/Interface/(null)/Link"});
    EXPECT_FALSE(observer->currentActive());
    reportLink(true);
    EXPECT_TRUE(posted.empty());
    EXPECT_TRUE(observer->media().isNil()) << "no interface, no media, and no exception";
  }
}
