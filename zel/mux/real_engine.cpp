#include "zel/mux/real_engine.h"

#include "zel/mux/engine/engine.h"

namespace Morvalen::Zel {
namespace {

tsm_handle* HandleOf(void* handle) {
  return static_cast<tsm_handle*>(handle);
}

constexpr EngineCalls kRealEngine = {
    .setCallbacks = tsm_set_callbacks,
    // Neither outputs nor inputs have defaults: the consumer and the providers stand in for files.
    .readConfiguration =
        [](FILE* file, void* user, tsm_config_message_callback callback) {
          return tsm_config_read(file, nullptr, nullptr, nullptr, user, callback);
        },
    .writeConfiguration = tsm_config_write,
    .open = [](tsm_config* config, int32_t* rate) -> void* { return tsm_open(config, rate); },
    .run = [](void* handle) -> int { return tsm_run(HandleOf(handle)); },
    .getStats = [](void* handle, tsm_stats* stats) { tsm_get_stats(HandleOf(handle), stats); },
    .close = [](void* handle) { tsm_close(HandleOf(handle)); },
};

}  // namespace

EngineCalls const& RealEngine() {
  return kRealEngine;
}

}  // namespace Morvalen::Zel
