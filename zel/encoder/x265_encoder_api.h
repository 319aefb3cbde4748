#pragma once

#include <cstdint>

#include "zel/base/export.h"
#include "zel/runtime/object.h"

struct x265_encoder;
struct x265_param;

namespace Morvalen::Zel {

/// What an HEVC encoder offers its caller. One thread uses it.
class ZEL_API IMorvalenX265Encoder {
 public:
  // The order of the virtual operations is part of the interface.

  /// Configures and opens the encoder. `CMorvalenX265EncoderApi::Begin` tells it in full.
  virtual int Begin(int32_t width, int32_t height, int64_t frameDuration, int64_t timeScale,
                    int32_t threads, int64_t bitRate) = 0;
  /// Encodes one picture, or drains when `frame` is null.
  virtual int Encode(unsigned char const* frame, CDependenciesObjectVS2012* userObject) = 0;
  /// Gives the caller's reference back. The last one ends the encoder.
  virtual void Release() = 0;

 protected:
  ~IMorvalenX265Encoder() = default;
};

/// The same shape for an MPEG-2 encoder. This library does not implement it: it stands here so that
/// callers of both encoders agree on it.
class ZEL_API IMorvalenX262Encoder {
 public:
  // The order of the virtual operations is part of the interface.

  /// As `IMorvalenX265Encoder::Begin`.
  virtual int Begin(int32_t width, int32_t height, int64_t frameDuration, int64_t timeScale,
                    int32_t threads, int64_t bitRate) = 0;
  /// As `IMorvalenX265Encoder::Encode`.
  virtual int Encode(unsigned char const* frame, CDependenciesObjectVS2012* userObject) = 0;
  /// As `IMorvalenX265Encoder::Release`.
  virtual void Release() = 0;

 protected:
  ~IMorvalenX262Encoder() = default;
};

/// Implemented by the caller of an encoder: answers its questions and takes what it makes. Every
/// operation is called from within `Begin` or `Encode`, on the thread that called them.
class ZEL_API IMorvalenEncoderConsumer {
 public:
  // The order of the virtual operations is part of the interface.

  /// Reads a property, in the manner of `IProperties::GetProperty`: writes its value to `buffer`
  /// when the value is at most `size` bytes long. `CodeBookProperty` has the names.
  /// @return the number of bytes delivered, 0 if there is no such property, negative on failure.
  ///   A number other than the one asked for makes the property count as absent.
  virtual int GetProperty(char const* name, int32_t size, unsigned char* buffer) = 0;

  /// Takes a compressed access unit, in decoding order. The result is not looked at.
  /// @param data, size an Annex B byte stream, valid until the call returns.
  /// @param dependent 0 for a picture that is coded without others (IDR or I), 1 otherwise.
  /// @param compositionOffset presentation time minus decoding time. Decoding times run in steps of
  ///   one frame duration from 0; the unit is that of `Begin`'s `frameDuration`.
  /// @param userData the `CMorvalenX265EncoderApi::CHevcUserData` of the picture that is
  ///   coded here. Borrowed: acquire it to keep it.
  virtual int WriteSample(unsigned char const* data, int32_t dependent, int32_t size,
                          int32_t compositionOffset, CDependenciesObjectVS2012* userData) = 0;

  /// Takes the stream's headers (the parameter sets), once, from within `Begin`. The result is not
  /// looked at.
  /// @param data, size an Annex B byte stream, valid until the call returns.
  virtual int WriteHeaders(unsigned char const* data, int32_t size) = 0;

