#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "zel/base/export.h"
#include "zel/mux/engine/callbacks.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine_calls.h"
#include "zel/mux/etv_track.h"
#include "zel/mux/tarnwick_interfaces.h"
#include "zel/runtime/list.h"
#include "zel/runtime/properties.h"
#include "zel/runtime/string.h"
#include "zel/runtime/value_types.h"

namespace Morvalen::Zel {

/// Multiplexes elementary streams into one MPEG-2 transport stream (ISO/IEC 13818-1). Used once:
/// `Create`; `AddEtvTrack` any number of times; `Begin`; the `Add...Stream` calls; `Multiplex`, and
/// again as long as it answers ZelErrorOverrun; release. After another failure of `Multiplex` only
/// `GetErrorMessage` is of use.
///
/// All calls come on one thread, and the providers and the consumer are called on it. The engine's
/// callbacks are process-wide: two objects share them, since they are the same functions.
class ZEL_API CTarnwickMultiplexerApi final : public CDependenciesObjectVS2012 {
 public:
  /// Registration descriptor "BSSD" of SMPTE 302M streams.
  static constexpr std::array<uint8_t, 6> descriptor = {5, 4, 'B', 'S', 'S', 'D'};
  /// AES channel status that SMPTE 302M streams carry.
  static constexpr std::array<uint8_t, tsm_channel_status_size> chStat = {
      0x81, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xD9};
  /// Elementary streams and channel pairs in all.
  static constexpr int32_t kStreamInfos = 32;

  /// An object with one reference for the caller; null when memory is short.
  static CTarnwickMultiplexerApi* Create();
  /// The same on other calls than the engine's own, which are borrowed.
  static CTarnwickMultiplexerApi* Create(EngineCalls const& engine);

  /// Adds a track for `Begin`. @return what `CEtvTrack::Init` says, or ZelErrorOutOfMemory.
  int AddEtvTrack(char const* sourcePath, char const* tablePathBase, int32_t pid,
                  unsigned char const* descriptors, int32_t descriptorsLength);

  /// Reads the properties and makes the configuration. The consumer is borrowed until the end.
  /// @return 0; what a property read or the demultiplexer reports; ZelErrorCancelled with the text
  ///   in the property "ErrorMessage"; ZelErrorFailed for a configuration file that can't be used;
  ///   ZelErrorNullArgument; ZelErrorOutOfMemory; ZelErrorNotSupported.
  int Begin(ITarnwickConsumer* consumer, IProperties* properties);

  /// Adds a video stream. With a configuration read from a file, its first video record that nobody
  /// feeds is the stream, and nothing but the provider is looked at.
  /// @param pid its PID, or 0: the multiplexer allots one.
  /// @param provider who gives its bytes; borrowed until the end.
  /// @param properties the stream's own, read during the call.
  /// @param code four-character code of the coding. @param bitRate bits a second, 0 unknown.
  /// @param frameRate pictures a second; looked at for HEVC.
  /// @return 0; ZelErrorNotReady without a configuration; ZelErrorQueueFull when there would be
  /// more
  ///   than 32 streams and channel pairs in all; what a property read reports;
  ///   ZelErrorNullArgument; ZelErrorOutOfMemory.
  int AddVideoStream(int32_t pid, ITarnwickProvider* provider, IProperties* properties,
                     uint32_t code, int32_t bitRate, Rational64 const& frameRate);
  /// Adds an audio stream: PCM as SMPTE 302M, anything else as it is.
  /// @param pid its PID, or 0: the multiplexer allots one.
  /// @param referenceVideoPid for PCM: PID of the video that the frames of samples follow, or 0.
  /// @param streamCount channel pairs that the provider is asked for; 1 for coded audio.
  /// @param provider who gives its bytes, of PCM pair by pair; borrowed until the end.
  /// @param properties the stream's own, read during the call.
  /// @param code four-character code of the coding. @param channels of PCM.
  /// @param bitsPerSample of PCM. @param rateParameter rate of PCM.
  /// @param bitRate bits a second, 0 unknown.
  /// @return as `AddVideoStream`; ZelErrorNotSupported for PCM of an odd number of channels, or of
  /// more than eight.
  int AddAudioStream(int32_t pid, int32_t referenceVideoPid, int32_t& streamCount,
                     ITarnwickProvider* provider, IProperties* properties, uint32_t code,
                     int32_t channels, int32_t bitsPerSample, int32_t rateParameter,
                     int32_t bitRate);
  /// Adds a stream of ready made packets.
  /// @param bitRate bits a second. @param pid its PID. @param provider who gives the packets.
  /// @return as `AddVideoStream`.
  int AddDataStream(int32_t bitRate, int32_t pid, ITarnwickProvider* provider);

