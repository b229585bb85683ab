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
  const char *spellings;  // "--format|-f|-pix_fmt": the first is the name the command asks for
  bool value;             // takes a value
  bool repeat = false;    // may be given more than once (-i)
};

struct Parsed {
  std::string command;  // the command's name and its usage line, for messages
  std::string usage;
  std::vector<std::string> positional;
  std::map<std::string, std::vector<std::string>> options;  // by name, in the order given
  bool help = false;
  bool progress = false;  // --progress, accepted by every command
  bool has(const char *name) const { return options.count(name) != 0; }
  std::string get(const char *name) const {
    auto it = options.find(name);
    return it == options.end() ? std::string() : it->second.back();
  }
  std::vector<std::string> all(const char *name) const {
    auto it = options.find(name);
    return it == options.end() ? std::vector<std::string>() : it->second;
  }
};

// Options may come anywhere; "--" ends them; --name=value works for options with values.
// --help/-h and --progress are understood by every command.
Parsed parse(const std::vector<std::string> &args, const std::vector<OptionDef> &defs);

// A decimal number of at most 9 digits, at least `minimum`.
uint32_t parse_count(const std::string &text, const char *option, uint32_t minimum);

// "WxH", both decimal and non-zero.
bool parse_size(const std::string &text, uint32_t *width, uint32_t *height);

// The value of a WxH option; UsageError naming the option when it is malformed.
void parse_size_option(const Parsed &parsed, const char *option, uint32_t *width,
                       uint32_t *height);

// "nearest" or "linear" (DSP_SCALER_FILTER_*).
uint32_t parse_interpolation(const std::string &text);

// "a"/"b" (either case): DSP_BUFFER_TYPE_FIELD_A or _B.
uint32_t parse_field(const std::string &text, const char *option);

// Exactly `count` positional arguments; the usage line is shown when some are missing.
void expect_positional(const Parsed &parsed, size_t count);

}  // namespace cli
}  // namespace framedsp