 protected:
  ~IMorvalenEncoderConsumer() = default;
};

/// HEVC encoder over x265: planar 8-bit 4:2:0 pictures in, one a call; compressed access units with
/// their timing out, to a consumer.
///
/// The configuration comes from the consumer: the `CodeBookProperty::X265...` keys first, then the
/// x265 command line at `CodeBookProperty::X265CommandLine`, which has the last word. The preset is
/// the one key that must be there.
///
/// Threads: no lock is taken; one thread at a time calls `Begin` and `Encode`, and the consumer is
/// called on it. x265 runs threads of its own, which never call back. `Acquire` and `Release` may
/// be called on any thread. Any number of objects may work at the same time on a thread each.
///
/// The same pictures and options give the same bytes, run after run, with three exceptions. When
/// `threads` is 0, x265 picks the number of frame threads by the machine's processors, and that
/// number shows in the stream. An average bit rate with several frame threads may come out
/// differently once in a while, since what a picture gets depends on what those in work at the time
/// have cost. Under a decoder buffer (CBR, or the VBV keys), x265 corrects its
/// quantiser within a picture by what its rows have cost so far, and how far each row has come when
/// it looks is a matter of timing: "--no-wpp" on the command line, which codes the rows one after
/// the other, makes that repeatable as well. x265's own information SEI, which it puts into the
/// headers, names the machine's instruction sets too.
///
/// x265 is kept from writing to standard error: its log level is "none" until the command line's
/// "--log-level" says otherwise.
class ZEL_API CMorvalenX265EncoderApi final : public CDependenciesObjectVS2012,
                                              public IMorvalenX265Encoder {
 public:
  /// What comes back with an access unit: the times of its picture, and what the caller gave with
  /// it.
  class ZEL_API CHevcUserData : public CDependenciesObjectVS2012 {
   public:
    int64_t duration;                   ///< the `frameDuration` given to `Begin`
    int64_t pts;                        ///< presentation time, in the same unit; 0 for the first
    CDependenciesObjectVS2012* object;  ///< `Encode`'s `userObject` or null; one reference is held

   private:
    friend class CMorvalenX265EncoderApi;
    CHevcUserData(int64_t frameDuration, int64_t presentationTime,
                  CDependenciesObjectVS2012* userObject);
    ~CHevcUserData() override;

    // The list of those that ride through the encoder: see CMorvalenX265EncoderApi::pending.
    CHevcUserData* previous;
    CHevcUserData* next;
  };

  /// Makes an encoder with one reference for the caller.
  /// @param consumer borrowed, for as long as the encoder lives; with null `Begin` will fail.
  /// @return null when out of memory.
  static CMorvalenX265EncoderApi* Create(IMorvalenEncoderConsumer* consumer);

  /// Reads the configuration from the consumer, opens the encoder and gives the stream's headers to
  /// the consumer. It succeeds once; after a failure it may be tried again.
  /// @param width, height of the pictures, in pixels, even.
  /// @param frameDuration, timeScale the frame rate is `timeScale / frameDuration` frames a second;
  ///   both at least 1, and at most 4294967295.
  /// @param threads the number of pictures that x265 works on at a time (`frame-threads`); 0 lets
  /// it
  ///   choose.
  /// @param bitRate bits a second, for the rate control methods that want one.
  /// @return the size of the headers in bytes, or negative on failure:
  /// - ZelErrorFailed: `Begin` has succeeded before. The running encoder is left as it is.
  /// - ZelErrorNullArgument: there is no consumer.
  /// - ZelErrorOutOfMemory: no memory for the parameters or the encoder.
  /// - ZelErrorInvalidArgument: a size that is zero, negative, odd or above 2^30 samples; a
  ///   `frameDuration` or `timeScale` out of range; no preset; a preset, tuning or profile number
  ///   that has no name; a real number that isn't finite; a bit rate or buffer size that leaves
  ///   32 bits; a command line of exactly 2048 bytes, which leaves no room for its end.
  /// - ZelErrorNotSupported: x265 refuses the configuration, or would crash or hang on it, or the
  ///   command line asks for denser chroma than 4:2:0.
  /// - The consumer's negative result for the preset, unchanged.
  /// - x265's negative result for the preset, the profile or the headers, unchanged.
  ///
  /// Keys other than the preset that can't be read are passed over, and so is a command line that
  /// is longer than the 2048 bytes that are asked for, if the consumer answers with a negative
  /// result. A value in the command line that x265 refuses is ignored.
  int Begin(int32_t width, int32_t height, int64_t frameDuration, int64_t timeScale,
            int32_t threads, int64_t bitRate) override;

  /// Encodes one picture; a null `frame` drains. At most one access unit goes to the consumer
  /// before the call returns: that of an earlier picture, as a rule. To drain, call it with null
  /// until as many access units came out as pictures went in. Once draining has begun there is no
  /// way back.
  /// @param frame `width * height` bytes of Y, then a quarter of that of U, then of V. Borrowed for
  ///   the call.
  /// @param userObject comes back as `CHevcUserData::object`; may be null. One reference is kept
  ///   until the access unit of this picture has gone to the consumer, or the encoder ends. Not
  ///   used when `frame` is null.
  /// @return 0, whether or not something came out, or negative on failure:
  /// - ZelErrorNotReady: no `Begin` has succeeded.
  /// - ZelErrorInvalidArgument: a picture after draining has begun.
  /// - ZelErrorOutOfMemory: no memory for the user data.
  /// - ZelErrorFailed: x265 refuses the picture, or has broken down.
  int Encode(unsigned char const* frame, CDependenciesObjectVS2012* userObject) override;

  /// As `CDependenciesObjectVS2012::Release`. The last one closes the x265 encoder, releases the
  /// user data of pictures that never came out and frees the parameters; nothing more goes to the
  /// consumer.
  void Release() override;

 private:
  explicit CMorvalenX265EncoderApi(IMorvalenEncoderConsumer* encoderConsumer);
  ~CMorvalenX265EncoderApi() override;

  int WriteStreamHeaders();
  void DeliverSample(unsigned char const* data, int32_t size, int sliceType,
                     CHevcUserData* userData);
  void Prepend(CHevcUserData* userData);
  void Remove(CHevcUserData* userData);

  x265_param* parameters;  // owned; without meaning until Begin
  x265_encoder* encoder;   // null until Begin succeeds
  IMorvalenEncoderConsumer* consumer;
  int64_t frameDuration;
  int64_t nextPts;  // grows by frameDuration with each Encode
  int64_t nextDts;  // grows by frameDuration with each sample that comes out
  int32_t width;
  int32_t height;
  // x265 knows the user data of the pictures inside it by their address only. The list holds the
  // references, so that those of pictures that never come out can be released.
  CHevcUserData* pending;
  bool draining;
};

}  // namespace Morvalen::Zel
