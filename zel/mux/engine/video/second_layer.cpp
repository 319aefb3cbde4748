#include "zel/mux/engine/video/second_layer.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "zel/base/annex_b.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run/reporting.h"
#include "zel/mux/engine/video/layer_splitter.h"
#include "zel/mux/engine/video/video_descriptors.h"
#include "zel/mux/engine/video/video_messages.h"
#include "zel/syntax/avc_nal.h"
#include "zel/syntax/avc_parameter_sets.h"

namespace zel::mux {

namespace {

using syntax::AvcHrd;
using syntax::AvcNalHeader;
using syntax::AvcSubsetSps;

constexpr int kMvc = 1;
constexpr uint8_t kMvcStreamType = 32;
constexpr uint8_t kSvcStreamType = 31;
constexpr int32_t kLookedAt = 1 << 20;

// The first of each that was split off.
struct found_layer {
  std::optional<AvcNalHeader> slice;
  std::optional<AvcSubsetSps> set;
};

found_layer look_at(const elementary_input& input) {
  std::vector<uint8_t> bytes(static_cast<size_t>(std::min(input.filled(), kLookedAt)));
  input.copy(input.read_position(), bytes.data(), static_cast<int32_t>(bytes.size()));
  found_layer found;
  std::vector<uint8_t> rbsp;
  for (const base::NalUnit& unit : base::NalUnits(bytes)) {
    AvcNalHeader nal;
    if (!syntax::parseAvcNalHeader(unit.bytes, nal)) continue;
    if (nal.type == syntax::kAvcSliceExtension && !found.slice) found.slice = nal;
    if (nal.type != syntax::kAvcSubsetSps || found.set) continue;
    AvcSubsetSps set;
    base::removeEmulationPrevention(unit.bytes.subspan(nal.size), rbsp);
    if (syntax::parseAvcSubsetSps(rbsp, set)) found.set = std::move(set);
  }
  return found;
}

// The place of the slice's view in the order of the set's views; -1: it isn't there.
int view_index(const found_layer& layer) {
  if (!layer.set || !layer.set->mvcExtension) return -1;
  const auto& views = layer.set->views;
  for (size_t i = 0; i < views.size(); ++i) {
    if (views[i].viewId == layer.slice->viewId) return static_cast<int>(i);
  }
  return -1;
}

// A layer that gives no rate of its own counts as much as the base layer.
void add_rates(video_state& state, const found_layer& layer) {
  video_characteristics& video = state.characteristics;
  const AvcHrd* hrd = nullptr;
  if (layer.set) {
    const syntax::AvcVui& vui = layer.set->base.vui;
    if (vui.nalHrdPresent) {
      hrd = &vui.nalHrd;
    } else if (vui.vclHrdPresent) {
      hrd = &vui.vclHrd;
    }
    for (const auto& point : layer.set->vuiPoints) {
      if (hrd == nullptr && point.nalHrdPresent) hrd = &point.nalHrd;
      if (hrd == nullptr && point.vclHrdPresent) hrd = &point.vclHrd;
    }
  }
  if (hrd == nullptr) {
    video.dependentBitRate = video.bitRate;
    video.vbvSize *= 2;
    return;
  }
  constexpr uint64_t kMostBits = uint64_t{1} << 32;
  video.dependentBitRate = static_cast<double>(hrd->bitRate(hrd->cpbCount - 1));
  video.vbvSize +=
      static_cast<int32_t>(std::min(hrd->cpbBits(hrd->cpbCount - 1), kMostBits) / 8 / 2048);
}

void describe_mvc(video_state& state, int view) {
  const video_characteristics& video = state.characteristics;
  pmt_description& pmt = state.stream->pmt;
  pmt.layerStreamType = kMvcStreamType;
  add_automatic_descriptor(pmt.descriptors, mvc_extension_descriptor(video.bitRate, 0));
  add_automatic_descriptor(pmt.descriptors, hierarchy_descriptor(hierarchy::base_layer));
  add_automatic_descriptor(pmt.layerDescriptors,
                           mvc_extension_descriptor(video.dependentBitRate, view));
  add_automatic_descriptor(pmt.layerDescriptors, hierarchy_descriptor(hierarchy::mvc));
}

void describe_svc(video_state& state, const found_layer& layer) {
  const video_characteristics& video = state.characteristics;
  pmt_description& pmt = state.stream->pmt;
  pmt.layerStreamType = kSvcStreamType;
  svc_extension base;
  base.width = video.width;
  base.height = video.height;
  base.framesPerSecond = video.frameRate;
  base.bitRate = video.bitRate;
  svc_extension enhancement = base;
  enhancement.bitRate = video.dependentBitRate;
  enhancement.dependencyId = layer.slice->dependencyId;
  if (layer.set) {
    enhancement.width = static_cast<int32_t>(layer.set->base.croppedWidth());
    enhancement.height = static_cast<int32_t>(layer.set->base.croppedHeight());
  }
  add_automatic_descriptor(pmt.descriptors, svc_extension_descriptor(base));
  add_automatic_descriptor(pmt.descriptors, hierarchy_descriptor(hierarchy::base_layer));
  add_automatic_descriptor(pmt.layerDescriptors, svc_extension_descriptor(enhancement));
  add_automatic_descriptor(pmt.layerDescriptors, hierarchy_descriptor(hierarchy::spatial));
}

}  // namespace

void start_layers(video_state& state, bool carriesPcr) {
  const int pid = state.stream->pid();
  const bool mvc = state.config->subStreamType == kMvc;
  const found_layer layer = look_at(state.dependentInput);
  if (!layer.slice) {
    state.report->warn(mvc ? kMvcNotPresent : kSvcNotPresent, pid);
    return;
  }
  if (carriesPcr) state.report->fatal(kLayersNeedPcrPid, pid);
  const int view = mvc ? view_index(layer) : 0;
  if (view < 0) state.report->fatal(kMvcNoViewId, pid);
  // Layers of the same dependency_id add quality only.
  if (!mvc && (!layer.slice->svc || layer.slice->dependencyId == 0)) {
    state.report->fatal(kOnlySpatialSvc, pid);
  }
  state.stream->pmt.layerPid = state.config->pidAvcss;
  add_rates(state, layer);
  if (mvc) {
    describe_mvc(state, std::max(view, 1));
  } else {
    describe_svc(state, layer);
  }
}

}  // namespace zel::mux
