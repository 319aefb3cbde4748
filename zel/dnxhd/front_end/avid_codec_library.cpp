// The process-wide part of the codec: the flag that it is in use.

#include <atomic>
#include <new>

#include "zel/dnxhd/front_end/avid_codec_interface.h"
#include "zel/dnxhd/front_end/avid_hd_codec.h"
#include "zel/dnxhd/result_words.h"

namespace Morvalen::Zel {

namespace {

// Read by every coding operation, on any thread.
std::atomic<bool> initialized{false};

}  // namespace

int AvidHDCodecLibrary::Initialize() {
  return initialized.exchange(true) ? zel::dnxhd::kErrorNoInitialization : zel::dnxhd::kSuccessful;
}

void AvidHDCodecLibrary::Terminate() {
  initialized = false;
}

bool AvidHDCodecLibrary::IsInitialized() {
  return initialized;
}

IAvidCodecInterface* AvidHDCodecLibrary::CreateCodec() {
  if (!IsInitialized()) return nullptr;
  auto context = zel::dnxhd::CodecContext::Create();
  if (context == nullptr) return nullptr;
  return new (std::nothrow) AvidHDCodec(std::move(context));
}

char const* AvidHDCodecLibrary::GetResultText(int code) {
  return zel::dnxhd::ResultTextOf(code);
}

}  // namespace Morvalen::Zel
