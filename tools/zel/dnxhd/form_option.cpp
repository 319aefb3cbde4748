#include "tools/zel/dnxhd/form_option.h"

#include <fmt/format.h>

#include "tools/zel/option_values.h"

namespace zel::tool {

void addFrameForm(CLI::App& app, const FrameForm*& form, const std::string& help) {
  std::string names;
  std::string lines;
  for (const FrameForm& row : frameForms()) {
    names += fmt::format("{}{}", names.empty() ? "" : ", ", row.name);
    lines += fmt::format("{}{} ({})", lines.empty() ? "" : ", ", row.name, row.help);
  }
  const auto take = [&form, names](const std::string& text) {
    form = findFrameForm(text);
    if (form == nullptr) throwBadValue("--format", text, "one of " + names);
  };
  app.add_option_function<std::string>("--format", take, help + ": " + lines)
      ->type_name("NAME")
      ->take_last();
}

}  // namespace zel::tool
