// As the vector form has it, so that HWY_TARGETS names the same targets.
#define HWY_WANT_AVX3_DL

#include "zel/platform/text_conversion.h"

#include <iconv.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hwy/targets.h>

#include "tests/support/seed.h"
#include "zel/platform/text_kernels.h"

namespace zel::platform {
namespace {

using std::string;
using std::string_view;
using std::wstring;
using std::wstring_view;

// Guards around outputs, so that a kernel that writes beyond its room is caught without tools too.
template <class Symbol>
class Guarded {
 public:
  explicit Guarded(size_t size) : size_(size), symbols_(size + 2 * kGuards, kGuard) {}
  Symbol* data() { return symbols_.data() + kGuards; }
  std::basic_string<Symbol> text(size_t size) const {
    return std::basic_string<Symbol>(symbols_.data() + kGuards, size);
  }
  bool intact() const {
    const auto isGuard = [](Symbol symbol) { return symbol == kGuard; };
    return std::all_of(symbols_.begin(), symbols_.begin() + kGuards, isGuard) &&
           std::all_of(symbols_.begin() + static_cast<ptrdiff_t>(kGuards + size_), symbols_.end(),
                       isGuard);
  }

 private:
  static constexpr size_t kGuards = 128;
  static constexpr Symbol kGuard = Symbol{0x5A};
  size_t size_;
  std::vector<Symbol> symbols_;
};

wstring toWide(const TextKernels& kernels, string_view text) {
  // A copy of exactly its size: a read beyond is one that the address sanitizer sees.
  const std::vector<char> exact(text.begin(), text.end());
  const size_t units = kernels.utf16Length(exact.data(), exact.size());
  EXPECT_LE(units, text.size());
  Guarded<wchar_t> out(units);
  EXPECT_EQ(kernels.utf8ToUtf16(exact.data(), exact.size(), out.data()), units);
  EXPECT_TRUE(out.intact());
  return out.text(units);
}

string toNarrow(const TextKernels& kernels, wstring_view units) {
  const std::vector<wchar_t> exact(units.begin(), units.end());
  const size_t bytes = kernels.utf8Length(exact.data(), exact.size());
  EXPECT_LE(bytes, 4 * units.size());
  Guarded<char> out(bytes);
  EXPECT_EQ(kernels.utf16ToUtf8(exact.data(), exact.size(), out.data()), bytes);
  EXPECT_TRUE(out.intact());
  return out.text(bytes);
}

string printed(string_view bytes) {
  string text;
  for (const char byte : bytes) {
    char hex[8];
    std::snprintf(hex, sizeof(hex), "%02X ", static_cast<unsigned char>(byte));
    text += hex;
  }
  return text;
}

// ---- The definition

struct Case {
  const char* name;
  string narrow;
  wstring wide;
};

class WellFormed : public testing::TestWithParam<Case> {};

TEST_P(WellFormed, ConvertsBothWays) {
  EXPECT_EQ(toWide(scalarTextKernels(), GetParam().narrow), GetParam().wide);
  EXPECT_EQ(toNarrow(scalarTextKernels(), GetParam().wide), GetParam().narrow);
}

INSTANTIATE_TEST_SUITE_P(
    TextConversion, WellFormed,
    testing::Values(Case{"Empty", "", L""}, Case{"Ascii", "Zel\x7F", L"Zel\x7F"},
                    Case{"EmbeddedNul", string("a\0b", 3), wstring(L"a\0b", 3)},
                    Case{"FirstOfTwo", "\xC2\x80", L"\x80"},
                    Case{"LastOfTwo", "\xDF\xBF", L"\x7FF"},
                    Case{"FirstOfThree", "\xE0\xA0\x80", L"\x800"},
                    Case{"BelowSurrogates", "\xED\x9F\xBF", L"\xD7FF"},
                    Case{"AboveSurrogates", "\xEE\x80\x80", L"\xE000"},
                    Case{"Replacement", "\xEF\xBF\xBD", L"\xFFFD"},
                    Case{"LastOfThree", "\xEF\xBF\xBF", L"\xFFFF"},
                    Case{"FirstOfFour", "\xF0\x90\x80\x80", L"\xD800\xDC00"},
                    Case{"Emoji", "\xF0\x9F\x98\x80", L"\xD83D\xDE00"},
                    Case{"LastOfFour", "\xF4\x8F\xBF\xBF", L"\xDBFF\xDFFF"}),
    [](const auto& instance) { return instance.param.name; });

class IllFormed : public testing::TestWithParam<Case> {};

TEST_P(IllFormed, GivesOneReplacementForEachMaximalSubpart) {
  EXPECT_EQ(toWide(scalarTextKernels(), GetParam().narrow), GetParam().wide);
}

INSTANTIATE_TEST_SUITE_P(
    TextConversion, IllFormed,
    testing::Values(Case{"LoneContinuation", "\x80", L"\xFFFD"},
                    Case{"TwoContinuations", "\x80\xBF", L"\xFFFD\xFFFD"},
                    Case{"OverlongTwo", "\xC0\xAF", L"\xFFFD\xFFFD"},
                    Case{"OverlongThree", "\xE0\x9F\xBF", L"\xFFFD\xFFFD\xFFFD"},
                    Case{"OverlongFour", "\xF0\x8F\xBF\xBF", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
                    Case{"Surrogate", "\xED\xA0\x80", L"\xFFFD\xFFFD\xFFFD"},
                    Case{"BeyondUnicode", "\xF4\x90\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
                    Case{"LeadOfFive", "\xF8\x88\x80\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD"},
                    Case{"NoLead", "\xFE\xFF", L"\xFFFD\xFFFD"},
                    Case{"TruncatedTwo", "\xC3", L"\xFFFD"},
                    Case{"TruncatedThreeByOne", "\xE2\x82", L"\xFFFD"},
                    Case{"TruncatedThreeByTwo", "\xE2", L"\xFFFD"},
                    Case{"TruncatedFourByOne", "\xF0\x9F\x98", L"\xFFFD"},
                    Case{"TruncatedFourByTwo", "\xF0\x9F", L"\xFFFD"},
                    Case{"TruncatedBeforeAscii", "\xF0\x9F\x98z", L"\xFFFDz"},
                    Case{"TruncatedBeforeLead", "\xE2\x82\xC3\xA9", L"\xFFFD\xE9"},
                    // The example of the Unicode Standard, table 3-8.
                    Case{"Table38", "\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
                         L"\xFFFD\xFFFD\xFFFD\x62\xFFFD\x63\xFFFD\xFFFD\x64"}),
    [](const auto& instance) { return instance.param.name; });

TEST(TextConversion, ASurrogateAloneBecomesAReplacement) {
  const TextKernels& kernels = scalarTextKernels();
  const string replacement = "\xEF\xBF\xBD";
  EXPECT_EQ(toNarrow(kernels, L"\xD800"), replacement);
  EXPECT_EQ(toNarrow(kernels, L"\xDFFF"), replacement);
  EXPECT_EQ(toNarrow(kernels, L"a\xDBFFz"), "a" + replacement + "z");
  EXPECT_EQ(toNarrow(kernels, L"\xDC00\xD800"), replacement + replacement);
  EXPECT_EQ(toNarrow(kernels, L"\xD83D\xD83D\xDE00\xDE00"),
            replacement + "\xF0\x9F\x98\x80" + replacement);
}

TEST(TextConversion, AnElementBeyondAUnitIsACodePoint) {
  const TextKernels& kernels = scalarTextKernels();
  EXPECT_EQ(toNarrow(kernels, L"\U0001F600"), "\xF0\x9F\x98\x80");
  EXPECT_EQ(toNarrow(kernels, wstring(1, static_cast<wchar_t>(0x110000))), "\xEF\xBF\xBD");
  EXPECT_EQ(toNarrow(kernels, wstring(1, static_cast<wchar_t>(-1))), "\xEF\xBF\xBD");
}

TEST(TextConversion, CopyUnitsSplitsCodePoints) {
  const wstring elements = {L'a', static_cast<wchar_t>(0x1F600), static_cast<wchar_t>(0xD800),
                            static_cast<wchar_t>(0x110000), static_cast<wchar_t>(-1)};
  ASSERT_EQ(unitLength(elements.data(), elements.size()), 6u);
  wstring units(6, L'\0');
  EXPECT_EQ(copyUnits(elements.data(), elements.size(), units.data()), 6u);
  EXPECT_EQ(units, L"a\xD83D\xDE00\xD800\xFFFD\xFFFD");
}

// ---- The definition, judged by iconv over all code points

class Iconv {
 public:
  Iconv(const char* to, const char* from) : handle_(iconv_open(to, from)) {}
  ~Iconv() { iconv_close(handle_); }
  Iconv(const Iconv&) = delete;
  Iconv& operator=(const Iconv&) = delete;

  // Empty when the input isn't well-formed.
  string convert(string_view input) {
    string output(4 * input.size() + 16, '\0');
    char* from = const_cast<char*>(input.data());
    size_t fromLeft = input.size();
    char* to = output.data();
    size_t toLeft = output.size();
    iconv(handle_, nullptr, nullptr, nullptr, nullptr);
    if (iconv(handle_, &from, &fromLeft, &to, &toLeft) == static_cast<size_t>(-1)) return {};
    output.resize(output.size() - toLeft);
    return output;
  }

 private:
  iconv_t handle_;
};

// Units as the bytes of UTF-16LE, and back.
string littleEndian(wstring_view units) {
  string bytes;
  for (const wchar_t unit : units) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8 & 0xFF);
  }
  return bytes;
}

TEST(TextConversion, EveryCodePointIsAsIconvHasIt) {
  Iconv toUtf8("UTF-8", "UTF-32LE");
  Iconv toUtf16("UTF-16LE", "UTF-8");
  for (uint32_t codePoint = 0; codePoint <= 0x10FFFF; ++codePoint) {
    if (codePoint >= 0xD800 && codePoint <= 0xDFFF) continue;
    const string narrow =
        toUtf8.convert(string_view(reinterpret_cast<const char*>(&codePoint), sizeof(codePoint)));
    ASSERT_FALSE(narrow.empty());
    wchar_t units[2];
    const size_t count = scalarTextKernels().utf8ToUtf16(narrow.data(), narrow.size(), units);
    ASSERT_EQ(littleEndian({units, count}), toUtf16.convert(narrow)) << codePoint;
    char bytes[4];
    const size_t size = scalarTextKernels().utf16ToUtf8(units, count, bytes);
    ASSERT_EQ(string(bytes, size), narrow) << codePoint;
  }
}

// ---- Random text

uint32_t randomCodePoint(std::mt19937_64& random, int kind) {
  const auto within = [&](uint32_t low, uint32_t high) {
    return std::uniform_int_distribution<uint32_t>(low, high)(random);
  };
  switch (kind) {
    case 0:
      return within(0, 0x7F);
    case 1:
      return within(0x80, 0x7FF);
    case 2:
      return within(0x800, 0xD7FF);
    case 3:
      return within(0xE000, 0xFFFF);
    default:
      return within(0x10000, 0x10FFFF);
  }
}

// Runs of one kind of character, some of them with single others between.
std::u32string randomText(std::mt19937_64& random, size_t characters) {
  std::u32string text;
  while (text.size() < characters) {
    const int kind = static_cast<int>(random() % 5);
    const size_t run = 1 + random() % (random() % 4 == 0 ? 200 : 10);
    for (size_t i = 0; i < run; ++i) {
      text += static_cast<char32_t>(randomCodePoint(random, random() % 16 == 0 ? 0 : kind));
    }
  }
  text.resize(characters);
  return text;
}

string asBytes(const std::u32string& text) {
  return string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char32_t));
}

