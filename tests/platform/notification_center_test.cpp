#include "tq/platform/base/notification_center.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace tq;

namespace {

struct Sender : Object {};

struct Listener {
  std::vector<std::string> seen;
  void got(const Notification& n) { seen.push_back(n.name().UTF8String()); }
};

}  // namespace

TEST(NotificationCenter, BlocksMatchByNameAndSender) {
  NotificationCenter center;
  auto s1 = std::make_shared<Sender>(), s2 = std::make_shared<Sender>();
  std::vector<std::string> log;
  auto byName = center.addObserverForName(u"N", nullptr, [&](const Notification& n) {
    log.push_back("name:" + n.name().UTF8String() + ":" + n.userInfo().objectForKey(u"k").stringValue().UTF8String());
  });
  auto bySender = center.addObserverForName(String(), s1, [&](const Notification& n) {
    log.push_back("sender:" + n.name().UTF8String());
    EXPECT_EQ(n.object(), s1);
  });
  auto both = center.addObserverForName(u"N", s2, [&](const Notification&) { log.push_back("both"); });

  center.postNotificationName(u"N", nullptr, Dictionary{{u"k", u"v"}});
  center.postNotificationName(u"M", s1);
  center.postNotificationName(u"N", s2, Dictionary{{u"k", u"w"}});
  center.postNotificationName(u"M", s2);
  EXPECT_EQ(log, (std::vector<std::string>{"name:N:v", "sender:M", "name:N:w", "both"}));

  log.clear();
  center.removeObserver(byName);
  center.removeObserver(bySender);
  center.postNotificationName(u"N", s1);
  center.postNotificationName(u"N", s2);
  EXPECT_EQ(log, std::vector<std::string>{"both"});
}

TEST(NotificationCenter, TargetsAreHeldWeaklyAndRemovedByTarget) {
  NotificationCenter center;
  auto a = std::make_shared<Listener>();
  auto b = std::make_shared<Listener>();
  center.addObserver(a, &Listener::got, u"X");
  center.addObserver(a, &Listener::got, u"Y");
  center.addObserver(b, &Listener::got, String());
  std::weak_ptr<Listener> weakB = b;
  center.postNotificationName(u"X", nullptr);
  EXPECT_EQ(a->seen, std::vector<std::string>{"X"});
  EXPECT_EQ(b->seen, std::vector<std::string>{"X"});

  b.reset();
  EXPECT_TRUE(weakB.expired()) << "the centre does not keep targets alive";
  center.postNotificationName(u"Y", nullptr);  // must not touch the dead target
  center.removeObserver(a.get(), u"X", nullptr);
  center.postNotificationName(u"X", nullptr);
  center.postNotificationName(u"Y", nullptr);
  EXPECT_EQ(a->seen, (std::vector<std::string>{"X", "Y", "Y"}));
  center.removeObserver(a);
  center.postNotificationName(u"Y", nullptr);
  EXPECT_EQ(a->seen.size(), 3u);
}

TEST(NotificationCenter, ObserversMayRemoveThemselvesAndOthersDuringAPost) {
  NotificationCenter center;
  std::vector<std::string> log;
  NotificationToken first, second, third;
  first = center.addObserverForName(u"N", nullptr, [&](const Notification&) {
    log.push_back("first");
    center.removeObserver(first);   // itself
    center.removeObserver(third);   // one not yet called in this post
    center.addObserverForName(u"N", nullptr, [&](const Notification&) { log.push_back("added"); });
  });
  second = center.addObserverForName(u"N", nullptr, [&](const Notification&) { log.push_back("second"); });
  third = center.addObserverForName(u"N", nullptr, [&](const Notification&) { log.push_back("third"); });
  center.postNotificationName(u"N", nullptr);
  EXPECT_EQ(log, (std::vector<std::string>{"first", "second"}));
  log.clear();
  center.postNotificationName(u"N", nullptr);
  EXPECT_EQ(log, (std::vector<std::string>{"second", "added"}));
}

TEST(NotificationCenter, DeliversOnThePostingThreadBeforeReturning) {
  auto& center = NotificationCenter::defaultCenter();
  EXPECT_EQ(&center, &NotificationCenter::defaultCenter());
  std::thread::id deliveredOn;
  auto token = center.addObserverForName(u"ThreadTestNotification", nullptr,
                                         [&](const Notification&) { deliveredOn = std::this_thread::get_id(); });
  std::thread::id poster;
  std::thread t([&] {
    poster = std::this_thread::get_id();
    center.postNotificationName(u"ThreadTestNotification", nullptr);
    EXPECT_EQ(deliveredOn, poster);
  });
  t.join();
  center.removeObserver(token);
  EXPECT_EQ(deliveredOn, poster);
}

TEST(NotificationCenter, PostsWhileAnotherThreadRegistersAndRemoves) {
  // Every post reaches the one lasting observer exactly once, however the list changes meanwhile.
  NotificationCenter center;
  std::atomic<int> calls{0};
  center.addObserverForName(u"N", nullptr, [&](const Notification&) { ++calls; });
  std::atomic<bool> done{false};
  std::thread churn([&] {
    while (!done) {
      auto token = center.addObserverForName(u"Other", nullptr, [](const Notification&) {});
      center.removeObserver(token);
    }
  });
  const String name(u"N");
  for (int i = 0; i < 20000; ++i) center.postNotificationName(name, nullptr);
  done = true;
  churn.join();
  EXPECT_EQ(calls.load(), 20000);
}
