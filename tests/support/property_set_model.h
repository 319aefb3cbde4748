#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace zel::test {

/// Reads `program` as operations on two property sets and on a model of them, which is a list of
/// names and bytes, and compares everything observable as it goes. Any bytes are a program.
/// @return what differed first; empty when nothing did.
std::string runPropertySetProgram(std::span<const uint8_t> program);

}  // namespace zel::test
