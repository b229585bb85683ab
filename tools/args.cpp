#include "args.h"

#include "formats.h"
#include "raw_io.h"

namespace framedsp {
namespace cli {

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
    std::string name = arg, value;
    bool inline_value = false;
    const size_t eq = arg.find('=');
    if (arg.compare(0, 2, "--") == 0 && eq != std::string::npos) {
      name = arg.substr(0, eq);
      value = arg.substr(eq + 1);
      inline_value = true;
    }
    const OptionDef *def = nullptr;
    for (const OptionDef &s : defs) {
      if (name == s.name || (s.alias && name == s.alias)) def = &s;
    }
    if (!def) throw UsageError("unknown option " + name);
    if (def->value && !inline_value) {
      if (i + 1 >= args.size()) throw UsageError(name + " needs a value");
      value = args[++i];
    } else if (!def->value && inline_value) {
      throw UsageError(name + " takes no value");
    }
    if (parsed.options.count(def->name)) throw UsageError(std::string(def->name) + " given twice");
    parsed.options[def->name] = value;
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

void parse_size_option(const Parsed &parsed, uint32_t *width, uint32_t *height) {
  const std::string text = parsed.get("--size");
  if (!parse_size(text, width, height)) {
    throw UsageError("-s expects WxH with positive numbers, e.g. 720x486; got '" + text + "'");
  }
}

void parse_size_and_format(const Parsed &parsed, uint32_t *width, uint32_t *height,
                           uint32_t *format) {
  if (!parsed.has("--size")) throw UsageError("missing frame size (-s WxH)");
  if (!parsed.has("--format")) throw UsageError("missing pixel format (--format F)");
  parse_size_option(parsed, width, height);
  std::string error;
  if (!parse_format(parsed.get("--format"), format, &error)) throw UsageError(error);
}

void expect_positional(const Parsed &parsed, size_t count, const char *what) {
  if (parsed.positional.size() < count) throw UsageError(std::string("missing ") + what);
  if (parsed.positional.size() > count) {
    throw UsageError("unexpected argument '" + parsed.positional[count] + "'");
  }
}

}  // namespace cli
}  // namespace framedsp
