#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "zel/dnxhd/front_end/avid_codec_interface.h"
#include "zel/dnxhd/front_end/avid_hd_codec_sdk.h"
#include "zel/dnxhd/front_end/uncomp_info.h"

namespace zel::tool {

/// "HDCODEC ERROR in BitStream (-3)"
std::string codecResultText(int result);

/// The library's codec, in use while this lives. What it refuses is thrown as Failure, but where an
/// operation returns a result.
class CodecSession {
 public:
  CodecSession();
  ~CodecSession();
  CodecSession(const CodecSession&) = delete;
  CodecSession& operator=(const CodecSession&) = delete;

  void setUpEncoder(uint32_t id, const Morvalen::Zel::UnCompInfo& record, int32_t threads);
  void setUpDecoder(uint32_t id, const Morvalen::Zel::UnCompInfo& record, int32_t threads);

  // Of one frame; 0 or a result word.
  int encode(std::span<const uint8_t> buffer, std::span<uint8_t> frame);
  int decode(std::span<const uint8_t> frame, std::span<uint8_t> buffer);

  /// For what works on compressed frames.
  Morvalen::Zel::IAvidCodecInterface& codec() { return *sdk_->GetCodec(); }

 private:
  std::unique_ptr<Morvalen::Zel::AvidHDCodecSDKImpl> sdk_;
};

}  // namespace zel::tool