TEST(TextConversion, RandomTextIsAsIconvHasIt) {
  std::mt19937_64 random(test::testSeed());
  Iconv toUtf8("UTF-8", "UTF-32LE");
  Iconv toUtf16("UTF-16LE", "UTF-8");
  for (int i = 0; i < 400; ++i) {
    const std::u32string text = randomText(random, 1 + random() % 700);
    const string narrow = toUtf8.convert(asBytes(text));
    ASSERT_FALSE(narrow.empty());
    const wstring wide = toWide(vectorTextKernels(), narrow);
    ASSERT_EQ(littleEndian(wide), toUtf16.convert(narrow));
    ASSERT_EQ(toNarrow(vectorTextKernels(), wide), narrow);
  }
}

TEST(TextConversion, SixteenMebibytesGoThereAndBack) {
  std::mt19937_64 random(test::testSeed());
  Iconv toUtf8("UTF-8", "UTF-32LE");
  const string piece = toUtf8.convert(asBytes(randomText(random, 50000)));
  string narrow;
  while (narrow.size() < size_t{16} << 20) narrow += piece;
  ASSERT_EQ(toNarrow(vectorTextKernels(), toWide(vectorTextKernels(), narrow)), narrow);
  const string ascii(size_t{16} << 20, 'z');
  ASSERT_EQ(toNarrow(vectorTextKernels(), toWide(vectorTextKernels(), ascii)), ascii);
}

