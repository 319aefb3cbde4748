#pragma once

#include <cstdio>
#include <string>

#include "tools/zel/console.h"

namespace zel::tool {

/// A console whose streams are temporary files, and what was written to them.
class CapturedConsole {
 public:
  CapturedConsole() : out_(std::tmpfile()), err_(std::tmpfile()), console(out_, err_) {}
  ~CapturedConsole() {
    std::fclose(out_);
    std::fclose(err_);
  }
  CapturedConsole(const CapturedConsole&) = delete;
  CapturedConsole& operator=(const CapturedConsole&) = delete;

  std::string out() { return contents(out_); }
  std::string err() { return contents(err_); }

 private:
  static std::string contents(std::FILE* file) {
    std::fflush(file);
    std::rewind(file);
    std::string text;
    for (int c; (c = std::fgetc(file)) != EOF;) text += static_cast<char>(c);
    return text;
  }

  std::FILE* out_;
  std::FILE* err_;

 public:
  Console console;
};

}  // namespace zel::tool
