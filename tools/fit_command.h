// `framedsp fit`: the sizes and scale factors DspScalerHelper computes for a source and a
// destination of given sizes and picture aspect ratios.
#pragma once

#include <string>
#include <vector>

namespace framedsp {
namespace cli {

extern const char kFitHelp[];
int cmd_fit(const std::vector<std::string> &args);

}  // namespace cli
}  // namespace framedsp
