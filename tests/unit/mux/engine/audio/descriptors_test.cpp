#include "zel/mux/engine/audio/descriptors.h"

#include <gtest/gtest.h>

namespace zel::mux {
namespace {

TEST(AudioDescriptors, Registration) {
  EXPECT_EQ(registration_descriptor("AC-3"), (descriptor_bytes{5, 4, 0x41, 0x43, 0x2D, 0x33}));
}

// 5.1 at 384 kbit/s and 48 kHz, complete main.
TEST(AudioDescriptors, AtscAc3) {
  syntax::Ac3Header header;
  header.frmsizecod = 28;
  header.bsid = 8;
  header.acmod = 7;
  header.lfeon = true;
  EXPECT_EQ(atsc_ac3_descriptor(header),
            (descriptor_bytes{0x81, 7, 0x08, 0x38, 0x0F, 0xFF, 0x1F, 0x01, 0x3F}));
}

TEST(AudioDescriptors, AtscAc3DualMonoHasTwoLanguages) {
  syntax::Ac3Header header;
  header.bsid = 8;
  header.bsmod = 2;
  header.langcode = true;
  header.langcod = 9;
  EXPECT_EQ(atsc_ac3_descriptor(header),
            (descriptor_bytes{0x81, 8, 0x08, 0x00, 0x40, 9, 0xFF, 0xFF, 0x01, 0x3F}));
}

TEST(AudioDescriptors, DvbAc3) {
  syntax::Ac3Header header;
  header.bsid = 8;
  header.acmod = 2;
  header.dsurmod = 2;
  EXPECT_EQ(dvb_ac3_descriptor(header), (descriptor_bytes{0x6A, 3, 0xC0, 0x43, 8}));
  header.acmod = 7;
  EXPECT_EQ(dvb_ac3_descriptor(header), (descriptor_bytes{0x6A, 3, 0xC0, 0x44, 8}));
}

TEST(AudioDescriptors, Eac3OfMoreThanSixChannels) {
  syntax::Eac3Header header;
  header.bsid = 16;
  header.acmod = 7;
  EXPECT_EQ(dvb_eac3_descriptor(header, 8), (descriptor_bytes{0x7A, 3, 0xC0, 0xC5, 16}));
  EXPECT_EQ(atsc_eac3_descriptor(header, 8), (descriptor_bytes{0xCC, 3, 0xC0, 0xC5, 0x30}));
  header.mixmdate = true;
  EXPECT_EQ(dvb_eac3_descriptor(header, 6), (descriptor_bytes{0x7A, 3, 0xC8, 0xC4, 16}));
  EXPECT_EQ(atsc_eac3_descriptor(header, 6), (descriptor_bytes{0xCC, 3, 0xC8, 0xC4, 0x30}));
}

TEST(AudioDescriptors, Eac3TellsTheOtherProgrammesOfItsStream) {
  syntax::Eac3Header header;
  header.bsid = 16;
  header.acmod = 7;
  eac3_programme first;  // a commentary, stereo, with mixing metadata
  first.header.substreamid = 1;
  first.header.acmod = 2;
  first.header.bsmod = 5;
  first.header.mixmdate = true;
  first.channels = 2;
  eac3_programme third;  // complete, of 7.1 channels
  third.header.substreamid = 3;
  third.header.acmod = 7;
  third.channels = 8;
  const eac3_programme others[] = {third, first};
  EXPECT_EQ(dvb_eac3_descriptor(header, 6, others),
            (descriptor_bytes{0x7A, 5, 0xC5, 0xC6, 16, 0x80 | 5 << 3 | 2, 0x40 | 5}));
  EXPECT_EQ(atsc_eac3_descriptor(header, 6, others),
            (descriptor_bytes{0xCC, 11, 0xC5, 0xC4, 0x30, 0x80 | 5 << 3 | 2, 0x40 | 5, 'u', 'n',
                              'd', 'u', 'n', 'd'}));
}

TEST(AudioDescriptors, DtsIdentifierByFrameLength) {
  EXPECT_EQ(dts_format_identifier(512, false), "DTS1");
  EXPECT_EQ(dts_format_identifier(1024, false), "DTS2");
  EXPECT_EQ(dts_format_identifier(2048, false), "DTS3");
  EXPECT_EQ(dts_format_identifier(512, true), "DTSH");
  EXPECT_EQ(dts_format_identifier(0, true), "DTSH");
}

TEST(AudioDescriptors, DvbDtsIsPackedAsTheHeader) {
  syntax::DtsCoreHeader header;
  header.sfreq = 13;
  header.rate = 15;
  header.nblks = 15;
  header.fsize = 1005;
  header.amode = 9;
  header.lff = 2;
  // 1101 001111 0001111 00001111101101 001001 1 00
  EXPECT_EQ(dvb_dts_descriptor(header), (descriptor_bytes{0x7B, 5, 0xD3, 0xC7, 0x87, 0xDA, 0x4C}));
}

TEST(AudioDescriptors, DuplicatesAreLeftOut) {
  std::vector<descriptor_bytes> list{{0x0A, 0}, {5, 1, 9}};
  add_automatic_descriptor(list, registration_descriptor("AC-3"));
  add_automatic_descriptor(list, {0x0A, 0});
  EXPECT_EQ(list.size(), 2u);
  add_automatic_descriptor(list, {0x0A, 1, 7});
  EXPECT_EQ(list.size(), 3u);
}

}  // namespace
}  // namespace zel::mux
