// The address list under churn, against a literal model of the kernel's order for addresses of one
// scope: primaries first, then secondaries, each in the order they came.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "address_list.h"

using tq::store::Address;
using tq::store::AddressList;

namespace {

Address make(uint32_t n) {
  Address a;
  a.local = a.address = 0x0A000000u + n * 7919u;  // spread over the space, some sharing low bits
  a.prefix = static_cast<uint8_t>(8 + n % 3);
  a.secondary = n % 4 != 0;
  return a;
}

std::vector<uint32_t> order(const AddressList& list) {
  std::vector<uint32_t> out;
  for (const Address& a : list.addresses()) out.push_back(a.local);
  return out;
}

}  // namespace

TEST(AddressList, KeepsTheKernelsOrderThroughHeavyChurn) {
  AddressList list;
  std::vector<uint32_t> primaries, secondaries;  // the model
  std::mt19937 random(3);
  for (int step = 0; step < 60000; ++step) {
    // The universe grows and shrinks, so the index grows and empties many times over.
    uint32_t universe = 1 + static_cast<uint32_t>((step / 5000) % 4) * 700;
    Address a = make(static_cast<uint32_t>(random() % universe));
    auto& side = a.secondary ? secondaries : primaries;
    auto at = std::find(side.begin(), side.end(), a.local);
    bool present = at != side.end();
    if (random() % 2) {
      ASSERT_EQ(list.add(a, false), !present) << "step " << step;
      if (!present) side.push_back(a.local);
    } else {
      ASSERT_EQ(list.remove(a), present) << "step " << step;
      if (present) side.erase(at);
    }
    if (step % 97 == 0) {
      std::vector<uint32_t> expected = primaries;
      expected.insert(expected.end(), secondaries.begin(), secondaries.end());
      ASSERT_EQ(order(list), expected) << "step " << step;
      ASSERT_EQ(list.size(), expected.size());
    }
  }
}

TEST(AddressList, ADumpReplacesTheListAndComparesByWhatTheKernelSays) {
  AddressList list;
  std::vector<Address> dump;
  for (uint32_t n = 0; n < 3000; ++n) dump.push_back(make(n));
  list.assign(dump.data(), dump.size());
  EXPECT_TRUE(list.sameAs(dump.data(), dump.size()));
  for (const Address& a : dump) EXPECT_TRUE(list.hasLocal(a.local));
  dump[1500].hasBroadcast = true;
  EXPECT_FALSE(list.sameAs(dump.data(), dump.size())) << "a broadcast address differs";
  EXPECT_FALSE(list.sameAs(dump.data(), dump.size() - 1));
  for (uint32_t n = 0; n < 3000; n += 2) EXPECT_TRUE(list.remove(make(n)));
  EXPECT_EQ(list.size(), 1500u);
  EXPECT_FALSE(list.hasLocal(make(0).local));
  list.assign(dump.data(), 10);
  EXPECT_EQ(list.size(), 10u);
  EXPECT_FALSE(list.add(dump[3], false)) << "known, unchanged";
}
