// The key table's rounds against a literal model: a batch names the watched keys whose value at its
// end differs from their value when the round began, in the order each first changed.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "key_table.h"

using namespace tq;
using store::KeyTable;
using store::Slot;

namespace {

std::string text(const String& s) { return s.UTF8String(); }

// Owner's side of a round: what the batch names, then the next round.
std::vector<std::string> batch(KeyTable& table) {
  std::vector<std::string> out;
  for (Slot* s : table.owed())
    if (table.watched(*s) && s->value != s->before) out.push_back(text(s->key));
  table.endRound();
  return out;
}

struct Model {
  std::map<std::string, Value> start, now;
  std::vector<std::string> order;

  void set(const std::string& k, const Value& v) {
    if (now[k] == v) return;
    if (std::find(order.begin(), order.end(), k) == order.end()) order.push_back(k);
    now[k] = v;
  }
  std::vector<std::string> batch(bool (*watched)(const std::string&)) {
    std::vector<std::string> out;
    for (auto& k : order)
      if (watched(k) && !(now[k] == start[k])) out.push_back(k);
    order.clear();
    start = now;
    return out;
  }
};

bool watchedInTest(const std::string& k) { return k != "k3" && k.rfind("w", 0) != 0; }

}  // namespace

TEST(KeyTable, BatchesMatchALiteralModelOfRounds) {
  KeyTable table;
  std::vector<std::unique_ptr<KeyPattern>> patterns;
  patterns.push_back(KeyPattern::compile(u"k.*"));
  table.watch({u"x0", u"x1", u"x2"}, std::move(patterns));
  table.watch({u"x0", u"x1", u"x2", u"k3"}, {});  // replaced whole: the pattern goes
  std::vector<std::unique_ptr<KeyPattern>> again;
  again.push_back(KeyPattern::compile(u"(k[0-24-9]|x.*)"));
  table.watch({}, std::move(again));

  std::mt19937 random(7);
  Model model;
  std::map<std::string, Slot*> held;  // the slots an owner holds
  const std::vector<std::string> names = {"k0", "k1", "k2", "k3", "k4", "x0", "x1", "w0"};
  for (int step = 0; step < 20000; ++step) {
    const std::string& k = names[random() % names.size()];
    int what = static_cast<int>(random() % 10);
    if (what < 6) {
      if (!held.count(k)) held[k] = &table.attach(String::fromUTF8(k).view());
      Value v = random() % 4 == 0 ? Value() : Value(static_cast<int>(random() % 3));
      table.set(*held[k], v);
      model.set(k, v);
    } else if (what < 8) {
      if (!held.count(k)) continue;
      table.detach(*held[k]);
      held.erase(k);
      model.set(k, Value());
    } else {
      ASSERT_EQ(batch(table), model.batch(watchedInTest)) << "step " << step;
      // Slots nobody holds and with no value are gone; the others read as the model says.
      for (auto& n : names) {
        Slot* s = table.find(String::fromUTF8(n).view());
        if (!held.count(n) && model.now[n].isNil()) {
          EXPECT_EQ(s, nullptr) << n;
        } else {
          ASSERT_NE(s, nullptr) << n;
          EXPECT_EQ(s->value, model.now[n]) << n;
        }
      }
    }
  }
}

TEST(KeyTable, SlotsKeepTheirPlaceAndLazyValuesAreOwedLikeChanges) {
  KeyTable table;
  table.watch({}, {});
  Slot& first = table.attach(u"first");
  table.set(first, Value(1));
  for (int i = 0; i < 5000; ++i) table.attach(String::fromUTF8("key " + std::to_string(i)).view());
  EXPECT_EQ(table.find(u"first"), &first) << "a slot stays where it is while the table grows";
  EXPECT_EQ(table.heldCount(), 1u) << "slots with no value are not held keys";
  table.endRound();

  table.setLazy(first, 7);
  ASSERT_EQ(table.owed().size(), 1u);
  EXPECT_EQ(table.owed()[0]->before, Value(1));
  EXPECT_TRUE(first.hasValue());
  table.setLazy(first, 0);
  EXPECT_FALSE(first.hasValue()) << "a lazy slot of no link has no value";
  EXPECT_EQ(table.owed().size(), 1u) << "owed once per round";
}
