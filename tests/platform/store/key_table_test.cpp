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
    if (table.watched(*s) && s->value != s->before) out.push_back(text(table.keyOf(*s)));
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

const char* const kParts[] = {"Setup:/Network/Service/%/Interface", "State:/Network/Interface/%/Link",
                              "State:/Network/Interface/%/IPv4", "State:/Network/Interface/%/AirPort"};

std::string keyOf(const std::string& name, int part) {
  std::string k = kParts[part];
  return k.replace(k.find('%'), 1, name);
}

bool watchedInTest(const std::string& k) {
  return k.rfind("State:/Network/Interface/n0/", 0) == 0 || k.rfind("State:/Network/Interface/n1/", 0) == 0 ||
         k == "Setup:/Network/Service/n2/Interface" || k == "State:/Network/Global/IPv4";
}

}  // namespace

TEST(KeyTable, BatchesMatchALiteralModelOfRounds) {
  KeyTable table;
  std::vector<std::unique_ptr<KeyPattern>> patterns;
  patterns.push_back(KeyPattern::compile(u".*"));
  table.watch({}, std::move(patterns));
  std::vector<std::unique_ptr<KeyPattern>> again;  // replaced whole: the first pattern goes
  again.push_back(KeyPattern::compile(u"State:/Network/Interface/n[01]/.*"));
  table.watch({u"Setup:/Network/Service/n2/Interface", u"State:/Network/Global/IPv4"}, std::move(again));
  Slot& global = table.fixed(u"State:/Network/Global/IPv4");

  std::mt19937 random(7);
  const std::vector<Value> choices = {Value(), Value(0), Value(1), Value(2)};
  Model model;
  std::map<std::string, store::Group*> held;  // the names an owner holds
  const std::vector<std::string> names = {"n0", "n1", "n2", "n3"};
  for (int step = 0; step < 20000; ++step) {
    const std::string& n = names[random() % names.size()];
    const Value& v = choices[random() % choices.size()];
    int what = static_cast<int>(random() % 12);
    if (what < 7) {
      if (!held.count(n)) held[n] = &table.attach(String::fromUTF8(n).view());
      int part = static_cast<int>(random() % 4);
      table.set((*held[n])[static_cast<store::Part>(part)], v);
      model.set(keyOf(n, part), v);
    } else if (what < 8) {
      table.set(global, v);
      model.set("State:/Network/Global/IPv4", v);
    } else if (what < 10) {
      if (!held.count(n)) continue;
      table.detach(*held[n]);
      held.erase(n);
      for (int part = 0; part < 4; ++part) model.set(keyOf(n, part), Value());
    } else {
      ASSERT_EQ(batch(table), model.batch(watchedInTest)) << "step " << step;
      // A name nobody holds whose keys have no value is gone; the other keys read as the model says.
      for (auto& name : names) {
        bool any = false;
        for (int part = 0; part < 4; ++part) any |= !model.now[keyOf(name, part)].isNil();
        for (int part = 0; part < 4; ++part) {
          Slot* s = table.find(String::fromUTF8(keyOf(name, part)).view());
          if (!held.count(name) && !any) {
            EXPECT_EQ(s, nullptr) << keyOf(name, part);
          } else {
            ASSERT_NE(s, nullptr) << keyOf(name, part);
            EXPECT_EQ(s->value, model.now[keyOf(name, part)]) << keyOf(name, part);
          }
        }
      }
    }
  }
}

TEST(KeyTable, KeysFoundByTheirTextAndLazyValuesOwedLikeChanges) {
  KeyTable table;
  store::Group& first = table.attach(u"eth0");
  table.set(first[store::Part::IPv4], Value(1));
  for (int i = 0; i < 5000; ++i) table.attach(String::fromUTF8("veth" + std::to_string(i)).view());
  EXPECT_EQ(table.find(u"State:/Network/Interface/eth0/IPv4"), &first[store::Part::IPv4])
      << "a slot stays where it is while the table grows";
  EXPECT_EQ(table.find(u"Setup:/Network/Service/eth0/Interface"), &first[store::Part::Setup]);
  for (const char16_t* missing : {u"State:/Network/Interface/eth0", u"State:/Network/Interface//IPv4",
                                  u"State:/Network/Interface/eth0/Other", u"Setup:/Network/Service/eth0/Link",
                                  u"State:/Network/Interface/eth/0/IPv4"})
    EXPECT_EQ(table.find(missing), nullptr) << String(missing);
  EXPECT_EQ(table.heldCount(), 1u) << "slots with no value are not held keys";
  table.endRound();

  Slot& ipv4 = first[store::Part::IPv4];
  table.setLazy(ipv4, 7);
  ASSERT_EQ(table.owed().size(), 1u);
  EXPECT_EQ(table.owed()[0]->before, Value(1));
  EXPECT_TRUE(ipv4.hasValue());
  table.setLazy(ipv4, 0);
  EXPECT_FALSE(ipv4.hasValue()) << "a lazy slot of no link has no value";
  EXPECT_EQ(table.owed().size(), 1u) << "owed once per round";
  EXPECT_EQ(table.keyOf(ipv4), String(u"State:/Network/Interface/eth0/IPv4"));
}
