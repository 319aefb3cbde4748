#include "zel/base/annex_b.h"

#include <gtest/gtest.h>

#include <random>
#include <tuple>
#include <vector>

#include "tests/support/seed.h"

namespace zel::base {

namespace {

using Bytes = std::vector<uint8_t>;

struct Found {
  size_t startCode;
  int startCodeSize;
  Bytes bytes;
  bool operator==(const Found&) const = default;
};

void PrintTo(const Found& found, std::ostream* out) {
  *out << '@' << found.startCode << " +" << found.startCodeSize << ' '
       << testing::PrintToString(found.bytes);
}

std::vector<Found> unitsOf(const Bytes& stream) {
  std::vector<Found> units;
  for (const NalUnit& unit : NalUnits(stream)) {
    units.push_back({unit.startCode, unit.startCodeSize, {unit.bytes.begin(), unit.bytes.end()}});
  }
  return units;
}

// The byte stream syntax of Annex B, a byte at a time.
std::vector<Found> slowUnits(const Bytes& stream) {
  std::vector<Found> units;
  const auto isPrefix = [&](size_t i) {
    return i + 3 <= stream.size() && stream[i] == 0 && stream[i + 1] == 0 && stream[i + 2] == 1;
  };
  size_t i = 0;
  while (i < stream.size() && !isPrefix(i)) ++i;
  while (i < stream.size()) {
    Found unit{i, 3, {}};
    if (i > 0 && stream[i - 1] == 0) unit = {i - 1, 4, {}};
    i += 3;
    while (i < stream.size() && !isPrefix(i)) unit.bytes.push_back(stream[i++]);
    while (!unit.bytes.empty() && unit.bytes.back() == 0) unit.bytes.pop_back();
    if (!unit.bytes.empty()) units.push_back(unit);
  }
  return units;
}

Bytes slowRemoval(const Bytes& unit) {
  Bytes payload;
  int zeros = 0;
  for (const uint8_t byte : unit) {
    if (zeros >= 2 && byte == 3) {
      zeros = 0;
      continue;
    }
    payload.push_back(byte);
    zeros = byte == 0 ? zeros + 1 : 0;
  }
  return payload;
}

Bytes removed(const Bytes& unit) {
  Bytes payload;
  removeEmulationPrevention(unit, payload);
  return payload;
}

Bytes randomBytes(std::mt19937_64& random, size_t largest, uint64_t values) {
  Bytes bytes(random() % largest);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random() % values);
  return bytes;
}

}  // namespace

TEST(AnnexB, FindsStartCodes) {
  const Bytes stream = {0, 0, 0, 1, 9, 0, 0, 1};
  EXPECT_EQ(findStartCode(stream), 1u);
  EXPECT_EQ(findStartCode(stream, 1), 1u);
  EXPECT_EQ(findStartCode(stream, 2), 5u);
  EXPECT_EQ(findStartCode(stream, 6), 8u);
  EXPECT_EQ(findStartCode(stream, 8), 8u);
  EXPECT_EQ(findStartCode(stream, 99), 8u);
  EXPECT_EQ(findStartCode({}), 0u);
}

TEST(AnnexB, WalksUnitsOfBothStartCodes) {
  const Bytes stream = {0, 0, 0, 1, 0x67, 1, 2, 0, 0, 1, 0x68, 3, 0, 0, 0, 1, 0x65, 0, 0, 3, 4};
  EXPECT_EQ(
      unitsOf(stream),
      (std::vector<Found>{{0, 4, {0x67, 1, 2}}, {7, 3, {0x68, 3}}, {12, 4, {0x65, 0, 0, 3, 4}}}));
}

