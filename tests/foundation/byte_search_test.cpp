// Every search kernel the CPU runs, and Two-Way alone, against the plain forward scan.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "tq/foundation/byte_search.h"

using namespace tq;

namespace {

UInteger naive(const std::string& h, const std::string& p) {
  if (p.empty()) return 0;
  if (p.size() > h.size()) return NotFound;
  for (std::size_t at = 0; at + p.size() <= h.size(); ++at) {
    if (std::memcmp(h.data() + at, p.data(), p.size()) == 0) return at;
  }
  return NotFound;
}

void expectAllAgree(const std::string& h, const std::string& p, const char* what) {
  UInteger want = naive(h, p);
  EXPECT_EQ(findBytesTwoWay(h.data(), h.size(), p.data(), p.size()), want)
      << what << " two-way, n=" << h.size() << " m=" << p.size();
  for (InstructionSet isa : supportedInstructionSets()) {
    EXPECT_EQ(findBytes(h.data(), h.size(), p.data(), p.size(), isa), want)
        << what << " " << instructionSetName(isa) << ", n=" << h.size() << " m=" << p.size();
  }
  EXPECT_EQ(findBytes(h.data(), h.size(), p.data(), p.size()), want);
}

std::string randomString(std::mt19937& rng, std::size_t n, unsigned alphabet) {
  std::string s(n, '\0');
  for (auto& c : s) c = static_cast<char>('a' + rng() % alphabet);
  return s;
}

}  // namespace

TEST(ByteSearch, EdgeCases) {
  expectAllAgree("", "", "empty in empty");
  expectAllAgree("abc", "", "empty pattern");
  expectAllAgree("", "a", "in empty");
  expectAllAgree("ab", "abc", "longer pattern");
  expectAllAgree("abcbc", "bc", "first occurrence");
  expectAllAgree(std::string(100, 'a') + "b", std::string(64, 'a') + "b", "match at the very end");
  expectAllAgree(std::string("\0\xff\0", 3) + std::string(80, '\xff'), std::string("\xff\0", 2), "high bytes");
}

TEST(ByteSearch, RandomTextOverSmallAlphabets) {
  // Small alphabets make partial matches, periodic patterns and matches near block edges common.
  std::mt19937 rng(42);
  for (int round = 0; round < 3000; ++round) {
    unsigned alphabet = 1 + rng() % 4;
    std::string h = randomString(rng, rng() % 200, alphabet);
    std::string p;
    if (!h.empty() && rng() % 2) {
      std::size_t at = rng() % h.size();
      p = h.substr(at, 1 + rng() % 40);  // present at least once
    } else {
      p = randomString(rng, 1 + rng() % 12, alphabet);
    }
    expectAllAgree(h, p, "random");
  }
}

TEST(ByteSearch, AdversarialPeriodicTextSwitchesToTwoWayAndStaysExact) {
  // Every offset passes the first/last filter and fails late, which exhausts the verification
  // budget; the answers must not change when the search switches algorithm.
  for (std::size_t m : {3u, 8u, 33u, 64u, 257u}) {
    std::string p = std::string(m / 2, 'a') + "b" + std::string(m - m / 2 - 1, 'a');
    std::string h(200000, 'a');
    expectAllAgree(h, p, "not present");
    h.replace(150001, p.size(), p);
    expectAllAgree(h, p, "present late");
    expectAllAgree(h, std::string(m - 1, 'a') + "b", "a^(m-1) b");
  }
  // Periodic patterns whose period the Two-Way memory must track.
  std::string h;
  for (int i = 0; i < 5000; ++i) h += "abaabaab";
  expectAllAgree(h, "abaabaabaabaaba", "periodic");
  expectAllAgree(h + "abaabaabaab", "baabaabaabaabab", "periodic absent");
}
