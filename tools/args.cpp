#include "args.h"

#include <algorithm>

#include "framedsp/framedsp.h"

namespace framedsp {
namespace cli {

namespace {

bool spelled(const OptionDef &def, const std::string &word) {
  const std::string all = def.spellings;
  size_t start = 0;
  while (start <= all.size()) {
    const size_t bar = std::min(all.find('|', start), all.size());
    if (all.compare(start, bar - start, word) == 0 && bar - start == word.size()) return true;
    start = bar + 1;
  }
  return false;
}

std::string name_of(const OptionDef &def) {
  const std::string all = def.spellings;
  return all.substr(0, all.find('|'));
}

}  // namespace

Parsed parse(const std::vector<std::string> &args, const std::vector<OptionDef> &defs) {
  Parsed parsed;
  bool options_done = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string &arg = args[i];
    if (options_done || arg.size() < 2 || arg[0] != '-') {
      parsed.positional.push_back(arg);
      continue;
    }
    if (arg == "--") {
      options_done = true;
      continue;
    }
    if (arg == "--help" || arg == "-h") {
      parsed.help = true;
      continue;
    }
    if (arg == "--progress") {
      parsed.progress = true;
      continue;
    }
    std::string word = arg, value;
    bool inline_value = false;
    const size_t eq = arg.find('=');
    if (arg.compare(0, 2, "--") == 0 && eq != std::string::npos) {
      word = arg.substr(0, eq);
      value = arg.substr(eq + 1);
      inline_value = true;
    }
    const OptionDef *def = nullptr;
    for (const OptionDef &d : defs) {
      if (spelled(d, word)) def = &d;
    }
    if (!def) throw UsageError("unknown option " + word);
    if (def->value && !inline_value) {
      if (i + 1 >= args.size()) throw UsageError(word + " needs a value");
      value = args[++i];
    } else if (!def->value && inline_value) {
      throw UsageError(word + " takes no value");
    }
    std::vector<std::string> &values = parsed.options[name_of(*def)];
    if (!values.empty() && !def->repeat) throw UsageError(word + " given twice");
    values.push_back(value);
  }
  return parsed;
}

uint32_t parse_count(const std::string &text, const char *option, uint32_t minimum) {
  bool digits = !text.empty() && text.size() <= 9;
  for (char c : text) digits = digits && c >= '0' && c <= '9';
  if (!digits) throw UsageError(std::string(option) + " expects a number, got '" + text + "'");
  const uint32_t value = static_cast<uint32_t>(std::stoul(text));
  if (value < minimum) {
    throw UsageError(std::string(option) + " must be at least " + std::to_string(minimum));
  }
  return value;
}

bool parse_size(const std::string &text, uint32_t *width, uint32_t *height) {
  const size_t x = text.find_first_of("xX");
  if (x == std::string::npos || x == 0 || x + 1 >= text.size()) return false;
  auto number = [](const std::string &s, uint32_t *out) {
    if (s.empty() || s.size() > 9) return false;
    for (char c : s) {
      if (c < '0' || c > '9') return false;
    }
    *out = static_cast<uint32_t>(std::stoul(s));
    return *out > 0;
  };
  return number(text.substr(0, x), width) && number(text.substr(x + 1), height);
}

void parse_size_option(const Parsed &parsed, const char *option, uint32_t *width,
                       uint32_t *height) {
  const std::string text = parsed.get(option);
  if (!parse_size(text, width, height)) {
    const std::string shown = std::string(option) == "--size" ? "-s" : option;
    throw UsageError(shown + " expects WxH with positive numbers, e.g. 720x486; got '" + text +
                     "'");
  }
}

uint32_t parse_interpolation(const std::string &text) {
  if (text == "nearest") return DSP_SCALER_FILTER_NEAREST;
  if (text == "linear") return DSP_SCALER_FILTER_LINEAR;
  throw UsageError("--filter expects nearest or linear, got '" + text + "'");
}

uint32_t parse_field(const std::string &text, const char *option) {
  if (text == "a" || text == "A") return DSP_BUFFER_TYPE_FIELD_A;
  if (text == "b" || text == "B") return DSP_BUFFER_TYPE_FIELD_B;
  throw UsageError(std::string(option) + " expects a or b, got '" + text + "'");
}

void expect_positional(const Parsed &parsed, size_t count) {
  if (parsed.positional.size() < count) throw UsageError("missing files; " + parsed.usage);
  if (parsed.positional.size() > count) {
    throw UsageError("unexpected argument '" + parsed.positional[count] + "'");
  }
}

}  // namespace cli
}  // namespace framedsp
