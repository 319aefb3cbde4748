#include "zel/mux/etv_track.h"

#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {

int CEtvTrack::Init(char const* source, char const* tablePathBase, int32_t trackPid,
                    unsigned char const* descriptors, int32_t descriptorsLength) {
  if (source == nullptr || tablePathBase == nullptr) return ZelErrorNullArgument;
  if (descriptorsLength < 0) return ZelErrorInvalidArgument;
  pid = trackPid;
  sourcePath = new CString(source);
  tablePath = CString::WithFormat("%s.%d.table", tablePathBase, trackPid);
  if (sourcePath == nullptr || tablePath == nullptr) return ZelErrorOutOfMemory;
  descriptorBytes = nullptr;
  if (descriptors == nullptr || descriptorsLength == 0) return 0;
  descriptorBytes = new CByteArray(descriptors, descriptorsLength);
  return descriptorBytes != nullptr ? 0 : ZelErrorOutOfMemory;
}

unsigned char const* CEtvTrack::GetDescriptors() const {
  return descriptorBytes != nullptr ? descriptorBytes->GetData() : nullptr;
}

int32_t CEtvTrack::GetDescriptorsLength() const {
  return descriptorBytes != nullptr ? descriptorBytes->GetLength() : 0;
}

}  // namespace Morvalen::Zel
