#include "zel/dnxhd/result_words.h"

#include <cstddef>

namespace zel::dnxhd {

namespace {

constexpr std::array<ResultText, 44> kTexts = {{
    {0, "HDCODEC SUCCESSFUL"},
    {-1, "HDCODEC ERROR in File"},
    {-2, "HDCODEC ERROR in Sequence"},
    {-3, "HDCODEC ERROR in BitStream"},
    {-4, "HDCODEC ERROR Non HD Format"},
    {-5, "HDCODEC ERROR in Huffman Decode"},
    {-6, "HDCODEC ERROR in MBaddress Incr"},
    {-7, "HDCODEC ERROR in Memory Allocation"},
    {-8, "HDCODEC ERROR No Initialization"},
    {-9, "HDCODEC ERROR unsupported bitrate"},
    {-10, "HDCODEC ERROR Misalignment"},
    {-11, "HDCODEC ERROR set event failed"},
    {-12, "HDCODEC ERROR MP wait for event"},
    {-13, "HDCODEC ERROR MP Notify Queue"},
    {-14, "HDCODEC ERROR MP Set Event"},
    {-15, "HDCODEC ERROR Fatal Exception"},
    {-16, "HDCODEC ERROR Decode Mode Not Supported"},
    {-17, "HDCODEC ERROR Encode Buffer Overflow"},
    {-18, "HDCODEC ERROR Encode Mode Not Supported"},
    {-19, "HDCODEC ERROR Input Buffer unaligned"},
    {-20, "HDCODEC ERROR Output Buffer unaligned"},
    {-21, "HDCODEC ERROR Rowbytes Unaligned"},
    {-22, "HDCODEC ERROR RowBytes for Encode unaligned"},
    {-23, "HDCODEC ERROR RowBytes for Decode unaligned"},
    {-24, "HDCODEC ERROR Interfiled gap bytes for Encode unaligned"},
    {-25, "HDCODEC ERROR Interfiled gap bytes for Decode unaligned"},
    {-26, "HDCODEC ERROR VCID Does Not Belong To The List"},
    {-27, "HDCODEC ERROR In Macroblock Indices"},
    {-28, "HDCODEC ERROR CRC Not OK"},
    {-29, "HDCODEC ERROR Invalid Quant Level"},
    {-30, "HDCODEC ERROR Invalid MB Stride"},
    {-31, "HDCODEC ERROR Distortion Type Not Supported"},
    {-32, "HDCODEC ERROR Initialization Failed"},
    {-33, "HDCODEC ERROR In BitCost Computation"},
    {-34, "HDCODEC ERROR In Reset Event"},
    {-35, "HDCODEC ERROR In CompInfo Validation"},
    {-36, "HDCODEC ERROR In UnCompInfo Validation"},
    {-37, "HDCODEC ERROR Operation Not Supported"},
    {-38, "HDCODEC ERROR In Enabling Tent Filter"},
    {-39, "HDCODEC ERROR In MetaData Insertion"},
    {-40, "HDCODEC ERROR In MetaData Extraction"},
    {-41, "HDCODEC ERROR In MetaData No Meta Data"},
    {-42, "HDCODEC ERROR Invalid Parameter Code"},
    {-43, "HDCODEC ERROR LOCK and GET Buffer Failed"},
}};

constexpr bool RowsFollowCodes() {
  for (size_t row = 0; row < kTexts.size(); ++row) {
    if (kTexts[row].code != -static_cast<int32_t>(row)) return false;
  }
  return true;
}
static_assert(RowsFollowCodes());
static_assert(kTexts.back().code == kErrorLockAndGetBuffer);

}  // namespace

constinit const std::array<ResultText, 44> kResultTexts = kTexts;

const char* ResultTextOf(int32_t code) {
  const int64_t row = -int64_t{code};
  if (row < 0 || row >= static_cast<int64_t>(kTexts.size())) return "";
  return kResultTexts[static_cast<size_t>(row)].text;
}

}  // namespace zel::dnxhd
