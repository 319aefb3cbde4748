#include <CLI/CLI.hpp>

int main(int argc, char** argv) {
  CLI::App app("zel: broadcast engines on the command line");
  CLI11_PARSE(app, argc, argv);
  return 0;
}
