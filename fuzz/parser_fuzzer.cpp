// Fuzzes the argument parser with any arguments, one per line.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "convert/cli/argument_parser.h"

namespace keldo::convert {
namespace {

std::vector<std::string> Lines(std::string_view text) {
  std::vector<std::string> lines(1);
  for (const char character : text) {
    if (character == '\n') {
      lines.emplace_back();
    } else {
      lines.back() += character;
    }
  }
  return lines;
}

void Require(bool holds) {
  if (!holds) std::abort();
}

void CheckStep(const Step& step) {
  Require(step.box.width >= 1 && step.box.height >= 1);
  Require(step.quality >= 1 && step.quality <= 100);
  Require(step.rotate >= 0 && step.rotate < 360 && step.rotate % 90 == 0);
  Require(!step.output.empty());
  if (!step.unsharp) return;
  // Not a number compares as false.
  Require(step.unsharp->radius >= 0 && step.unsharp->sigma >= 0);
  Require(step.unsharp->gain >= 0 && step.unsharp->threshold >= 0);
}

void Check(const Command& command, const std::vector<std::string>& arguments) {
  const Plan& plan = command.plan;
  Require(!plan.steps.empty() && plan.steps.size() == command.outputs.size());
  for (std::size_t i = 0; i < plan.steps.size(); ++i) {
    CheckStep(plan.steps[i]);
    Require(arguments.at(command.outputs[i]) == plan.steps[i].output);
  }
  Require(!command.inputs.empty());
  Require(arguments.at(command.inputs.front()) == plan.input);
  Require(plan.icc_profile.empty() == (command.inputs.size() == 1));
}

}  // namespace
}  // namespace keldo::convert

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> arguments =
      keldo::convert::Lines({reinterpret_cast<const char*>(data), size});
  const auto command = keldo::convert::ParseCommand(arguments);
  if (command) keldo::convert::Check(*command, arguments);
  return 0;
}
