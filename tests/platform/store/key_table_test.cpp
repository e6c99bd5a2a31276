// The key table's own promises that the store's tests cannot reach: slots that stay where they are
// while the table grows, keys found by their text, and lazy values owed like changes. (What a round
// reports is checked against the kernel by the differential test, and its order by the store's test.)
#include <gtest/gtest.h>

#include <string>

#include "key_table.h"

using namespace tq;
using store::KeyTable;
using store::Slot;

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
