#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "tools/zel/dnxhd/frame_form.h"

namespace zel::tool {

/// Declares --format, which takes one of frameForms(); `help` is what it is for, to which their
/// names are added.
void addFrameForm(CLI::App& app, const FrameForm*& form, const std::string& help);

}  // namespace zel::tool