// ---- The vector form, which is the scalar one for every target of the machine

std::vector<int64_t> targetsOfTheMachine() {
  hwy::SetSupportedTargetsForTest(0);
  std::vector<int64_t> targets;
  for (int64_t left = hwy::SupportedTargets() & HWY_TARGETS; left != 0; left &= left - 1) {
    targets.push_back(left & -left);
  }
  return targets;
}

class Targets : public testing::TestWithParam<int64_t> {
 protected:
  void SetUp() override { force(GetParam()); }
  void TearDown() override { force(0); }

  static void force(int64_t target) {
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  }

  void expectSame(string_view text) {
    ASSERT_EQ(toWide(vectorTextKernels(), text), toWide(scalarTextKernels(), text))
        << printed(text);
  }
  void expectSame(wstring_view units) {
    ASSERT_EQ(toNarrow(vectorTextKernels(), units), toNarrow(scalarTextKernels(), units))
        << printed(littleEndian(units));
  }

  std::mt19937_64 random_{test::testSeed()};
};

TEST_P(Targets, IsTheOneThatWasForced) {
  EXPECT_EQ(hwy::SupportedTargets(), GetParam());
  const TextKernels forced = vectorTextKernels();
  if (GetParam() == HWY_EMU128 || GetParam() == HWY_SCALAR) {
    EXPECT_EQ(forced.utf8ToUtf16, scalarTextKernels().utf8ToUtf16);
    EXPECT_EQ(forced.utf16ToUtf8, scalarTextKernels().utf16ToUtf8);
    return;
  }
  for (const int64_t other : targetsOfTheMachine()) {
    if (other == GetParam()) continue;
    force(other);
    EXPECT_NE(vectorTextKernels().utf8ToUtf16, forced.utf8ToUtf16) << hwy::TargetName(other);
    EXPECT_NE(vectorTextKernels().utf16ToUtf8, forced.utf16ToUtf8) << hwy::TargetName(other);
  }
}

