#pragma once

#include "tests/support/transport_judge/elementary_units.h"

namespace zel::test {

void walkVideo(Coding coding, std::span<const uint8_t> stream, Units& units);
void walkAudio(Coding coding, std::span<const uint8_t> stream, Units& units);

}  // namespace zel::test