TEST(AnnexB, PassesOverWhatIsNoUnit) {
  EXPECT_TRUE(unitsOf({}).empty());
  EXPECT_TRUE(unitsOf({1, 2, 3}).empty());
  EXPECT_TRUE(unitsOf({0, 0, 1}).empty());
  EXPECT_TRUE(unitsOf({0, 0, 1, 0, 0, 1, 0, 0, 0}).empty());
  EXPECT_EQ(unitsOf({7, 7, 0, 0, 1, 5}), (std::vector<Found>{{2, 3, {5}}}));
  EXPECT_EQ(unitsOf({0, 0, 1, 0, 0, 1, 5}), (std::vector<Found>{{3, 3, {5}}}));
}

TEST(AnnexB, TrailingZerosAreNotTheUnits) {
  EXPECT_EQ(unitsOf({0, 0, 1, 5, 0, 0, 0, 0, 0, 0, 1, 6, 0, 0}),
            (std::vector<Found>{{0, 3, {5}}, {7, 4, {6}}}));
}

TEST(AnnexB, NextLeavesTheUnitAloneAtTheEnd) {
  const Bytes stream = {0, 0, 1, 5};
  NalUnits units(stream);
  NalUnit unit;
  ASSERT_TRUE(units.next(unit));
  EXPECT_FALSE(units.next(unit));
  EXPECT_FALSE(units.next(unit));
  EXPECT_EQ(unit.bytes.size(), 1u);
}

TEST(AnnexB, AgreesWithTheByteSyntax) {
  std::mt19937_64 random(test::testSeed());
  for (int round = 0; round < 20000; ++round) {
    const Bytes stream = randomBytes(random, 120, 2 + random() % 4);
    ASSERT_EQ(unitsOf(stream), slowUnits(stream)) << testing::PrintToString(stream);
  }
}

TEST(AnnexB, RemovesEmulationPrevention) {
  EXPECT_EQ(removed({}), Bytes{});
  EXPECT_EQ(removed({1, 2, 3}), (Bytes{1, 2, 3}));
  EXPECT_EQ(removed({0, 0, 3}), (Bytes{0, 0}));
  EXPECT_EQ(removed({0, 0, 3, 1}), (Bytes{0, 0, 1}));
  EXPECT_EQ(removed({0, 0, 3, 0, 0, 3, 3}), (Bytes{0, 0, 0, 0, 3}));
  EXPECT_EQ(removed({0, 0, 3, 0, 3}), (Bytes{0, 0, 0, 3}));
  EXPECT_EQ(removed({0, 0, 0, 3, 5}), (Bytes{0, 0, 0, 5}));
  EXPECT_EQ(removed({0, 3, 0, 0, 4}), (Bytes{0, 3, 0, 0, 4}));
}

TEST(AnnexB, RemovalAgreesWithTheByteSyntaxAlsoInPlace) {
  std::mt19937_64 random(test::testSeed());
  for (int round = 0; round < 20000; ++round) {
    Bytes unit = randomBytes(random, 150, 4 + random() % 3);
    const Bytes expected = slowRemoval(unit);
    ASSERT_EQ(removed(unit), expected);
    unit.resize(removeEmulationPrevention(unit, unit.data()));
    ASSERT_EQ(unit, expected);
  }
}

TEST(AnnexB, WhatIsProtectedHoldsNoStartCodeAndComesBack) {
  std::mt19937_64 random(test::testSeed());
  for (int round = 0; round < 20000; ++round) {
    const Bytes payload = randomBytes(random, 150, 2 + random() % 4);
    Bytes unit = {0x42};
    appendEmulationPrevention(payload, unit);
    for (size_t i = 1; i + 3 <= unit.size(); ++i) {
      ASSERT_FALSE(unit[i] == 0 && unit[i + 1] == 0 && unit[i + 2] < 3);
    }
    ASSERT_NE(unit.back(), 0);
    const Bytes back = removed({unit.begin() + 1, unit.end()});
    // After a single zero at the end the 03 isn't one that a reader takes out.
    Bytes expected = payload;
    const size_t n = payload.size();
    const bool single = n > 0 && payload[n - 1] == 0 && unit[unit.size() - 3] != 0;
    if (single) expected.push_back(3);
    ASSERT_EQ(back, expected);
  }
}

}  // namespace zel::base