  /// Appends the provider's ISO 639 language descriptor to an array of byte strings.
  /// @return the provider's result.
  int AddLanguageDescriptor(ITarnwickProvider* provider, TarnArray* descriptors);
  /// The same with its DVB AC-3 descriptor.
  int AddDvbAc3AudioDescriptor(ITarnwickProvider* provider, TarnArray* descriptors);

  /// The next free one, filled in; null when all are taken.
  TarnStreamInfo* GetNewStreamInfo(ITarnwickProvider* provider, int32_t index);

  /// Runs to the end. Paths are UTF-8; the first may be null, the other is read in pass 1 only.
  /// @return 0; ZelErrorOverrun: run the next pass; ZelErrorCannotOpen for the configuration
  ///   output; ZelErrorFailed otherwise, with `GetErrorMessage`; ZelErrorNotReady before `Begin`.
  int Multiplex(char const* configurationOutputPath, int32_t pass, char const* firstPassFile);

  /// The decimal number behind a label. @return whether the label stands in the text and a value
  ///   follows it.
  bool GetInt32Value(CString const* text, char const* label, int32_t& value) const;
  /// The same with a hexadecimal number.
  bool GetHexValue(CString const* text, char const* label, int32_t& value) const;
  /// The same with a number with a fraction.
  bool GetDoubleValue(CString const* text, char const* label, double& value) const;

  /// Text of the failure, borrowed; null when there was none.
  CString* GetErrorMessage() const { return errorMessage; }

  /// What the engine calls for progress. @return 0 to go on, -1 to stop.
  static int ProgressHandler(void* object, tsm_stats const* stats);
  /// What the engine calls for a message.
  static void ErrorHandler(void* object, int fatal, int32_t code, char const* text);
  /// What the configuration's reader calls for a message.
  static void ConfigurationErrorHandler(void* consumer, int severity, int code, char const* text,
                                        int reserved);
  /// What the engine calls with finished packets: they go to the consumer. @return 0 to go on, 1 to
  ///   stop.
  static int WriteBytes(void* consumer, uint8_t const* data, int32_t size, int32_t packetKind);
  /// What the engine calls for more of a stream: its provider fills the buffer.
  /// @return 1 when the input has ended, else 0.
  static int LoadCircularBuffer(void* streamInfo, cbuf* buffer);

  /// The configuration, for inspection; valid until `Multiplex` has ended.
  tsm_config* GetConfiguration() const { return config; }
  /// Sum of the streams' rates, bits a second.
  double GetComponentRate() const { return componentRate; }

 private:
  // A record that pass 0 took out of its slot: it goes back before the configuration is freed.
  template <class Record>
  struct Dropped {
    Record** slot;
    Record* record;
  };

  explicit CTarnwickMultiplexerApi(EngineCalls const& calls);
  // Deliberate: doesn't free the configuration. Pinned by multiplexer_api_test.cpp.
  ~CTarnwickMultiplexerApi() override = default;

  void InstallCallbacks() const;
  int ReadConfigurationFile(CString* path, ITarnwickConsumer* consumer, IProperties* properties);
  void SetErrorPolicy(int32_t behaviour, int32_t threshold);
  int AddScte35Stream(CString* file, int32_t pid);
  int AddEtvStreams();
  int PrepareNextPass(int32_t pass, char const* firstPassFile);
  int DropUnboundRecords();
  int WriteConfiguration(char const* path) const;
  int Run();
  int Verdict(tsm_stats const& stats);
  int Finish(int result);
  void SetText(RObject<CString>& holder, char const* text);
  void NoteTwoPassMessage();

  EngineCalls const& engine;
  tsm_config* config = nullptr;
  RObject<CString> lastMessage;
  RObject<CString> errorMessage;
  int32_t lastErrorCode = 0;
  int32_t errorThreshold = 0;
  int32_t headroom = 0;
  double componentRate = 0;
  RObject<CDependenciesList<CEtvTrack>> etvTracks;
  std::array<TarnStreamInfo, kStreamInfos> streamInfos{};
  int32_t streamInfoCount = 0;
  bool enable2Pass = false;
  bool needsAnotherPass = false;
  bool abort = false;
  int32_t extraVideoRate = 0;
  int32_t firstVideoRate = 0;
  int32_t muxRate = 0;
  int32_t stopOnError = 0;
  int32_t stopOnWarning = 0;
  std::vector<Dropped<tsm_video>> droppedVideo;
  std::vector<Dropped<tsm_audio>> droppedAudio;
};

}  // namespace Morvalen::Zel
