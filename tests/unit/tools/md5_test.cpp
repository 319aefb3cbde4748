#include "tools/zel/media/md5.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace zel::media {
namespace {

std::string md5OfText(const std::string& text) {
  return md5Of(std::vector<uint8_t>(text.begin(), text.end()));
}

// RFC 1321, A.5.
TEST(Md5, DigestsOfTheRfc) {
  EXPECT_EQ(md5OfText(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(md5OfText("a"), "0cc175b9c0f1b6a831c399e269772661");
  EXPECT_EQ(md5OfText("abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(md5OfText("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(md5OfText("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
  EXPECT_EQ(md5OfText("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
            "d174ab98d277d9f5a5611c2c9f419d9f");
  EXPECT_EQ(md5OfText("1234567890123456789012345678901234567890123456789012345678901234567890123456"
                      "7890"),
            "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5, PiecesAreAsTheWhole) {
  std::vector<uint8_t> bytes(300);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7);
  const std::string whole = md5Of(bytes);
  for (const size_t piece : {1u, 3u, 55u, 56u, 63u, 64u, 65u, 128u, 299u}) {
    Md5 md5;
    for (size_t at = 0; at < bytes.size(); at += piece)
      md5.add(std::span(bytes).subspan(at, std::min(piece, bytes.size() - at)));
    EXPECT_EQ(md5.finish(), whole) << piece;
  }
}

}  // namespace
}  // namespace zel::media
