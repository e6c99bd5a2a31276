// Every kernel the CPU runs against the scalar one (and the scalar one against a reference), on
// random and adversarial inputs.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tq/foundation/hex_codec.h"

using namespace tq;

namespace {

// The textbook parse: the result bytes, or false for bad text.
bool referenceDecode(const std::string& text, std::vector<uint8_t>& out) {
  out.clear();
  int high = -1;
  for (unsigned char c : text) {
    int v;
    if (c >= '0' && c <= '9') v = c - '0';
    else if (c >= 'a' && c <= 'f') v = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F') v = c - 'A' + 10;
    else if (c == ' ' || (c >= 9 && c <= 13)) continue;
    else return false;
    if (high < 0) {
      high = v;
    } else {
      out.push_back(static_cast<uint8_t>(high << 4 | v));
      high = -1;
    }
  }
  return high < 0 && !out.empty();
}

struct Decoded {
  bool ok;
  std::vector<uint8_t> bytes;
  bool operator==(const Decoded&) const = default;
};

// A whole text through one kernel, fed in pieces of `piece` characters; judged like the parse.
Decoded decodeWith(const std::string& text, InstructionSet isa, std::size_t piece) {
  std::vector<uint8_t> out(text.size() / 2 + 2);
  HexDecodeState st;
  std::size_t total = 0;
  for (std::size_t at = 0; at < text.size() || at == 0; at += piece) {
    std::size_t len = std::min(piece, text.size() - at);
    UInteger produced = 0;
    if (!hexDecode(text.data() + at, len, out.data() + total, &produced, st, isa)) return {false, {}};
    total += produced;
    if (text.empty()) break;
  }
  out.resize(total);
  if (st.pending || total == 0) return {false, {}};
  return {true, out};
}

Decoded decodeUTF16With(const std::u16string& text, InstructionSet isa) {
  std::vector<uint8_t> out(text.size() / 2 + 2);
  HexDecodeState st;
  UInteger produced = 0;
  if (!hexDecodeUTF16(text.data(), text.size(), out.data(), &produced, st, isa) || st.pending || !produced) {
    return {false, {}};
  }
  out.resize(produced);
  return {true, out};
}

// Random text from an alphabet weighted towards digits, with white space of every kind and now and
// then a bad character.
std::string randomText(std::mt19937& rng, std::size_t n, int spacePercent, int badPerMille) {
  static const char digits[] = "0123456789abcdefABCDEF";
  static const char spaces[] = " \t\n\v\f\r";
  static const char bad[] = "gGxz/:@`\x7f\x80\xff\x00\x08\x0e\x1f!";
  std::string s;
  for (std::size_t i = 0; i < n; ++i) {
    unsigned r = rng() % 1000;
    if (r < static_cast<unsigned>(badPerMille)) s.push_back(bad[rng() % (sizeof bad - 1)]);
    else if (r % 100 < static_cast<unsigned>(spacePercent)) s.push_back(spaces[rng() % 6]);
    else s.push_back(digits[rng() % 22]);
  }
  return s;
}

}  // namespace

TEST(HexCodec, EveryEncoderMatchesTheTable) {
  std::mt19937 rng(7);
  for (std::size_t n : {0u, 1u, 15u, 16u, 17u, 31u, 32u, 33u, 63u, 64u, 95u, 1000u, 4099u}) {
    std::vector<uint8_t> bytes(n);
    for (auto& b : bytes) b = static_cast<uint8_t>(rng());
    std::string expected;
    for (uint8_t b : bytes) {
      expected.push_back(HexDigitAlphabet[b >> 4]);
      expected.push_back(HexDigitAlphabet[b & 15]);
    }
    for (InstructionSet isa : supportedInstructionSets()) {
      std::string ascii(2 * n + 1, '#');
      hexEncode(bytes.data(), n, ascii.data(), isa);
      EXPECT_EQ(ascii.back(), '#') << "wrote past the end";
      ascii.pop_back();
      EXPECT_EQ(ascii, expected) << instructionSetName(isa) << " n=" << n;
      std::u16string wide(2 * n + 1, u'#');
      hexEncodeUTF16(bytes.data(), n, wide.data(), isa);
      EXPECT_EQ(wide.back(), u'#');
      wide.pop_back();
      EXPECT_EQ(wide, std::u16string(expected.begin(), expected.end())) << instructionSetName(isa) << " n=" << n;
    }
  }
}

TEST(HexCodec, EveryDecoderAgreesWithTheReferenceOnRandomText) {
  std::mt19937 rng(11);
  for (int round = 0; round < 400; ++round) {
    std::size_t n = rng() % 300;
    int spacePercent = std::vector<int>{0, 0, 3, 30, 60}[round % 5];
    int badPerMille = round % 4 == 0 ? 3 : 0;
    std::string text = randomText(rng, n, spacePercent, badPerMille);
    std::vector<uint8_t> expected;
    Decoded want{referenceDecode(text, expected), {}};
    if (want.ok) want.bytes = expected;
    for (InstructionSet isa : supportedInstructionSets()) {
      EXPECT_EQ(decodeWith(text, isa, text.size() + 1), want) << instructionSetName(isa) << " [" << text << "]";
      // Split into pieces, so digit pairs straddle the boundaries.
      EXPECT_EQ(decodeWith(text, isa, 1 + rng() % 40), want) << instructionSetName(isa) << " pieces";
      std::u16string wide(text.begin(), text.end());
      for (auto& c : wide) c = static_cast<unsigned char>(c);
      EXPECT_EQ(decodeUTF16With(wide, isa), want) << instructionSetName(isa) << " UTF-16";
    }
  }
}

TEST(HexCodec, DecodersRejectEveryNonAsciiUnitAtEveryPosition) {
  // Units that narrow to a digit or to white space under a careless conversion.
  const std::vector<char16_t> traps = {0x0130, 0x0161, 0x0120, 0x010a, 0x8030, 0xff10, 0x0080, 0x00a0, 0x3000};
  std::u16string base(70, u'a');
  for (InstructionSet isa : supportedInstructionSets()) {
    for (std::size_t at = 0; at < base.size(); ++at) {
      for (char16_t trap : traps) {
        std::u16string t = base;
        t[at] = trap;
        t.push_back(u'a');  // keep the digit count even without the trap
        EXPECT_FALSE(decodeUTF16With(t, isa).ok) << instructionSetName(isa) << " at " << at << " unit " << int(trap);
      }
    }
  }
}
