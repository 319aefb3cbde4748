#include "zel/mux/engine/psi/psi_tables.h"

#include <gtest/gtest.h>

#include "zel/base/crc32.h"

namespace zel::mux {
namespace {

using bytes = std::vector<uint8_t>;

bytes without_crc(const bytes& section) {
  return {section.begin(), section.end() - 4};
}

int section_length(const bytes& section) {
  return (section[1] & 15) << 8 | section[2];
}

TEST(PsiTables, PatListsNetworkAndPrograms) {
  const pat_program programs[] = {{2, 32}, {0x1234, 0x1ABC}};
  const bytes pat = make_pat(0x5678, 3, 16, programs);
  EXPECT_EQ(without_crc(pat), (bytes{0x00, 0xB0, 0x15, 0x56, 0x78, 0xC7, 0x00, 0x00, 0x00, 0x00,
                                     0xE0, 0x10, 0x00, 0x02, 0xE0, 0x20, 0x12, 0x34, 0xFA, 0xBC}));
  EXPECT_EQ(base::crc32(pat), 0u);
}

TEST(PsiTables, PatWithoutNetworkHasNoLineForIt) {
  const pat_program programs[] = {{2, 32}};
  EXPECT_EQ(make_pat(1, 0, 0, programs).size(), 16u);
}

TEST(PsiTables, PmtHoldsProgramDescriptorsAndLines) {
  const pmt_line lines[] = {{27, 33, 0, {}}, {129, 36, 0, {5, 1, 65}}};
  const uint8_t own[] = {9, 1, 7};
  const bytes pmt = make_pmt(2, 1, 33, own, lines);
  EXPECT_EQ(without_crc(pmt), (bytes{0x02, 0xB0, 0x1D, 0x00, 0x02, 0xC3, 0x00, 0x00, 0xE0, 0x21,
                                     0xF0, 0x03, 0x09, 0x01, 0x07, 0x1B, 0xE0, 0x21, 0xF0, 0x00,
                                     0x81, 0xE0, 0x24, 0xF0, 0x03, 0x05, 0x01, 0x41}));
  EXPECT_EQ(base::crc32(pmt), 0u);
}

TEST(PsiTables, AProgramWithoutPcrNamesTheNullPid) {
  const bytes pmt = make_pmt(2, 0, -1, {}, {});
  EXPECT_EQ(pmt[8], 0xFF);
  EXPECT_EQ(pmt[9], 0xFF);
  EXPECT_EQ(section_length(pmt), 13);
}

TEST(PsiTables, ASectionOf1023BytesIsTheLargest) {
  const auto pmt_of = [](size_t descriptorBytes) {
    return make_pmt(2, 0, 33, bytes(descriptorBytes, 0), {});
  };
  EXPECT_EQ(pmt_of(1007).size(), kLargestSection);
  bytes longer = pmt_of(1008);
  EXPECT_EQ(longer.size(), kLargestSection + 1);
  cut_section(longer, kLargestSection);
  EXPECT_EQ(longer.size(), kLargestSection);
  EXPECT_EQ(section_length(longer), 1020);
  EXPECT_EQ(base::crc32(longer), 0u);
}

TEST(PsiTables, ASectionThatFitsIsNotCut) {
  bytes pat = make_pat(1, 0, 0, {});
  const bytes before = pat;
  cut_section(pat, kLargestSection);
  EXPECT_EQ(pat, before);
}

// The standard's section is four bytes long; here the CRC of all other sections follows.
TEST(PsiTables, DitIsAShortSectionWithCrc) {
  EXPECT_EQ(make_dit(true), (bytes{0x7E, 0x70, 0x05, 0xFF, 0x44, 0x91, 0x03, 0x3B}));
  EXPECT_EQ(make_dit(false), (bytes{0x7E, 0x70, 0x05, 0x7F, 0x2D, 0x9D, 0xE3, 0xD5}));
}

TEST(PsiTables, SitHasOneService) {
  const uint8_t transmission[] = {0x63, 1, 9};
  const uint8_t service[] = {0x48, 0};
  const bytes sit = make_sit(2, transmission, 5, 4, service);
  EXPECT_EQ(without_crc(sit), (bytes{0x7F, 0xF0, 0x14, 0xFF, 0xFF, 0xC5, 0x00, 0x00, 0xF0, 0x03,
                                     0x63, 0x01, 0x09, 0x00, 0x05, 0xC0, 0x02, 0x48, 0x00}));
  EXPECT_EQ(base::crc32(sit), 0u);
}

TEST(PsiTables, LinesWithoutOrderStandLast) {
  pmt_line lines[] = {{1, 10, 0, {}}, {1, 11, 3, {}}, {1, 12, 1, {}}, {1, 13, 0, {}}};
  sort_by_order(lines);
  EXPECT_EQ(lines[0].pid, 12);
  EXPECT_EQ(lines[1].pid, 11);
  EXPECT_EQ(lines[2].pid, 10);
  EXPECT_EQ(lines[3].pid, 13);
}

TEST(PsiTables, DescriptorsHaveToEndWhereTheBytesEnd) {
  EXPECT_TRUE(descriptors_fill({}));
  EXPECT_TRUE(descriptors_fill(bytes{5, 2, 1, 2, 9, 0}));
  EXPECT_FALSE(descriptors_fill(bytes{5, 3, 1, 2}));
  EXPECT_FALSE(descriptors_fill(bytes{5, 1, 1, 9}));
}

TEST(PsiTables, ADescriptorIsAddedOnce) {
  bytes descriptors{9, 1, 7};
  const bytes cue{5, 4, 'C', 'U', 'E', 'I'};
  EXPECT_TRUE(add_unless_there(descriptors, cue));
  EXPECT_FALSE(add_unless_there(descriptors, cue));
  EXPECT_EQ(descriptors.size(), 9u);
  EXPECT_TRUE(add_unless_there(descriptors, bytes{5, 4, 'C', 'U', 'E', 'J'}));
}

}  // namespace
}  // namespace zel::mux
