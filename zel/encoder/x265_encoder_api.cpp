#include "zel/encoder/x265_encoder_api.h"

#include <x265.h>

#include <cassert>
#include <cstddef>
#include <new>
#include <span>

#include "zel/encoder/encoder_configuration.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {
namespace {

// x265 lays the NAL units of one call out one after another in memory.
int32_t TotalSize(std::span<x265_nal const> nals) {
  int32_t size = 0;
  for (x265_nal const& nal : nals) size += int32_t(nal.sizeBytes);
  return size;
}

// Points x265 at a picture in the caller's memory. x265 takes the planes as writable, but only
// reads them.
void SetPlanes(x265_picture& picture, unsigned char const* frame, int32_t width, int32_t height) {
  unsigned char* const luma = const_cast<unsigned char*>(frame);
  size_t const lumaSize = size_t(width) * size_t(height);
  picture.bitDepth = 8;
  picture.planes[0] = luma;
  picture.planes[1] = luma + lumaSize;
  picture.planes[2] = luma + lumaSize + lumaSize / 4;
  picture.stride[0] = width;
  picture.stride[1] = picture.stride[2] = width / 2;
}

bool IsCodedAlone(int sliceType) {
  return sliceType == X265_TYPE_IDR || sliceType == X265_TYPE_I;
}

// x265 3.5 wants to see further ahead than one run of B pictures, where other releases are content
// with as far. So a lookahead that was raised to the number of B pictures gets one more only when
// x265 insists.
x265_encoder* OpenWithLookahead(x265_param& parameters) {
  x265_encoder* const encoder = x265_encoder_open(&parameters);
  bool const isShortByOne =
      parameters.bframes > 0 && parameters.lookaheadDepth == parameters.bframes;
  if (encoder != nullptr || !isShortByOne) return encoder;
  ++parameters.lookaheadDepth;
  return x265_encoder_open(&parameters);
}

// x265 is C++ behind its C functions, and some of its allocations throw when there is no memory.
// Nothing may throw across this library's boundary.

int Open(x265_param& parameters, x265_encoder*& encoder) {
  try {
    encoder = OpenWithLookahead(parameters);
  } catch (std::bad_alloc const&) {
    return ZelErrorOutOfMemory;
  }
  return encoder != nullptr ? 0 : ZelErrorNotSupported;
}

// As x265_encoder_encode. `input` is null to drain.
int EncodePicture(x265_encoder* encoder, x265_picture* input, x265_picture& output,
                  std::span<x265_nal const>& nals) {
  x265_nal* first = nullptr;
  uint32_t count = 0;
  try {
    int const result = x265_encoder_encode(encoder, &first, &count, input, &output);
    nals = {first, count};
    return result;
  } catch (std::bad_alloc const&) {
    return -1;
  }
}

}  // namespace

CMorvalenX265EncoderApi::CHevcUserData::CHevcUserData(int64_t frameDuration,
                                                      int64_t presentationTime,
                                                      CDependenciesObjectVS2012* userObject)
    : duration(frameDuration),
      pts(presentationTime),
      object(userObject),
      previous(nullptr),
      next(nullptr) {
  if (object != nullptr) object->Acquire();
}

CMorvalenX265EncoderApi::CHevcUserData::~CHevcUserData() {
  if (object != nullptr) object->Release();
}

CMorvalenX265EncoderApi* CMorvalenX265EncoderApi::Create(IMorvalenEncoderConsumer* consumer) {
  return new CMorvalenX265EncoderApi(consumer);
}

CMorvalenX265EncoderApi::CMorvalenX265EncoderApi(IMorvalenEncoderConsumer* encoderConsumer)
    : parameters(x265_param_alloc()),
      encoder(nullptr),
      consumer(encoderConsumer),
      frameDuration(0),
      nextPts(0),
      nextDts(0),
      width(0),
      height(0),
      pending(nullptr),
      draining(false) {
  // x265_param_free follows pointers in there, also when Begin never came to set them.
  if (parameters != nullptr) *parameters = x265_param{};
}

