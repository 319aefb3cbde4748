#include "zel/dnxhd/front_end/avid_dnxhd_api.h"

#include <new>
#include <optional>

#include "zel/dnxhd/front_end/avid_codec_interface.h"
#include "zel/dnxhd/front_end/avid_hd_codec_sdk.h"
#include "zel/dnxhd/front_end/data_types.h"
#include "zel/runtime/lock.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {

namespace {

constexpr int32_t kMaximumWidth = 65535;
constexpr uint32_t kEncode = 1;
constexpr uint32_t kDecode = 2;
constexpr uint32_t kRgbComponents = 4;

class LockScope {
 public:
  explicit LockScope(CDependenciesLock& held) : lock_(held) { lock_.Enter(); }
  ~LockScope() { lock_.Exit(); }
  LockScope(LockScope const&) = delete;
  LockScope& operator=(LockScope const&) = delete;

 private:
  CDependenciesLock& lock_;
};

bool IsWidth(int32_t width) {
  return width >= 1 && width <= kMaximumWidth;
}

}  // namespace

// The lock is there from when the library is loaded, and stays: objects of other modules' static
// lifetime may be the last ones.
CDependenciesLock* CAvidDNxHDApi::lock = new CDependenciesLock;
int32_t CAvidDNxHDApi::consumers = 0;

CAvidDNxHDApi* CAvidDNxHDApi::Create(int32_t threads) {
  return new CAvidDNxHDApi(threads, nullptr);
}

CAvidDNxHDApi* CAvidDNxHDApi::Create(int32_t threads, AvidHDCodecSDK* own) {
  auto* const made = new CAvidDNxHDApi(threads, own);
  if (made == nullptr) delete own;
  return made;
}

CAvidDNxHDApi::CAvidDNxHDApi(int32_t threadCount, AvidHDCodecSDK* own)
    : sdk(own), threads(threadCount), firstDecodeSetup(1) {
  const LockScope held(*lock);
  // A caller of codec objects may have set the flag already: that is as good.
  if (consumers++ == 0) AvidHDCodecLibrary::Initialize();
  if (sdk == nullptr) sdk = new (std::nothrow) AvidHDCodecSDKImpl;
}

CAvidDNxHDApi::~CAvidDNxHDApi() {
  const LockScope held(*lock);
  delete sdk;
  if (--consumers == 0) AvidHDCodecLibrary::Terminate();
}

int CAvidDNxHDApi::SetCompressionId(int32_t id) {
  if (sdk == nullptr) return ZelErrorNotReady;
  // What doesn't fit the codec's 16 bits is no id; 0 isn't either.
  return sdk->SetCompressionId(id < 0 || id > UINT16_MAX ? 0 : static_cast<uint16_t>(id));
}

int CAvidDNxHDApi::SetInputOutputDataTypesForEncode(uint32_t format, int32_t width,
                                                    int32_t fieldMode) {
  if (sdk == nullptr) return ZelErrorNotReady;
  if (!IsWidth(width)) return ZelErrorInvalidArgument;
  const DataTypes types = DataTypesForEncode(format, static_cast<uint32_t>(width), fieldMode);
  sdk->SetRowBytesForEncode(types.rowBytes);
  const int result = sdk->SetInputOutputDataTypes(&types.record, kEncode);
  if (result < 0) return result;
  return sdk->SetEncodeThreads(threads);
}

int CAvidDNxHDApi::SetInputOutputDataTypesForDecode(uint32_t format, int32_t width,
                                                    int32_t fieldMode) {
  if (sdk == nullptr) return ZelErrorNotReady;
  if (!IsWidth(width)) return ZelErrorInvalidArgument;
  const std::optional<DataTypes> types =
      DataTypesForDecode(format, static_cast<uint32_t>(width), fieldMode);
  if (!types) return ZelErrorNotSupported;
  int result = sdk->SetInputOutputDataTypes(&types->record, kDecode);
  if (result >= 0) result = sdk->SetRowBytesForDecode(types->rowBytes);
  if (result >= 0) result = sdk->SetDecodeThreads(threads);
  if (result < 0) return result;
  // Codec objects may give the workers that SetDecodeThreads made their RGB resources only when
  // they are configured the next time.
  if (firstDecodeSetup == 1 && threads >= 2 && types->record.componentCount == kRgbComponents) {
    result = sdk->SetInputOutputDataTypes(&types->record, kDecode);
    if (result >= 0) firstDecodeSetup = 0;
  }
  return result;
}

int CAvidDNxHDApi::SetRowBytesForEncode(uint32_t rowBytes) {
  if (sdk == nullptr) return ZelErrorNotReady;
  return sdk->SetRowBytesForEncode(rowBytes);
}

int CAvidDNxHDApi::EncodeFrame(void const* input, void* output, uint32_t a, uint32_t b,
                               uint32_t* compressedBytes) {
  if (sdk == nullptr) return ZelErrorNotReady;
  uint32_t count = 0;
  const int result = sdk->EncodeFrame(input, output, a, b, &count);
  if (result >= 0 && compressedBytes != nullptr) *compressedBytes = count;
  return result;
}

int CAvidDNxHDApi::DecodeFrame(void const* input, void* output, uint32_t a, uint32_t b) {
  if (sdk == nullptr) return ZelErrorNotReady;
  return sdk->DecodeFrame(input, output, a, b);
}

int32_t CAvidDNxHDApi::GetCompressedBufferSize() {
  if (sdk == nullptr) return ZelErrorNotReady;
  return sdk->GetCompressedBufferSize();
}

}  // namespace Morvalen::Zel