TEST_P(Targets, EqualTheDefinitionOnWellFormedText) {
  Iconv toUtf8("UTF-8", "UTF-32LE");
  for (int i = 0; i < 500; ++i) {
    const string narrow = toUtf8.convert(asBytes(randomText(random_, random_() % 600)));
    expectSame(narrow);
    expectSame(toWide(scalarTextKernels(), narrow));
  }
}

TEST_P(Targets, EqualTheDefinitionOnEveryLength) {
  const string samples[] = {"z",        "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                            "\xF0\x9F", "\x80"};
  for (const string& sample : samples) {
    string text;
    while (text.size() < 400) {
      expectSame(text);
      expectSame("x" + text);
      expectSame(text + "x");
      expectSame(toWide(scalarTextKernels(), text));
      text += sample;
    }
  }
}

TEST_P(Targets, EqualTheDefinitionWithOneCharacterAtEveryPlace) {
  const string samples[] = {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xC3",
                            "\xE2\x82", "\xF0\x9F\x98", "\xF4\x90\x80\x80", "\xED\xA0\x80",
                            "\xFF"};
  for (const string& sample : samples) {
    for (const char* filler : {"z", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
      string text;
      while (text.size() < 300) text += filler;
      for (size_t at = 0; at <= text.size(); ++at) {
        expectSame(text.substr(0, at) + sample + text.substr(at));
      }
    }
  }
}

TEST_P(Targets, EqualTheDefinitionWithOneUnitAtEveryPlace) {
  const wstring samples[] = {L"\x80",
                             L"\x7FF",
                             L"\x800",
                             L"\xFFFF",
                             L"\xD83D\xDE00",
                             L"\xD800",
                             L"\xDC00",
                             L"\xDC00\xD800",
                             L"\xD800\xD800",
                             L"\x1F600",
                             wstring(1, static_cast<wchar_t>(0x80000000u))};
  for (const wstring& sample : samples) {
    for (const wchar_t* filler : {L"z", L"\xE9", L"\x20AC", L"\xD83D\xDE00", L"\x1F600"}) {
      wstring text;
      while (text.size() < 100) text += filler;
      for (size_t at = 0; at <= text.size(); ++at) {
        expectSame(text.substr(0, at) + sample + text.substr(at));
      }
    }
  }
}

// Two bytes in every combination, at a place inside of a block: each rule of well-formedness.
TEST_P(Targets, EqualTheDefinitionOnEveryPairOfBytes) {
  for (int first = 0x70; first < 0x100; ++first) {
    for (int second = 0; second < 0x100; ++second) {
      string text(100, 'z');
      text[70] = static_cast<char>(first);
      text[71] = static_cast<char>(second);
      expectSame(text);
      text[72] = text[73] = '\x80';
      expectSame(text);
    }
  }
}

TEST_P(Targets, EqualTheDefinitionOnRandomBytes) {
  for (int i = 0; i < 2000; ++i) {
    string text(random_() % 500, '\0');
    // Bytes of all kinds, mostly those that could be part of a sequence.
    const string alphabet =
        "z\x80\x8F\x90\x9F\xA0\xBF\xC0\xC2\xDF\xE0\xE2\xED\xEF\xF0\xF1\xF4\xF5\xFF";
    for (char& byte : text) {
      byte =
          random_() % 8 == 0 ? static_cast<char>(random_()) : alphabet[random_() % alphabet.size()];
    }
    expectSame(text);
  }
}

// Well-formed text with a few bytes changed: errors deep inside of what the blocks have begun.
TEST_P(Targets, EqualTheDefinitionOnDamagedText) {
  Iconv toUtf8("UTF-8", "UTF-32LE");
  for (int i = 0; i < 1000; ++i) {
    string text = toUtf8.convert(asBytes(randomText(random_, 1 + random_() % 400)));
    for (uint64_t change = random_() % 4; change > 0; --change) {
      text[random_() % text.size()] = static_cast<char>(random_());
    }
    expectSame(text);
  }
}

TEST_P(Targets, EqualTheDefinitionOnRandomUnits) {
  for (int i = 0; i < 2000; ++i) {
    wstring text(random_() % 200, L'\0');
    for (wchar_t& unit : text) {
      const wchar_t choices[] = {static_cast<wchar_t>(random_() % 0x80),
                                 static_cast<wchar_t>(random_() % 0x800),
                                 static_cast<wchar_t>(random_() % 0x10000),
                                 static_cast<wchar_t>(0xD800 + random_() % 0x400),
                                 static_cast<wchar_t>(0xDC00 + random_() % 0x400),
                                 static_cast<wchar_t>(0xD800 + random_() % 0x800)};
      unit = random_() % 500 == 0 ? static_cast<wchar_t>(random_()) : choices[random_() % 6];
    }
    expectSame(text);
  }
}

// Pieces are converted one by one: whatever lies across their border must come out whole.
TEST_P(Targets, EqualTheDefinitionAcrossThePiecesOfALongText) {
  for (const char* sample : {"\xF0\x9F\x98\x80", "\xE2\x82\xAC", "\xC3\xA9", "\xF0\x9F\x98"}) {
    for (size_t lead = 8192 - 80; lead < 8192 + 8; ++lead) {
      string text(lead, 'z');
      for (int i = 0; i < 40; ++i) text += sample;
      expectSame(text);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(TextConversion, Targets, testing::ValuesIn(targetsOfTheMachine()),
                         [](const auto& instance) { return hwy::TargetName(instance.param); });

}  // namespace
}  // namespace zel::platform