// Closes the encoder too, so that a process may open and end encoders all its life. x265's own
// clean-up of the process is left alone: other encoders, not ours perhaps, may be running.
CMorvalenX265EncoderApi::~CMorvalenX265EncoderApi() {
  // x265 first: until it is closed it has the addresses of pending user data.
  if (encoder != nullptr) x265_encoder_close(encoder);
  while (pending != nullptr) {
    CHevcUserData* const userData = pending;
    Remove(userData);
    userData->Release();
  }
  if (parameters != nullptr) x265_param_free(parameters);
}

void CMorvalenX265EncoderApi::Release() {
  CDependenciesObjectVS2012::Release();
}

int CMorvalenX265EncoderApi::Begin(int32_t pictureWidth, int32_t pictureHeight, int64_t duration,
                                   int64_t timeScale, int32_t threads, int64_t bitRate) {
  if (encoder != nullptr) return ZelErrorFailed;
  if (consumer == nullptr) return ZelErrorNullArgument;
  if (parameters == nullptr) return ZelErrorOutOfMemory;
  zel::encoder::EncoderSettings const settings{pictureWidth, pictureHeight, duration,
                                               timeScale,    threads,       bitRate};
  if (!AreUsable(settings)) return ZelErrorInvalidArgument;
  frameDuration = duration;
  width = pictureWidth;
  height = pictureHeight;
  if (int const result = Configure(*parameters, *consumer, settings); result < 0) return result;
  if (int const result = Open(*parameters, encoder); result < 0) return result;
  int const result = WriteStreamHeaders();
  if (result < 0) {
    x265_encoder_close(encoder);
    encoder = nullptr;
  }
  return result;
}

int CMorvalenX265EncoderApi::WriteStreamHeaders() {
  x265_nal* nals = nullptr;
  uint32_t nalCount = 0;
  int const result = x265_encoder_headers(encoder, &nals, &nalCount);
  if (result < 0) return result;
  if (nalCount > 0) consumer->WriteHeaders(nals->payload, TotalSize({nals, nalCount}));
  return result;
}

int CMorvalenX265EncoderApi::Encode(unsigned char const* frame,
                                    CDependenciesObjectVS2012* userObject) {
  if (encoder == nullptr) return ZelErrorNotReady;
  if (frame != nullptr && draining) return ZelErrorInvalidArgument;
  x265_picture output;
  x265_picture_init(parameters, &output);
  x265_picture input;
  if (frame != nullptr) {
    x265_picture_init(parameters, &input);
    SetPlanes(input, frame, width, height);
    auto* const userData = new CHevcUserData(frameDuration, nextPts, userObject);
    if (userData == nullptr) return ZelErrorOutOfMemory;
    Prepend(userData);
    input.userData = userData;
  }
  draining = frame == nullptr;
  nextPts += frameDuration;

  std::span<x265_nal const> nals;
  int const result = EncodePicture(encoder, frame != nullptr ? &input : nullptr, output, nals);
  // On failure the user data stays pending: x265 doesn't say whether it took the picture.
  if (result < 0) return ZelErrorFailed;
  if (result == 0) return 0;
  assert(!nals.empty() && output.userData != nullptr);
  DeliverSample(nals.front().payload, TotalSize(nals), output.sliceType,
                static_cast<CHevcUserData*>(output.userData));
  return 0;
}

// Takes over the encoder's reference to the user data of the picture that came out.
void CMorvalenX265EncoderApi::DeliverSample(unsigned char const* data, int32_t size, int sliceType,
                                            CHevcUserData* userData) {
  Remove(userData);
  int32_t const dependent = IsCodedAlone(sliceType) ? 0 : 1;
  // The low halves are subtracted, so that the offset is right however long the stream runs.
  auto const compositionOffset = int32_t(uint32_t(userData->pts) - uint32_t(nextDts));
  consumer->WriteSample(data, dependent, size, compositionOffset, userData);
  userData->Release();
  nextDts += frameDuration;
}

void CMorvalenX265EncoderApi::Prepend(CHevcUserData* userData) {
  userData->next = pending;
  if (pending != nullptr) pending->previous = userData;
  pending = userData;
}

void CMorvalenX265EncoderApi::Remove(CHevcUserData* userData) {
  CHevcUserData*& link = userData->previous != nullptr ? userData->previous->next : pending;
  link = userData->next;
  if (userData->next != nullptr) userData->next->previous = userData->previous;
  userData->previous = userData->next = nullptr;
}

}  // namespace Morvalen::Zel
