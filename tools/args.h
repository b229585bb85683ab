// Command-line parsing shared by the commands of the framedsp tool.
#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace framedsp {
namespace cli {

constexpr int kExitOk = 0;
constexpr int kExitRuntime = 1;
constexpr int kExitUsage = 2;

// Bad usage (exit 2, with a pointer to the help) and runtime failures (exit 1).
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};
struct RuntimeError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct OptionDef {
  const char *name;   // long form, "--size"
  const char *alias;  // short form or nullptr
  bool value;
};

struct Parsed {
  std::vector<std::string> positional;
  std::map<std::string, std::string> options;  // by long name
  bool help = false;
  bool progress = false;  // --progress, accepted by every command
  bool has(const char *name) const { return options.count(name) != 0; }
  std::string get(const char *name) const {
    auto it = options.find(name);
    return it == options.end() ? std::string() : it->second;
  }
};

// Options may come anywhere; "--" ends them; --name=value works for options with values.
// --help/-h and --progress are understood by every command.
Parsed parse(const std::vector<std::string> &args, const std::vector<OptionDef> &defs);

// A decimal number of at most 9 digits, at least `minimum`.
uint32_t parse_count(const std::string &text, const char *option, uint32_t minimum);

// --size as WxH.
void parse_size_option(const Parsed &parsed, uint32_t *width, uint32_t *height);

// --size and --format, both required: the frame size as WxH and the pixel format (name or code).
void parse_size_and_format(const Parsed &parsed, uint32_t *width, uint32_t *height,
                           uint32_t *format);

// Exactly `count` positional arguments; `what` names the missing ones.
void expect_positional(const Parsed &parsed, size_t count, const char *what);

}  // namespace cli
}  // namespace framedsp
