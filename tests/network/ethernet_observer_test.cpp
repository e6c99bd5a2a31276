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
      {0x00000014, "Unknown"},
      {0x00000002, "Unknown"},
      {0x08000000, "Unknown <hw-loopback>"},
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
};

// One script per row, each on a service and interface of its own: the link's state when the
// observer is made, then reports ("up" and "down", each differing from the last so that the store
// reports it even when the flag stays; "no flag": a value without "Active"; "gone": no value) or
// "sleep"; and the names posted. The host keeps no reference to the observer.
TEST_F(EthernetObserverTest, ScriptsOfLinkReports) {
  const std::string on = "EthernetActivatedNotification", off = "EthernetDeactivatedNotification";
  const struct {
    const char* name;
    bool before;
    std::vector<std::string> steps;
    std::vector<std::string> posts;
  } scripts[] = {
      {"down, down, up, up, down", false, {"down", "down", "up", "up", "down"}, {on, off}},
      {"made active, a value without the flag, no value", true, {"up", "no flag", "up", "gone"}, {off, on, off}},
      {"sleep posts nothing; the next active report posts", true, {"sleep", "up"}, {on}},
  };
  int n = 0, seq = 0;
  for (const auto& script : scripts) {
    SCOPED_TRACE(script.name);
    const std::string name = "eth" + std::to_string(++n), service = "svc-" + name;
    const String link = String::fromUTF8("State:/Network/Interface/" + name + "/Link");
    store->setValue(String::fromUTF8("Setup:/Network/Service/" + service + "/Interface"),
                    Dictionary{{u"DeviceName", String::fromUTF8(name)}});
    store->setValue(link, Dictionary{{u"Active", script.before}});
    std::weak_ptr<EthernetObserver> observer =
        EthernetObserver::initWithService(String::fromUTF8(service), makeWrapper(), nullptr);
    ASSERT_FALSE(observer.expired());
    EXPECT_EQ(observer.lock()->interface(), String::fromUTF8(name));
    EXPECT_EQ(observer.lock()->dynStore()->watchedKeys(), std::vector<String>{link});
    EXPECT_EQ(observer.lock()->currentActive(), script.before);
    for (const std::string& step : script.steps) {
      if (step == "sleep") observer.lock()->sleep();
      else if (step == "no flag") store->setValue(link, Dictionary{{u"Other", 1}});
      else if (step == "gone") store->removeValue(link);
      else store->setValue(link, Dictionary{{u"Active", step == "up"}, {u"Seq", ++seq}});
      deliver();
    }
    for (const auto& p : posted) {
      EXPECT_EQ(p.userInfo, (Dictionary{{u"interface", String::fromUTF8(name)}}));
      EXPECT_FALSE(p.hasSender);
    }
    EXPECT_EQ(takeNames(), script.posts);
  }
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
    EXPECT_TRUE(observer->media().isNil()) << "no interface, no media, and no exception";
  }
  store->setValue(u"State:/Network/Interface/eth0/Link", Dictionary{{u"Active", true}});
  deliver();
  EXPECT_TRUE(posted.empty());
}
